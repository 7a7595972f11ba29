// Library, slot, token, mechanism and session calls, both ways.
// `+info.field` compares a copy: members of the project's packed structures
// need not be aligned, so no reference may bind to them.
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "token.h"

namespace qor::test {
namespace {

template <class Via>
class GeneralTest : public TokenTest<Via> {};
TYPED_TEST_SUITE(GeneralTest, BothWays);

TYPED_TEST(GeneralTest, InfoComesThroughWhole) {
  typename TestFixture::A::CK_INFO info{};
  ASSERT_EQ(CKR_OK, this->f_->C_GetInfo(&info));
  EXPECT_EQ(2, +info.cryptokiVersion.major);
  EXPECT_EQ(0, std::memcmp(info.manufacturerID, "SoftHSM", 7));
  EXPECT_EQ(0u, +info.flags);
  EXPECT_EQ(CKR_ARGUMENTS_BAD, this->f_->C_GetInfo(nullptr));
}

TYPED_TEST(GeneralTest, SlotListFollowsTheSizeQueryConvention) {
  using UL = typename TestFixture::UL;
  UL all = 0;
  ASSERT_EQ(CKR_OK, this->f_->C_GetSlotList(CK_FALSE, nullptr, &all));
  ASSERT_EQ(2u, all);  // the token and SoftHSM's free slot
  std::vector<UL> slots(all + 1, 0xAA);
  UL none = 0;
  EXPECT_EQ(CKR_BUFFER_TOO_SMALL, this->f_->C_GetSlotList(CK_FALSE, slots.data(), &none));
  EXPECT_EQ(all, none);
  UL room = all + 1;
  ASSERT_EQ(CKR_OK, this->f_->C_GetSlotList(CK_FALSE, slots.data(), &room));
  EXPECT_EQ(all, room);
  EXPECT_NE(slots.begin() + all, std::find(slots.begin(), slots.begin() + all, this->slot_));
  EXPECT_EQ(0xAAu, slots[all]) << "wrote past the entries it reported";
}

TYPED_TEST(GeneralTest, TokenInfoKeepsUnavailableAndInfinite) {
  typename TestFixture::A::CK_TOKEN_INFO info{};
  ASSERT_EQ(CKR_OK, this->f_->C_GetTokenInfo(this->slot_, &info));
  EXPECT_EQ(0, std::memcmp(info.label, "test", 4));
  EXPECT_TRUE(info.flags & CKF_TOKEN_INITIALIZED);
  EXPECT_TRUE(info.flags & CKF_USER_PIN_INITIALIZED);
  EXPECT_EQ(CK_EFFECTIVELY_INFINITE, +info.ulMaxSessionCount);
  EXPECT_EQ(TestFixture::kUnavailable, +info.ulSessionCount);
  EXPECT_EQ(4u, +info.ulMinPinLen);
  EXPECT_EQ(255u, +info.ulMaxPinLen);
  EXPECT_EQ(TestFixture::kUnavailable, +info.ulTotalPublicMemory);
  EXPECT_EQ(TestFixture::kUnavailable, +info.ulFreePrivateMemory);
  EXPECT_EQ(2, +info.hardwareVersion.major);

  typename TestFixture::A::CK_SLOT_INFO slot{};
  ASSERT_EQ(CKR_OK, this->f_->C_GetSlotInfo(this->slot_, &slot));
  EXPECT_TRUE(slot.flags & CKF_TOKEN_PRESENT);
  EXPECT_EQ(CKR_SLOT_ID_INVALID, this->f_->C_GetSlotInfo(0x7FFFFFF0u, &slot));
}

TYPED_TEST(GeneralTest, MechanismListAndInfo) {
  using UL = typename TestFixture::UL;
  UL n = 0;
  ASSERT_EQ(CKR_OK, this->f_->C_GetMechanismList(this->slot_, nullptr, &n));
  ASSERT_GT(n, 20u);
  std::vector<UL> types(n);
  ASSERT_EQ(CKR_OK, this->f_->C_GetMechanismList(this->slot_, types.data(), &n));
  for (UL m : {CKM_RSA_PKCS_OAEP, CKM_RSA_PKCS_PSS, CKM_ECDH1_DERIVE, CKM_AES_GCM, CKM_SHA256}) {
    EXPECT_NE(types.end(), std::find(types.begin(), types.end(), m)) << std::hex << m;
  }

  typename TestFixture::A::CK_MECHANISM_INFO info{};
  ASSERT_EQ(CKR_OK, this->f_->C_GetMechanismInfo(this->slot_, CKM_RSA_PKCS_KEY_PAIR_GEN, &info));
  EXPECT_LE(+info.ulMinKeySize, 1024u);
  EXPECT_GE(+info.ulMaxKeySize, 4096u);
  EXPECT_TRUE(info.flags & CKF_GENERATE_KEY_PAIR);
  EXPECT_EQ(CKR_MECHANISM_INVALID,
            this->f_->C_GetMechanismInfo(this->slot_, CKM_VENDOR_DEFINED + 7, &info));
}

TYPED_TEST(GeneralTest, SessionsAndLogin) {
  typename TestFixture::A::CK_SESSION_INFO info{};
  ASSERT_EQ(CKR_OK, this->f_->C_GetSessionInfo(this->session_, &info));
  EXPECT_EQ(this->slot_, +info.slotID);
  EXPECT_EQ(CKS_RW_USER_FUNCTIONS, +info.state);
  EXPECT_EQ(CKF_SERIAL_SESSION | CKF_RW_SESSION, +info.flags);

  EXPECT_EQ(CKR_USER_ALREADY_LOGGED_IN, this->login(CKU_USER, "1234"));
  ASSERT_EQ(CKR_OK, this->f_->C_Logout(this->session_));
  EXPECT_EQ(CKR_PIN_INCORRECT, this->login(CKU_USER, "9999"));
  ASSERT_EQ(CKR_OK, this->f_->C_GetSessionInfo(this->session_, &info));
  EXPECT_EQ(CKS_RW_PUBLIC_SESSION, +info.state);

  typename TestFixture::UL second = 0;
  ASSERT_EQ(CKR_OK, this->f_->C_OpenSession(this->slot_, CKF_SERIAL_SESSION, nullptr, nullptr,
                                            &second));
  EXPECT_NE(this->session_, second);
  ASSERT_EQ(CKR_OK, this->f_->C_CloseSession(second));
  EXPECT_EQ(CKR_SESSION_HANDLE_INVALID, this->f_->C_CloseSession(second));
  ASSERT_EQ(CKR_OK, this->f_->C_CloseAllSessions(this->slot_));
  EXPECT_EQ(CKR_SESSION_HANDLE_INVALID, this->f_->C_GetSessionInfo(this->session_, &info));
}

TYPED_TEST(GeneralTest, PinsChangeThroughEitherAbi) {
  Bytes oldPin = bytesOf("1234"), newPin = bytesOf("87654321");
  ASSERT_EQ(CKR_OK, this->f_->C_SetPIN(this->session_, oldPin.data(), 4, newPin.data(), 8));
  ASSERT_EQ(CKR_OK, this->f_->C_Logout(this->session_));
  EXPECT_EQ(CKR_PIN_INCORRECT, this->login(CKU_USER, "1234"));
  EXPECT_EQ(CKR_OK, this->login(CKU_USER, "87654321"));
}

TYPED_TEST(GeneralTest, LifecycleAndInitArguments) {
  auto* f = this->f_;
  EXPECT_EQ(CKR_CRYPTOKI_ALREADY_INITIALIZED, f->C_Initialize(nullptr));
  ASSERT_EQ(CKR_OK, f->C_Finalize(nullptr));
  EXPECT_EQ(CKR_CRYPTOKI_NOT_INITIALIZED, f->C_GetSlotList(CK_FALSE, nullptr, nullptr));

  typename TestFixture::A::CK_C_INITIALIZE_ARGS args{};
  args.CreateMutex = [](void**) -> typename TestFixture::A::CK_RV { return CKR_OK; };
  EXPECT_EQ(CKR_ARGUMENTS_BAD, f->C_Initialize(&args)) << "one mutex callback of four";
  args.CreateMutex = nullptr;
  args.pReserved = &args;
  EXPECT_EQ(CKR_ARGUMENTS_BAD, f->C_Initialize(&args));
  args.pReserved = nullptr;
  args.flags = CKF_OS_LOCKING_OK;
  EXPECT_EQ(CKR_OK, f->C_Initialize(&args));
}

TYPED_TEST(GeneralTest, TokenInitialisedThroughTheTranslation) {
  using UL = typename TestFixture::UL;
  auto* f = this->f_;
  UL n = 8;
  std::vector<UL> slots(n);
  ASSERT_EQ(CKR_OK, f->C_GetSlotList(CK_FALSE, slots.data(), &n));
  UL free = TestFixture::kUnavailable;
  for (UL i = 0; i < n; ++i) {
    typename TestFixture::A::CK_TOKEN_INFO info{};
    ASSERT_EQ(CKR_OK, f->C_GetTokenInfo(slots[i], &info));
    if (!(info.flags & CKF_TOKEN_INITIALIZED)) free = slots[i];
  }
  ASSERT_NE(TestFixture::kUnavailable, free);
  Bytes so = bytesOf("5678"), user = bytesOf("4321"), label(32, ' ');
  std::memcpy(label.data(), "second", 6);
  ASSERT_EQ(CKR_OK, f->C_InitToken(free, so.data(), 4, label.data()));

  // SoftHSM moves an initialised token to a slot named after its serial.
  n = 8;
  ASSERT_EQ(CKR_OK, f->C_GetSlotList(CK_TRUE, slots.data(), &n));
  UL second = TestFixture::kUnavailable;
  for (UL i = 0; i < n; ++i) {
    typename TestFixture::A::CK_TOKEN_INFO info{};
    ASSERT_EQ(CKR_OK, f->C_GetTokenInfo(slots[i], &info));
    if (std::memcmp(info.label, "second", 6) == 0) second = slots[i];
  }
  ASSERT_NE(TestFixture::kUnavailable, second);
  UL s = 0;
  ASSERT_EQ(CKR_OK, f->C_OpenSession(second, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr,
                                     nullptr, &s));
  ASSERT_EQ(CKR_OK, f->C_Login(s, CKU_SO, so.data(), 4));
  ASSERT_EQ(CKR_OK, f->C_InitPIN(s, user.data(), 4));
  ASSERT_EQ(CKR_OK, f->C_Logout(s));
  EXPECT_EQ(CKR_OK, f->C_Login(s, CKU_USER, user.data(), 4));
}

TYPED_TEST(GeneralTest, UnsupportedCallsReportTheModulesCode) {
  auto* f = this->f_;
  typename TestFixture::UL len = 0;
  EXPECT_EQ(CKR_FUNCTION_NOT_SUPPORTED, f->C_GetOperationState(this->session_, nullptr, &len));
  EXPECT_EQ(CKR_FUNCTION_NOT_PARALLEL, f->C_GetFunctionStatus(this->session_));
  EXPECT_EQ(CKR_FUNCTION_NOT_PARALLEL, f->C_CancelFunction(this->session_));
  typename TestFixture::UL slot = 0;
  EXPECT_EQ(CKR_NO_EVENT, f->C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr));
}

// Before C_Initialize nothing is loaded, and a module that cannot be loaded
// fails C_Initialize itself.
TEST(BridgeLoading, MissingModuleFailsInitialize) {
  ::setenv("QOR_BRIDGE_MODULE", "/nonexistent/libnothing.so", 1);
  auto* f = ViaBridge::open();
  ASSERT_NE(nullptr, f);
  CK_ULONG n = 0;
  EXPECT_EQ(CKR_CRYPTOKI_NOT_INITIALIZED, f->C_GetSlotList(CK_FALSE, nullptr, &n));
  EXPECT_EQ(CKR_GENERAL_ERROR, f->C_Initialize(nullptr));
  CK_FUNCTION_LIST* again = nullptr;
  ASSERT_EQ(CKR_OK, f->C_GetFunctionList(&again));
  EXPECT_EQ(f, again);
  EXPECT_EQ(CKR_ARGUMENTS_BAD, f->C_GetFunctionList(nullptr));
}

// In front of the wrapper itself, the front connects its transport first.
TEST(BridgeLoading, FrontNeedsAServingSocketForTheWrapper) {
  ::setenv("QOR_WRAPPER_LIBRARY", QOR_WRAPPER_PATH, 1);
  ::unsetenv("QOR_SOCKET_NAME");
  void* lib = ::dlopen(QOR_FRONT_PATH, RTLD_LAZY | RTLD_LOCAL);
  ASSERT_NE(nullptr, lib);
  auto get = reinterpret_cast<host::CK_C_GetFunctionList>(::dlsym(lib, "C_GetFunctionList"));
  host::CK_FUNCTION_LIST* f = nullptr;
  ASSERT_EQ(CKR_OK, get(&f));
  EXPECT_EQ(CKR_GENERAL_ERROR, f->C_Initialize(nullptr)) << "no socket name";
  const std::string nobody = "@qorbridge-test-nobody-" + std::to_string(::getpid());
  ::setenv("QOR_SOCKET_NAME", nobody.c_str(), 1);
  EXPECT_EQ(CKR_GENERAL_ERROR, f->C_Initialize(nullptr)) << "nobody serves " << nobody;
}

}  // namespace
}  // namespace qor::test
