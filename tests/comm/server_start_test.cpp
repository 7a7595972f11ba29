// A client that reaches the server thread the moment it listens, before
// init has returned to its caller. The executable is linked with pthread_create
// wrapped, so the test runs between the thread's start and init's return.
#include <gtest/gtest.h>
#include <pthread.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <thread>

#include "peer.h"
#include "qorpkcs11/comm/client.h"
#include "qorpkcs11/comm/server.h"

namespace qor::test {
namespace {

std::function<void()> gAfterThreadStart;  // runs once, in the creating thread

int echo(const void* data, int32_t len, void** out, uint32_t* out_len) {
  void* copy = std::malloc(static_cast<size_t>(len));
  if (copy == nullptr) return 4;
  std::memcpy(copy, data, static_cast<size_t>(len));
  *out = copy;
  *out_len = static_cast<uint32_t>(len);
  return 0;
}

TEST(ServerStartTest, ACommandArrivingBeforeInitReturnsIsServed) {
  const std::string id = unique_server_id();
  Exchange first{-1, false, {}};
  gAfterThreadStart = [&] {
    std::packaged_task<Exchange()> client([&] {
      if (const int rc = init_client(id)) return Exchange{rc, false, {}};
      return execute(text("first"));
    });
    std::future<Exchange> done = client.get_future();
    std::thread(std::move(client)).detach();
    if (done.wait_for(std::chrono::seconds(20)) == std::future_status::ready)
      first = done.get();
    else
      ADD_FAILURE() << "the client's first call never came back";
  };
  ASSERT_EQ(0, qorpkcs11_comm_server_init(id.c_str(), echo));
  EXPECT_EQ(0, first.rc) << "the connection was dropped: the command found no callback";
  EXPECT_EQ(text("first"), first.reply);
  EXPECT_EQ(0, qorpkcs11_comm_client_deinit());
}

}  // namespace
}  // namespace qor::test

extern "C" int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

extern "C" int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                     void* (*body)(void*), void* argument) {
  const int rc = __real_pthread_create(thread, attributes, body, argument);
  if (rc == 0 && qor::test::gAfterThreadStart) {
    const std::function<void()> hook = std::move(qor::test::gAfterThreadStart);
    qor::test::gAfterThreadStart = nullptr;
    hook();
  }
  return rc;
}
