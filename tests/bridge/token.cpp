#include "token.h"

#include <dlfcn.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

namespace qor::test {

Bytes bytesOf(const std::string& s) { return Bytes(s.begin(), s.end()); }

SoftHsmToken::SoftHsmToken() {
  char tmpl[] = "/tmp/qorbridge-test-XXXXXX";
  if (::mkdtemp(tmpl) == nullptr) {
    error_ = "mkdtemp failed";
    return;
  }
  dir_ = tmpl;
  std::filesystem::create_directory(dir_ + "/tokens");
  const std::string conf = dir_ + "/softhsm2.conf";
  std::ofstream(conf) << "directories.tokendir = " << dir_ << "/tokens\n"
                      << "objectstore.backend = file\n"
                      << "log.level = ERROR\n";
  ::setenv("SOFTHSM2_CONF", conf.c_str(), 1);
  const std::string init =
      "softhsm2-util --init-token --free --label test --pin 1234 --so-pin 5678 >/dev/null";
  if (std::system(init.c_str()) != 0) error_ = "softhsm2-util could not create the token";
}

SoftHsmToken::~SoftHsmToken() {
  std::error_code ignored;
  if (!dir_.empty()) std::filesystem::remove_all(dir_, ignored);
}

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
