// Many callers on one connection: the client's lock keeps whole exchanges
// apart, so every caller gets exactly the reply to its own request.
#include <android/log.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "peer.h"
#include "processes.h"
#include "qorpkcs11/comm/client.h"
#include "qorpkcs11/comm/server.h"

namespace qor::test {
namespace {

// Distinct for every thread and call, 12 to about 1,000 bytes long, with
// bytes of every value.
Bytes payload(int thread, int call) {
  Bytes p = text("t" + std::to_string(thread) + "c" + std::to_string(call) + ":");
  const int extra = (call * 37 + thread * 101) % 1000;
  for (int i = 0; i < extra; ++i) p.push_back(static_cast<uint8_t>(i * 7 + thread + call));
  return p;
}

TEST(Load, EightThreadsMakeTenThousandCallsEachOverOneConnection) {
  __android_log_set_minimum_priority(ANDROID_LOG_INFO);
  const std::string id = unique_server_id();
  ASSERT_EQ(0, qorpkcs11_comm_server_init(id.c_str(), reverse_or_hold));
  ASSERT_EQ(0, init_client(id));

  constexpr int kThreads = 8;
  constexpr int kCalls = 10000;
  std::atomic<int> answered{0};
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &answered, &wrong] {
      for (int i = 0; i < kCalls; ++i) {
        const Bytes request = payload(t, i);
        const Exchange ex = execute(request);
        if (ex.rc == 0 && ex.reply == reversed(request))
          ++answered;
        else if (wrong++ < 5)
          ADD_FAILURE() << "thread " << t << " call " << i << ": rc " << ex.rc;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(kThreads * kCalls, answered.load());
  EXPECT_EQ(0, wrong.load());
  EXPECT_EQ(0, qorpkcs11_comm_client_deinit());
}

}  // namespace
}  // namespace qor::test
