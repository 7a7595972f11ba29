// Recording and scripting: the call texts other suites assert on, scripted
// answers that stay inside the caller's buffers, and slot events.
#include <chrono>
#include <cstring>
#include <thread>

#include "module_fixture.h"
#include "qorpkcs11/pkcs11_params.h"

namespace qor::test {
namespace {

using Handles = std::vector<CK_ULONG>;

TEST_F(ModuleTest, RecordsEveryCallAsCanonicalText) {
  CK_SESSION_HANDLE h;
  ASSERT_EQ(CKR_OK, f_->C_OpenSession(1, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &h));
  ASSERT_EQ(CKR_OK, login(h, CKU_USER, "1234"));
  CK_MECHANISM rsa = {CKM_RSA_PKCS, nullptr, 0};
  ASSERT_EQ(CKR_OK, f_->C_SignInit(h, &rsa, 4));
  CK_BYTE data[] = {0x0a, 0x0b}, sig[2] = {0, 0};
  CK_ULONG sigLen = 2;
  EXPECT_EQ(CKR_BUFFER_TOO_SMALL, f_->C_Sign(h, data, 2, sig, &sigLen));
  CK_ULONG count = 0;
  f_->C_GetSlotList(CK_FALSE, nullptr, &count);
  CK_BYTE source[] = {1, 2};
  CK_RSA_PKCS_OAEP_PARAMS oaep = {CKM_SHA256, CKG_MGF1_SHA256, CKZ_DATA_SPECIFIED, source, 2};
  CK_MECHANISM withParam = {CKM_RSA_PKCS_OAEP, &oaep, sizeof oaep};
  f_->C_EncryptInit(h, &withParam, 3);
  char label[] = "rsa";
  CK_ATTRIBUTE tpl[] = {{CKA_LABEL, label, 3}, {CKA_ID, nullptr, 0}};
  f_->C_GetAttributeValue(h, 2, tpl, 2);

  const std::string oaepLen = std::to_string(sizeof oaep);
  const std::vector<std::string> want = {
      "C_OpenSession(slotID=1, flags=0x6, pApplication=null, Notify=null, phSession=nonnull)",
      "C_Login(hSession=1, userType=1, pPin=[31323334], ulPinLen=4)",
      "C_SignInit(hSession=1, pMechanism={mechanism=0x1, pParameter=null, ulParameterLen=0}, hKey=4)",
      "C_Sign(hSession=1, pData=[0a0b], ulDataLen=2, pSignature=[0000], *pulSignatureLen=2)",
      "C_GetSlotList(tokenPresent=0, pSlotList=null, *pulCount=0)",
      "C_EncryptInit(hSession=1, pMechanism={mechanism=0x9, pParameter={hashAlg=0x250, mgf=0x2, source=0x1, "
      "pSourceData=[0102], ulSourceDataLen=2}, ulParameterLen=" + oaepLen + "}, hKey=3)",
      "C_GetAttributeValue(hSession=1, hObject=2, pTemplate=[{type=0x3, pValue=[727361], ulValueLen=3}, "
      "{type=0x102, pValue=null, ulValueLen=0}], ulCount=2)",
  };
  EXPECT_EQ(want, tm_.calls());
  EXPECT_EQ(static_cast<int64_t>(CKR_BUFFER_TOO_SMALL), tm_.rv(3));
  EXPECT_EQ("C_Sign", tm_.name(3));
  EXPECT_EQ("[0a0b]", tm_.arg(3, "pData"));
  EXPECT_EQ("2", tm_.arg(3, "pulSignatureLen"));
  EXPECT_EQ(3, tm_.last("C_Sign"));
  EXPECT_EQ(-1, tm_.last("C_Verify"));
  EXPECT_EQ("", tm_.call(99));
  EXPECT_EQ(-1, tm_.rv(99));

  tm_.setRecording(false);
  f_->C_Logout(h);
  EXPECT_EQ(7, tm_.count());
  tm_.setRecording(true);
  tm_.clearCalls();
  EXPECT_EQ(0, tm_.count());
}

TEST_F(ModuleTest, ScriptedCallsWriteOnlyWhatTheScriptGivesWithinTheCapacity) {
  // Untouched: no session or operation needed, the buffer keeps its bytes.
  ASSERT_TRUE(tm_.script("C_Sign", CKR_OK, std::nullopt, 300));
  Bytes sig(4, 0xEE);
  CK_ULONG len = 4;
  EXPECT_EQ(CKR_OK, f_->C_Sign(9, nullptr, 0, sig.data(), &len));
  EXPECT_EQ(Bytes(4, 0xEE), sig);
  EXPECT_EQ(300u, len);
  EXPECT_EQ(CKR_SESSION_HANDLE_INVALID, f_->C_Sign(9, nullptr, 0, sig.data(), &len));  // consumed once

  // Output bytes stop at the capacity the caller declared.
  ASSERT_TRUE(tm_.script("C_Digest", CKR_BUFFER_TOO_SMALL, Bytes(40, 0x11), 40));
  Bytes digest(33, 0xEE);
  len = 32;
  EXPECT_EQ(CKR_BUFFER_TOO_SMALL, f_->C_Digest(9, nullptr, 0, digest.data(), &len));
  EXPECT_EQ(Bytes(32, 0x11), Bytes(digest.begin(), digest.begin() + 32));
  EXPECT_EQ(0xEE, digest[32]);
  EXPECT_EQ(40u, len);

  // Values go to handle outputs in order, arrays up to their capacity.
  ASSERT_TRUE(tm_.script("C_GenerateKeyPair", CKR_OK, std::nullopt, -1, -1, {7, 9}));
  CK_OBJECT_HANDLE pub = 0, priv = 0;
  EXPECT_EQ(CKR_OK, f_->C_GenerateKeyPair(9, nullptr, nullptr, 0, nullptr, 0, &pub, &priv));
  EXPECT_EQ(7u, pub);
  EXPECT_EQ(9u, priv);
  ASSERT_TRUE(tm_.script("C_FindObjects", CKR_OK, std::nullopt, -1, 5, {1, 2, 3}));
  Handles found = {0, 0, 0};
  CK_ULONG n = 0;
  EXPECT_EQ(CKR_OK, f_->C_FindObjects(9, found.data(), 2, &n));
  EXPECT_EQ((Handles{1, 2, 0}), found);
  EXPECT_EQ(5u, n);

  // Templates: values are the attribute lengths.
  ASSERT_TRUE(tm_.script("C_GetAttributeValue", CKR_ATTRIBUTE_SENSITIVE, Bytes{0xAB}, -1, -1,
                         {CK_UNAVAILABLE_INFORMATION, 1}));
  CK_BYTE a = 0, b = 0;
  CK_ATTRIBUTE tpl[] = {{CKA_VALUE, &a, 1}, {CKA_ID, &b, 1}};
  EXPECT_EQ(CKR_ATTRIBUTE_SENSITIVE, f_->C_GetAttributeValue(9, 9, tpl, 2));
  EXPECT_EQ(CK_UNAVAILABLE_INFORMATION, tpl[0].ulValueLen);
  EXPECT_EQ(1u, tpl[1].ulValueLen);
  EXPECT_EQ(0xAB, b);

  // Scripts queue per function, in order, and are recorded like other calls.
  ASSERT_TRUE(tm_.script("C_GetInfo", CKR_DEVICE_ERROR));
  ASSERT_TRUE(tm_.script("C_GetInfo", CKR_OK));
  CK_INFO info;
  std::memset(&info, 0x5C, sizeof info);
  EXPECT_EQ(CKR_DEVICE_ERROR, f_->C_GetInfo(&info));
  EXPECT_EQ(CKR_OK, f_->C_GetInfo(&info));
  EXPECT_EQ(0x5C, info.manufacturerID[0]);
  EXPECT_EQ(CKR_OK, f_->C_GetInfo(&info));
  EXPECT_EQ('Q', info.manufacturerID[0]);
  std::string untouched = "[";
  for (size_t i = 0; i < sizeof info; ++i) untouched += "5c";
  EXPECT_EQ(untouched + "]", tm_.arg(tm_.count() - 2, "pInfo"));  // what the caller handed in
  EXPECT_EQ(static_cast<int64_t>(CKR_DEVICE_ERROR), tm_.rv(tm_.count() - 3));

  EXPECT_FALSE(tm_.script("C_InitPin", CKR_OK));
  ASSERT_TRUE(tm_.script("C_GetInfo", CKR_DEVICE_ERROR));
  tm_.reset();
  EXPECT_EQ(CKR_CRYPTOKI_NOT_INITIALIZED, f_->C_GetInfo(&info));  // reset drops queued scripts too
}

TEST_F(ModuleTest, SlotEventsWakeAWaitingThread) {
  CK_SLOT_ID slot = 0;
  EXPECT_EQ(CKR_NO_EVENT, f_->C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr));
  tm_.slotEvent(2);
  EXPECT_EQ(CKR_OK, f_->C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr));
  EXPECT_EQ(2u, slot);
  ASSERT_TRUE(tm_.script("C_WaitForSlotEvent", CKR_OK, std::nullopt, -1, -1, {5}));
  EXPECT_EQ(CKR_OK, f_->C_WaitForSlotEvent(0, &slot, nullptr));
  EXPECT_EQ(5u, slot);

  // A blocking wait releases the module: other calls and controls go on.
  CK_RV rv = CKR_GENERAL_ERROR;
  slot = 0;
  auto waitUntilRecorded = [this](int before) {
    while (tm_.count() == before) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  };
  int before = tm_.count();
  std::thread waiter([&] { rv = f_->C_WaitForSlotEvent(0, &slot, nullptr); });
  waitUntilRecorded(before);
  CK_INFO info;
  EXPECT_EQ(CKR_OK, f_->C_GetInfo(&info));
  EXPECT_EQ(-1, tm_.rv(tm_.last("C_WaitForSlotEvent")));
  tm_.slotEvent(1);
  waiter.join();
  EXPECT_EQ(CKR_OK, rv);
  EXPECT_EQ(1u, slot);

  // C_Finalize ends a blocked wait.
  before = tm_.count();
  std::thread finalized([&] { rv = f_->C_WaitForSlotEvent(0, &slot, nullptr); });
  waitUntilRecorded(before);
  EXPECT_EQ(CKR_OK, f_->C_Finalize(nullptr));
  finalized.join();
  EXPECT_EQ(CKR_CRYPTOKI_NOT_INITIALIZED, rv);
}

}  // namespace
}  // namespace qor::test
