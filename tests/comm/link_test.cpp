// Both transport ends together: in one process, and across two processes.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <thread>

#include <android/log.h>

#include "peer.h"
#include "qorpkcs11/comm/client.h"
#include "qorpkcs11/comm/server.h"

namespace qor::test {
namespace {

// Replies with the request reversed behind a marker, so a reply can never be
// mistaken for its own request and always belongs to exactly one request.
Bytes expected_reply(const Bytes& request) {
  Bytes reply = text("R:");
  reply.insert(reply.end(), request.rbegin(), request.rend());
  return reply;
}

int reverse_or_fail(const void* data, int32_t len, void** out, uint32_t* out_len) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  const Bytes request(bytes, bytes + len);
  if (request == text("fail")) return 1;
  if (request == text("drop")) return 2;
  const Bytes reply = request == text("empty") ? Bytes{} : expected_reply(request);
  *out = std::malloc(reply.size());
  if (!reply.empty()) std::memcpy(*out, reply.data(), reply.size());
  *out_len = static_cast<uint32_t>(reply.size());
  return 0;
}

class LinkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, qorpkcs11_comm_server_init(id_.c_str(), reverse_or_fail));
    ASSERT_EQ(0, init_client(id_));
  }
  void TearDown() override { qorpkcs11_comm_client_deinit(); }

  std::string id_ = unique_server_id();
};

TEST_F(LinkTest, ExchangesCommandsAndStampsTheResponse) {
  EXPECT_NE(0, qorpkcs11_comm_server_getLastUsageTime());  // the handshake was served
  for (const std::string& payload : {std::string("a"), std::string("C_GetInfo"), std::string(70000, 'z')}) {
    Exchange ex = execute(text(payload));
    EXPECT_EQ(0, ex.rc);
    EXPECT_EQ(expected_reply(text(payload)), ex.reply);
  }
}

TEST_F(LinkTest, ZeroLengthReplyIsABadResponseHeader) {
  EXPECT_EQ(23, execute(text("empty")).rc);
  EXPECT_EQ(expected_reply(text("next")), execute(text("next")).reply);
}

TEST_F(LinkTest, UnansweredCommandTimesOutAndTheLinkRecovers) {
  qorpkcs11_comm_client_deinit();
  comm::comm_set_receive_timeout_for_tests({0, 200 * 1000});
  ASSERT_EQ(0, init_client(id_));
  EXPECT_EQ(10, execute(text("fail")).rc);
  EXPECT_EQ(expected_reply(text("next")), execute(text("next")).reply);
}

TEST_F(LinkTest, DroppedConnectionFailsWithoutSigpipeUntilReconnected) {
  EXPECT_EQ(13, execute(text("drop")).rc);
  // The socket stays in use until deinit; sending on it must not raise SIGPIPE.
  EXPECT_EQ(11, execute(text("x")).rc);
  EXPECT_EQ(0, qorpkcs11_comm_client_deinit());
  ASSERT_EQ(0, init_client(id_));
  EXPECT_EQ(expected_reply(text("back")), execute(text("back")).reply);
}

// Distinct per thread and per call, with lengths that vary.
Bytes payload_for(int thread, int i) {
  std::string s = "t" + std::to_string(thread) + "#" + std::to_string(i) + ":";
  s.append(static_cast<size_t>((i * 7 + thread * 13) % 300), static_cast<char>('a' + thread));
  return text(s);
}

TEST_F(LinkTest, ConcurrentCallersEachGetTheirOwnReply) {
  constexpr int kThreads = 4;
  constexpr int kCalls = 2000;
  std::atomic<int> mismatches{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &mismatches] {
      for (int i = 0; i < kCalls; ++i) {
        const Bytes request = payload_for(t, i);
        Exchange ex = execute(request);
        if (ex.rc != 0 || ex.reply != expected_reply(request)) ++mismatches;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(0, mismatches.load());
}

[[noreturn]] void run_server_child(const std::string& id) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (qorpkcs11_comm_server_init(id.c_str(), reverse_or_fail) != 0) _exit(1);
  for (;;) pause();
}

TEST(LinkProcessTest, ClientAndServerProcessesExchange100000Commands) {
  __android_log_set_minimum_priority(ANDROID_LOG_INFO);  // keep the debug lines out of the count
  const std::string id = unique_server_id();
  const pid_t child = fork();
  ASSERT_NE(-1, child);
  if (child == 0) run_server_child(id);

  ASSERT_EQ(0, init_client(id));
  int failures = 0;
  for (int i = 0; i < 100000 && failures < 10; ++i) {
    const Bytes request = payload_for(i % 4, i);
    Exchange ex = execute(request);
    if (ex.rc != 0 || ex.reply != expected_reply(request)) {
      ++failures;
      ADD_FAILURE() << "exchange " << i << " returned " << ex.rc;
    }
  }
  EXPECT_EQ(0, qorpkcs11_comm_client_deinit());
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status)) << "server process ended early: " << status;
}

}  // namespace
}  // namespace qor::test
