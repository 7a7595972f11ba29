#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "qorpkcs11/comm/access.h"
#include "qorpkcs11/comm/server.h"
#include "qorpkcs11/protocol/extensions.h"
#include "qorpkcs11/registry/registry.h"
#include "qorpkcs11/server/extensions.h"
#include "qorpkcs11/server/handler.h"

pkcs11::Operation operation;
CK_RV rv = 0;
CK_FUNCTION_LIST_PTR ckpFunctions = nullptr;
char* mModuleName = nullptr;

namespace qor::server {
namespace {

using Handler = std::string (*)(const std::string&);

struct Route {
  const char* name;
  Handler handler;
};

const Route kRoutes[] = {
#define QOR_ROUTE(function, sent, routed, answered) {#routed, routed##_Server},
    QOR_REMOTED_CALLS(QOR_ROUTE)
#undef QOR_ROUTE
};

// Extended requests also reach a handler under the name the client sends
// where deployed servers route another spelling ("C_InitPIN" for
// "C_InitPin"); legacy requests under those names stay unrouted.
const Route* find_sent_alias(std::string_view name) {
  struct Alias {
    const char* sent;
    Handler handler;
  };
  static const Alias kAliases[] = {
#define QOR_ALIAS(function, sent, routed, answered) {#sent, routed##_Server},
      QOR_REMOTED_CALLS(QOR_ALIAS)
#undef QOR_ALIAS
  };
  for (const Alias& alias : kAliases) {
    if (name != alias.sent) continue;
    for (const Route& route : kRoutes)
      if (route.handler == alias.handler) return &route;
  }
  return nullptr;
}

std::atomic<bool> gServeExtensions{true};

// Found by hashing rather than by comparing against every name in turn. The
// name is compared as a C string, so it ends at its first zero byte. The map
// is never destroyed: the serving thread may still be in here at exit.
const Route* find_route(const char* name) {
  static const auto* const routes = [] {
    auto* byName = new std::unordered_map<std::string_view, const Route*>();
    for (const Route& route : kRoutes) byName->emplace(route.name, &route);
    return byName;
  }();
  const auto found = routes->find(name);
  return found != routes->end() ? found->second : nullptr;
}

// Whether the connected client left the module initialized: it sent
// C_Initialize and no C_Finalize since. Read when its connection ends.
std::atomic<bool> gClientInitialized{false};
std::atomic<bool> gResetOnDisconnect{false};

void note_lifecycle(const Route* route) {
  if (route->handler == C_Initialize_Server) gClientInitialized = true;
  if (route->handler == C_Finalize_Server) gClientInitialized = false;
}

std::string module_name(bool* present);

// A client that ends its connection without C_Finalize (it crashed or was
// killed) leaves its sessions and login behind for the next peer; with the
// reset on, the module is finalized until the next client's C_Initialize.
void connection_ended() {
  if (!gClientInitialized.exchange(false) || !gResetOnDisconnect) return;
  bool named = false;
  const std::string name = module_name(&named);
  CK_FUNCTION_LIST_PTR functions = getFunctionsByModule(named ? name.c_str() : nullptr);
  CK_C_Finalize finalize = functions != nullptr ? functions->C_Finalize : nullptr;
  const CK_RV value = finalize != nullptr ? finalize(nullptr) : CKR_FUNCTION_FAILED;
  QOR_LOGD(kTag, "Client left without C_Finalize - module reset, rv = %u", static_cast<unsigned>(value));
}

std::string dispatch() {
  const Route* route = find_route(operation.name().c_str());
  if (route == nullptr && !keeps<Kept::kSentNamesNotRouted>())
    route = find_sent_alias(operation.name().c_str());
  if (route == nullptr) return {};
  note_lifecycle(route);
  QOR_LOGD(kTag, "Generate_Operation_Result %s", route->name);
  return route->handler(already_parsed());
}

// setModuleName_Server may run on any thread while the serving thread looks
// the module up by the name it replaces: the name is read and replaced under
// this lock, and the lookup uses a copy.
std::mutex gModuleNameMutex;

std::string module_name(bool* present) {
  std::lock_guard<std::mutex> lock(gModuleNameMutex);
  *present = mModuleName != nullptr;
  return *present ? std::string(mModuleName) : std::string();
}

std::string serve_request(const void* in, int32_t len) {
  // Parsed straight from the frame: a copy of it would be one more pass over
  // a large payload.
  parse_request(in, in != nullptr && len > 0 ? static_cast<size_t>(len) : 0);
  // Looked up for every request, so a module connected or disconnected in
  // between is seen at once.
  bool named = false;
  const std::string name = module_name(&named);
  ckpFunctions = getFunctionsByModule(named ? name.c_str() : nullptr);
  QOR_LOGD(kTag, "Operation name = %s", operation.name().c_str());
  return dispatch();
}

}  // namespace

bool extended() {
  return gServeExtensions.load(std::memory_order_relaxed) &&
         (operation.qor_extensions() & protocol::kExtendedCalls) != 0;
}

void serve_extensions(bool on) { gServeExtensions = on; }

}  // namespace qor::server

using qor::server::kTag;

extern "C" {

int qorpkcs11_init_server(const char* moduleName) {
  QOR_LOGD(kTag, "server init");
  setModuleName_Server(moduleName);
  qor::comm::server_on_disconnect(qor::server::connection_ended);
  return qorpkcs11_comm_server_init(moduleName, Generate_Operation_Result_Server);
}

int qorpkcs11_server_deinit(void) { return qorpkcs11_comm_server_deinit(); }

int qorpkcs11_server_set_reset_on_disconnect(int32_t on) {
  qor::server::gResetOnDisconnect = on != 0;
  return 0;
}

int32_t qorpkcs11_server_getLastUsageTime(void) {
  QOR_LOGD(kTag, "server getLastUsageTime");
  return qorpkcs11_comm_server_getLastUsageTime();
}

int setModuleName_Server(const char* name) {
  QOR_LOGD(kTag, "%s...%s", "setModuleName_Server", name != nullptr ? name : "(null)");
  std::lock_guard<std::mutex> lock(qor::server::gModuleNameMutex);
  if (name != nullptr) {
    std::free(mModuleName);
    mModuleName = strdup(name);
  } else {
    // Forgets the old name without freeing it: that leak is accepted
    // behaviour for a null argument.
    mModuleName = nullptr;
  }
  return 0;
}

namespace {

// The serving thread lives as long as the process and looks the module up on
// every request; attaching it to the VM once (as a daemon, so it never holds
// the VM up at exit) spares each lookup an attach and a detach, which cost
// more than the rest of a small call.
void keepServingThreadAttached() {
  thread_local bool attached = false;
  JavaVM* vm = gJavaVM;
  if (attached || vm == nullptr) return;
  void* env = nullptr;
  attached = vm->GetEnv(&env, JNI_VERSION_1_2) == JNI_OK ||
             vm->AttachCurrentThreadAsDaemon(&env, nullptr) == JNI_OK;
}

}  // namespace

int Generate_Operation_Result_Server(const void* in, int32_t len, void** out, uint32_t* outLen) {
  keepServingThreadAttached();
  qor::server::ReplySink sink;
  std::string reply;
  try {
    reply = qor::server::serve_request(in, len);
  } catch (...) {
    // Nothing may cross into the transport thread, where it would end the
    // process: a request whose answer cannot be built (memory for a reply as
    // large as the peer asked for, say) gets the empty reply of any request
    // the server cannot serve.
    QOR_LOGD(kTag, "request not served: no memory for its answer");
    reply.clear();
  }

  uint32_t length = 0;
  void* buffer = sink.release(&length);
  if (buffer == nullptr) {
    // No handler concluded (nothing routed, no module) or it concluded into
    // the string: the reply as before, copied.
    buffer = std::malloc(reply.size());
    length = buffer != nullptr ? static_cast<uint32_t>(reply.size()) : 0;
    if (length != 0) std::memcpy(buffer, reply.data(), length);
  }
  // The reply is binary and unterminated: print no more than it holds.
  const char* shown = length != 0 ? static_cast<const char*>(buffer) : "";
  if (out != nullptr) *out = buffer;
  if (outLen != nullptr) *outLen = length;
  QOR_LOGD(kTag, "resp = %.*s", static_cast<int>(length), shown);
  if (out == nullptr) std::free(buffer);
  return 0;
}

}  // extern "C"
