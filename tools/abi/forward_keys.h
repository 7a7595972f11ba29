// Forwarded key management, random number and legacy parallel functions.
#pragma once

#include "frame.h"

namespace qor::abi {

template <class F, class T, class Side>
struct Keys {
  QOR_ABI_CALLER_TYPES
  using C = Frame<F, T, Side>;
  static constexpr auto kGiven = C::Access::kWrite;

  static CK_RV C_GenerateKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                             CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount,
                             CK_OBJECT_HANDLE_PTR phKey) {
    C c;
    return c(QOR_CALLEE(C_GenerateKey), c.in(hSession), c.mechanism(pMechanism),
             c.attributes(pTemplate, ulCount, kGiven), c.in(ulCount), c.out(phKey));
  }

  static CK_RV C_GenerateKeyPair(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                                 CK_ATTRIBUTE_PTR pPublicKeyTemplate,
                                 CK_ULONG ulPublicKeyAttributeCount,
                                 CK_ATTRIBUTE_PTR pPrivateKeyTemplate,
                                 CK_ULONG ulPrivateKeyAttributeCount,
                                 CK_OBJECT_HANDLE_PTR phPublicKey,
                                 CK_OBJECT_HANDLE_PTR phPrivateKey) {
    C c;
    return c(QOR_CALLEE(C_GenerateKeyPair), c.in(hSession), c.mechanism(pMechanism),
             c.attributes(pPublicKeyTemplate, ulPublicKeyAttributeCount, kGiven),
             c.in(ulPublicKeyAttributeCount),
             c.attributes(pPrivateKeyTemplate, ulPrivateKeyAttributeCount, kGiven),
             c.in(ulPrivateKeyAttributeCount), c.out(phPublicKey), c.out(phPrivateKey));
  }

  static CK_RV C_WrapKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                         CK_OBJECT_HANDLE hWrappingKey, CK_OBJECT_HANDLE hKey,
                         CK_BYTE_PTR pWrappedKey, CK_ULONG_PTR pulWrappedKeyLen) {
    C c;
    return c(QOR_CALLEE(C_WrapKey), c.in(hSession), c.mechanism(pMechanism),
             c.in(hWrappingKey), c.in(hKey), pWrappedKey, c.length(pulWrappedKeyLen));
  }

  static CK_RV C_UnwrapKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                           CK_OBJECT_HANDLE hUnwrappingKey, CK_BYTE_PTR pWrappedKey,
                           CK_ULONG ulWrappedKeyLen, CK_ATTRIBUTE_PTR pTemplate,
                           CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey) {
    C c;
    return c(QOR_CALLEE(C_UnwrapKey), c.in(hSession), c.mechanism(pMechanism),
             c.in(hUnwrappingKey), pWrappedKey, c.in(ulWrappedKeyLen),
             c.attributes(pTemplate, ulAttributeCount, kGiven), c.in(ulAttributeCount),
             c.out(phKey));
  }

  static CK_RV C_DeriveKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                           CK_OBJECT_HANDLE hBaseKey, CK_ATTRIBUTE_PTR pTemplate,
                           CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey) {
    C c;
    return c(QOR_CALLEE(C_DeriveKey), c.in(hSession), c.mechanism(pMechanism), c.in(hBaseKey),
             c.attributes(pTemplate, ulAttributeCount, kGiven), c.in(ulAttributeCount),
             c.out(phKey));
  }

  static CK_RV C_SeedRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSeed, CK_ULONG ulSeedLen) {
    return C::input(QOR_CALLEE(C_SeedRandom), hSession, pSeed, ulSeedLen);
  }

  static CK_RV C_GenerateRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR RandomData,
                                CK_ULONG ulRandomLen) {
    return C::input(QOR_CALLEE(C_GenerateRandom), hSession, RandomData, ulRandomLen);
  }

  static CK_RV C_GetFunctionStatus(CK_SESSION_HANDLE hSession) {
    return C::handle(QOR_CALLEE(C_GetFunctionStatus), hSession);
  }

  static CK_RV C_CancelFunction(CK_SESSION_HANDLE hSession) {
    return C::handle(QOR_CALLEE(C_CancelFunction), hSession);
  }
};

}  // namespace qor::abi
