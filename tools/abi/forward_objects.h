// Forwarded object and attribute functions.
#pragma once

#include "frame.h"

namespace qor::abi {

template <class F, class T, class Side>
struct Objects {
  QOR_ABI_CALLER_TYPES
  using C = Frame<F, T, Side>;
  static constexpr auto kGiven = C::Access::kWrite;

  static CK_RV C_CreateObject(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate,
                              CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phObject) {
    C c;
    return c(QOR_CALLEE(C_CreateObject), c.in(hSession), c.attributes(pTemplate, ulCount, kGiven),
             c.in(ulCount), c.out(phObject));
  }

  static CK_RV C_CopyObject(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                            CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount,
                            CK_OBJECT_HANDLE_PTR phNewObject) {
    C c;
    return c(QOR_CALLEE(C_CopyObject), c.in(hSession), c.in(hObject),
             c.attributes(pTemplate, ulCount, kGiven), c.in(ulCount), c.out(phNewObject));
  }

  static CK_RV C_DestroyObject(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject) {
    C c;
    return c(QOR_CALLEE(C_DestroyObject), c.in(hSession), c.in(hObject));
  }

  static CK_RV C_GetObjectSize(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                               CK_ULONG_PTR pulSize) {
    C c;
    return c(QOR_CALLEE(C_GetObjectSize), c.in(hSession), c.in(hObject), c.out(pulSize));
  }

  static CK_RV C_GetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                                   CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount) {
    C c;
    return c(QOR_CALLEE(C_GetAttributeValue), c.in(hSession), c.in(hObject),
             c.attributes(pTemplate, ulCount, C::Access::kRead), c.in(ulCount));
  }

  static CK_RV C_SetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                                   CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount) {
    C c;
    return c(QOR_CALLEE(C_SetAttributeValue), c.in(hSession), c.in(hObject),
             c.attributes(pTemplate, ulCount, kGiven), c.in(ulCount));
  }

  static CK_RV C_FindObjectsInit(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate,
                                 CK_ULONG ulCount) {
    C c;
    return c(QOR_CALLEE(C_FindObjectsInit), c.in(hSession),
             c.attributes(pTemplate, ulCount, kGiven), c.in(ulCount));
  }

  static CK_RV C_FindObjects(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE_PTR phObject,
                             CK_ULONG ulMaxObjectCount, CK_ULONG_PTR pulObjectCount) {
    C c;
    const auto found = c.list(phObject, ulMaxObjectCount, pulObjectCount);
    return c(QOR_CALLEE(C_FindObjects), c.in(hSession), found.items, found.capacity,
             found.count);
  }

  static CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE hSession) {
    return C::handle(QOR_CALLEE(C_FindObjectsFinal), hSession);
  }
};

}  // namespace qor::abi
