// The transport's access measures against real peers: other processes and,
// where the test runs as root, other users. Each test starts one server
// thread; ctest runs every test in a process of its own.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>

#include "log_capture.h"
#include "peer.h"
#include "qorpkcs11/comm/access.h"
#include "qorpkcs11/comm/client.h"
#include "qorpkcs11/comm/server.h"
#include "qorpkcs11/common/log.h"

namespace qor::test {
namespace {

constexpr uid_t kNobody = 65534;
std::atomic<int> gServed{0};

int answer(const void*, int32_t, void** out, uint32_t* out_len) {
  ++gServed;
  *out = std::malloc(1);
  *static_cast<char*>(*out) = 'k';
  *out_len = 1;
  return 0;
}

// Runs `body` in a child process (as `uid` unless it is -1) and gives its
// exit status; `ready` is called in the parent once the child says so.
int in_child(int64_t uid, const std::function<int()>& body, const std::function<void()>& ready = {}) {
  int signal[2];
  if (::pipe(signal) != 0) return -1;
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(signal[0]);
    if (uid >= 0 && ::setuid(static_cast<uid_t>(uid)) != 0) ::_exit(90);
    const int status = body();
    ::_exit(status);
  }
  ::close(signal[1]);
  if (ready) ready();
  ::close(signal[0]);
  int status = -1;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool served_here(const std::string& id) {
  Fd conn = connect_raw(id);
  write_all(conn, version_request());
  return read_up_to(conn, version_response().size()) == version_response();
}

// A peer's connection ends without a byte of an answer.
int refused(const std::string& id) {
  Fd conn = connect_raw(id);
  write_all(conn, version_request());
  return read_up_to(conn, 1).empty() ? 0 : 1;
}

class Access : public ::testing::Test {
 protected:
  void start() {
    ASSERT_EQ(0, qorpkcs11_comm_server_init(id_.c_str(), answer));
    ASSERT_EQ(0, qorpkcs11_comm_server_wait_listening(5000));
  }
  bool logged(const char* tag, const std::string& line) { return logs_.contains(tag, line); }
  bool logged_starting(const char* tag, const std::string& start) {
    for (const std::string& line : logs_.messages(tag))
      if (line.rfind(start, 0) == 0) return true;
    return false;
  }

  LogCapture logs_;
  std::string id_ = unique_server_id();
};

TEST_F(Access, APeerOfAnotherUserIsClosedBeforeAByteIsRead) {
  if (::geteuid() != 0) GTEST_SKIP() << "switching to another user id needs root";
  qorpkcs11_comm_server_allow_uid(::geteuid());
  start();
  EXPECT_EQ(0, in_child(kNobody, [&] { return refused(id_); }));
  EXPECT_TRUE(logged_starting(log::kCommServer, "Peer refused - uid:65534 pid:"));
  EXPECT_EQ(0, gServed);
  EXPECT_TRUE(served_here(id_));
}

TEST_F(Access, OnlyTheAllowedProcessIsServed) {
  qorpkcs11_comm_server_allow_pid(::getpid());
  start();
  EXPECT_EQ(0, in_child(-1, [&] { return refused(id_); }));
  EXPECT_TRUE(served_here(id_));
}

TEST_F(Access, AnyPeerIsServedWhileNoneIsNamed) {
  start();
  EXPECT_EQ(0, in_child(-1, [&] { return refused(id_) == 0 ? 1 : 0; }));
}

// The impostor takes the name first; the client sends it nothing.
TEST_F(Access, AClientRefusesAServerThatIsNotTheOneExpected) {
  const bool root = ::geteuid() == 0;
  if (root) {
    qorpkcs11_comm_client_expect_server_uid(::geteuid());
  } else {
    qorpkcs11_comm_client_expect_server_pid(::getpid());  // the impostor is another process
  }
  int ready[2];
  ASSERT_EQ(0, ::pipe(ready));
  const int impostor = in_child(
      root ? kNobody : -1,
      [&] {
        Fd listener = listen_raw(id_);
        const char go = 1;
        if (::write(ready[1], &go, 1) != 1) return 2;
        Fd conn = accept_raw(listener);
        return closed_by_peer(conn) ? 0 : 1;  // closed without a byte sent
      },
      [&] {
        char go = 0;
        ASSERT_EQ(1, ::read(ready[0], &go, 1));
        EXPECT_EQ(24, qorpkcs11_comm_client_init(id_.c_str()));
      });
  EXPECT_EQ(0, impostor);
  EXPECT_TRUE(logged_starting(log::kCommClient, "Server peer rejected - uid:"));
  ::close(ready[0]);
  ::close(ready[1]);
}

TEST_F(Access, AClientAcceptsTheServerItExpects) {
  qorpkcs11_comm_client_expect_server_uid(::geteuid());
  qorpkcs11_comm_client_expect_server_pid(::getpid());
  start();
  EXPECT_EQ(0, qorpkcs11_comm_client_init(id_.c_str()));
  EXPECT_EQ(0, qorpkcs11_comm_client_deinit());
}

struct Stall {
  const char* name;
  Bytes sent;  // then nothing
};

class Stalls : public Access, public ::testing::WithParamInterface<Stall> {};

TEST_P(Stalls, AFrameThatStopsIsDroppedAndTheNextClientServed) {
  ASSERT_EQ(0, qorpkcs11_comm_server_set_timeouts(200, 0));
  start();
  Fd stalled = connect_raw(id_);
  write_all(stalled, GetParam().sent);
  EXPECT_TRUE(closed_by_peer(stalled, 10000));
  EXPECT_TRUE(logged(log::kCommServer, "Client stalled mid-frame - connection dropped"));
  EXPECT_TRUE(served_here(id_));
}

INSTANTIATE_TEST_SUITE_P(Frames, Stalls,
                         ::testing::Values(Stall{"HalfAHeader", Bytes(7, 0)},
                                           Stall{"HeaderWithoutPayload", header(101, 103, 0, 10)},
                                           Stall{"PayloadThatStops", header(101, 103, 0, 10) + text("abc")}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(Access, AnIdleClientStaysUnlessAnIdleLimitIsSet) {
  ASSERT_EQ(0, qorpkcs11_comm_server_set_timeouts(200, 0));
  start();
  Fd idle = connect_raw(id_);
  EXPECT_TRUE(silent_for(idle, 600));
  write_all(idle, command(text("x")));
  EXPECT_EQ(response(text("k")), read_up_to(idle, 17));
}

TEST_F(Access, AnIdleLimitDropsASilentClient) {
  ASSERT_EQ(0, qorpkcs11_comm_server_set_timeouts(0, 200));
  start();
  Fd idle = connect_raw(id_);
  EXPECT_TRUE(closed_by_peer(idle, 10000));
  EXPECT_TRUE(logged(log::kCommServer, "Client idle too long - connection dropped"));
  EXPECT_TRUE(served_here(id_));
}

TEST_F(Access, NegativeTimeLimitsAreRefused) {
  EXPECT_EQ(5, qorpkcs11_comm_server_set_timeouts(-1, 0));
  EXPECT_EQ(5, qorpkcs11_comm_server_set_timeouts(0, -1));
}

TEST_F(Access, WaitingForTheServerTellsWhetherItListens) {
  EXPECT_EQ(2, qorpkcs11_comm_server_wait_listening(0));
  Fd taken = listen_raw(id_);  // someone took the name first
  ASSERT_EQ(0, qorpkcs11_comm_server_init(id_.c_str(), answer));
  EXPECT_EQ(8, qorpkcs11_comm_server_wait_listening(5000));
}

}  // namespace
}  // namespace qor::test
