#include "every_call.h"

namespace qor::test {

CallerMemory::CallerMemory() {
  std::memset(&b, 0x5A, sizeof(b));
  b.len = sizeof(b.out);
  b.count = 4;
  for (int i = 0; i < 2; ++i) b.attrs[i] = {CKA_VALUE, b.values[i], sizeof(b.values[i])};
  b.mechanism = {CKM_AES_CBC, b.in, sizeof(b.in)};
}

namespace {

using F = CK_FUNCTION_LIST;
using M = CallerMemory::Block;

// The input-only calls share one shape.
CK_RV withInput(CK_RV (*fn)(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG), M& m) {
  return fn(2, m.in, sizeof(m.in));
}

}  // namespace

const std::vector<EveryCall>& everyCall() {
  static const std::vector<EveryCall> calls = {
      {"C_Initialize", [](F& f, M&) { return f.C_Initialize(nullptr); }},
      {"C_Finalize", [](F& f, M&) { return f.C_Finalize(nullptr); }},
      {"C_GetInfo", [](F& f, M& m) { return f.C_GetInfo(&m.info); }},
      {"C_GetSlotList", [](F& f, M& m) { return f.C_GetSlotList(CK_TRUE, m.list, &m.count); }},
      {"C_GetSlotInfo", [](F& f, M& m) { return f.C_GetSlotInfo(1, &m.slotInfo); }},
      {"C_GetTokenInfo", [](F& f, M& m) { return f.C_GetTokenInfo(1, &m.tokenInfo); }},
      {"C_GetMechanismList", [](F& f, M& m) { return f.C_GetMechanismList(1, m.list, &m.count); }},
      {"C_GetMechanismInfo", [](F& f, M& m) { return f.C_GetMechanismInfo(1, CKM_SHA256, &m.mechanismInfo); }},
      {"C_InitToken", [](F& f, M& m) { return f.C_InitToken(1, m.in, 4, m.in); }},
      {"C_InitPIN", [](F& f, M& m) { return f.C_InitPIN(2, m.in, 4); }},
      {"C_SetPIN", [](F& f, M& m) { return f.C_SetPIN(2, m.in, 4, m.in, 4); }},
      {"C_OpenSession", [](F& f, M& m) { return f.C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &m.handles[0]); }},
      {"C_CloseSession", [](F& f, M&) { return f.C_CloseSession(2); }},
      {"C_CloseAllSessions", [](F& f, M&) { return f.C_CloseAllSessions(1); }},
      {"C_GetSessionInfo", [](F& f, M& m) { return f.C_GetSessionInfo(2, &m.sessionInfo); }},
      {"C_GetOperationState", [](F& f, M& m) { return f.C_GetOperationState(2, m.out, &m.len); }},
      {"C_SetOperationState", [](F& f, M& m) { return f.C_SetOperationState(2, m.in, 8, 3, 4); }},
      {"C_Login", [](F& f, M& m) { return f.C_Login(2, CKU_USER, m.in, 4); }},
      {"C_Logout", [](F& f, M&) { return f.C_Logout(2); }},
      {"C_CreateObject", [](F& f, M& m) { return f.C_CreateObject(2, m.attrs, 2, &m.handles[0]); }},
      {"C_CopyObject", [](F& f, M& m) { return f.C_CopyObject(2, 3, m.attrs, 2, &m.handles[0]); }},
      {"C_DestroyObject", [](F& f, M&) { return f.C_DestroyObject(2, 3); }},
      {"C_GetObjectSize", [](F& f, M& m) { return f.C_GetObjectSize(2, 3, &m.len); }},
      {"C_GetAttributeValue", [](F& f, M& m) { return f.C_GetAttributeValue(2, 3, m.attrs, 2); }},
      {"C_SetAttributeValue", [](F& f, M& m) { return f.C_SetAttributeValue(2, 3, m.attrs, 2); }},
      {"C_FindObjectsInit", [](F& f, M& m) { return f.C_FindObjectsInit(2, m.attrs, 2); }},
      {"C_FindObjects", [](F& f, M& m) { return f.C_FindObjects(2, m.handles, 4, &m.count); }},
      {"C_FindObjectsFinal", [](F& f, M&) { return f.C_FindObjectsFinal(2); }},
      {"C_EncryptInit", [](F& f, M& m) { return f.C_EncryptInit(2, &m.mechanism, 3); }},
      {"C_Encrypt", [](F& f, M& m) { return f.C_Encrypt(2, m.in, 8, m.out, &m.len); }},
      {"C_EncryptUpdate", [](F& f, M& m) { return f.C_EncryptUpdate(2, m.in, 8, m.out, &m.len); }},
      {"C_EncryptFinal", [](F& f, M& m) { return f.C_EncryptFinal(2, m.out, &m.len); }},
      {"C_DecryptInit", [](F& f, M& m) { return f.C_DecryptInit(2, &m.mechanism, 3); }},
      {"C_Decrypt", [](F& f, M& m) { return f.C_Decrypt(2, m.in, 8, m.out, &m.len); }},
      {"C_DecryptUpdate", [](F& f, M& m) { return f.C_DecryptUpdate(2, m.in, 8, m.out, &m.len); }},
      {"C_DecryptFinal", [](F& f, M& m) { return f.C_DecryptFinal(2, m.out, &m.len); }},
      {"C_DigestInit", [](F& f, M& m) { return f.C_DigestInit(2, &m.mechanism); }},
      {"C_Digest", [](F& f, M& m) { return f.C_Digest(2, m.in, 8, m.out, &m.len); }},
      {"C_DigestUpdate", [](F& f, M& m) { return withInput(f.C_DigestUpdate, m); }},
      {"C_DigestKey", [](F& f, M&) { return f.C_DigestKey(2, 3); }},
      {"C_DigestFinal", [](F& f, M& m) { return f.C_DigestFinal(2, m.out, &m.len); }},
      {"C_SignInit", [](F& f, M& m) { return f.C_SignInit(2, &m.mechanism, 3); }},
      {"C_Sign", [](F& f, M& m) { return f.C_Sign(2, m.in, 8, m.out, &m.len); }},
      {"C_SignUpdate", [](F& f, M& m) { return withInput(f.C_SignUpdate, m); }},
      {"C_SignFinal", [](F& f, M& m) { return f.C_SignFinal(2, m.out, &m.len); }},
      {"C_SignRecoverInit", [](F& f, M& m) { return f.C_SignRecoverInit(2, &m.mechanism, 3); }},
      {"C_SignRecover", [](F& f, M& m) { return f.C_SignRecover(2, m.in, 8, m.out, &m.len); }},
      {"C_VerifyInit", [](F& f, M& m) { return f.C_VerifyInit(2, &m.mechanism, 3); }},
      {"C_Verify", [](F& f, M& m) { return f.C_Verify(2, m.in, 8, m.out, 8); }},
      {"C_VerifyUpdate", [](F& f, M& m) { return withInput(f.C_VerifyUpdate, m); }},
      {"C_VerifyFinal", [](F& f, M& m) { return withInput(f.C_VerifyFinal, m); }},
      {"C_VerifyRecoverInit", [](F& f, M& m) { return f.C_VerifyRecoverInit(2, &m.mechanism, 3); }},
      {"C_VerifyRecover", [](F& f, M& m) { return f.C_VerifyRecover(2, m.in, 8, m.out, &m.len); }},
      {"C_DigestEncryptUpdate", [](F& f, M& m) { return f.C_DigestEncryptUpdate(2, m.in, 8, m.out, &m.len); }},
      {"C_DecryptDigestUpdate", [](F& f, M& m) { return f.C_DecryptDigestUpdate(2, m.in, 8, m.out, &m.len); }},
      {"C_SignEncryptUpdate", [](F& f, M& m) { return f.C_SignEncryptUpdate(2, m.in, 8, m.out, &m.len); }},
      {"C_DecryptVerifyUpdate", [](F& f, M& m) { return f.C_DecryptVerifyUpdate(2, m.in, 8, m.out, &m.len); }},
      {"C_GenerateKey", [](F& f, M& m) { return f.C_GenerateKey(2, &m.mechanism, m.attrs, 2, &m.handles[0]); }},
      {"C_GenerateKeyPair",
       [](F& f, M& m) {
         return f.C_GenerateKeyPair(2, &m.mechanism, m.attrs, 1, m.attrs + 1, 1, &m.handles[0], &m.handles[1]);
       }},
      {"C_WrapKey", [](F& f, M& m) { return f.C_WrapKey(2, &m.mechanism, 3, 4, m.out, &m.len); }},
      {"C_UnWrapKey",
       [](F& f, M& m) { return f.C_UnwrapKey(2, &m.mechanism, 3, m.in, 8, m.attrs, 2, &m.handles[0]); }},
      {"C_DeriveKey", [](F& f, M& m) { return f.C_DeriveKey(2, &m.mechanism, 3, m.attrs, 2, &m.handles[0]); }},
      {"C_SeedRandom", [](F& f, M& m) { return withInput(f.C_SeedRandom, m); }},
      {"C_GenerateRandom", [](F& f, M& m) { return f.C_GenerateRandom(2, m.out, sizeof(m.out)); }},
      {"C_GetFunctionStatus", [](F& f, M&) { return f.C_GetFunctionStatus(2); }},
      {"C_CancelFunction", [](F& f, M&) { return f.C_CancelFunction(2); }},
      {"C_WaitForSlotEvent", [](F& f, M& m) { return f.C_WaitForSlotEvent(0, &m.handles[0], nullptr); }},
  };
  return calls;
}

}  // namespace qor::test
