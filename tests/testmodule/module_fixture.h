// A freshly reset, initialised test module for each test.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testmodule.h"

namespace qor::test {

using Bytes = std::vector<CK_BYTE>;

class ModuleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(tm_.ok()) << tm_.error();
    tm_.resetReady();
    f_ = tm_.functions();
  }

  CK_SESSION_HANDLE open(CK_FLAGS flags = CKF_SERIAL_SESSION | CKF_RW_SESSION) {
    CK_SESSION_HANDLE h = 0;
    EXPECT_EQ(CKR_OK, f_->C_OpenSession(1, flags, nullptr, nullptr, &h));
    return h;
  }

  CK_RV login(CK_SESSION_HANDLE h, CK_USER_TYPE who, const std::string& pin) {
    return f_->C_Login(h, who, pinBytes(pin), static_cast<CK_ULONG>(pin.size()));
  }

  static CK_UTF8CHAR_PTR pinBytes(const std::string& s) {
    return reinterpret_cast<CK_UTF8CHAR_PTR>(const_cast<char*>(s.data()));
  }

  TestModule tm_{QOR_TESTMODULE_PATH};
  CK_FUNCTION_LIST* f_ = nullptr;
};

}  // namespace qor::test
