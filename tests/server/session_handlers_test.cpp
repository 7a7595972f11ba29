// General-purpose, slot, token and session handlers.
#include "server_fixture.h"

namespace qor::test {
namespace {

using pkcs11::Operation;
using pkcs11::OperationResult;

std::string text(char c, size_t n) { return std::string(n, c); }

const std::string kInfo = bytes({2, 40}) + text('M', 32) + le32(1) + text('D', 32) + bytes({1, 2});
const std::string kSlotInfo = text('S', 64) + text('M', 32) + le32(7) + bytes({1, 0, 2, 3});
const std::string kTokenInfo = text('L', 32) + text('M', 32) + text('O', 16) + text('N', 16) +
                               le32(0x0d) + le32(1) + le32(2) + le32(3) + le32(4) + le32(5) +
                               le32(6) + le32(7) + le32(8) + le32(9) + le32(0xffffffff) +
                               bytes({1, 2, 3, 4}) + text('T', 16);

void expect_version(const pkcs11::CK_VERSION& v, int major, int minor) {
  EXPECT_EQ(major, v.major());
  EXPECT_EQ(minor, v.minor());
}

const HandlerCase kCases[] = {
    {"Initialize",
     "C_Initialize",
     [](Operation& o) { o.mutable_c_initialize()->set_pinitargs(true); },
     {CKR_OK},
     "C_Initialize(pInitArgs=null)"},
    {"Finalize", "C_Finalize", nullptr, {}, "C_Finalize(pReserved=null)"},
    // Texts run on past their member up to a zero byte or the end of the
    // structure, as deployed peers read them.
    {"GetInfo",
     "C_GetInfo",
     nullptr,
     {CKR_OK, kInfo},
     "C_GetInfo(pInfo=" + shown(zeros(72)) + ")",
     [](const OperationResult& r) {
       const pkcs11::CK_INFO& i = r.c_getinfo_response().pinfo();
       expect_version(i.cryptokiversion(), 2, 40);
       EXPECT_EQ(text('M', 32) + "\x01", i.manufacturerid());
       EXPECT_EQ(1u, i.flags());
       EXPECT_EQ(text('D', 32) + "\x01\x02", i.librarydescription());
       expect_version(i.libraryversion(), 1, 2);
     }},
    {"GetSlotList",
     "C_GetSlotList",
     [](Operation& o) {
       auto* r = o.mutable_c_getslotlist();
       r->set_tokenpresent(true);
       r->add_pslotlist(0);
       r->set_pulcount(3);
     },
     {CKR_OK, "", -1, 2, {5, 9}},
     "C_GetSlotList(tokenPresent=1, pSlotList=nonnull, *pulCount=3)",
     [](const OperationResult& r) {
       EXPECT_EQ(2, r.c_getslotlist_response().pulcount());
       EXPECT_EQ((std::vector<int32_t>{5, 9}),
                 std::vector<int32_t>(r.c_getslotlist_response().pslotlist().begin(),
                                      r.c_getslotlist_response().pslotlist().end()));
     }},
    {"GetSlotListCountQuery",
     "C_GetSlotList",
     [](Operation& o) { o.mutable_c_getslotlist()->set_pulcount(5); },
     {CKR_OK, "", -1, 2},
     "C_GetSlotList(tokenPresent=0, pSlotList=null, *pulCount=5)",
     [](const OperationResult& r) {
       EXPECT_EQ(2, r.c_getslotlist_response().pulcount());
       EXPECT_EQ(0, r.c_getslotlist_response().pslotlist_size());
     }},
    // Only as many ids as were room for, zeros where the module wrote none.
    {"GetSlotListTooSmall",
     "C_GetSlotList",
     [](Operation& o) {
       o.mutable_c_getslotlist()->add_pslotlist(0);
       o.mutable_c_getslotlist()->set_pulcount(1);
     },
     {CKR_BUFFER_TOO_SMALL, "", -1, 3},
     "C_GetSlotList(tokenPresent=0, pSlotList=nonnull, *pulCount=1)",
     [](const OperationResult& r) {
       EXPECT_EQ(3, r.c_getslotlist_response().pulcount());
       ASSERT_EQ(1, r.c_getslotlist_response().pslotlist_size());
       EXPECT_EQ(0, r.c_getslotlist_response().pslotlist(0));
     }},
    {"GetMechanismList",
     "C_GetMechanismList",
     [](Operation& o) {
       auto* r = o.mutable_c_getmechanismlist();
       r->set_slotid(0xffffffffLL);
       r->add_pmechanismlist(0);
       r->set_pulcount(2);
     },
     {CKR_OK, "", -1, 2, {0x1040, 0x250}},
     "C_GetMechanismList(slotID=4294967295, pMechanismList=nonnull, *pulCount=2)",
     [](const OperationResult& r) {
       ASSERT_EQ(2, r.c_getmechanismlist_response().pmechanismlist_size());
       EXPECT_EQ(0x1040, r.c_getmechanismlist_response().pmechanismlist(0));
       EXPECT_EQ(0x250, r.c_getmechanismlist_response().pmechanismlist(1));
     }},
    {"GetSlotInfo",
     "C_GetSlotInfo",
     [](Operation& o) { o.mutable_c_getslotinfo()->set_slotid(1); },
     {CKR_OK, kSlotInfo},
     "C_GetSlotInfo(slotID=1, pInfo=" + shown(zeros(104)) + ")",
     [](const OperationResult& r) {
       const pkcs11::CK_SLOT_INFO& i = r.c_getslotinfo_response().pinfo();
       EXPECT_EQ(text('S', 64) + text('M', 32) + "\x07", i.slotdescription());
       EXPECT_EQ(text('M', 32) + "\x07", i.manufacturerid());
       EXPECT_EQ(7u, i.flags());
       expect_version(i.hardwareversion(), 1, 0);
       expect_version(i.firmwareversion(), 2, 3);
     }},
    {"GetTokenInfo",
     "C_GetTokenInfo",
     [](Operation& o) { o.mutable_c_gettokeninfo()->set_slotid(1); },
     {CKR_OK, kTokenInfo},
     "C_GetTokenInfo(slotID=1, pInfo=" + shown(zeros(160)) + ")",
     [](const OperationResult& r) {
       const pkcs11::CK_TOKEN_INFO& i = r.c_gettokeninfo_response().pinfo();
       const std::string tail = text('N', 16) + "\x0d";
       EXPECT_EQ(text('L', 32) + text('M', 32) + text('O', 16) + tail, i.label());
       EXPECT_EQ(text('M', 32) + text('O', 16) + tail, i.manufacturerid());
       EXPECT_EQ(text('O', 16) + tail, i.model());
       EXPECT_EQ(tail, i.serialnumber());
       EXPECT_EQ(0x0d, i.flags());
       EXPECT_EQ(1, i.ulmaxsessioncount());
       EXPECT_EQ(5, i.ulmaxpinlen());
       EXPECT_EQ(9, i.ultotalprivatememory());
       EXPECT_EQ(-1, i.ulfreeprivatememory());
       expect_version(i.hardwareversion(), 1, 2);
       expect_version(i.firmwareversion(), 3, 4);
       EXPECT_EQ(text('T', 16), i.utctime());
     }},
    {"GetMechanismInfo",
     "C_GetMechanismInfo",
     [](Operation& o) {
       o.mutable_c_getmechanisminfo()->set_slotid(1);
       o.mutable_c_getmechanisminfo()->set_type(0x1082);
     },
     {CKR_OK, le32(128) + le32(256) + le32(0x300)},
     "C_GetMechanismInfo(slotID=1, type=0x1082, pInfo=" + shown(zeros(12)) + ")",
     [](const OperationResult& r) {
       EXPECT_EQ(128, r.c_getmechanisminfo_response().pinfo().ulminkeysize());
       EXPECT_EQ(256, r.c_getmechanisminfo_response().pinfo().ulmaxkeysize());
       EXPECT_EQ(0x300, r.c_getmechanisminfo_response().pinfo().flags());
     }},
    // The module reads 32 label bytes: a short label is followed by zeros.
    {"InitToken",
     "C_InitToken",
     [](Operation& o) {
       auto* r = o.mutable_c_inittoken();
       r->set_slotid(1);
       r->set_ppin("1234");
       r->set_ulpinlen(4);
       r->set_plabel("label");
     },
     {CKR_OK},
     "C_InitToken(slotID=1, pPin=[31323334], ulPinLen=4, pLabel=" + shown("label" + zeros(27)) +
         ")"},
    {"InitPin",
     "C_InitPin",
     [](Operation& o) {
       o.mutable_c_initpin()->set_hsession(7);
       o.mutable_c_initpin()->set_ppin("9999");
       o.mutable_c_initpin()->set_ulpinlen(4);
     },
     {CKR_OK},
     "C_InitPIN(hSession=7, pPin=[39393939], ulPinLen=4)"},
    {"SetPin",
     "C_SetPin",
     [](Operation& o) {
       auto* r = o.mutable_c_setpin();
       r->set_hsession(7);
       r->set_poldpin("1");
       r->set_uloldlen(1);
       r->set_pnewpin("22");
       r->set_ulnewlen(2);
     },
     {CKR_PIN_INCORRECT},
     "C_SetPIN(hSession=7, pOldPin=[31], ulOldLen=1, pNewPin=[3232], ulNewLen=2)"},
    // The declared length rules, even when the PIN carries more.
    {"LoginShorterLength",
     "C_Login",
     [](Operation& o) {
       auto* r = o.mutable_c_login();
       r->set_hsession(7);
       r->set_usertype(1);
       r->set_ppin("1234");
       r->set_ulpinlen(2);
     },
     {CKR_OK},
     "C_Login(hSession=7, userType=1, pPin=[3132], ulPinLen=2)"},
    {"OpenSession",
     "C_OpenSession",
     [](Operation& o) {
       o.mutable_c_opensession()->set_slotid(1);
       o.mutable_c_opensession()->set_flags(6);
     },
     {CKR_OK, "", -1, -1, {42}},
     "C_OpenSession(slotID=1, flags=0x6, pApplication=null, Notify=null, phSession=nonnull)",
     [](const OperationResult& r) { EXPECT_EQ(42, r.c_opensession_response().phsession()); }},
    {"OpenSessionFails",
     "C_OpenSession",
     [](Operation& o) { o.mutable_c_opensession()->set_slotid(9); },
     {CKR_SLOT_ID_INVALID},
     "C_OpenSession(slotID=9, flags=0x0, pApplication=null, Notify=null, phSession=nonnull)",
     [](const OperationResult& r) {
       ASSERT_TRUE(r.c_opensession_response().has_phsession());
       EXPECT_EQ(0, r.c_opensession_response().phsession());
     }},
    {"CloseAllSessions",
     "C_CloseAllSessions",
     [](Operation& o) { o.mutable_c_closeallsessions()->set_slotid(1); },
     {CKR_OK},
     "C_CloseAllSessions(slotID=1)"},
    {"GetFunctionStatus",
     "C_GetFunctionStatus",
     [](Operation& o) { o.mutable_c_getfunctionstatus()->set_hsession(-1); },
     {CKR_FUNCTION_NOT_PARALLEL},
     "C_GetFunctionStatus(hSession=4294967295)"},
    {"CancelFunction",
     "C_CancelFunction",
     [](Operation& o) { o.mutable_c_cancelfunction()->set_hsession(7); },
     {CKR_FUNCTION_NOT_PARALLEL},
     "C_CancelFunction(hSession=7)"},
    {"GetSessionInfo",
     "C_GetSessionInfo",
     [](Operation& o) { o.mutable_c_getsessioninfo()->set_hsession(7); },
     {CKR_OK, le32(1) + le32(3) + le32(6) + le32(0xffffffff)},
     "C_GetSessionInfo(hSession=7, pInfo=" + shown(zeros(16)) + ")",
     [](const OperationResult& r) {
       const pkcs11::CK_SESSION_INFO& i = r.c_getsessioninfo_response().pinfo();
       EXPECT_EQ(1, i.slotid());
       EXPECT_EQ(3, i.state());
       EXPECT_EQ(6, i.flags());
       EXPECT_EQ(-1, i.uldeviceerror());
     }},
    // What the peer sent in the state buffer is not handed on.
    {"GetOperationState",
     "C_GetOperationState",
     [](Operation& o) {
       auto* r = o.mutable_c_getoperationstate();
       r->set_hsession(7);
       r->set_poperationstate("abc");
       r->set_puloperationstatelen(8);
     },
     {CKR_OK, bytes({1, 2, 3}), 3},
     "C_GetOperationState(hSession=7, pOperationState=" + shown(zeros(8)) +
         ", *pulOperationStateLen=8)",
     [](const OperationResult& r) {
       EXPECT_EQ(bytes({1, 2, 3}), r.c_getoperationstate_response().poperationstate());
       EXPECT_EQ(3, r.c_getoperationstate_response().puloperationstatelen());
     }},
    {"GetOperationStateEmptyBuffer",
     "C_GetOperationState",
     [](Operation& o) { o.mutable_c_getoperationstate(); },
     {CKR_BUFFER_TOO_SMALL, "", 40},
     "C_GetOperationState(hSession=0, pOperationState=[], *pulOperationStateLen=0)",
     [](const OperationResult& r) {
       EXPECT_EQ("", r.c_getoperationstate_response().poperationstate());
       EXPECT_EQ(40, r.c_getoperationstate_response().puloperationstatelen());
     }},
    {"SetOperationState",
     "C_SetOperationState",
     [](Operation& o) {
       auto* r = o.mutable_c_setoperationstate();
       r->set_hsession(7);
       r->set_poperationstate(bytes({1, 2, 3, 4}));
       r->set_uloperationstatelen(3);
       r->set_hencryptionkey(5);
       r->set_hauthenticationkey(6);
     },
     {CKR_OK},
     "C_SetOperationState(hSession=7, pOperationState=[010203], ulOperationStateLen=3, "
     "hEncryptionKey=5, "
     "hAuthenticationKey=6)"},
    // The slot the module reports never reaches the peer.
    {"WaitForSlotEvent",
     "C_WaitForSlotEvent",
     [](Operation& o) {
       o.mutable_c_waitforslotevent()->set_flags(CKF_DONT_BLOCK);
       o.mutable_c_waitforslotevent()->set_preserved("x");
     },
     {CKR_OK, "", -1, -1, {4}},
     "C_WaitForSlotEvent(flags=0x1, pSlot=nonnull, pReserved=null)",
     [](const OperationResult& r) { EXPECT_FALSE(r.has_c_waitforslotevent_response()); }},
};

INSTANTIATE_TEST_SUITE_P(Session, HandlerTest, ::testing::ValuesIn(kCases), label<HandlerCase>);

// A PIN sent as text stops at its first zero byte: the module still gets
// the stated length, the missing bytes as zeros.
const HandlerCase kShortFields[] = {
    {"LoginPinShorterThanItsLength", "C_Login",
     [](Operation& o) {
       o.mutable_c_login()->set_ppin("12");
       o.mutable_c_login()->set_ulpinlen(4);
     },
     {CKR_PIN_INCORRECT}, "C_Login(hSession=0, userType=0, pPin=[31320000], ulPinLen=4)"},
    {"InitTokenPin", "C_InitToken", [](Operation& o) { o.mutable_c_inittoken()->set_ulpinlen(1); },
     {CKR_OK}, "C_InitToken(slotID=0, pPin=[00], ulPinLen=1, pLabel=" + shown(zeros(32)) + ")"},
    {"InitPin", "C_InitPin", [](Operation& o) { o.mutable_c_initpin()->set_ulpinlen(1); }, {CKR_OK},
     "C_InitPIN(hSession=0, pPin=[00], ulPinLen=1)"},
    {"SetPinOld", "C_SetPin", [](Operation& o) { o.mutable_c_setpin()->set_uloldlen(1); }, {CKR_OK},
     "C_SetPIN(hSession=0, pOldPin=[00], ulOldLen=1, pNewPin=[], ulNewLen=0)"},
    {"SetPinNew", "C_SetPin",
     [](Operation& o) {
       o.mutable_c_setpin()->set_pnewpin("12");
       o.mutable_c_setpin()->set_ulnewlen(3);
     },
     {CKR_OK}, "C_SetPIN(hSession=0, pOldPin=[], ulOldLen=0, pNewPin=[313200], ulNewLen=3)"},
    {"SetOperationState", "C_SetOperationState",
     [](Operation& o) {
       o.mutable_c_setoperationstate()->set_poperationstate("ab");
       o.mutable_c_setoperationstate()->set_uloperationstatelen(3);
     },
     {CKR_OK},
     "C_SetOperationState(hSession=0, pOperationState=[616200], ulOperationStateLen=3, "
     "hEncryptionKey=0, hAuthenticationKey=0)"},
};

INSTANTIATE_TEST_SUITE_P(SessionShortFields, HandlerTest, ::testing::ValuesIn(kShortFields),
                         label<HandlerCase>);

// A length no frame could carry is refused.
const Refusal kRefusals[] = {
    {"LoginNegativeLength", "C_Login", [](Operation& o) { o.mutable_c_login()->set_ulpinlen(-1); }},
    {"SetPinNegativeLength", "C_SetPin",
     [](Operation& o) { o.mutable_c_setpin()->set_ulnewlen(-2); }},
};

INSTANTIATE_TEST_SUITE_P(Session, RefusalTest, ::testing::ValuesIn(kRefusals), label<Refusal>);

const Unwritten kUnwritten[] = {
    {"GetOperationState", "C_GetOperationState", "C_GetOperationState",
     [](Operation& o) { o.mutable_c_getoperationstate()->set_puloperationstatelen(kCapacity); },
     [](const OperationResult& r) {
       return std::make_pair(r.c_getoperationstate_response().poperationstate(),
                             r.c_getoperationstate_response().puloperationstatelen());
     },
     kCapacity + 100},
};

INSTANTIATE_TEST_SUITE_P(Session, UnwrittenTest, ::testing::ValuesIn(kUnwritten), label<Unwritten>);

}  // namespace
}  // namespace qor::test
