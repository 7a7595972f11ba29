// Forwarded encryption, decryption, digest, signature and verification
// functions. Most share one of the frame's call shapes.
#pragma once

#include "frame.h"

namespace qor::abi {

template <class F, class T, class Side>
struct Crypto {
  QOR_ABI_CALLER_TYPES
  using C = Frame<F, T, Side>;

  static CK_RV C_EncryptInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                             CK_OBJECT_HANDLE hKey) {
    return C::start(QOR_CALLEE(C_EncryptInit), hSession, pMechanism, hKey);
  }
  static CK_RV C_Encrypt(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                         CK_BYTE_PTR pEncryptedData, CK_ULONG_PTR pulEncryptedDataLen) {
    return C::transform(QOR_CALLEE(C_Encrypt), hSession, pData, ulDataLen, pEncryptedData,
                        pulEncryptedDataLen);
  }
  static CK_RV C_EncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                               CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen) {
    return C::transform(QOR_CALLEE(C_EncryptUpdate), hSession, pPart, ulPartLen, pEncryptedPart,
                        pulEncryptedPartLen);
  }
  static CK_RV C_EncryptFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastEncryptedPart,
                              CK_ULONG_PTR pulLastEncryptedPartLen) {
    return C::output(QOR_CALLEE(C_EncryptFinal), hSession, pLastEncryptedPart,
                     pulLastEncryptedPartLen);
  }

  static CK_RV C_DecryptInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                             CK_OBJECT_HANDLE hKey) {
    return C::start(QOR_CALLEE(C_DecryptInit), hSession, pMechanism, hKey);
  }
  static CK_RV C_Decrypt(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedData,
                         CK_ULONG ulEncryptedDataLen, CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen) {
    return C::transform(QOR_CALLEE(C_Decrypt), hSession, pEncryptedData, ulEncryptedDataLen,
                        pData, pulDataLen);
  }
  static CK_RV C_DecryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                               CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart,
                               CK_ULONG_PTR pulPartLen) {
    return C::transform(QOR_CALLEE(C_DecryptUpdate), hSession, pEncryptedPart,
                        ulEncryptedPartLen, pPart, pulPartLen);
  }
  static CK_RV C_DecryptFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastPart,
                              CK_ULONG_PTR pulLastPartLen) {
    return C::output(QOR_CALLEE(C_DecryptFinal), hSession, pLastPart, pulLastPartLen);
  }

  static CK_RV C_DigestInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism) {
    C c;
    return c(QOR_CALLEE(C_DigestInit), c.in(hSession), c.mechanism(pMechanism));
  }
  static CK_RV C_Digest(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                        CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen) {
    return C::transform(QOR_CALLEE(C_Digest), hSession, pData, ulDataLen, pDigest, pulDigestLen);
  }
  static CK_RV C_DigestUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen) {
    return C::input(QOR_CALLEE(C_DigestUpdate), hSession, pPart, ulPartLen);
  }
  static CK_RV C_DigestKey(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hKey) {
    C c;
    return c(QOR_CALLEE(C_DigestKey), c.in(hSession), c.in(hKey));
  }
  static CK_RV C_DigestFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pDigest,
                             CK_ULONG_PTR pulDigestLen) {
    return C::output(QOR_CALLEE(C_DigestFinal), hSession, pDigest, pulDigestLen);
  }

  static CK_RV C_SignInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                          CK_OBJECT_HANDLE hKey) {
    return C::start(QOR_CALLEE(C_SignInit), hSession, pMechanism, hKey);
  }
  static CK_RV C_Sign(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                      CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen) {
    return C::transform(QOR_CALLEE(C_Sign), hSession, pData, ulDataLen, pSignature,
                        pulSignatureLen);
  }
  static CK_RV C_SignUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen) {
    return C::input(QOR_CALLEE(C_SignUpdate), hSession, pPart, ulPartLen);
  }
  static CK_RV C_SignFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature,
                           CK_ULONG_PTR pulSignatureLen) {
    return C::output(QOR_CALLEE(C_SignFinal), hSession, pSignature, pulSignatureLen);
  }
  static CK_RV C_SignRecoverInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                                 CK_OBJECT_HANDLE hKey) {
    return C::start(QOR_CALLEE(C_SignRecoverInit), hSession, pMechanism, hKey);
  }
  static CK_RV C_SignRecover(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                             CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen) {
    return C::transform(QOR_CALLEE(C_SignRecover), hSession, pData, ulDataLen, pSignature,
                        pulSignatureLen);
  }

  static CK_RV C_VerifyInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                            CK_OBJECT_HANDLE hKey) {
    return C::start(QOR_CALLEE(C_VerifyInit), hSession, pMechanism, hKey);
  }
  static CK_RV C_Verify(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                        CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen) {
    C c;
    return c(QOR_CALLEE(C_Verify), c.in(hSession), pData, c.in(ulDataLen), pSignature,
             c.in(ulSignatureLen));
  }
  static CK_RV C_VerifyUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen) {
    return C::input(QOR_CALLEE(C_VerifyUpdate), hSession, pPart, ulPartLen);
  }
  static CK_RV C_VerifyFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature,
                             CK_ULONG ulSignatureLen) {
    return C::input(QOR_CALLEE(C_VerifyFinal), hSession, pSignature, ulSignatureLen);
  }
  static CK_RV C_VerifyRecoverInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                                   CK_OBJECT_HANDLE hKey) {
    return C::start(QOR_CALLEE(C_VerifyRecoverInit), hSession, pMechanism, hKey);
  }
  static CK_RV C_VerifyRecover(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature,
                               CK_ULONG ulSignatureLen, CK_BYTE_PTR pData,
                               CK_ULONG_PTR pulDataLen) {
    return C::transform(QOR_CALLEE(C_VerifyRecover), hSession, pSignature, ulSignatureLen, pData,
                        pulDataLen);
  }

  static CK_RV C_DigestEncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart,
                                     CK_ULONG ulPartLen, CK_BYTE_PTR pEncryptedPart,
                                     CK_ULONG_PTR pulEncryptedPartLen) {
    return C::transform(QOR_CALLEE(C_DigestEncryptUpdate), hSession, pPart, ulPartLen,
                        pEncryptedPart, pulEncryptedPartLen);
  }
  static CK_RV C_DecryptDigestUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                                     CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart,
                                     CK_ULONG_PTR pulPartLen) {
    return C::transform(QOR_CALLEE(C_DecryptDigestUpdate), hSession, pEncryptedPart,
                        ulEncryptedPartLen, pPart, pulPartLen);
  }
  static CK_RV C_SignEncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart,
                                   CK_ULONG ulPartLen, CK_BYTE_PTR pEncryptedPart,
                                   CK_ULONG_PTR pulEncryptedPartLen) {
    return C::transform(QOR_CALLEE(C_SignEncryptUpdate), hSession, pPart, ulPartLen,
                        pEncryptedPart, pulEncryptedPartLen);
  }
  static CK_RV C_DecryptVerifyUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                                     CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart,
                                     CK_ULONG_PTR pulPartLen) {
    return C::transform(QOR_CALLEE(C_DecryptVerifyUpdate), hSession, pEncryptedPart,
                        ulEncryptedPartLen, pPart, pulPartLen);
  }
};

}  // namespace qor::abi
