// Pointers a call must follow are checked before anything is sent.
#include <gtest/gtest.h>

#include <functional>

#include "fake_server.h"

namespace qor::test {
namespace {

using Arguments = ProxyTest;

TEST_F(Arguments, UnusableNullPointersAreRejectedBeforeSending) {
  CK_BYTE buf[8] = {};
  CK_ULONG len = sizeof(buf);
  CK_OBJECT_HANDLE h = 0;
  CK_ATTRIBUTE attr[1] = {{CKA_LABEL, buf, 4}};
  CK_ATTRIBUTE nullSearchValue[1] = {{CKA_LABEL, nullptr, 4}};
  CK_MECHANISM mech = {CKM_SHA256, nullptr, 0};
  CK_MECHANISM nullParameter = {CKM_AES_CBC, nullptr, 16};
  const std::function<CK_RV()> calls[] = {
      [&] { return C_GetInfo(nullptr); },
      [&] { return C_GetSlotList(CK_TRUE, &h, nullptr); },
      [&] { return C_GetMechanismList(1, nullptr, nullptr); },
      [&] { return C_GetSlotInfo(1, nullptr); },
      [&] { return C_GetTokenInfo(1, nullptr); },
      [&] { return C_GetMechanismInfo(1, CKM_SHA256, nullptr); },
      [&] { return C_InitToken(1, buf, 4, nullptr); },
      [&] { return C_GetSessionInfo(1, nullptr); },
      [&] { return C_GetOperationState(1, buf, nullptr); },
      [&] { return C_SetOperationState(1, nullptr, 4, 0, 0); },
      [&] { return C_WaitForSlotEvent(0, nullptr, nullptr); },
      [&] { return C_CreateObject(1, nullptr, 1, &h); },
      [&] { return C_CreateObject(1, attr, 1, nullptr); },
      [&] { return C_CopyObject(1, 2, attr, 1, nullptr); },
      [&] { return C_GetObjectSize(1, 2, nullptr); },
      [&] { return C_GetAttributeValue(1, 2, nullptr, 1); },
      [&] { return C_SetAttributeValue(1, 2, nullptr, 3); },
      [&] { return C_FindObjectsInit(1, nullSearchValue, 1); },
      [&] { return C_FindObjects(1, nullptr, 4, &len); },
      [&] { return C_FindObjects(1, &h, 1, nullptr); },
      [&] { return C_EncryptInit(1, nullptr, 2); },
      [&] { return C_SignInit(1, &nullParameter, 2); },
      [&] { return C_DigestInit(1, nullptr); },
      [&] { return C_Encrypt(1, nullptr, 8, buf, &len); },
      [&] { return C_Decrypt(1, buf, 8, buf, nullptr); },
      [&] { return C_DigestFinal(1, buf, nullptr); },
      [&] { return C_DigestUpdate(1, nullptr, 3); },
      [&] { return C_Verify(1, buf, 8, nullptr, 8); },
      [&] { return C_VerifyFinal(1, nullptr, 8); },
      [&] { return C_GenerateKey(1, &mech, attr, 1, nullptr); },
      [&] { return C_GenerateKey(1, &mech, nullptr, 2, &h); },
      [&] { return C_GenerateKeyPair(1, &mech, attr, 1, attr, 1, &h, nullptr); },
      [&] { return C_WrapKey(1, &mech, 2, 3, buf, nullptr); },
      [&] { return C_UnwrapKey(1, &mech, 2, nullptr, 8, attr, 1, &h); },
      [&] { return C_DeriveKey(1, nullptr, 2, attr, 1, &h); },
      [&] { return C_SeedRandom(1, nullptr, 4); },
      [&] { return C_GenerateRandom(1, nullptr, 4); },
  };
  for (size_t i = 0; i < std::size(calls); ++i) EXPECT_EQ(CKR_ARGUMENTS_BAD, calls[i]()) << "call " << i;
  EXPECT_TRUE(received().empty());
}

}  // namespace
}  // namespace qor::test
