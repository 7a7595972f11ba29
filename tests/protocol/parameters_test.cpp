// Mechanism parameters that hold pointers, between two extended ends: the
// client's encoding, the structure the module is handed, and the blocks the
// module writes on their way back into the caller's structure. Both ends'
// codecs run in this process, without a socket between them.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

#include "qorpkcs11/client/extensions.h"
#include "qorpkcs11/client/parameters.h"
#include "qorpkcs11/client/proxy.h"
#include "qorpkcs11/protocol/extensions.h"
#include "qorpkcs11/server/module_memory.h"
#include "qorpkcs11/server/server.h"

namespace qor::test {
namespace {

using Bytes = std::vector<CK_BYTE>;

class ParametersTest : public ::testing::Test {
 protected:
  void SetUp() override {
    qorpkcs11_client_set_extensions(1);
    pkcs11::OperationResult confirmation;
    confirmation.set_qor_extensions(protocol::kExtendedCalls);
    client::notePeer(confirmation);
    operation.Clear();
    operation.set_qor_extensions(protocol::kExtendedCalls);
  }
  void TearDown() override {
    client::forgetPeer();
    qorpkcs11_client_set_extensions(0);
    operation.Clear();
  }

  // The caller's mechanism through both codecs; `module` plays the module
  // with what the serving side built. The rv of the serving side's build.
  template <class P>
  CK_RV roundTrip(CK_MECHANISM_TYPE type, P& param, const std::function<void(P&)>& module = nullptr) {
    CK_MECHANISM caller{type, &param, sizeof param};
    const pkcs11::CK_MECHANISM wire = encoded(caller);
    sent_ = wire;
    server::Mechanism served;
    const CK_RV built = served.build(wire);
    if (built != CKR_OK) return built;
    CK_MECHANISM* seen = served.get();
    EXPECT_EQ(sizeof(P), +seen->ulParameterLen);
    if (module) module(*static_cast<P*>(seen->pParameter));
    google::protobuf::RepeatedPtrField<std::string> back;
    served.answer(&back);
    client::takeParameterOutputs(caller, back);
    return CKR_OK;
  }

  // What the client sends for the caller's mechanism.
  static pkcs11::CK_MECHANISM encoded(const CK_MECHANISM& caller) {
    pkcs11::CK_MECHANISM wire;
    wire.set_mechanism(static_cast<int32_t>(caller.mechanism));
    EXPECT_TRUE(client::putParameterInDepth(&wire, caller));
    wire.set_ulparameterlen(static_cast<int32_t>(caller.ulParameterLen));
    return wire;
  }

  static Bytes bytes(const void* p, CK_ULONG n) {
    const auto* b = static_cast<const CK_BYTE*>(p);
    return Bytes(b, b + n);
  }

  pkcs11::CK_MECHANISM sent_;
};

TEST_F(ParametersTest, Ecdh1PointTravelsAndTheModuleGetsItsOwnCopy) {
  Bytes point(65, 0x04);
  point[64] = 0x99;
  CK_ECDH1_DERIVE_PARAMS p{CKD_NULL, 0, nullptr, 65, point.data()};
  ASSERT_EQ(CKR_OK, roundTrip<CK_ECDH1_DERIVE_PARAMS>(CKM_ECDH1_DERIVE, p, [&](CK_ECDH1_DERIVE_PARAMS& s) {
    EXPECT_EQ(nullptr, +s.pSharedData);
    EXPECT_EQ(0u, +s.ulSharedDataLen);
    ASSERT_NE(nullptr, +s.pPublicData);
    EXPECT_NE(point.data(), +s.pPublicData);
    EXPECT_EQ(point, bytes(s.pPublicData, s.ulPublicDataLen));
  }));
  // No address of the calling process goes on the wire.
  CK_ECDH1_DERIVE_PARAMS onWire;
  ASSERT_EQ(sizeof onWire, sent_.pparameter().size());
  std::memcpy(&onWire, sent_.pparameter().data(), sizeof onWire);
  EXPECT_EQ(nullptr, +onWire.pPublicData);
  EXPECT_EQ(1u, sent_.qor_absent_members());  // pSharedData
}

TEST_F(ParametersTest, GcmIvAndAad) {
  CK_BYTE iv[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  CK_BYTE aad[5] = {'h', 'e', 'l', 'l', 'o'};
  CK_AES_GCM_PARAMS p{iv, 12, 96, aad, 5, 128};
  ASSERT_EQ(CKR_OK, roundTrip<CK_AES_GCM_PARAMS>(CKM_AES_GCM, p, [&](CK_AES_GCM_PARAMS& s) {
    EXPECT_EQ(bytes(iv, 12), bytes(s.pIv, s.ulIvLen));
    EXPECT_EQ(bytes(aad, 5), bytes(s.pAAD, s.ulAADLen));
    EXPECT_EQ(96u, +s.ulIvBits);
    EXPECT_EQ(128u, +s.ulTagBits);
  }));
  EXPECT_EQ(iv, +p.pIv);  // the caller's structure keeps its own pointers
}

// The module writes four handles and two IVs; they land in the caller's
// key material, whose IV pointers stay the caller's.
TEST_F(ParametersTest, Ssl3KeyMaterialComesBack) {
  CK_BYTE client[32], server[32], ivClient[8] = {}, ivServer[8] = {};
  std::memset(client, 'c', sizeof client);
  std::memset(server, 's', sizeof server);
  CK_SSL3_KEY_MAT_OUT out{0, 0, 0, 0, ivClient, ivServer};
  CK_SSL3_KEY_MAT_PARAMS p{};
  p.ulIVSizeInBits = 64;
  p.RandomInfo = {client, 32, server, 32};
  p.pReturnedKeyMaterial = &out;
  ASSERT_EQ(CKR_OK, roundTrip<CK_SSL3_KEY_MAT_PARAMS>(CKM_TLS_KEY_AND_MAC_DERIVE, p, [&](CK_SSL3_KEY_MAT_PARAMS& s) {
    EXPECT_EQ(bytes(client, 32), bytes(s.RandomInfo.pClientRandom, s.RandomInfo.ulClientRandomLen));
    ASSERT_NE(nullptr, +s.pReturnedKeyMaterial);
    ASSERT_NE(&out, +s.pReturnedKeyMaterial);
    CK_SSL3_KEY_MAT_OUT& k = *s.pReturnedKeyMaterial;
    k.hClientMacSecret = 11, k.hServerMacSecret = 12, k.hClientKey = 13, k.hServerKey = 14;
    std::memset(k.pIVClient, 0xC1, 8);
    std::memset(k.pIVServer, 0x5E, 8);
  }));
  EXPECT_EQ(11u, +out.hClientMacSecret);
  EXPECT_EQ(14u, +out.hServerKey);
  EXPECT_EQ(ivClient, +out.pIVClient);
  EXPECT_EQ(ivServer, +out.pIVServer);
  EXPECT_EQ(Bytes(8, 0xC1), bytes(ivClient, 8));
  EXPECT_EQ(Bytes(8, 0x5E), bytes(ivServer, 8));
}

TEST_F(ParametersTest, PrfOutputWithinTheCallersCapacity) {
  CK_BYTE seed[4] = {1, 2, 3, 4}, label[3] = {'k', 'e', 'y'}, output[10] = {};
  CK_ULONG outputLen = 10;
  CK_TLS_PRF_PARAMS p{seed, 4, label, 3, output, &outputLen};
  ASSERT_EQ(CKR_OK, roundTrip<CK_TLS_PRF_PARAMS>(CKM_TLS_PRF, p, [&](CK_TLS_PRF_PARAMS& s) {
    EXPECT_EQ(10u, +*s.pulOutputLen);
    std::memset(s.pOutput, 0xAB, 7);
    *s.pulOutputLen = 7;
  }));
  EXPECT_EQ(7u, outputLen);
  EXPECT_EQ(Bytes(7, 0xAB), bytes(output, 7));
  EXPECT_EQ(0, output[7]);
}

TEST_F(ParametersTest, PbeInitVectorComesBack) {
  CK_BYTE iv[8] = {}, password[] = {'p', 'w'}, salt[] = {'s', 'a', 'l', 't'};
  CK_PBE_PARAMS p{iv, password, 2, salt, 4, 1000};
  ASSERT_EQ(CKR_OK, roundTrip<CK_PBE_PARAMS>(CKM_PBE_SHA1_DES3_EDE_CBC, p, [&](CK_PBE_PARAMS& s) {
    EXPECT_EQ(bytes(password, 2), bytes(s.pPassword, s.ulPasswordLen));
    std::memset(s.pInitVector, 0x17, 8);
  }));
  EXPECT_EQ(Bytes(8, 0x17), bytes(iv, 8));
}

// What a hostile or mismatched peer sends is refused before the module
// sees it; nothing is allocated beyond what the request carries.
struct Hostile {
  const char* what;
  std::function<void(pkcs11::CK_MECHANISM&)> spoil;
};

class HostileTest : public ParametersTest, public ::testing::WithParamInterface<Hostile> {};

TEST_P(HostileTest, RefusedAsAnInvalidParameter) {
  Bytes point(65, 0x04);
  CK_ECDH1_DERIVE_PARAMS p{CKD_NULL, 0, nullptr, 65, point.data()};
  CK_MECHANISM caller{CKM_ECDH1_DERIVE, &p, sizeof p};
  pkcs11::CK_MECHANISM wire = encoded(caller);
  GetParam().spoil(wire);
  server::Mechanism served;
  EXPECT_EQ(CKR_MECHANISM_PARAM_INVALID, served.build(wire));
}

void setUlong(pkcs11::CK_MECHANISM& w, size_t offset, CK_ULONG v) {
  std::memcpy(w.mutable_pparameter()->data() + offset, &v, sizeof v);
}

const Hostile kHostile[] = {
    {"PointShorterThanItsLength", [](pkcs11::CK_MECHANISM& w) { w.mutable_qor_members(1)->pop_back(); }},
    {"LengthBeyondThePoint",
     [](pkcs11::CK_MECHANISM& w) { setUlong(w, offsetof(CK_ECDH1_DERIVE_PARAMS, ulPublicDataLen), 0xFFFFFFFFu); }},
    {"MemberMissing", [](pkcs11::CK_MECHANISM& w) { w.mutable_qor_members()->RemoveLast(); }},
    {"MemberTooMany", [](pkcs11::CK_MECHANISM& w) { w.add_qor_members(); }},
    {"StructureCut", [](pkcs11::CK_MECHANISM& w) {
       w.mutable_pparameter()->pop_back();
       w.set_ulparameterlen(w.ulparameterlen() - 1);
     }},
    {"MechanismWithoutLayout", [](pkcs11::CK_MECHANISM& w) { w.set_mechanism(CKM_AES_CBC); }},
};

INSTANTIATE_TEST_SUITE_P(Peers, HostileTest, ::testing::ValuesIn(kHostile),
                         [](const ::testing::TestParamInfo<Hostile>& i) { return i.param.what; });

// Outputs sized by the peer's word alone are capped: IV bits near 2^32 would
// otherwise ask this side for half a gigabyte per IV.
TEST_F(ParametersTest, OutputsBeyondTheCapRefused) {
  CK_BYTE ivClient[8], ivServer[8], random[4] = {};
  CK_SSL3_KEY_MAT_OUT out{0, 0, 0, 0, ivClient, ivServer};
  CK_SSL3_KEY_MAT_PARAMS p{};
  p.ulIVSizeInBits = 64;
  p.RandomInfo = {random, 4, random, 4};
  p.pReturnedKeyMaterial = &out;
  CK_MECHANISM caller{CKM_SSL3_KEY_AND_MAC_DERIVE, &p, sizeof p};
  pkcs11::CK_MECHANISM wire = encoded(caller);
  setUlong(wire, offsetof(CK_SSL3_KEY_MAT_PARAMS, ulIVSizeInBits), 0xFFFFFFFFu);
  server::Mechanism served;
  EXPECT_EQ(CKR_MECHANISM_PARAM_INVALID, served.build(wire));
}

// A request without the marker is served as deployed peers expect: the
// blocks are ignored and the structure goes to the module as sent.
TEST_F(ParametersTest, UnmarkedRequestKeepsTheRawStructure) {
  Bytes point(65, 0x04);
  CK_ECDH1_DERIVE_PARAMS p{CKD_NULL, 0, nullptr, 65, point.data()};
  CK_MECHANISM caller{CKM_ECDH1_DERIVE, &p, sizeof p};
  pkcs11::CK_MECHANISM wire = encoded(caller);
  operation.clear_qor_extensions();
  server::Mechanism served;
  ASSERT_EQ(CKR_OK, served.build(wire));
  EXPECT_EQ(bytes(wire.pparameter().data(), sizeof p), bytes(served.get()->pParameter, sizeof p));
}

}  // namespace
}  // namespace qor::test
