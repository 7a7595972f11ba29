// The transport client against a scripted raw server.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstring>
#include <functional>
#include <future>
#include <thread>

#include "log_capture.h"
#include "peer.h"
#include "qorpkcs11/comm/client.h"
#include "qorpkcs11/common/log.h"

namespace qor::test {
namespace {

using comm::client_recv_data;
using comm::client_send_data;
using comm::comm_set_receive_timeout_for_tests;

constexpr const char* kTag = log::kCommClient;

class ClientTest : public ::testing::Test {
 protected:
  void TearDown() override {
    qorpkcs11_comm_client_deinit();  // lets a script blocked on the client finish
    if (script_.joinable()) script_.join();
  }

  // Runs `script` on each accepted connection, in order.
  void serve(std::vector<std::function<void(const Fd&)>> scripts) {
    script_ = std::thread([this, scripts] {
      for (const auto& script : scripts) {
        Fd conn = accept_raw(listener_);
        if (!conn) return;
        script(conn);
      }
    });
  }
  void serve(std::function<void(const Fd&)> script) { serve(std::vector{std::move(script)}); }

  // Handshakes, then runs `script`.
  void connect_with(std::function<void(const Fd&)> script) {
    serve([script](const Fd& conn) {
      ASSERT_TRUE(answer_handshake(conn));
      script(conn);
    });
    ASSERT_EQ(0, qorpkcs11_comm_client_init(id_.c_str()));
  }

  std::string id_ = unique_server_id();
  Fd listener_ = listen_raw(id_);
  std::thread script_;
  LogCapture logs_;
};

void expect_request(const Fd& conn, const std::string& payload) {
  EXPECT_EQ(command(text(payload)), read_up_to(conn, 16 + payload.size()));
}

void expect_reply(const std::string& request, const std::string& reply) {
  Exchange ex = execute(text(request));
  EXPECT_EQ(0, ex.rc);
  EXPECT_EQ(text(reply), ex.reply);
}

TEST_F(ClientTest, SendsExactFramesAndReturnsEachReply) {
  connect_with([](const Fd& conn) {
    expect_request(conn, "first request");
    write_all(conn, response(text("first reply")));
    expect_request(conn, "2");
    write_all(conn, response(text("second, longer reply")));
  });
  EXPECT_TRUE(logs_.contains(kTag, "Exit - Init success"));

  expect_reply("first request", "first reply");
  expect_reply("2", "second, longer reply");
  EXPECT_TRUE(logs_.contains(kTag, "Exit - Success"));
}

struct HandshakeCase {
  const char* name;
  Bytes answer;
  bool hang_up;  // after the answer, instead of waiting for the client to close
  int inner;
};
void PrintTo(const HandshakeCase& c, std::ostream* os) { *os << c.name; }

class ClientHandshakeTest : public ClientTest, public ::testing::WithParamInterface<HandshakeCase> {};

TEST_P(ClientHandshakeTest, FailsWith3ClosesTheSocketAndStaysClosed) {
  const HandshakeCase& c = GetParam();
  serve({[&c](const Fd& conn) {
           ASSERT_EQ(version_request(), read_up_to(conn, 20));
           write_all(conn, c.answer);
           if (!c.hang_up) {
             EXPECT_TRUE(closed_by_peer(conn));
           }
         },
         [](const Fd& conn) { ASSERT_TRUE(answer_handshake(conn)); }});

  EXPECT_EQ(3, qorpkcs11_comm_client_init(id_.c_str()));
  EXPECT_TRUE(logs_.contains(kTag, "Client check version failed " + std::to_string(c.inner)));
  EXPECT_EQ(2, execute(text("x")).rc);
  // A failed init leaves nothing behind: the next one starts afresh.
  EXPECT_EQ(0, qorpkcs11_comm_client_init(id_.c_str()));
}

// The checks run in a fixed order: id, data_len, type, status, word.
INSTANTIATE_TEST_SUITE_P(
    Answers, ClientHandshakeTest,
    ::testing::Values(HandshakeCase{"WrongId", header(101, 104, 0, 4) + word(1), false, 15},
                      HandshakeCase{"IdBeforeAll", header(99, 99, 9, 8) + word(1) + word(1), false, 15},
                      HandshakeCase{"WrongLen", header(100, 104, 0, 8) + word(1) + word(1), false, 17},
                      HandshakeCase{"LenBeforeType", header(100, 103, 9, 2) + Bytes(2), false, 17},
                      HandshakeCase{"WrongType", header(100, 103, 0, 4) + word(1), false, 16},
                      HandshakeCase{"TypeBeforeStatus", header(100, 0, 9, 4) + word(1), false, 16},
                      HandshakeCase{"NonzeroStatus", header(100, 104, 1, 4) + word(1), false, 20},
                      HandshakeCase{"WrongVersion", header(100, 104, 0, 4) + word(2), false, 4},
                      HandshakeCase{"HalfAnswer", header(100, 104, 0, 4), true, 13},
                      HandshakeCase{"HangsUp", {}, true, 13}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ClientTest, InitWhileConnectedReturns1AndKeepsTheLink) {
  connect_with([](const Fd& conn) {
    expect_request(conn, "still here");
    write_all(conn, response(text("yes")));
  });
  EXPECT_EQ(1, qorpkcs11_comm_client_init("@elsewhere"));
  EXPECT_TRUE(logs_.contains(kTag, "Already initialized"));
  expect_reply("still here", "yes");
}

TEST_F(ClientTest, ConnectFailureReturns7) {
  EXPECT_EQ(7, qorpkcs11_comm_client_init((id_ + ".nobody").c_str()));
  EXPECT_TRUE(logs_.contains(kTag, "Socket connect failed"));
  EXPECT_EQ(2, execute(text("x")).rc);
}

TEST_F(ClientTest, ExecuteAndDeinitNeedAConnection) {
  EXPECT_EQ(2, execute(text("x")).rc);
  EXPECT_TRUE(logs_.contains(kTag, "Not initialized"));
  EXPECT_EQ(2, qorpkcs11_comm_client_deinit());

  connect_with([](const Fd& conn) { EXPECT_TRUE(closed_by_peer(conn)); });
  EXPECT_EQ(0, qorpkcs11_comm_client_deinit());
  EXPECT_EQ(2, qorpkcs11_comm_client_deinit());
  EXPECT_EQ(2, execute(text("x")).rc);
}

TEST_F(ClientTest, InvalidExecuteArgumentsReturn5AndSendNothing) {
  connect_with([](const Fd& conn) {
    expect_request(conn, "valid");  // the first bytes on the wire
    write_all(conn, response(text("ok")));
  });
  uint8_t byte = 1;
  uint8_t* out = nullptr;
  uint32_t out_len = 0;
  EXPECT_EQ(5, qorpkcs11_comm_client_execute_command(&byte, 0, &out, &out_len));
  EXPECT_EQ(5, qorpkcs11_comm_client_execute_command(&byte, -1, &out, &out_len));
  EXPECT_EQ(5, qorpkcs11_comm_client_execute_command(nullptr, 1, &out, &out_len));
  EXPECT_EQ(5, qorpkcs11_comm_client_execute_command(&byte, 1, nullptr, &out_len));
  EXPECT_EQ(5, qorpkcs11_comm_client_execute_command(&byte, 1, &out, nullptr));
  EXPECT_TRUE(logs_.contains(kTag, "Invalid arguments"));
  expect_reply("valid", "ok");
}

TEST_F(ClientTest, NonzeroStatusSucceedsWithoutReplyAndTheStalePayloadIsDrained) {
  connect_with([](const Fd& conn) {
    expect_request(conn, "a");
    write_all(conn, header(101, 104, 1, 5) + text("stale"));
    expect_request(conn, "b");
    write_all(conn, response(text("fresh")));
  });
  Exchange a = execute(text("a"));
  EXPECT_EQ(0, a.rc);
  EXPECT_FALSE(a.touched);
  EXPECT_TRUE(logs_.contains(kTag, "Client receive header failed 0"));

  expect_reply("b", "fresh");
  EXPECT_TRUE(logs_.contains(kTag, "Recv returned :5"));
}

struct ReplyCase {
  const char* name;
  Bytes reply;
  int rc;
  const char* log;
};
void PrintTo(const ReplyCase& c, std::ostream* os) { *os << c.name; }

class ClientReplyTest : public ClientTest, public ::testing::WithParamInterface<ReplyCase> {};

TEST_P(ClientReplyTest, FailsWithItsCodeAndLeavesOutputsAlone) {
  const ReplyCase& c = GetParam();
  connect_with([&c](const Fd& conn) {
    expect_request(conn, "req");
    write_all(conn, c.reply);  // then hang up
  });
  Exchange ex = execute(text("req"));
  EXPECT_EQ(c.rc, ex.rc);
  EXPECT_FALSE(ex.touched);
  EXPECT_TRUE(logs_.contains(kTag, c.log));
}

INSTANTIATE_TEST_SUITE_P(
    Replies, ClientReplyTest,
    ::testing::Values(
        ReplyCase{"EmptyReply", header(101, 104, 0, 0), 23, "Client header error 0"},
        ReplyCase{"VersionId", header(100, 104, 0, 3) + text("abc"), 23, "Client header error 0"},
        ReplyCase{"RequestType", header(101, 103, 0, 3) + text("abc"), 23, "Client header error 0"},
        ReplyCase{"LengthPast2GiB", header(101, 104, 0, INT32_MIN), 21, "Malloc failed"},
        ReplyCase{"LengthAll1s", header(101, 104, 0, -1), 21, "Malloc failed"},
        ReplyCase{"ClosedBeforeReply", {}, 13, "Client receive header failed 13"},
        ReplyCase{"ClosedInHeader", Bytes(7, 0x65), 13, "Client receive header failed 13"},
        ReplyCase{"ClosedInPayload", header(101, 104, 0, 10) + text("12345"), 13,
                  "Client receive data failed 13"},
        ReplyCase{"LargestLength", header(101, 104, 0, INT32_MAX), 13,
                  "Client receive data failed 13"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ClientTest, SilentServerTimesOutWith10AndALateReplyIsDrained) {
  comm_set_receive_timeout_for_tests({0, 200 * 1000});
  std::promise<void> late_reply_sent;
  std::promise<void> timed_out;
  connect_with([&](const Fd& conn) {
    expect_request(conn, "one");
    timed_out.get_future().wait();
    write_all(conn, response(text("late")));
    late_reply_sent.set_value();
    expect_request(conn, "two");
    write_all(conn, response(text("on time")));
  });
  Exchange one = execute(text("one"));
  EXPECT_EQ(10, one.rc);
  EXPECT_TRUE(logs_.contains(kTag, "Client receive header failed 10"));
  timed_out.set_value();

  late_reply_sent.get_future().wait();
  expect_reply("two", "on time");
}

// Closing the descriptor under a blocked exchange would neither wake it nor
// keep its number from being reused for another file while it still holds it.
TEST_F(ClientTest, DeinitEndsAnExchangeInFlightBeforeItCloses) {
  comm_set_receive_timeout_for_tests({30, 0});
  std::promise<void> request_read;
  connect_with([&](const Fd& conn) {
    expect_request(conn, "pin");
    request_read.set_value();
    EXPECT_TRUE(closed_by_peer(conn, 30000));  // never answers
  });
  std::thread caller([&] { EXPECT_EQ(13, execute(text("pin")).rc); });
  request_read.get_future().wait();
  EXPECT_EQ(0, qorpkcs11_comm_client_deinit());
  // The exchange's last line, written while it still holds the call lock.
  EXPECT_TRUE(logs_.contains(kTag, "Exit 13")) << "deinit returned while the exchange still held the socket";
  caller.join();
  EXPECT_EQ(2, execute(text("after")).rc);
}

TEST_F(ClientTest, ServerIdDifferingOnlyInTheFirstCharacterConnects) {
  std::string other = id_;
  other[0] = other[0] == '@' ? 'Z' : '@';
  serve([](const Fd& conn) { ASSERT_TRUE(answer_handshake(conn)); });
  EXPECT_EQ(0, qorpkcs11_comm_client_init(other.c_str()));
}

TEST(ClientAddressTest, LongIdsNameTheSocketByTheirFirst107Characters) {
  std::string id = unique_server_id();
  id.resize(200, 'x');
  Fd listener = listen_raw(id.substr(0, 107));
  std::thread script([&listener] { ASSERT_TRUE(answer_handshake(accept_raw(listener))); });

  std::string beyond = id;
  beyond[107] = beyond[199] = 'Q';  // past the copied characters
  EXPECT_EQ(0, qorpkcs11_comm_client_init(beyond.c_str()));
  qorpkcs11_comm_client_deinit();
  script.join();

  std::string within = id;
  within[106] = 'Q';  // the last character copied
  EXPECT_EQ(7, qorpkcs11_comm_client_init(within.c_str()));
}

TEST(ClientAddressTest, TheZeroPaddingIsPartOfTheName) {
  // A peer that binds the same name with the usual short length is another
  // socket: the client always connects with the full 110 bytes.
  const std::string id = unique_server_id();
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::memcpy(addr.sun_path + 1, id.data() + 1, id.size() - 1);
  Fd listener(::socket(AF_UNIX, SOCK_STREAM, 0));
  ASSERT_EQ(0, ::bind(listener.get(), reinterpret_cast<sockaddr*>(&addr),
                      static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + id.size())));
  ASSERT_EQ(0, ::listen(listener.get(), 1));
  EXPECT_EQ(7, qorpkcs11_comm_client_init(id.c_str()));
}

class ClientLoopArgsTest : public ::testing::TestWithParam<BadLoopArgs> {};

TEST_P(ClientLoopArgsTest, Return5AndPrintToStandardOutput) {
  const BadLoopArgs& c = GetParam();
  uint8_t buf[4] = {};
  void* p = c.null_buf ? nullptr : buf;
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(5, client_send_data(c.sock, p, c.len));
  EXPECT_EQ(5, client_recv_data(c.sock, p, c.len));
  EXPECT_EQ(
      "[QORPKCS11-COMM_CLIENT]:client_send_data() - Invalid arguments\n"
      "[QORPKCS11-COMM_CLIENT]:client_recv_data() - Invalid arguments\n",
      ::testing::internal::GetCapturedStdout());
}

INSTANTIATE_TEST_SUITE_P(Args, ClientLoopArgsTest,
                         ::testing::ValuesIn(kBadLoopArgs),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace qor::test
