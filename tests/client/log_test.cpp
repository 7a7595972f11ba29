// The log lines whose texts break the common pattern; log readers match them
// as they stand.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "fake_server.h"
#include "log_capture.h"
#include "qorpkcs11/common/log.h"

namespace qor::test {
namespace {

using Logs = ProxyTest;

TEST_F(Logs, OddLinesAppearAsTheyStand) {
  struct Row {
    std::function<CK_RV()> call;
    std::string line;
    bool present;
  };
  CK_BYTE buf[4] = {};
  CK_ULONG len = sizeof(buf);
  CK_SESSION_HANDLE session = 0;
  CK_MECHANISM mech = {CKM_SHA256, nullptr, 0};
  const Row rows[] = {
      {[] { return C_Initialize(nullptr); }, "C_initialize Success", true},
      {[] { return C_Initialize(nullptr); }, "C_Initialize serialized buffer size = 14", true},
      {[] { return C_Initialize(nullptr); }, "C_Initialize return result ", true},
      {[] { return C_Finalize(nullptr); }, "C_Finalize success", true},
      {[] { return C_Finalize(nullptr); }, "C_Finalize rv = 5", true},
      {[&] { return C_InitPIN(1, buf, 4); }, "C_InitPin Success", true},
      {[&] { return C_SetPIN(1, buf, 4, buf, 4); }, "C_SetPin return value = 5", true},
      {[&] { return C_Login(1, CKU_USER, buf, 4); }, "C_LOGIN return value = 5", true},
      {[&] { return C_OpenSession(3, 0, nullptr, nullptr, &session); }, "Slot id  = 3", true},
      {[] { return C_DestroyObject(1, 2); }, "C_DestroyObject rv  = 5", true},
      {[&] { return C_GetObjectSize(1, 2, &len); }, "Find objects rv = 5", true},
      {[&] { return C_GetSlotList(CK_TRUE, nullptr, &len); }, "rv = 5", true},
      {[&] { return C_DecryptInit(1, &mech, 2); }, "Decrypt rv = 5", true},
      {[&] { return C_UnwrapKey(1, &mech, 2, buf, 4, nullptr, 0, &session); }, "C_UnWrapKey Success", true},
      {[&] { return C_UnwrapKey(1, &mech, 2, buf, 4, nullptr, 0, &session); }, "C_UnWrapKey rv = 5", true},
      {[] { return C_CancelFunction(1); }, "C_CancelFunction return value = 5", true},
      // Lines that wait for the outputs: none came back.
      {[&] { return C_Sign(1, buf, 4, buf, &len); }, "C_Sign rv = 5", false},
      {[&] { return C_WaitForSlotEvent(0, &session, nullptr); }, "C_WaitForSlotEvent return value = 5", false},
  };
  answer(CKR_GENERAL_ERROR);
  for (const Row& row : rows) {
    LogCapture capture;
    EXPECT_EQ(CKR_GENERAL_ERROR, row.call());
    EXPECT_EQ(row.present, capture.contains(log::kClient, row.line)) << row.line;
  }
}

}  // namespace
}  // namespace qor::test
