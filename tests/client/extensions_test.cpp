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

// A parameter holding addresses of this process never goes to a server
// that would follow them; one without addresses goes as before.
struct ParameterCase {
  const char* what;
  bool extensions;
  bool extendedPeer;
  CK_MECHANISM_TYPE mechanism;
  bool withPoint;
  CK_RV rv;  // CKR_OK: sent
  int members;  // blocks sent beside the structure
};

class ParameterTest : public ExtensionsTest, public ::testing::WithParamInterface<ParameterCase> {};

TEST_P(ParameterTest, SentOnlyWhereItCanBeServed) {
  const ParameterCase& c = GetParam();
  qorpkcs11_client_set_extensions(c.extensions ? 1 : 0);
  if (c.extendedPeer) meetExtendedServer();
  answer(CKR_OK);
  const size_t before = received().size();
  CK_BYTE point[65] = {4};
  CK_ECDH1_DERIVE_PARAMS p{CKD_NULL, 0, nullptr, c.withPoint ? 65u : 0u, c.withPoint ? point : nullptr};
  CK_MECHANISM m{c.mechanism, &p, sizeof p};
  CK_ATTRIBUTE none{};
  CK_OBJECT_HANDLE key = 0;
  EXPECT_EQ(c.rv, C_DeriveKey(7, &m, 3, &none, 0, &key));
  ASSERT_EQ(before + (c.rv == CKR_OK ? 1 : 0), received().size());
  if (c.rv != CKR_OK) return;
  const Operation op = sent();
  const pkcs11::CK_MECHANISM& sentMechanism = op.c_derivekey().pmechanism();
  EXPECT_EQ(c.members, sentMechanism.qor_members_size());
  if (c.members == 0) {
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&p), sizeof p), sentMechanism.pparameter());
  }
}

const ParameterCase kParameters[] = {
    {"OffRawBytesAsDeployedPeersExpect", false, false, CKM_ECDH1_DERIVE, true, CKR_OK, 0},
    {"UnconfirmedPeerRefused", true, false, CKM_ECDH1_DERIVE, true, CKR_MECHANISM_PARAM_INVALID, 0},
    {"WithoutAddressesRawBytes", true, false, CKM_ECDH1_DERIVE, false, CKR_OK, 0},
    {"ExtendedPeerInDepth", true, true, CKM_ECDH1_DERIVE, true, CKR_OK, 2},
    {"NestedMechanismsRefusedEverywhere", true, true, CKM_CMS_SIG, true, CKR_MECHANISM_PARAM_INVALID, 0},
};
INSTANTIATE_TEST_SUITE_P(Parameters, ParameterTest, ::testing::ValuesIn(kParameters),
                         [](const ::testing::TestParamInfo<ParameterCase>& i) { return i.param.what; });

}  // namespace
}  // namespace qor::test
