// The remoted PKCS#11 calls, one row each, read by both ends: the client
// proxies build their requests from these rows and the serving side routes
// and decodes by the same rows. A family's rows say which fields of the
// function's messages carry what; the code that proxies or serves a family
// is written once per end, and a function adds only its log lines there.
// Functions that fit no family are written by hand on both ends and are
// listed in QOR_REMOTED_CALLS alone.
#pragma once

// Every remoted call: X(function, name the client sends, name the server
// routes, name the server answers under), in the order deployed servers
// compare the names (the fuzzers' seeds number the routes so). The handler
// of a route is <route>_Server. Where the two names differ the server has no
// handler for what the client sends; deployed peers on both ends are built
// so, and the call fails with the transport's code (Kept::kSentNamesNotRouted).
#define QOR_REMOTED_CALLS(X)                                                                      \
  X(C_Initialize, C_Initialize, C_Initialize, C_Initialize)                                       \
  X(C_Finalize, C_Finalize, C_Finalize, C_Finalize)                                               \
  X(C_OpenSession, C_OpenSession, C_OpenSession, C_OpenSession)                                   \
  X(C_CloseSession, C_CloseSession, C_CloseSession, C_CloseSession)                               \
  X(C_Login, C_Login, C_Login, C_Login)                                                           \
  X(C_Logout, C_Logout, C_Logout, C_Logout)                                                       \
  X(C_GetInfo, C_GetInfo, C_GetInfo, C_GetInfo)                                                   \
  X(C_GetSlotList, C_GetSlotList, C_GetSlotList, C_GetSlotList)                                   \
  X(C_GetSlotInfo, C_GetSlotInfo, C_GetSlotInfo, C_GetSlotInfo)                                   \
  X(C_GetTokenInfo, C_GetTokenInfo, C_GetTokenInfo, C_GetTokenInfo)                               \
  X(C_GetMechanismInfo, C_GetMechanismInfo, C_GetMechanismInfo, C_GetMechanismInfo)               \
  X(C_GetSessionInfo, C_GetSessionInfo, C_GetSessionInfo, C_GetSessionInfo)                       \
  X(C_DestroyObject, C_DestroyObject, C_DestroyObject, C_DestroyObject)                           \
  X(C_GetAttributeValue, C_GetAttributeValue, C_GetAttributeValue, C_GetAttributeValue)           \
  X(C_FindObjectsInit, C_FindObjectsInit, C_FindObjectsInit, C_FindObjectsInit)                   \
  X(C_FindObjects, C_FindObjects, C_FindObjects, C_FindObjects)                                   \
  X(C_FindObjectsFinal, C_FindObjectsFinal, C_FindObjectsFinal, C_FindObjectsFinal)               \
  X(C_EncryptInit, C_EncryptInit, C_EncryptInit, C_EncryptInit)                                   \
  X(C_Encrypt, C_Encrypt, C_Encrypt, C_Encrypt)                                                   \
  X(C_DecryptInit, C_DecryptInit, C_DecryptInit, C_DecryptInit)                                   \
  X(C_Decrypt, C_Decrypt, C_Decrypt, C_Decrypt)                                                   \
  X(C_DigestInit, C_DigestInit, C_DigestInit, C_DigestInit)                                       \
  X(C_Digest, C_Digest, C_Digest, C_Digest)                                                       \
  X(C_SignInit, C_SignInit, C_SignInit, C_SignInit)                                               \
  X(C_Sign, C_Sign, C_Sign, C_Sign)                                                               \
  X(C_VerifyInit, C_VerifyInit, C_VerifyInit, C_VerifyInit)                                       \
  X(C_Verify, C_Verify, C_Verify, C_Verify)                                                       \
  X(C_GenerateRandom, C_GenerateRandom, C_GenerateRandom, C_GenerateRandom)                       \
  X(C_SeedRandom, C_SeedRandom, C_SeedRandom, C_SeedRandom)                                       \
  X(C_GetMechanismList, C_GetMechanismList, C_GetMechanismList, C_GetMechanismList)               \
  X(C_InitToken, C_InitToken, C_InitToken, C_InitToken)                                           \
  X(C_InitPIN, C_InitPIN, C_InitPin, C_InitPin) /* kept: deployed servers route "C_InitPin" */    \
  X(C_SetPIN, C_SetPIN, C_SetPin, C_SetPin) /* kept: deployed servers route "C_SetPin" */         \
  X(C_CloseAllSessions, C_CloseAllSessions, C_CloseAllSessions, C_CloseAllSessions)               \
  X(C_GetOperationState, C_GetOperationState, C_GetOperationState, C_GetOperationState)           \
  X(C_SetOperationState, C_SetOperationState, C_SetOperationState, C_SetOperationState)           \
  X(C_CreateObject, C_CreateObject, C_CreateObject, C_CreateObject)                               \
  X(C_CopyObject, C_CopyObject, C_CopyObject, C_CopyObject)                                       \
  X(C_GetObjectSize, C_GetObjectSize, C_GetObjectSize, C_GetObjectSize)                           \
  X(C_SetAttributeValue, C_SetAttributeValue, C_SetAttributeValue, C_SetAttributeValue)           \
  X(C_EncryptUpdate, C_EncryptUpdate, C_EncryptUpdate, C_EncryptUpdate)                           \
  X(C_EncryptFinal, C_EncryptFinal, C_EncryptFinal, C_EncryptFinal)                               \
  X(C_DecryptUpdate, C_DecryptUpdate, C_DecryptUpdate, C_DecryptUpdate)                           \
  X(C_DecryptFinal, C_DecryptFinal, C_DecryptFinal, C_DecryptFinal)                               \
  X(C_DigestUpdate, C_DigestUpdate, C_DigestUpdate, C_DigestUpdate)                               \
  X(C_DigestKey, C_DigestKey, C_DigestKey, C_DigestKey)                                           \
  X(C_DigestFinal, C_DigestFinal, C_DigestFinal, C_DigestFinal)                                   \
  X(C_SignUpdate, C_SignUpdate, C_SignUpdate, C_SignUpdate)                                       \
  X(C_SignFinal, C_SignFinal, C_SignFinal, C_SignFinal)                                           \
  X(C_SignRecoverInit, C_SignRecoverInit, C_SignRecoverInit, C_SignRecoverInit)                   \
  X(C_SignRecover, C_SignRecover, C_SignRecover, C_SignRecover)                                   \
  X(C_VerifyUpdate, C_VerifyUpdate, C_VerifyUpdate, C_VerifyUpdate)                               \
  X(C_VerifyFinal, C_VerifyFinal, C_VerifyFinal, C_VerifyFinal)                                   \
  X(C_VerifyRecoverInit, C_VerifyRecoverInit, C_VerifyRecoverInit, C_VerifyRecoverInit)           \
  X(C_VerifyRecover, C_VerifyRecover, C_VerifyRecover, C_VerifyRecover)                           \
  X(C_DigestEncryptUpdate, C_DigestEncryptUpdate, C_DigestEncryptUpdate, C_DigestEncryptUpdate)   \
  X(C_DecryptDigestUpdate, C_DecryptDigestUpdate, C_DecryptDigestUpdate, C_DecryptDigestUpdate)   \
  X(C_SignEncryptUpdate, C_SignEncryptUpdate, C_SignEncryptUpdate, C_SignEncryptUpdate)           \
  X(C_DecryptVerifyUpdate, C_DecryptVerifyUpdate, C_DecryptVerifyUpdate, C_DecryptVerifyUpdate)   \
  X(C_GenerateKey, C_GenerateKey, C_GenerateKey, C_GenerateKey)                                   \
  X(C_GenerateKeyPair, C_GenerateKeyPair, C_GenerateKeyPair, C_GenerateKeyPair)                   \
  X(C_WrapKey, C_WrapKey, C_WrapKey, C_WrapKey)                                                   \
  X(C_UnwrapKey, C_UnWrapKey, C_UnWrapKey, C_UnWrapKey) /* the wire's own spelling, both ends */  \
  X(C_DeriveKey, C_DeriveKey, C_DeriveKey, C_UnDeriveKey) /* kept: peers expect this answer */    \
  X(C_GetFunctionStatus, C_GetFunctionStatus, C_GetFunctionStatus, C_GetFunctionStatus)           \
  X(C_CancelFunction, C_CancelFunction, C_CancelFunction, C_CancelFunction)                       \
  X(C_WaitForSlotEvent, C_WaitForSlotEvent, C_WaitForSlotEvent, C_WaitForSlotEvent)

// The families below name a function without its C_: the Java natives'
// exported names (C_1<name>) are built from it, and the preprocessor can join
// names but not cut them. Every other column is the same on both ends.

// Input bytes in, output bytes out: X(name, Operation field, input,
// input length, output, output length, input sizing). The reply names its
// output fields as the request does. A null output buffer goes out as a
// capacity of 0 (a length query).
// Input sizing, a kept difference of the serving side
// (Kept::kInputsSizedByOutput): kOwn gives the module
// the input at its own length; kOutput gives it a buffer of the output's
// length filled from the input (deployed servers serve the multi-part and
// recover functions so; the module still reads the input's length).
#define QOR_IN_OUT_CALLS(X)                                                                      \
  X(Encrypt, c_encrypt, pdata, uldatalen, pencrypteddata, pulencrypteddatalen, kOwn)           \
  X(Decrypt, c_decrypt, pencrypteddata, ulencrypteddatalen, pdata, puldatalen, kOwn)           \
  X(Digest, c_digest, pdata, uldatalen, pdigest, puldigestlen, kOwn)                           \
  X(Sign, c_sign, pdata, uldatalen, psignature, pulsignaturelen, kOwn)                         \
  X(SignRecover, c_signrecover, pdata, uldatalen, psignature, pulsignaturelen, kOutput)        \
  X(VerifyRecover, c_verifyrecover, psignature, ulsignaturelen, pdata, puldatalen, kOutput)    \
  X(EncryptUpdate, c_encryptupdate, ppart, ulpartlen, pencryptedpart, pulencryptedpartlen,     \
    kOutput)                                                                                     \
  X(DecryptUpdate, c_decryptupdate, pencryptedpart, ulencryptedpartlen, ppart, pulpartlen,     \
    kOutput)                                                                                     \
  X(DigestEncryptUpdate, c_digestencryptupdate, ppart, ulpartlen, pencryptedpart,              \
    pulencryptedpartlen, kOutput)                                                                \
  X(DecryptDigestUpdate, c_decryptdigestupdate, pencryptedpart, ulencryptedpartlen, ppart,     \
    pulpartlen, kOutput)                                                                         \
  X(SignEncryptUpdate, c_signencryptupdate, ppart, ulpartlen, pencryptedpart,                  \
    pulencryptedpartlen, kOutput)                                                                \
  X(DecryptVerifyUpdate, c_decryptverifyupdate, pencryptedpart, ulencryptedpartlen, ppart,     \
    pulpartlen, kOutput)

// Output bytes only: X(name, Operation field, output, output length).
#define QOR_FINAL_CALLS(X)                                                      \
  X(EncryptFinal, c_encryptfinal, plastencryptedpart, pullastencryptedpartlen) \
  X(DecryptFinal, c_decryptfinal, plastpart, pullastpartlen)                   \
  X(DigestFinal, c_digestfinal, pdigest, puldigestlen)                         \
  X(SignFinal, c_signfinal, psignature, pulsignaturelen)

// Input bytes only, sent whole: X(name, Operation field, input, input length).
#define QOR_INPUT_CALLS(X)                                       \
  X(DigestUpdate, c_digestupdate, ppart, ulpartlen)            \
  X(SignUpdate, c_signupdate, ppart, ulpartlen)                \
  X(VerifyUpdate, c_verifyupdate, ppart, ulpartlen)            \
  X(VerifyFinal, c_verifyfinal, psignature, ulsignaturelen)

// A mechanism and a key: X(name, Operation field).
#define QOR_INIT_CALLS(X)                          \
  X(EncryptInit, c_encryptinit)                  \
  X(DecryptInit, c_decryptinit)                  \
  X(SignInit, c_signinit)                        \
  X(VerifyInit, c_verifyinit)                    \
  X(SignRecoverInit, c_signrecoverinit)          \
  X(VerifyRecoverInit, c_verifyrecoverinit)

// A session handle alone: X(name, Operation field).
#define QOR_SESSION_CALLS(X)                        \
  X(CloseSession, c_closesession)                 \
  X(Logout, c_logout)                             \
  X(GetFunctionStatus, c_getfunctionstatus)       \
  X(CancelFunction, c_cancelfunction)

namespace qor::protocol {

// The operation name each call goes out under, by function.
namespace sent {
#define QOR_SENT_NAME(function, sent, routed, answered) inline constexpr char function[] = #sent;
QOR_REMOTED_CALLS(QOR_SENT_NAME)
#undef QOR_SENT_NAME
}  // namespace sent

// The operation name the serving side routes each call by.
namespace routed {
#define QOR_ROUTED_NAME(function, sent, routed, answered) inline constexpr char function[] = #routed;
QOR_REMOTED_CALLS(QOR_ROUTED_NAME)
#undef QOR_ROUTED_NAME
}  // namespace routed

// The name in the server's answer.
namespace answered {
#define QOR_ANSWERED_NAME(function, sent, routed, answered) inline constexpr char function[] = #answered;
QOR_REMOTED_CALLS(QOR_ANSWERED_NAME)
#undef QOR_ANSWERED_NAME
}  // namespace answered

constexpr bool same_text(const char* a, const char* b) {
  return *a == *b && (*a == '\0' || same_text(a + 1, b + 1));
}

}  // namespace qor::protocol

// A family's handler is named after its function and answers under that
// name: true only where the function is routed and answered so.
#define QOR_ROUTED_AS_ITSELF(function)                                                      \
  static_assert(::qor::protocol::same_text(::qor::protocol::routed::function, #function) &&  \
                    ::qor::protocol::same_text(::qor::protocol::answered::function, #function), \
                #function " is routed or answered under another name")
