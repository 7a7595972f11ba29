// Forwarded encryption, decryption, digest, signature and verification
// functions. The calls table's families map onto the frame's call shapes;
// the rest are written out.
#pragma once

#include "frame.h"
#include "qorpkcs11/protocol/calls.h"

namespace qor::abi {

template <class F, class T, class Side>
struct Crypto {
  QOR_ABI_CALLER_TYPES
  using C = Frame<F, T, Side>;

#define QOR_ABI_START(name, field)                                               \
  static CK_RV C_##name(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, \
                        CK_OBJECT_HANDLE hKey) {                                 \
    return C::start(QOR_CALLEE(C_##name), hSession, pMechanism, hKey);           \
  }
  QOR_INIT_CALLS(QOR_ABI_START)
#undef QOR_ABI_START

#define QOR_ABI_TRANSFORM(name, field, in, inLength, out, outLength, sizing)            \
  static CK_RV C_##name(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pIn, CK_ULONG ulInLen,  \
                        CK_BYTE_PTR pOut, CK_ULONG_PTR pulOutLen) {                     \
    return C::transform(QOR_CALLEE(C_##name), hSession, pIn, ulInLen, pOut, pulOutLen); \
  }
  QOR_IN_OUT_CALLS(QOR_ABI_TRANSFORM)
#undef QOR_ABI_TRANSFORM

#define QOR_ABI_OUTPUT(name, field, out, outLength)                                             \
  static CK_RV C_##name(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOut, CK_ULONG_PTR pulOutLen) { \
    return C::output(QOR_CALLEE(C_##name), hSession, pOut, pulOutLen);                          \
  }
  QOR_FINAL_CALLS(QOR_ABI_OUTPUT)
#undef QOR_ABI_OUTPUT

#define QOR_ABI_INPUT(name, field, in, inLength)                                         \
  static CK_RV C_##name(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pIn, CK_ULONG ulInLen) { \
    return C::input(QOR_CALLEE(C_##name), hSession, pIn, ulInLen);                       \
  }
  QOR_INPUT_CALLS(QOR_ABI_INPUT)
#undef QOR_ABI_INPUT

  static CK_RV C_DigestInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism) {
    C c;
    return c(QOR_CALLEE(C_DigestInit), c.in(hSession), c.mechanism(pMechanism));
  }
  static CK_RV C_DigestKey(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hKey) {
    C c;
    return c(QOR_CALLEE(C_DigestKey), c.in(hSession), c.in(hKey));
  }
  static CK_RV C_Verify(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                        CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen) {
    C c;
    return c(QOR_CALLEE(C_Verify), c.in(hSession), pData, c.in(ulDataLen), pSignature,
             c.in(ulSignatureLen));
  }
};

}  // namespace qor::abi
