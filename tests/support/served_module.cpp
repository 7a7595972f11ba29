#include "served_module.h"

#include <cstdio>
#include <cstdlib>

#include "qorpkcs11/server/server.h"

namespace qor::test {

ServedModule::ServedModule(const char* moduleName) : module_(QOR_TESTMODULE_PATH) {
  if (!module_.ok()) {
    std::fprintf(stderr, "test module: %s\n", module_.error().c_str());
    std::abort();
  }
  ensure_registry_lock();
  module_.resetReady();
  module_.setRecording(false);  // the call log would grow with every input
  registration_ = std::make_unique<Registration>(moduleName, module_.functions(), module_.handle());
  setModuleName_Server(moduleName);
}

}  // namespace qor::test
