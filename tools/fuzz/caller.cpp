#include "caller.h"

#include <cstring>

namespace qor::fuzz {
namespace {

constexpr CK_BYTE kPattern = 0x5A;

template <typename T>
std::unique_ptr<T> filled() {
  std::unique_ptr<T> p(new T);
  std::memset(p.get(), kPattern, sizeof(T));
  return p;
}

std::unique_ptr<CK_BYTE[]> bytes(CK_ULONG n) {
  std::unique_ptr<CK_BYTE[]> p(new CK_BYTE[n]);
  std::memset(p.get(), kPattern, n);
  return p;
}

std::unique_ptr<CK_ULONG> ulong(CK_ULONG v) { return std::unique_ptr<CK_ULONG>(new CK_ULONG(v)); }

}  // namespace

Caller::Caller(Input& in) {
  dataLen = in.byte() % 64;
  const CK_ULONG outCapacity = in.byte();
  const uint8_t flags = in.byte();
  listCapacity = in.byte() % 16;
  attrCount = in.byte() % 5;

  data = bytes(dataLen);
  if (!(flags & 1)) out = bytes(outCapacity);
  outLen = ulong(outCapacity);
  if (!(flags & 0x20)) list.reset(new CK_ULONG[listCapacity]());
  count = ulong(listCapacity);
  attrs.reset(new CK_ATTRIBUTE[attrCount]);
  values.resize(attrCount);
  for (CK_ULONG i = 0; i < 4; ++i) {
    const CK_ULONG size = in.byte() % 64;
    if (i >= attrCount) continue;
    if (!(flags & (2u << i))) values[i] = bytes(size);
    attrs[i] = {CKA_VALUE + i, values[i].get(), size};
  }
  mechanism = {CKM_AES_CBC, data.get(), dataLen};
  handle = ulong(0x5A5A5A5A);
  handle2 = ulong(0x5A5A5A5A);
  label = bytes(32);
  info = filled<CK_INFO>();
  slotInfo = filled<CK_SLOT_INFO>();
  tokenInfo = filled<CK_TOKEN_INFO>();
  sessionInfo = filled<CK_SESSION_INFO>();
  mechanismInfo = filled<CK_MECHANISM_INFO>();
}

namespace {

using F = CK_FUNCTION_LIST;
using C = Caller;

// The shapes most functions share.
CK_RV transform(CK_RV (*fn)(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR),
                C& c) {
  return fn(2, c.data.get(), c.dataLen, c.out.get(), c.outLen.get());
}
CK_RV final(CK_RV (*fn)(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG_PTR), C& c) {
  return fn(2, c.out.get(), c.outLen.get());
}
CK_RV input(CK_RV (*fn)(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG), C& c) {
  return fn(2, c.data.get(), c.dataLen);
}
CK_RV keyInit(CK_RV (*fn)(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE), C& c) {
  return fn(2, &c.mechanism, 3);
}

}  // namespace

const std::vector<ProxyCall>& proxyCalls() {
  static const std::vector<ProxyCall> calls = {
      {"C_Initialize", [](F& f, C&) { return f.C_Initialize(nullptr); }},
      {"C_Finalize", [](F& f, C&) { return f.C_Finalize(nullptr); }},
      {"C_GetInfo", [](F& f, C& c) { return f.C_GetInfo(c.info.get()); }},
      {"C_GetSlotList", [](F& f, C& c) { return f.C_GetSlotList(CK_TRUE, c.list.get(), c.count.get()); }},
      {"C_GetSlotInfo", [](F& f, C& c) { return f.C_GetSlotInfo(1, c.slotInfo.get()); }},
      {"C_GetTokenInfo", [](F& f, C& c) { return f.C_GetTokenInfo(1, c.tokenInfo.get()); }},
      {"C_GetMechanismList", [](F& f, C& c) { return f.C_GetMechanismList(1, c.list.get(), c.count.get()); }},
      {"C_GetMechanismInfo", [](F& f, C& c) { return f.C_GetMechanismInfo(1, CKM_SHA256, c.mechanismInfo.get()); }},
      {"C_InitToken", [](F& f, C& c) { return f.C_InitToken(1, c.data.get(), c.dataLen, c.label.get()); }},
      {"C_InitPIN", [](F& f, C& c) { return f.C_InitPIN(2, c.data.get(), c.dataLen); }},
      {"C_SetPIN", [](F& f, C& c) { return f.C_SetPIN(2, c.data.get(), c.dataLen, c.data.get(), c.dataLen); }},
      {"C_OpenSession", [](F& f, C& c) { return f.C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, c.handle.get()); }},
      {"C_CloseSession", [](F& f, C&) { return f.C_CloseSession(2); }},
      {"C_CloseAllSessions", [](F& f, C&) { return f.C_CloseAllSessions(1); }},
      {"C_GetSessionInfo", [](F& f, C& c) { return f.C_GetSessionInfo(2, c.sessionInfo.get()); }},
      {"C_GetOperationState", [](F& f, C& c) { return final(f.C_GetOperationState, c); }},
      {"C_SetOperationState", [](F& f, C& c) { return f.C_SetOperationState(2, c.data.get(), c.dataLen, 3, 4); }},
      {"C_Login", [](F& f, C& c) { return f.C_Login(2, CKU_USER, c.data.get(), c.dataLen); }},
      {"C_Logout", [](F& f, C&) { return f.C_Logout(2); }},
      {"C_CreateObject", [](F& f, C& c) { return f.C_CreateObject(2, c.attrs.get(), c.attrCount, c.handle.get()); }},
      {"C_CopyObject", [](F& f, C& c) { return f.C_CopyObject(2, 3, c.attrs.get(), c.attrCount, c.handle.get()); }},
      {"C_DestroyObject", [](F& f, C&) { return f.C_DestroyObject(2, 3); }},
      {"C_GetObjectSize", [](F& f, C& c) { return f.C_GetObjectSize(2, 3, c.handle.get()); }},
      {"C_GetAttributeValue", [](F& f, C& c) { return f.C_GetAttributeValue(2, 3, c.attrs.get(), c.attrCount); }},
      {"C_SetAttributeValue", [](F& f, C& c) { return f.C_SetAttributeValue(2, 3, c.attrs.get(), c.attrCount); }},
      {"C_FindObjectsInit", [](F& f, C& c) { return f.C_FindObjectsInit(2, c.attrs.get(), c.attrCount); }},
      {"C_FindObjects", [](F& f, C& c) { return f.C_FindObjects(2, c.list.get(), c.listCapacity, c.count.get()); }},
      {"C_FindObjectsFinal", [](F& f, C&) { return f.C_FindObjectsFinal(2); }},
      {"C_EncryptInit", [](F& f, C& c) { return keyInit(f.C_EncryptInit, c); }},
      {"C_Encrypt", [](F& f, C& c) { return transform(f.C_Encrypt, c); }},
      {"C_EncryptUpdate", [](F& f, C& c) { return transform(f.C_EncryptUpdate, c); }},
      {"C_EncryptFinal", [](F& f, C& c) { return final(f.C_EncryptFinal, c); }},
      {"C_DecryptInit", [](F& f, C& c) { return keyInit(f.C_DecryptInit, c); }},
      {"C_Decrypt", [](F& f, C& c) { return transform(f.C_Decrypt, c); }},
      {"C_DecryptUpdate", [](F& f, C& c) { return transform(f.C_DecryptUpdate, c); }},
      {"C_DecryptFinal", [](F& f, C& c) { return final(f.C_DecryptFinal, c); }},
      {"C_DigestInit", [](F& f, C& c) { return f.C_DigestInit(2, &c.mechanism); }},
      {"C_Digest", [](F& f, C& c) { return transform(f.C_Digest, c); }},
      {"C_DigestUpdate", [](F& f, C& c) { return input(f.C_DigestUpdate, c); }},
      {"C_DigestKey", [](F& f, C&) { return f.C_DigestKey(2, 3); }},
      {"C_DigestFinal", [](F& f, C& c) { return final(f.C_DigestFinal, c); }},
      {"C_SignInit", [](F& f, C& c) { return keyInit(f.C_SignInit, c); }},
      {"C_Sign", [](F& f, C& c) { return transform(f.C_Sign, c); }},
      {"C_SignUpdate", [](F& f, C& c) { return input(f.C_SignUpdate, c); }},
      {"C_SignFinal", [](F& f, C& c) { return final(f.C_SignFinal, c); }},
      {"C_SignRecoverInit", [](F& f, C& c) { return keyInit(f.C_SignRecoverInit, c); }},
      {"C_SignRecover", [](F& f, C& c) { return transform(f.C_SignRecover, c); }},
      {"C_VerifyInit", [](F& f, C& c) { return keyInit(f.C_VerifyInit, c); }},
      {"C_Verify", [](F& f, C& c) { return f.C_Verify(2, c.data.get(), c.dataLen, c.out.get(), *c.outLen); }},
      {"C_VerifyUpdate", [](F& f, C& c) { return input(f.C_VerifyUpdate, c); }},
      {"C_VerifyFinal", [](F& f, C& c) { return input(f.C_VerifyFinal, c); }},
      {"C_VerifyRecoverInit", [](F& f, C& c) { return keyInit(f.C_VerifyRecoverInit, c); }},
      {"C_VerifyRecover", [](F& f, C& c) { return transform(f.C_VerifyRecover, c); }},
      {"C_DigestEncryptUpdate", [](F& f, C& c) { return transform(f.C_DigestEncryptUpdate, c); }},
      {"C_DecryptDigestUpdate", [](F& f, C& c) { return transform(f.C_DecryptDigestUpdate, c); }},
      {"C_SignEncryptUpdate", [](F& f, C& c) { return transform(f.C_SignEncryptUpdate, c); }},
      {"C_DecryptVerifyUpdate", [](F& f, C& c) { return transform(f.C_DecryptVerifyUpdate, c); }},
      {"C_GenerateKey",
       [](F& f, C& c) { return f.C_GenerateKey(2, &c.mechanism, c.attrs.get(), c.attrCount, c.handle.get()); }},
      {"C_GenerateKeyPair",
       [](F& f, C& c) {
         const CK_ULONG half = c.attrCount / 2;
         return f.C_GenerateKeyPair(2, &c.mechanism, c.attrs.get(), half, c.attrs.get() + half,
                                    c.attrCount - half, c.handle.get(), c.handle2.get());
       }},
      {"C_WrapKey", [](F& f, C& c) { return f.C_WrapKey(2, &c.mechanism, 3, 4, c.out.get(), c.outLen.get()); }},
      {"C_UnWrapKey",
       [](F& f, C& c) {
         return f.C_UnwrapKey(2, &c.mechanism, 3, c.data.get(), c.dataLen, c.attrs.get(), c.attrCount,
                              c.handle.get());
       }},
      {"C_DeriveKey",
       [](F& f, C& c) { return f.C_DeriveKey(2, &c.mechanism, 3, c.attrs.get(), c.attrCount, c.handle.get()); }},
      {"C_SeedRandom", [](F& f, C& c) { return input(f.C_SeedRandom, c); }},
      {"C_GenerateRandom", [](F& f, C& c) { return f.C_GenerateRandom(2, c.out.get(), *c.outLen); }},
      {"C_GetFunctionStatus", [](F& f, C&) { return f.C_GetFunctionStatus(2); }},
      {"C_CancelFunction", [](F& f, C&) { return f.C_CancelFunction(2); }},
      {"C_WaitForSlotEvent", [](F& f, C& c) { return f.C_WaitForSlotEvent(0, c.handle.get(), nullptr); }},
  };
  return calls;
}

}  // namespace qor::fuzz
