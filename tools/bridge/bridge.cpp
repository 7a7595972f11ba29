// libqorbridge.so: callers of the project's ABI (the serving process, its
// tests) reach a platform PKCS#11 module, such as a SoftHSM2 token, through
// it. Handles pass through unchanged; one the module returns that does not
// fit 32 bits fails its call with CKR_GENERAL_ERROR.
#include <cstdlib>

#include "forward.h"

namespace {

using qor::abi::Host;
using qor::abi::Target;

struct BridgeSide : qor::abi::LoadsLibrary<Host, BridgeSide> {
  static const char* library() {
    const char* path = std::getenv("QOR_BRIDGE_MODULE");
    return path && *path ? path : QOR_BRIDGE_DEFAULT_MODULE;
  }
};

using Bridge = qor::abi::Forward<Target, Host, BridgeSide>;

}  // namespace

CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR ppFunctionList) {
  return Bridge::C_GetFunctionList(ppFunctionList);
}
