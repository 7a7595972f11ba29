// The test module's function list with some entries replaced by the test,
// registered (inside the in-process Java VM) under the name the processor
// serves.
#pragma once

#include <memory>
#include <string>

#include "jvm.h"
#include "qorpkcs11/proto/pkcs11command.pb.h"
#include "testmodule.h"

namespace qor::test {

class ReplacedEntries {
 public:
  // Replace entries of functions() before the first request.
  explicit ReplacedEntries(const char* moduleName);
  CK_FUNCTION_LIST& functions() { return functions_; }
  const TestModule& module() const { return module_; }

 private:
  TestModule module_{QOR_TESTMODULE_PATH};
  CK_FUNCTION_LIST functions_;
  std::unique_ptr<Registration> registration_;
};

// Runs one request through the processor; the reply bytes (empty when none).
std::string process(const pkcs11::Operation& op);

}  // namespace qor::test
