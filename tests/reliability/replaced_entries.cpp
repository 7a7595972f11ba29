#include "replaced_entries.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "qorpkcs11/server/server.h"

namespace qor::test {

ReplacedEntries::ReplacedEntries(const char* moduleName) {
  __android_log_set_minimum_priority(ANDROID_LOG_INFO);
  EXPECT_TRUE(module_.ok()) << module_.error();
  module_.resetReady();
  functions_ = *module_.functions();
  ensure_registry_lock();
  registration_ = std::make_unique<Registration>(moduleName, &functions_);
  setModuleName_Server(moduleName);
}

std::string process(const pkcs11::Operation& op) {
  const std::string request = op.SerializeAsString();
  void* out = nullptr;
  uint32_t outLen = 0;
  EXPECT_EQ(0, Generate_Operation_Result_Server(request.data(), static_cast<int32_t>(request.size()), &out,
                                                &outLen));
  std::string reply = out != nullptr ? std::string(static_cast<const char*>(out), outLen) : std::string();
  std::free(out);
  return reply;
}

}  // namespace qor::test
