// The front's translation: platform callers in, the wrapper's client
// proxies out. The wrapper is QOR_WRAPPER_LIBRARY, or the one this build
// made; its transport connects to the socket QOR_SOCKET_NAME on the first
// C_Initialize (to a server of the user QOR_SERVER_UID or the process
// QOR_SERVER_PID only, when either is set), speaking the extended protocol
// when QOR_EXTENSIONS is a nonzero number. Any other library of the project's ABI works too (one
// without qorpkcs11_client_init needs no connection): the bridge, for one.
#include "front.h"

#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <string>
#include <type_traits>

#include "forward.h"

namespace qor::front {
namespace {

using abi::Host;
using abi::Target;

static_assert(std::is_same_v<host::CK_RV, unsigned long>, "front.h returns the host CK_RV");

using ClientInit = int (*)(const char* serverName);
using ClientDeinit = int (*)();

struct FrontSide : abi::LoadsLibrary<Target, FrontSide> {
  static const char* library() {
    const char* path = std::getenv("QOR_WRAPPER_LIBRARY");
    return path && *path ? path : QOR_FRONT_DEFAULT_WRAPPER;
  }

  // QOR_SERVER_UID / QOR_SERVER_PID: the server must run as this user or be
  // this process, else the connect fails (transport code 24).
  static void expectServer() {
    using Expect = int (*)(int64_t);
    const struct {
      const char* variable;
      const char* entry;
    } checks[] = {{"QOR_SERVER_UID", "qorpkcs11_comm_client_expect_server_uid"},
                  {"QOR_SERVER_PID", "qorpkcs11_comm_client_expect_server_pid"}};
    for (const auto& check : checks) {
      const char* value = std::getenv(check.variable);
      auto expect = reinterpret_cast<Expect>(abi::librarySymbol(module().handle(), check.entry));
      if (value != nullptr && *value != '\0' && expect != nullptr) expect(std::strtoll(value, nullptr, 10));
    }
  }

  // QOR_EXTENSIONS=1: every call served as meant, by a server of this library.
  static void extensions() {
    using Set = int (*)(int32_t);
    const char* value = std::getenv("QOR_EXTENSIONS");
    auto set = reinterpret_cast<Set>(
        abi::librarySymbol(module().handle(), "qorpkcs11_client_set_extensions"));
    if (value != nullptr && *value != '\0' && set != nullptr)
      set(std::strtol(value, nullptr, 10) != 0 ? 1 : 0);
  }

  static bool connect() {
    std::lock_guard<std::mutex> lock(mutex());
    if (connected()) return true;
    auto init = reinterpret_cast<ClientInit>(
        abi::librarySymbol(module().handle(), "qorpkcs11_client_init"));
    if (init == nullptr) return true;
    const char* name = std::getenv("QOR_SOCKET_NAME");
    if (name == nullptr || *name == '\0') {
      abi::reportLibrary(library(), "QOR_SOCKET_NAME is not set");
      return false;
    }
    expectServer();
    extensions();
    const int rc = init(name);
    if (rc != 0) {
      const std::string why =
          "cannot connect to " + std::string(name) + " (transport code " + std::to_string(rc) + ")";
      abi::reportLibrary(library(), why.c_str());
      return false;
    }
    connected() = true;
    return true;
  }

  static void disconnect() {
    std::lock_guard<std::mutex> lock(mutex());
    if (!connected()) return;
    auto deinit = reinterpret_cast<ClientDeinit>(
        abi::librarySymbol(module().handle(), "qorpkcs11_client_deinit"));
    if (deinit != nullptr) deinit();
    connected() = false;
  }

  static std::mutex& mutex() {
    static std::mutex m;
    return m;
  }
  static bool& connected() {
    static bool c = false;
    return c;
  }
};

using Front = abi::Forward<Host, Target, FrontSide>;

}  // namespace

unsigned long getFunctionList(host::CK_FUNCTION_LIST** ppFunctionList) {
  return Front::C_GetFunctionList(ppFunctionList);
}

}  // namespace qor::front
