// The processor: which requests reach which handler and module function,
// and which get the empty reply.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>

#include "qorpkcs11/common/log.h"
#include "qorpkcs11/server/server.h"
#include "server_fixture.h"

namespace qor::test {
namespace {

struct Route {
  const char* wire;    // as the peer names the operation
  const char* member;  // the module function it must reach
  const char* result;  // the name the reply carries
};

// All 67 operations in the order the processor compares them.
const Route kRoutes[] = {
    {"C_Initialize", "C_Initialize", "C_Initialize"},
    {"C_Finalize", "C_Finalize", "C_Finalize"},
    {"C_OpenSession", "C_OpenSession", "C_OpenSession"},
    {"C_CloseSession", "C_CloseSession", "C_CloseSession"},
    {"C_Login", "C_Login", "C_Login"},
    {"C_Logout", "C_Logout", "C_Logout"},
    {"C_GetInfo", "C_GetInfo", "C_GetInfo"},
    {"C_GetSlotList", "C_GetSlotList", "C_GetSlotList"},
    {"C_GetSlotInfo", "C_GetSlotInfo", "C_GetSlotInfo"},
    {"C_GetTokenInfo", "C_GetTokenInfo", "C_GetTokenInfo"},
    {"C_GetMechanismInfo", "C_GetMechanismInfo", "C_GetMechanismInfo"},
    {"C_GetSessionInfo", "C_GetSessionInfo", "C_GetSessionInfo"},
    {"C_DestroyObject", "C_DestroyObject", "C_DestroyObject"},
    {"C_GetAttributeValue", "C_GetAttributeValue", "C_GetAttributeValue"},
    {"C_FindObjectsInit", "C_FindObjectsInit", "C_FindObjectsInit"},
    {"C_FindObjects", "C_FindObjects", "C_FindObjects"},
    {"C_FindObjectsFinal", "C_FindObjectsFinal", "C_FindObjectsFinal"},
    {"C_EncryptInit", "C_EncryptInit", "C_EncryptInit"},
    {"C_Encrypt", "C_Encrypt", "C_Encrypt"},
    {"C_DecryptInit", "C_DecryptInit", "C_DecryptInit"},
    {"C_Decrypt", "C_Decrypt", "C_Decrypt"},
    {"C_DigestInit", "C_DigestInit", "C_DigestInit"},
    {"C_Digest", "C_Digest", "C_Digest"},
    {"C_SignInit", "C_SignInit", "C_SignInit"},
    {"C_Sign", "C_Sign", "C_Sign"},
    {"C_VerifyInit", "C_VerifyInit", "C_VerifyInit"},
    {"C_Verify", "C_Verify", "C_Verify"},
    {"C_GenerateRandom", "C_GenerateRandom", "C_GenerateRandom"},
    {"C_SeedRandom", "C_SeedRandom", "C_SeedRandom"},
    {"C_GetMechanismList", "C_GetMechanismList", "C_GetMechanismList"},
    {"C_InitToken", "C_InitToken", "C_InitToken"},
    {"C_InitPin", "C_InitPIN", "C_InitPin"},
    {"C_SetPin", "C_SetPIN", "C_SetPin"},
    {"C_CloseAllSessions", "C_CloseAllSessions", "C_CloseAllSessions"},
    {"C_GetOperationState", "C_GetOperationState", "C_GetOperationState"},
    {"C_SetOperationState", "C_SetOperationState", "C_SetOperationState"},
    {"C_CreateObject", "C_CreateObject", "C_CreateObject"},
    {"C_CopyObject", "C_CopyObject", "C_CopyObject"},
    {"C_GetObjectSize", "C_GetObjectSize", "C_GetObjectSize"},
    {"C_SetAttributeValue", "C_SetAttributeValue", "C_SetAttributeValue"},
    {"C_EncryptUpdate", "C_EncryptUpdate", "C_EncryptUpdate"},
    {"C_EncryptFinal", "C_EncryptFinal", "C_EncryptFinal"},
    {"C_DecryptUpdate", "C_DecryptUpdate", "C_DecryptUpdate"},
    {"C_DecryptFinal", "C_DecryptFinal", "C_DecryptFinal"},
    {"C_DigestUpdate", "C_DigestUpdate", "C_DigestUpdate"},
    {"C_DigestKey", "C_DigestKey", "C_DigestKey"},
    {"C_DigestFinal", "C_DigestFinal", "C_DigestFinal"},
    {"C_SignUpdate", "C_SignUpdate", "C_SignUpdate"},
    {"C_SignFinal", "C_SignFinal", "C_SignFinal"},
    {"C_SignRecoverInit", "C_SignRecoverInit", "C_SignRecoverInit"},
    {"C_SignRecover", "C_SignRecover", "C_SignRecover"},
    {"C_VerifyUpdate", "C_VerifyUpdate", "C_VerifyUpdate"},
    {"C_VerifyFinal", "C_VerifyFinal", "C_VerifyFinal"},
    {"C_VerifyRecoverInit", "C_VerifyRecoverInit", "C_VerifyRecoverInit"},
    {"C_VerifyRecover", "C_VerifyRecover", "C_VerifyRecover"},
    {"C_DigestEncryptUpdate", "C_DigestEncryptUpdate", "C_DigestEncryptUpdate"},
    {"C_DecryptDigestUpdate", "C_DecryptDigestUpdate", "C_DecryptDigestUpdate"},
    {"C_SignEncryptUpdate", "C_SignEncryptUpdate", "C_SignEncryptUpdate"},
    {"C_DecryptVerifyUpdate", "C_DecryptVerifyUpdate", "C_DecryptVerifyUpdate"},
    {"C_GenerateKey", "C_GenerateKey", "C_GenerateKey"},
    {"C_GenerateKeyPair", "C_GenerateKeyPair", "C_GenerateKeyPair"},
    {"C_WrapKey", "C_WrapKey", "C_WrapKey"},
    {"C_UnWrapKey", "C_UnwrapKey", "C_UnWrapKey"},
    {"C_DeriveKey", "C_DeriveKey", "C_UnDeriveKey"},
    {"C_GetFunctionStatus", "C_GetFunctionStatus", "C_GetFunctionStatus"},
    {"C_CancelFunction", "C_CancelFunction", "C_CancelFunction"},
    {"C_WaitForSlotEvent", "C_WaitForSlotEvent", "C_WaitForSlotEvent"},
};
static_assert(sizeof kRoutes / sizeof kRoutes[0] == 67);

void PrintTo(const Route& r, std::ostream* os) { *os << r.wire; }

class RouteTest : public ServerTest, public ::testing::WithParamInterface<Route> {};

TEST_P(RouteTest, ReachesItsModuleFunctionOnceAndAnswersWithItsRv) {
  const Route& route = GetParam();
  const CK_RV scripted = 0x80000000u + static_cast<CK_RV>(&route - kRoutes);
  ASSERT_TRUE(module_.script(route.member, scripted));
  const pkcs11::OperationResult result = serve(request(route.wire));
  ASSERT_EQ(1, module_.count());
  EXPECT_EQ(route.member, module_.name(0));
  EXPECT_EQ(route.result, result.name());
  EXPECT_EQ(scripted, static_cast<CK_RV>(result.rv()));
  EXPECT_TRUE(logs_.contains(log::kServer, std::string("Generate_Operation_Result ") + route.wire));
}

INSTANTIATE_TEST_SUITE_P(EveryOperation, RouteTest, ::testing::ValuesIn(kRoutes),
                         [](const auto& info) { return std::string(info.param.wire); });

TEST_F(ServerTest, NamesOutsideTheTableGetAnEmptyReplyAndNoModuleCall) {
  for (const char* name : {"C_InitPIN", "C_SetPIN", "C_GetFunctionList", "", "c_login", "C_LOGIN",
                           "C_Login ", "C_UnwrapKey"}) {
    const pkcs11::Operation op = request(name, [](pkcs11::Operation& o) {
      o.mutable_c_initpin()->set_ulpinlen(0);
      o.mutable_c_login()->set_hsession(1);
    });
    EXPECT_EQ("", process(op.SerializeAsString())) << name;
    EXPECT_TRUE(logs_.contains(log::kServer, std::string("Operation name = ") + name));
  }
  EXPECT_EQ("", process(""));
  EXPECT_EQ("", process("\xff\xff\xff"));  // not a message at all
  EXPECT_EQ(0, module_.count());
}

TEST_F(ServerTest, NameEndsAtItsFirstZeroByte) {
  EXPECT_EQ("C_Logout", serve(request(std::string("C_Logout\0junk", 13))).name());
  EXPECT_EQ(1, module_.count());
  EXPECT_EQ("", process(request(std::string("\0C_Logout", 9)).SerializeAsString()));
  EXPECT_EQ(1, module_.count());
}

TEST_F(ServerTest, UnregisteredModuleGetsEmptyRepliesToEverything) {
  setModuleName_Server("@nobody-registered");
  for (const Route& route : kRoutes)
    EXPECT_EQ("", process(request(route.wire).SerializeAsString()));
  EXPECT_EQ(0, module_.count());
}

TEST_F(ServerTest, ModuleRegisteredLaterIsServedFromTheNextRequest) {
  registration_.reset();
  EXPECT_EQ("", process(request("C_Logout").SerializeAsString()));
  registration_ = std::make_unique<Registration>(kModuleName, module_.functions());
  EXPECT_EQ("C_Logout", serve(request("C_Logout")).name());
}

TEST_F(ServerTest, ReplyIsExactlyTheSerializedResult) {
  module_.script("C_Logout", CKR_USER_NOT_LOGGED_IN);
  pkcs11::OperationResult expected;
  expected.set_name("C_Logout");
  expected.set_rv(static_cast<int32_t>(CKR_USER_NOT_LOGGED_IN));
  EXPECT_EQ(expected.SerializeAsString(), process(request("C_Logout", [](pkcs11::Operation& o) {
                                                    o.mutable_c_logout()->set_hsession(3);
                                                  }).SerializeAsString()));
  EXPECT_EQ("C_Logout(hSession=3)", module_.call(0));
}

TEST_F(ServerTest, HandlerCalledDirectlyParsesItsOwnRequest) {
  const auto logout = [](CK_SESSION_HANDLE h) {
    return request("C_Logout", [h](pkcs11::Operation& o) { o.mutable_c_logout()->set_hsession(h); })
        .SerializeAsString();
  };
  process(logout(3));
  pkcs11::OperationResult result;
  ASSERT_TRUE(result.ParseFromString(C_Logout_Server(logout(7))));
  EXPECT_EQ("C_Logout", result.name());
  ASSERT_EQ(2, module_.count());
  EXPECT_EQ("C_Logout(hSession=7)", module_.call(1));
}

// An app may rename the module from any thread while the serving thread
// looks the module up by the name being replaced.
TEST_F(ServerTest, RenamingWhileServingNeverReadsAFreedName) {
  std::atomic<bool> done{false};
  std::thread renamer([&] {
    while (!done) setModuleName_Server(kModuleName);
  });
  for (int i = 0; i < 2000; ++i) EXPECT_EQ("C_Logout", serve(request("C_Logout")).name());
  done = true;
  renamer.join();
}

TEST_F(ServerTest, NullModuleNameServesTheOldestRegistration) {
  setModuleName_Server(nullptr);
  EXPECT_EQ(nullptr, mModuleName);
  EXPECT_EQ("C_Logout", serve(request("C_Logout")).name());
  const char* name = "@x";
  setModuleName_Server(name);
  ASSERT_NE(nullptr, mModuleName);
  EXPECT_NE(name, mModuleName);
  EXPECT_STREQ("@x", mModuleName);
}

}  // namespace
}  // namespace qor::test

namespace qor::test {
namespace {

// Log texts deployed tooling matches verbatim, misspellings included.
struct Logged {
  const char* label;
  const char* wire;
  const char* member;  // answers CKR_OK and leaves every output as it is
  Fill fill;
  std::vector<std::string> lines;
};
void PrintTo(const Logged& c, std::ostream* os) { *os << c.label; }
class LoggedTest : public ServerTest, public ::testing::WithParamInterface<Logged> {};

TEST_P(LoggedTest, LogsTheDeployedTexts) {
  ASSERT_TRUE(module_.script(GetParam().member, CKR_OK));
  serve(request(GetParam().wire, GetParam().fill));
  const std::vector<std::string> logged = logs_.messages(log::kServer);
  for (const std::string& line : GetParam().lines)
    EXPECT_NE(logged.end(), std::find(logged.begin(), logged.end(), line)) << line;
}

const Logged kLogged[] = {
    {"OpenSession",
     "C_OpenSession",
     "C_OpenSession",
     [](pkcs11::Operation& o) { o.mutable_c_opensession()->set_slotid(3); },
     {"Operation name = C_OpenSession", "Opensession instance present", "Slot id  passed= 3",
      "session from open session null", "session = 0"}},
    {"Decrypt",
     "C_Decrypt",
     "C_Decrypt",
     [](pkcs11::Operation& o) { o.mutable_c_decrypt()->set_puldatalen(5); },
     {"decripted datalen set  = 5", "encripted datalen set  = 0",
      "Generate_Operation_Result C_Decrypt datalen = 5",
      "Generate_Operation_Result C_Decrypt rv = 0"}},
    {"GenerateKeyPair",
     "C_GenerateKeyPair",
     "C_GenerateKeyPair",
     nullptr,
     {"Generate_Operation_Result ulpubcnt = 0", "Generate_Operation_Result ulprivcnt = 0",
      "Generate_Operation_Result C_GenerateKeyPair phpubkey = 0",
      "Generate_Operation_Result C_GenerateKeyPair phrivkey = 0"}},
    {"DeriveKey",
     "C_DeriveKey",
     "C_DeriveKey",
     nullptr,
     {"Generate_Operation_Result C_DeriveKey phkey = 0",
      "Generate_Operation_Result C_DeriveKey rv = 0"}},
    {"GetSlotList",
     "C_GetSlotList",
     "C_GetSlotList",
     [](pkcs11::Operation& o) { o.mutable_c_getslotlist(); },
     {"ckpFunctions not null", "Already present", "slotidlist is 0", "slotlist res created",
      "reached here1 0", "Slot list ptr NULL"}},
    {"GetAttributeValue",
     "C_GetAttributeValue",
     "C_GetAttributeValue",
     [](pkcs11::Operation& o) {
       o.mutable_c_getattributevalue()->set_ulcount(1);
       o.mutable_c_getattributevalue()->add_ptemplate()->set_pvalue("ab");
       o.mutable_c_getattributevalue()->mutable_ptemplate(0)->set_ulvaluelen(2);
     },
     {"pvalue obj_attr data = ab", "Inside if not NULL pdata", "attr_pvalue  = ab",
      "C_GetAttributeValue return value = 0", "Inside response of if not null"}},
};

INSTANTIATE_TEST_SUITE_P(Texts, LoggedTest, ::testing::ValuesIn(kLogged), label<Logged>);

}  // namespace
}  // namespace qor::test
