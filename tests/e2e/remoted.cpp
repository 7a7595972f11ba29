#include "remoted.h"

#include <dlfcn.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "jvm.h"
#include "qorpkcs11/client/proxy.h"
#include "qorpkcs11/server/extensions.h"
#include "qorpkcs11/server/server.h"

namespace qor::test {
namespace {

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "serving process: %s\n", what);
  std::_Exit(3);
}

// What a serving app does at start-up, then serve until killed.
[[noreturn]] void serve(const std::string& name) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ensure_registry_lock();
  void* lib = ::dlopen(QOR_BRIDGE_PATH, RTLD_LAZY | RTLD_LOCAL);
  if (lib == nullptr) fail(::dlerror());
  auto get = reinterpret_cast<CK_C_GetFunctionList>(::dlsym(lib, "C_GetFunctionList"));
  CK_FUNCTION_LIST_PTR list = nullptr;
  if (get == nullptr || get(&list) != CKR_OK) fail("no function list in the bridge");
  // Never destroyed: the process ends by SIGKILL.
  new Registration(name.c_str(), list, lib);
  if (ViaRemoting::standInForDeployed) qor::server::serve_extensions(false);
  if (qorpkcs11_init_server(name.c_str()) != 0) fail("server init failed");
  for (;;) ::pause();
}

pid_t gServer = 0;

}  // namespace

std::string ViaRemoting::serverState() {
  if (gServer <= 0) return "no serving process was started";
  int status = 0;
  const pid_t ended = ::waitpid(gServer, &status, WNOHANG);
  if (ended == 0) return "the serving process is still running";
  if (ended < 0) return std::string("the serving process cannot be asked: ") + std::strerror(errno);
  if (WIFSIGNALED(status))
    return "the serving process was killed by signal " + std::to_string(WTERMSIG(status)) + " (" +
           ::strsignal(WTERMSIG(status)) + ")";
  return "the serving process exited with " + std::to_string(WEXITSTATUS(status));
}

abi::Target::CK_FUNCTION_LIST* ViaRemoting::open() {
  static const std::string name = "@qor-remoted-" + std::to_string(::getpid());
  const pid_t server = ::fork();
  gServer = server;
  if (server == 0) serve(name);
  if (server < 0) {
    ADD_FAILURE() << "fork failed";
    return nullptr;
  }
  // The serving process needs a moment to start its VM and listen.
  int rc = -1;
  for (int attempt = 0; attempt < 300 && (rc = qorpkcs11_client_init(name.c_str())) != 0; ++attempt)
    ::usleep(100 * 1000);
  if (rc != 0) {
    ADD_FAILURE() << "no serving process on " << name << " (" << rc << ")";
    return nullptr;
  }
  CK_FUNCTION_LIST_PTR list = nullptr;
  EXPECT_EQ(CKR_OK, C_GetFunctionList(&list));
  return list;
}

}  // namespace qor::test
