// The serving side behind the real transport. Each test starts the server
// thread on a socket name of its own; ctest runs each in its own process.
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <thread>

#include "qorpkcs11/comm/client.h"
#include "qorpkcs11/server/server.h"
#include "server_fixture.h"

extern "C" JNIEXPORT jlong JNICALL
Java_com_qor_smartcard_adapter_SandboxedProcessUsageStatistics_native_1getLastUsageTime(JNIEnv*,
                                                                                        jobject);

namespace qor::test {
namespace {

class TransportTest : public ServerTest {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    served_ = std::make_unique<Registration>(id_.c_str(), module_.functions());
    ASSERT_EQ(0, qorpkcs11_init_server(id_.c_str()));
    // The server thread may still be coming up.
    int rc = -1;
    for (int i = 0; i < 200 && (rc = qorpkcs11_comm_client_init(id_.c_str())) != 0; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ(0, rc);
  }
  void TearDown() override {
    qorpkcs11_comm_client_deinit();
    served_.reset();
    ServerTest::TearDown();
  }

  // The transport code and, on 0, the decoded reply.
  static int exchange(const pkcs11::Operation& op, pkcs11::OperationResult* result) {
    const std::string bytes = op.SerializeAsString();
    uint8_t* reply = nullptr;
    uint32_t length = 0;
    const int rc =
        qorpkcs11_comm_client_execute_command(reinterpret_cast<const uint8_t*>(bytes.data()),
                                              static_cast<int32_t>(bytes.size()), &reply, &length);
    if (rc == 0 && reply != nullptr) {
      EXPECT_TRUE(result->ParseFromArray(reply, static_cast<int>(length)));
    }
    std::free(reply);
    return rc;
  }

  static jlong usage_time() {
    return Java_com_qor_smartcard_adapter_SandboxedProcessUsageStatistics_native_1getLastUsageTime(
        jni_env(), nullptr);
  }

  const std::string id_ = "@qor-server-" + std::to_string(getpid()) + "-" +
                          ::testing::UnitTest::GetInstance()->current_test_info()->name();
  std::unique_ptr<Registration> served_;
};

TEST_F(TransportTest, RequestTravelsToTheModuleAndItsResultBack) {
  pkcs11::OperationResult result;
  ASSERT_EQ(0, exchange(request("C_Login",
                                [](pkcs11::Operation& o) {
                                  o.mutable_c_login()->set_hsession(99);
                                  o.mutable_c_login()->set_usertype(1);
                                }),
                        &result));
  EXPECT_EQ("C_Login", result.name());
  EXPECT_EQ(CKR_SESSION_HANDLE_INVALID, static_cast<CK_RV>(result.rv()));
  EXPECT_EQ("C_Login(hSession=99, userType=1, pPin=[], ulPinLen=0)", module_.call(0));
}

// The client transport rejects the empty reply with its code 23.
TEST_F(TransportTest, UnservableRequestsReachThePeerAsEmptyReplies) {
  pkcs11::OperationResult result;
  EXPECT_EQ(23, exchange(request("C_InitPIN"), &result));
  setModuleName_Server("@not-registered");
  EXPECT_EQ(23, exchange(request("C_Initialize"), &result));
  EXPECT_EQ(0, module_.count());
}

// Stamps are whole seconds plus the milliseconds of that second, so a
// request in the same millisecond as the last reply, or in the next second
// but at an earlier millisecond, does not count as later: try a few times.
TEST_F(TransportTest, UsageTimeIsMinusOneWhileARequestIsServed) {
  jlong during = 0;
  for (int attempt = 0; attempt < 20 && during != -1; ++attempt) {
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
    const int before = module_.count();
    auto waiting = std::async(std::launch::async, [] {
      pkcs11::OperationResult result;
      return exchange(request("C_WaitForSlotEvent"), &result);  // blocks in the module
    });
    while (module_.count() == before) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    during = usage_time();
    module_.slotEvent(2);
    ASSERT_EQ(0, waiting.get());
  }
  EXPECT_EQ(-1, during);
  EXPECT_EQ(qorpkcs11_server_getLastUsageTime(), usage_time());
}

}  // namespace
}  // namespace qor::test
