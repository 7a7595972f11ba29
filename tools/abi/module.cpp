#include "module.h"

#include <dlfcn.h>

#include <cstdio>

namespace qor::abi {

void* openLibrary(const char* path) {
  void* handle = ::dlopen(path, RTLD_LAZY | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* why = ::dlerror();
    reportLibrary(path, why ? why : "dlopen failed");
  }
  return handle;
}

void closeLibrary(void* handle) { ::dlclose(handle); }

void* librarySymbol(void* handle, const char* name) { return ::dlsym(handle, name); }

void reportLibrary(const char* path, const char* why) {
  std::fprintf(stderr, "qorpkcs11: cannot use %s: %s\n", path ? path : "(no library)", why);
}

}  // namespace qor::abi
