// Forwarded general, slot, token and session functions.
#pragma once

#include "frame.h"

namespace qor::abi {

template <class F, class T, class Side>
struct General {
  QOR_ABI_CALLER_TYPES
  using C = Frame<F, T, Side>;

  // Loads the callee on first use; Side may connect to it first.
  static CK_RV C_Initialize(CK_VOID_PTR pInitArgs) {
    if (!Side::load()) return CKR_GENERAL_ERROR;
    C c;
    auto* args = c.initArgs(pInitArgs);
    if (!Side::connect()) return CKR_GENERAL_ERROR;
    const CK_RV rv = c(QOR_CALLEE(C_Initialize), args);
    if (rv != CKR_OK && rv != CKR_CRYPTOKI_ALREADY_INITIALIZED) Side::disconnect();
    return rv;
  }

  static CK_RV C_Finalize(CK_VOID_PTR pReserved) {
    C c;
    const CK_RV rv = c(QOR_CALLEE(C_Finalize), pReserved);
    if (rv == CKR_OK) Side::disconnect();
    return rv;
  }

  static CK_RV C_GetInfo(CK_INFO_PTR pInfo) {
    C c;
    return c(QOR_CALLEE(C_GetInfo), c.out(pInfo));
  }

  static CK_RV C_GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR pSlotList,
                             CK_ULONG_PTR pulCount) {
    C c;
    const auto slots = c.list(pSlotList, pulCount);
    return c(QOR_CALLEE(C_GetSlotList), tokenPresent, slots.items, slots.count);
  }

  static CK_RV C_GetSlotInfo(CK_SLOT_ID slotID, CK_SLOT_INFO_PTR pInfo) {
    C c;
    return c(QOR_CALLEE(C_GetSlotInfo), c.in(slotID), c.out(pInfo));
  }

  static CK_RV C_GetTokenInfo(CK_SLOT_ID slotID, CK_TOKEN_INFO_PTR pInfo) {
    C c;
    return c(QOR_CALLEE(C_GetTokenInfo), c.in(slotID), c.out(pInfo));
  }

  static CK_RV C_GetMechanismList(CK_SLOT_ID slotID, CK_MECHANISM_TYPE_PTR pMechanismList,
                                  CK_ULONG_PTR pulCount) {
    C c;
    const auto types = c.list(pMechanismList, pulCount);
    return c(QOR_CALLEE(C_GetMechanismList), c.in(slotID), types.items, types.count);
  }

  static CK_RV C_GetMechanismInfo(CK_SLOT_ID slotID, CK_MECHANISM_TYPE type,
                                  CK_MECHANISM_INFO_PTR pInfo) {
    C c;
    return c(QOR_CALLEE(C_GetMechanismInfo), c.in(slotID), c.in(type), c.out(pInfo));
  }

  static CK_RV C_InitToken(CK_SLOT_ID slotID, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen,
                           CK_UTF8CHAR_PTR pLabel) {
    C c;
    return c(QOR_CALLEE(C_InitToken), c.in(slotID), pPin, c.in(ulPinLen), pLabel);
  }

  static CK_RV C_InitPIN(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen) {
    return C::input(QOR_CALLEE(C_InitPIN), hSession, pPin, ulPinLen);
  }

  static CK_RV C_SetPIN(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pOldPin, CK_ULONG ulOldLen,
                        CK_UTF8CHAR_PTR pNewPin, CK_ULONG ulNewLen) {
    C c;
    return c(QOR_CALLEE(C_SetPIN), c.in(hSession), pOldPin, c.in(ulOldLen), pNewPin,
             c.in(ulNewLen));
  }

  // The callee cannot call back a caller of the other ABI: sessions are
  // opened without a notification callback (modules rarely call one).
  static CK_RV C_OpenSession(CK_SLOT_ID slotID, CK_FLAGS flags, CK_VOID_PTR pApplication,
                             CK_NOTIFY /*Notify*/, CK_SESSION_HANDLE_PTR phSession) {
    C c;
    return c(QOR_CALLEE(C_OpenSession), c.in(slotID), c.in(flags), pApplication, nullptr,
             c.out(phSession));
  }

  static CK_RV C_CloseSession(CK_SESSION_HANDLE hSession) {
    return C::handle(QOR_CALLEE(C_CloseSession), hSession);
  }

  static CK_RV C_CloseAllSessions(CK_SLOT_ID slotID) {
    return C::handle(QOR_CALLEE(C_CloseAllSessions), slotID);
  }

  static CK_RV C_GetSessionInfo(CK_SESSION_HANDLE hSession, CK_SESSION_INFO_PTR pInfo) {
    C c;
    return c(QOR_CALLEE(C_GetSessionInfo), c.in(hSession), c.out(pInfo));
  }

  static CK_RV C_GetOperationState(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState,
                                   CK_ULONG_PTR pulOperationStateLen) {
    return C::output(QOR_CALLEE(C_GetOperationState), hSession, pOperationState,
                     pulOperationStateLen);
  }

  static CK_RV C_SetOperationState(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState,
                                   CK_ULONG ulOperationStateLen, CK_OBJECT_HANDLE hEncryptionKey,
                                   CK_OBJECT_HANDLE hAuthenticationKey) {
    C c;
    return c(QOR_CALLEE(C_SetOperationState), c.in(hSession), pOperationState,
             c.in(ulOperationStateLen), c.in(hEncryptionKey), c.in(hAuthenticationKey));
  }

  static CK_RV C_Login(CK_SESSION_HANDLE hSession, CK_USER_TYPE userType, CK_UTF8CHAR_PTR pPin,
                       CK_ULONG ulPinLen) {
    C c;
    return c(QOR_CALLEE(C_Login), c.in(hSession), c.in(userType), pPin, c.in(ulPinLen));
  }

  static CK_RV C_Logout(CK_SESSION_HANDLE hSession) {
    return C::handle(QOR_CALLEE(C_Logout), hSession);
  }

  static CK_RV C_WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID_PTR pSlot, CK_VOID_PTR pReserved) {
    C c;
    return c(QOR_CALLEE(C_WaitForSlotEvent), c.in(flags), c.out(pSlot), pReserved);
  }
};

}  // namespace qor::abi
