#include "token.h"

#include <dlfcn.h>

namespace qor::test {

namespace {

template <class A>
typename A::CK_FUNCTION_LIST* openModule(const char* path) {
  void* lib = ::dlopen(path, RTLD_LAZY | RTLD_LOCAL);
  if (lib == nullptr) {
    ADD_FAILURE() << ::dlerror();
    return nullptr;
  }
  auto get = reinterpret_cast<typename A::CK_C_GetFunctionList>(::dlsym(lib, "C_GetFunctionList"));
  typename A::CK_FUNCTION_LIST* list = nullptr;
  if (get == nullptr || get(&list) != CKR_OK) ADD_FAILURE() << "no function list in " << path;
  return list;
}

}  // namespace

abi::Target::CK_FUNCTION_LIST* ViaBridge::open() {
  return openModule<abi::Target>(QOR_BRIDGE_PATH);
}

abi::Host::CK_FUNCTION_LIST* ViaFront::open() {
  ::setenv("QOR_WRAPPER_LIBRARY", QOR_BRIDGE_PATH, 1);
  return openModule<abi::Host>(QOR_FRONT_PATH);
}

}  // namespace qor::test

// SoftHSM2 and OpenSSL keep process-lifetime allocations that are not ours
// to report.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libsofthsm2.so\nleak:libcrypto.so\n";
}
