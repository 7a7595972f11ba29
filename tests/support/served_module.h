// The serving side as a serving process sets it up: the test module loaded
// and registered in the module registry (inside a Java VM started in this
// process, since the registry lives under a Java monitor) under the name the
// processor serves. Under AddressSanitizer the process needs
// handle_segv=0:allow_user_segv_handler=1:detect_leaks=0, and under
// libFuzzer -handle_segv=0: the VM faults on purpose. One per process.
#pragma once

#include <memory>

#include "jvm.h"
#include "testmodule.h"

namespace qor::test {

class ServedModule {
 public:
  explicit ServedModule(const char* moduleName);
  const TestModule& module() const { return module_; }

 private:
  TestModule module_;
  std::unique_ptr<Registration> registration_;
};

}  // namespace qor::test
