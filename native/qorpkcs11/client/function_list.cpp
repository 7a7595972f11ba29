#include "qorpkcs11/client/proxy.h"

#include "qorpkcs11/client/extensions.h"
#include "qorpkcs11/comm/client.h"
#include "qorpkcs11/common/log.h"

CK_FUNCTION_LIST_PTR mFunctionList = nullptr;

namespace {

// Static storage: built before any caller can ask and never freed.
CK_FUNCTION_LIST gFunctions = {
    {2, 20},
#define QOR_ENTRY(name, params, args) name,
    QOR_PKCS11_FUNCTIONS(QOR_ENTRY)
#undef QOR_ENTRY
};

}  // namespace

int qorpkcs11_client_init(const char* serverName) {
  QOR_LOGD(qor::log::kClient, "client init");
  qor::client::forgetPeer();
  return qorpkcs11_comm_client_init(serverName);
}

int qorpkcs11_client_deinit(void) {
  qor::client::forgetPeer();
  return qorpkcs11_comm_client_deinit();
}

CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR ppFunctionList) {
  if (!ppFunctionList) return CKR_ARGUMENTS_BAD;
  // Published once, whichever thread asks first.
  static const bool published = [] {
    QOR_LOGD(qor::log::kClient, "C_FunctionList");
    mFunctionList = &gFunctions;
    return true;
  }();
  (void)published;
  *ppFunctionList = mFunctionList;
  return CKR_OK;
}
