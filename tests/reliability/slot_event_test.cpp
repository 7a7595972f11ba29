// The whole serving path in one process (client proxies, transport, processor,
// test module registered in the registry): a blocking C_WaitForSlotEvent
// holds the one server thread, so every other request waits behind it, as
// designed, and all of them complete once the event arrives.
#include <android/log.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include "peer.h"
#include "qorpkcs11/client/proxy.h"
#include "qorpkcs11/server/server.h"
#include "served_module.h"

namespace qor::test {
namespace {

constexpr auto kStall = std::chrono::milliseconds(300);

TEST(SlotEvent, BlockingWaitStallsOtherCallersAndPeersUntilItReturns) {
  __android_log_set_minimum_priority(ANDROID_LOG_INFO);
  const std::string name = unique_server_id();
  ServedModule served(name.c_str());
  ASSERT_EQ(0, qorpkcs11_init_server(name.c_str()));
  ASSERT_EQ(0, init_client(name));
  CK_FUNCTION_LIST_PTR f = nullptr;
  ASSERT_EQ(CKR_OK, C_GetFunctionList(&f));

  CK_SLOT_ID slot = 0;
  auto wait = std::async(std::launch::async, [&] { return f->C_WaitForSlotEvent(0, &slot, nullptr); });
  ASSERT_EQ(std::future_status::timeout, wait.wait_for(kStall)) << "the wait did not block";

  // Another thread of the calling process waits for the client's lock,
  CK_INFO info;
  auto other = std::async(std::launch::async, [&] { return f->C_GetInfo(&info); });
  // and another peer for the server thread.
  Fd peer = connect_raw(name);
  write_all(peer, version_request());
  EXPECT_EQ(std::future_status::timeout, other.wait_for(kStall));
  EXPECT_TRUE(silent_for(peer, 0));

  // (The slot number itself never crosses the wire: deployed servers leave
  // it out of the reply.)
  served.module().slotEvent(1);
  EXPECT_EQ(CKR_OK, wait.get());
  EXPECT_EQ(CKR_OK, other.get());
  EXPECT_EQ(0, qorpkcs11_client_deinit());
  EXPECT_EQ(version_response(), read_up_to(peer, 20));
}

}  // namespace
}  // namespace qor::test
