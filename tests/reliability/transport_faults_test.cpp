// Faults around the transport: peers that stall, send garbage or die, and
// a serving process that dies under its client. Every case runs in a process
// of its own (the server thread never stops) under a socket name of its own.
#include <android/log.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <future>
#include <thread>

#include "peer.h"
#include "processes.h"
#include "qorpkcs11/comm/client.h"
#include "qorpkcs11/comm/server.h"

namespace qor::test {
namespace {

class Quiet : public ::testing::Test {
 protected:
  // Thousands of exchanges: their debug lines would only bury a failure.
  void SetUp() override { __android_log_set_minimum_priority(ANDROID_LOG_INFO); }
  void TearDown() override { qorpkcs11_comm_client_deinit(); }

  std::string id_ = unique_server_id();
};

class InProcessServer : public Quiet {
 protected:
  void SetUp() override {
    Quiet::SetUp();
    ASSERT_EQ(0, qorpkcs11_comm_server_init(id_.c_str(), reverse_or_hold));
  }
};

void expect_handshake(const Fd& conn) {
  write_all(conn, version_request());
  EXPECT_EQ(version_response(), read_up_to(conn, 20));
}

void expect_reversed(const Fd& conn, const std::string& payload) {
  write_all(conn, command(text(payload)));
  EXPECT_EQ(response(reversed(text(payload))), read_up_to(conn, 16 + 2 + payload.size()));
}

// A new connection of the library's client is served whole.
void expect_new_client_served(const std::string& id, const std::string& payload) {
  ASSERT_EQ(0, init_client(id));
  const Exchange ex = execute(text(payload));
  EXPECT_EQ(0, ex.rc);
  EXPECT_EQ(reversed(text(payload)), ex.reply);
}

// One connection at a time, with no timeout on the serving side: a peer
// that stops in the middle of a frame holds the server, and every other
// client's handshake times out, until that peer goes away.
TEST_F(InProcessServer, PeerStallingMidFrameHoldsTheServerUntilItLeaves) {
  Fd staller = connect_raw(id_);
  expect_handshake(staller);
  write_all(staller, header(101, 103, 0, 100) + text("only part of it"));

  comm::comm_set_receive_timeout_for_tests({0, 300 * 1000});
  EXPECT_EQ(3, qorpkcs11_comm_client_init(id_.c_str()));

  staller.reset();
  expect_new_client_served(id_, "after the staller");
}

struct GarbageCase {
  const char* name;
  Bytes garbage;
  bool answered;  // whether a handshake right behind it is answered
  Bytes own_answer = {};  // what the garbage itself gets back
};
void PrintTo(const GarbageCase& c, std::ostream* os) { *os << c.name; }

class GarbageTest : public InProcessServer, public ::testing::WithParamInterface<GarbageCase> {};

// Whole frames of garbage cost nothing but themselves; garbage that is not
// a whole frame leaves the connection out of step, so a client that gets no
// answer reconnects and is served.
TEST_P(GarbageTest, ThenAValidHandshakeOnTheSameOrANewConnection) {
  const GarbageCase& c = GetParam();
  Fd conn = connect_raw(id_);
  write_all(conn, c.garbage + version_request());
  if (c.answered) {
    const Bytes expected = c.own_answer + version_response();
    EXPECT_EQ(expected, read_up_to(conn, expected.size()));
    expect_reversed(conn, "same connection");
  } else {
    EXPECT_TRUE(silent_for(conn, 200));
    conn = connect_raw(id_);
    expect_handshake(conn);
    expect_reversed(conn, "new connection");
  }
}

INSTANTIATE_TEST_SUITE_P(
    Frames, GarbageTest,
    ::testing::Values(
        GarbageCase{"HeaderSizedNoise", Bytes(16, 0xEE), true},
        GarbageCase{"UnknownFrameWithPayload", header(999, 103, 0, 8) + Bytes(8, 0xAB), true},
        GarbageCase{"ResponseHeader", header(101, 104, 0, 4), true},
        GarbageCase{"WrongVersion", header(100, 103, 0, 4) + word(7), true},
        GarbageCase{"CommandBeforeHandshake", command(text("early")), true,
                    response(reversed(text("early")))},
        GarbageCase{"SevenBytes", text("garbage"), false},
        GarbageCase{"HeaderWithoutItsPayload", header(101, 103, 0, 64), false}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(InProcessServer, ThousandConnectHandshakeDisconnectCyclesLeakNothing) {
  ASSERT_EQ(0, init_client(id_));
  ASSERT_EQ(0, execute(text("warm up")).rc);
  const int descriptors = open_descriptors();
  ASSERT_EQ(0, qorpkcs11_comm_client_deinit());

  int failures = 0;
  for (int i = 0; i < 1000 && failures < 5; ++i) {
    const int init = qorpkcs11_comm_client_init(id_.c_str());
    const int deinit = qorpkcs11_comm_client_deinit();
    if (init != 0 || deinit != 0) {
      ++failures;
      ADD_FAILURE() << "cycle " << i << ": init " << init << ", deinit " << deinit;
    }
  }
  expect_new_client_served(id_, "after the cycles");
  // The server closed every earlier connection before it accepted this one.
  EXPECT_EQ(descriptors, open_descriptors());
}

TEST_F(Quiet, ServingProcessKilledMidCallThenRestarted) {
  // Long enough that a timeout can never pass for the peer's death.
  comm::comm_set_receive_timeout_for_tests({60, 0});
  auto server = std::make_unique<ServerProcess>(id_);
  ASSERT_EQ(0, init_client(id_));
  ASSERT_EQ(0, execute(text("before")).rc);

  auto held = std::async(std::launch::async, [] { return execute(kHold); });
  ASSERT_TRUE(server->wait_until_holding());
  EXPECT_TRUE(server->kill());
  const Exchange ex = held.get();
  EXPECT_EQ(13, ex.rc) << "the peer's death is seen at once, as a closed peer";
  EXPECT_FALSE(ex.touched);

  // The dead connection stays in use until deinit: errors, never SIGPIPE.
  const int dead = execute(text("on the dead socket")).rc;
  EXPECT_TRUE(dead == 11 || dead == 13) << dead;

  server = std::make_unique<ServerProcess>(id_);
  EXPECT_EQ(0, qorpkcs11_comm_client_deinit());
  expect_new_client_served(id_, "restarted");
}

// What a client process has done when it is killed, and how the test knows
// it got that far.
struct KilledClientCase {
  const char* name;
  void (*before_kill)(const std::string& id, int ready);  // runs in the child
  bool in_callback;  // the server holds the call when the child dies
};
void PrintTo(const KilledClientCase& c, std::ostream* os) { *os << c.name; }

void send_and_report(const std::string& id, int ready, const Bytes& bytes) {
  Fd conn = connect_raw(id);
  write_all(conn, bytes);
  (void)!::write(ready, "r", 1);
  for (;;) pause();
}

const KilledClientCase kKilledClients[] = {
    {"WhileTheServerProcessesItsCall",
     [](const std::string& id, int) {
       if (init_client(id) == 0) execute(kHold);
       for (;;) pause();
     },
     true},
    {"InTheMiddleOfItsPayload",
     [](const std::string& id, int ready) { send_and_report(id, ready, header(101, 103, 0, 100) + text("half")); },
     false},
    {"InTheMiddleOfAHeader",
     [](const std::string& id, int ready) { send_and_report(id, ready, version_request() + Bytes(7, 1)); },
     false},
};

class KilledClientTest : public Quiet, public ::testing::WithParamInterface<KilledClientCase> {};

TEST_P(KilledClientTest, ServerReturnsToAcceptAndServesTheNextClient) {
  const KilledClientCase& c = GetParam();
  int ready[2];
  ASSERT_EQ(0, ::pipe(ready));
  // The child comes first: a process with a server thread is not forked.
  Child client([&] { c.before_kill(id_, ready[1]); });
  ASSERT_EQ(0, qorpkcs11_comm_server_init(id_.c_str(), reverse_or_hold));
  ASSERT_TRUE(c.in_callback ? wait_until_held() : wait_for_byte(ready[0]));
  EXPECT_TRUE(client.kill());
  release_hold();

  expect_new_client_served(id_, "next client");
  ::close(ready[0]);
  ::close(ready[1]);
}

INSTANTIATE_TEST_SUITE_P(Moments, KilledClientTest, ::testing::ValuesIn(kKilledClients),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace qor::test
