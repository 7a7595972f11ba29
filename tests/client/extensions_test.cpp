// The extended protocol on the client's side: the marker on every request
// once turned on, and the caller's exact inputs only after the server has
// confirmed it serves them; until then the bytes deployed servers expect.
#include <gtest/gtest.h>

#include <cstring>

#include "fake_server.h"
#include "qorpkcs11/client/proxy.h"
#include "qorpkcs11/protocol/extensions.h"

namespace qor::test {
namespace {

using pkcs11::Operation;
using pkcs11::OperationResult;

class ExtensionsTest : public ProxyTest {
 protected:
  void SetUp() override {
    ProxyTest::SetUp();
    qorpkcs11_client_set_extensions(1);
  }
  void TearDown() override {
    qorpkcs11_client_set_extensions(0);
    ProxyTest::TearDown();
  }

  // One call answered by a server that confirms the extensions.
  static void meetExtendedServer() {
    answer(CKR_OK, [](OperationResult& r) { r.set_qor_extensions(protocol::kExtendedCalls); });
    ASSERT_EQ(CKR_OK, C_Finalize(nullptr));
    ASSERT_EQ(1, qorpkcs11_client_extended_peer());
  }

  CK_BYTE sig_[6] = {'s', 'i', 0, 'g', 'n', 0};
  CK_BYTE data_[3] = {1, 2, 3};
};

// What differs by the peer, the same calls in each row.
struct PeerCase {
  const char* what;
  bool extended;                      // the server confirmed the extensions
  std::string signature;              // C_Verify's psignature
  std::string pin;                    // C_Login's ppin
  bool sessionHandle;                 // C_GetSessionInfo carries its handle
  std::string outputSent;             // C_Encrypt's output field
};

class PeerTest : public ExtensionsTest, public ::testing::WithParamInterface<PeerCase> {};

TEST_P(PeerTest, InputsGoOutAsThePeerTakesThem) {
  const PeerCase& c = GetParam();
  if (c.extended) meetExtendedServer();
  answer(CKR_OK);

  ASSERT_EQ(CKR_OK, C_Verify(7, data_, 3, sig_, 6));
  Operation op = sent();
  EXPECT_EQ(protocol::kExtendedCalls, op.qor_extensions());
  EXPECT_EQ(c.signature, op.c_verify().psignature());
  EXPECT_EQ(6, op.c_verify().ulsignaturelen());

  CK_BYTE pin[5] = {'1', '2', 0, '3', '4'};
  ASSERT_EQ(CKR_OK, C_Login(7, CKU_USER, pin, 5));
  EXPECT_EQ(c.pin, sent().c_login().ppin());

  CK_SESSION_INFO info;
  C_GetSessionInfo(9, &info);
  op = sent();
  EXPECT_EQ(c.sessionHandle, op.has_c_getsessioninfo());
  EXPECT_EQ(c.sessionHandle ? 9 : 0, op.c_getsessioninfo().hsession());

  CK_BYTE out[4] = {'o', 'l', 'd', '!'};
  CK_ULONG outLen = 4;
  C_Encrypt(7, data_, 3, out, &outLen);
  op = sent();
  EXPECT_EQ(c.outputSent, op.c_encrypt().pencrypteddata());
  EXPECT_EQ(4, op.c_encrypt().pulencrypteddatalen());
  EXPECT_FALSE(op.has_qor_output_absent());
}

const PeerCase kPeers[] = {
    {"PeerNotYetConfirmed", false, "si", "12", false, "old!"},
    {"ExtendedPeer", true, std::string("si\0gn\0", 6), std::string("12\0" "34", 5), true, ""},
};
INSTANTIATE_TEST_SUITE_P(Peers, PeerTest, ::testing::ValuesIn(kPeers),
                         [](const ::testing::TestParamInfo<PeerCase>& i) { return i.param.what; });

TEST_F(ExtensionsTest, NullOutputMarksALengthQuery) {
  answer(CKR_OK, [](OperationResult& r) { r.mutable_c_sign_response()->set_pulsignaturelen(256); });
  CK_ULONG len = 4096;
  ASSERT_EQ(CKR_OK, C_Sign(7, data_, 3, nullptr, &len));
  const Operation op = sent();
  EXPECT_TRUE(op.qor_output_absent());
  EXPECT_EQ(0, op.c_sign().pulsignaturelen());
  EXPECT_EQ(256u, len);
}

TEST_F(ExtensionsTest, OffSendsNoMarker) {
  meetExtendedServer();
  qorpkcs11_client_set_extensions(0);
  EXPECT_EQ(0, qorpkcs11_client_extended_peer());
  answer(CKR_OK, [](OperationResult& r) { r.set_qor_extensions(protocol::kExtendedCalls); });
  CK_ULONG len = 0;
  C_Sign(7, data_, 3, nullptr, &len);
  const Operation op = sent();
  EXPECT_FALSE(op.has_qor_extensions());
  EXPECT_FALSE(op.has_qor_output_absent());
}

TEST_F(ExtensionsTest, ANewConnectionStartsWithAnUnconfirmedPeer) {
  meetExtendedServer();
  qorpkcs11_client_deinit();
  EXPECT_EQ(0, qorpkcs11_client_extended_peer());
}

}  // namespace
}  // namespace qor::test
