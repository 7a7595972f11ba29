#include "fake_server.h"

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "qorpkcs11/client/proxy.h"
#include "qorpkcs11/comm/server.h"

namespace qor::test {
namespace {

std::mutex gMutex;
std::vector<pkcs11::Operation> gReceived;
std::string gLastBytes;
std::string gReply;

// Runs on the server thread.
int serve(const void* data, int32_t len, void** out, uint32_t* outLen) {
  pkcs11::Operation op;
  op.ParsePartialFromArray(data, len);
  std::lock_guard<std::mutex> lock(gMutex);
  gReceived.push_back(op);
  gLastBytes.assign(static_cast<const char*>(data), static_cast<size_t>(len));
  *out = std::malloc(gReply.size() + 1);
  std::memcpy(*out, gReply.data(), gReply.size());
  *outLen = static_cast<uint32_t>(gReply.size());
  return 0;
}

std::string uniqueServerId() {
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string name = std::string(info->test_suite_name()) + "." + info->name();
  if (name.size() > 80) name.resize(80);
  return "@qcl" + std::to_string(getpid()) + "." + name;
}

}  // namespace

void ProxyTest::SetUp() {
  answer(CKR_OK);
  const std::string id = uniqueServerId();
  ASSERT_EQ(0, qorpkcs11_comm_server_init(id.c_str(), serve));
  int rc = qorpkcs11_client_init(id.c_str());
  for (int attempt = 0; rc == 7 && attempt < 500; ++attempt) {  // server thread still starting
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    rc = qorpkcs11_client_init(id.c_str());
  }
  ASSERT_EQ(0, rc);
}

void ProxyTest::TearDown() { qorpkcs11_client_deinit(); }

void ProxyTest::answer(CK_RV rv, const ReplyFill& fill) {
  pkcs11::OperationResult result;
  result.set_name("reply");
  result.set_rv(static_cast<int32_t>(rv));
  if (fill) fill(result);
  answerBytes(result.SerializePartialAsString());
}

void ProxyTest::answerBytes(const std::string& bytes) {
  std::lock_guard<std::mutex> lock(gMutex);
  gReply = bytes;
}

std::vector<pkcs11::Operation> ProxyTest::received() {
  std::lock_guard<std::mutex> lock(gMutex);
  return gReceived;
}

std::string ProxyTest::sentBytes() {
  std::lock_guard<std::mutex> lock(gMutex);
  return gLastBytes;
}

pkcs11::Operation ProxyTest::sent() {
  auto all = received();
  EXPECT_FALSE(all.empty()) << "nothing reached the server";
  return all.empty() ? pkcs11::Operation() : all.back();
}

std::string hex(const std::string& bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char c : bytes) {
    out += digits[c >> 4];
    out += digits[c & 15];
  }
  return out;
}

}  // namespace qor::test
