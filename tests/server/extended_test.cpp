// Requests that carry the extended protocol's marker: what the module is
// handed instead of what deployed peers get, and the marker in the reply.
// The same requests without the marker are the other tests' cases.
#include "qorpkcs11/protocol/extensions.h"
#include "qorpkcs11/server/extensions.h"
#include "server_fixture.h"

namespace qor::test {
namespace {

using pkcs11::Operation;
using pkcs11::OperationResult;
using Check = std::function<void(const OperationResult&)>;

Fill marked(const Fill& fill, bool lengthQuery = false) {
  return [=](Operation& o) {
    if (fill) fill(o);
    o.set_qor_extensions(protocol::kExtendedCalls);
    if (lengthQuery) o.set_qor_output_absent(true);
  };
}

Check confirmed(const Check& more = nullptr) {
  return [=](const OperationResult& r) {
    EXPECT_EQ(protocol::kExtendedCalls, r.qor_extensions());
    if (more) more(r);
  };
}

// Session 7 and a single-part or multi-part input with its output length.
template <typename M>
Fill inOut(M* (Operation::*request)(), const std::string& in, int32_t outLength) {
  return [=](Operation& o) {
    M* m = (o.*request)();
    m->set_hsession(7);
    m->mutable_ppart()->assign(in);
    m->set_ulpartlen(static_cast<int32_t>(in.size()));
    m->set_pulencryptedpartlen(outLength);
  };
}

const HandlerCase kCases[] = {
    {"VerifyGetsTheSignatureSent", "C_Verify", marked([](Operation& o) {
       auto* r = o.mutable_c_verify();
       r->set_hsession(7);
       r->set_pdata("abc");
       r->set_uldatalen(3);
       r->set_psignature("sig!");
       r->set_ulsignaturelen(4);
     }),
     {CKR_OK},
     "C_Verify(hSession=7, pData=[616263], ulDataLen=3, pSignature=[73696721], ulSignatureLen=4)",
     confirmed()},
    // A short field still reaches the module at its stated length.
    {"VerifyShortSignaturePadded", "C_Verify", marked([](Operation& o) {
       auto* r = o.mutable_c_verify();
       r->set_hsession(7);
       r->set_psignature("s");
       r->set_ulsignaturelen(2);
     }),
     {CKR_SIGNATURE_INVALID},
     "C_Verify(hSession=7, pData=[], ulDataLen=0, pSignature=[7300], ulSignatureLen=2)",
     confirmed()},
    {"MultiPartInputAtItsOwnLength", "C_EncryptUpdate",
     marked(inOut(&Operation::mutable_c_encryptupdate, "ABCDEFGH", 4)),
     {CKR_OK, "WXYZ", 4},
     "C_EncryptUpdate(hSession=7, pPart=[4142434445464748], ulPartLen=8, pEncryptedPart=[00000000], "
     "*pulEncryptedPartLen=4)",
     confirmed()},
    {"LengthQueryHandsTheModuleNull", "C_EncryptUpdate",
     marked(inOut(&Operation::mutable_c_encryptupdate, "ABCDEFGH", 0), true),
     {CKR_OK, "", 16},
     "C_EncryptUpdate(hSession=7, pPart=[4142434445464748], ulPartLen=8, pEncryptedPart=null, "
     "*pulEncryptedPartLen=0)",
     confirmed([](const OperationResult& r) {
       EXPECT_EQ("", r.c_encryptupdate_response().pencryptedpart());
       EXPECT_EQ(16, r.c_encryptupdate_response().pulencryptedpartlen());
     })},
    {"FinalLengthQuery", "C_DecryptFinal", marked([](Operation& o) {
       o.mutable_c_decryptfinal()->set_hsession(7);
     }, true),
     {CKR_OK, "", 0}, "C_DecryptFinal(hSession=7, pLastPart=null, *pulLastPartLen=0)",
     confirmed([](const OperationResult& r) {
       EXPECT_TRUE(r.has_c_decryptfinal_response());
       EXPECT_EQ(0, r.c_decryptfinal_response().pullastpartlen());
     })},
    {"WrapKeyLengthQuery", "C_WrapKey", marked([](Operation& o) {
       auto* r = o.mutable_c_wrapkey();
       r->set_hsession(7);
       r->mutable_pmechanism()->set_mechanism(0x2109);
       r->set_hwrappingkey(5);
       r->set_hkey(6);
     }, true),
     {CKR_OK, "", 40},
     "C_WrapKey(hSession=7, pMechanism={mechanism=0x2109, pParameter=null, ulParameterLen=0}, "
     "hWrappingKey=5, hKey=6, pWrappedKey=null, *pulWrappedKeyLen=0)",
     confirmed([](const OperationResult& r) { EXPECT_EQ(40, r.c_wrapkey_response().pulwrappedkeylen()); })},
    {"OperationStateLengthQuery", "C_GetOperationState", marked([](Operation& o) {
       o.mutable_c_getoperationstate()->set_hsession(7);
       o.mutable_c_getoperationstate()->set_puloperationstatelen(4096);
     }, true),
     {CKR_OK, "", 24}, "C_GetOperationState(hSession=7, pOperationState=null, *pulOperationStateLen=4096)",
     confirmed([](const OperationResult& r) {
       EXPECT_EQ("", r.c_getoperationstate_response().poperationstate());
       EXPECT_EQ(24, r.c_getoperationstate_response().puloperationstatelen());
     })},
    {"AbsentParameterIsNull", "C_DigestInit", marked([](Operation& o) {
       o.mutable_c_digestinit()->set_hsession(7);
       o.mutable_c_digestinit()->mutable_pmechanism()->set_mechanism(0x250);
     }),
     {CKR_OK}, "C_DigestInit(hSession=7, pMechanism={mechanism=0x250, pParameter=null, ulParameterLen=0})",
     confirmed()},
    {"WaitForSlotEventReturnsTheSlot", "C_WaitForSlotEvent", marked([](Operation& o) {
       o.mutable_c_waitforslotevent()->set_flags(CKF_DONT_BLOCK);
     }),
     {CKR_OK, "", -1, -1, {4}}, "C_WaitForSlotEvent(flags=0x1, pSlot=nonnull, pReserved=null)",
     confirmed([](const OperationResult& r) {
       ASSERT_TRUE(r.has_c_waitforslotevent_response());
       EXPECT_EQ(4, r.c_waitforslotevent_response().pslot());
     })},
    // Routed under the names the client sends; answered under the handler's.
    {"InitPINRouted", "C_InitPIN", marked([](Operation& o) {
       o.mutable_c_initpin()->set_hsession(7);
       o.mutable_c_initpin()->set_ppin("1234");
       o.mutable_c_initpin()->set_ulpinlen(4);
     }),
     {CKR_OK}, "C_InitPIN(hSession=7, pPin=[31323334], ulPinLen=4)", confirmed(), "C_InitPin"},
    {"SetPINRouted", "C_SetPIN", marked([](Operation& o) {
       auto* r = o.mutable_c_setpin();
       r->set_hsession(7);
       r->set_poldpin("1234");
       r->set_uloldlen(4);
       r->set_pnewpin("98");
       r->set_ulnewlen(2);
     }),
     {CKR_OK},
     "C_SetPIN(hSession=7, pOldPin=[31323334], ulOldLen=4, pNewPin=[3938], ulNewLen=2)",
     confirmed(),
     "C_SetPin"},
};

INSTANTIATE_TEST_SUITE_P(Extended, HandlerTest, ::testing::ValuesIn(kCases), label<HandlerCase>);

// A server that does not serve the extensions (as a deployed one) answers a
// marked request exactly as an unmarked one: same module call, same reply.
TEST_F(ServerTest, MarkerIgnoredWhenTheExtensionsAreOff) {
  Operation plain = request("C_Verify", [](Operation& o) {
    auto* r = o.mutable_c_verify();
    r->set_hsession(7);
    r->set_psignature("sig!");
    r->set_ulsignaturelen(4);
  });
  Operation withMarker = plain;
  withMarker.set_qor_extensions(protocol::kExtendedCalls);
  withMarker.set_qor_output_absent(true);

  const std::string legacyReply = process(plain.SerializeAsString());
  server::serve_extensions(false);
  const std::string ignoredReply = process(withMarker.SerializeAsString());
  server::serve_extensions(true);
  EXPECT_EQ(legacyReply, ignoredReply);
  ASSERT_EQ(2, module_.count());
  EXPECT_EQ(module_.call(0), module_.call(1));
  EXPECT_EQ("C_Verify(hSession=7, pData=[], ulDataLen=0, pSignature=[00000000], ulSignatureLen=4)",
            module_.call(0));

  // Unknown names stay unrouted without the marker.
  server::serve_extensions(false);
  Operation pin = request("C_InitPIN");
  pin.set_qor_extensions(protocol::kExtendedCalls);
  EXPECT_EQ("", process(pin.SerializeAsString()));
  server::serve_extensions(true);
  EXPECT_EQ(2, module_.count());
}

}  // namespace
}  // namespace qor::test
