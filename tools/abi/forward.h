// A complete PKCS#11 module of ABI F that forwards every call to a module of
// ABI T, translating arguments and results. The bridge is
// Forward<Target, Host, ...> (project callers, platform module); the front
// is Forward<Host, Target, ...> (platform callers, project module).
#pragma once

#include "forward_crypto.h"
#include "forward_general.h"
#include "forward_keys.h"
#include "forward_objects.h"

namespace qor::abi {

template <class F, class T, class Side>
struct Forward : General<F, T, Side>,
                 Objects<F, T, Side>,
                 Crypto<F, T, Side>,
                 Keys<F, T, Side> {
  QOR_ABI_CALLER_TYPES

  static CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR ppFunctionList) {
    if (ppFunctionList == nullptr) return CKR_ARGUMENTS_BAD;
    *ppFunctionList = &functionList();
    return CKR_OK;
  }

  static CK_FUNCTION_LIST& functionList() {
#define QOR_FORWARD_ENTRY(name, params, args) &Forward::name,
    static CK_FUNCTION_LIST list = {{2, 20}, QOR_PKCS11_FUNCTIONS(QOR_FORWARD_ENTRY)};
#undef QOR_FORWARD_ENTRY
    return list;
  }
};

}  // namespace qor::abi
