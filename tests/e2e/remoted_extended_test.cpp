// The calls deployed servers serve otherwise than the caller meant, through
// the remoting with the extended protocol on, against a real SoftHSM2 token.
// Every case runs twice: against a serving side of this library (every call
// right) and against one standing in for a deployed server (the legacy
// behaviour, never a crash or a hang). ctest runs each case in a process of
// its own, so each gets the serving process its parameter asks for.
#include <gtest/gtest.h>

#include "qorpkcs11/client/proxy.h"
#include "remoted.h"

namespace qor::test {
namespace {

constexpr CK_RV kTransportFailed = 0xFFFFFFFFu;

enum class Server { kExtended, kDeployed };

class RemotedExtendedTest : public TokenTest<ViaRemoting>,
                            public ::testing::WithParamInterface<Server> {
 protected:
  void SetUp() override {
    ViaRemoting::standInForDeployed = GetParam() == Server::kDeployed;
    qorpkcs11_client_set_extensions(1);
    TokenTest::SetUp();
    if (HasFatalFailure()) {
      ADD_FAILURE() << ViaRemoting::serverState();
      return;
    }
    extended_ = qorpkcs11_client_extended_peer() == 1;
    ASSERT_EQ(GetParam() == Server::kExtended, extended_);
  }

  CK_RV setPin(const std::string& from, const std::string& to) {
    Bytes a = bytesOf(from), b = bytesOf(to);
    return f_->C_SetPIN(session_, a.data(), static_cast<UL>(a.size()), b.data(),
                        static_cast<UL>(b.size()));
  }

  // A query with a length that claims room, then the fetch; the rv of each.
  template <class Fn>
  std::pair<CK_RV, CK_RV> queryThenFetch(Fn fn, Bytes& out) {
    UL len = 4096;
    const CK_RV query = fn(nullptr, &len);
    out.assign(len + 1, 0);  // never an empty vector's null data()
    const CK_RV fetch = fn(out.data(), &len);
    out.resize(std::min<size_t>(len, out.size()));
    return {query, fetch};
  }

  bool extended_ = false;
  Bytes iv_ = Bytes(16, 0x42);
};

TEST_P(RemotedExtendedTest, SinglePartVerifyChecksTheSignatureSent) {
  const KeyPair rsa = rsaKeys();
  Mech sha256Rsa(CKM_SHA256_RSA_PKCS);
  Bytes data = bytesOf("signed through the remoting");
  ASSERT_EQ(CKR_OK, f_->C_SignInit(session_, sha256Rsa.get(), rsa.priv));
  Bytes signature(256);
  UL len = 256;
  ASSERT_EQ(CKR_OK, f_->C_Sign(session_, data.data(), static_cast<UL>(data.size()),
                               signature.data(), &len));

  ASSERT_EQ(CKR_OK, f_->C_VerifyInit(session_, sha256Rsa.get(), rsa.pub));
  EXPECT_EQ(extended_ ? CKR_OK : CKR_SIGNATURE_INVALID,
            f_->C_Verify(session_, data.data(), static_cast<UL>(data.size()), signature.data(), len));

  signature[7] ^= 1;
  ASSERT_EQ(CKR_OK, f_->C_VerifyInit(session_, sha256Rsa.get(), rsa.pub));
  EXPECT_EQ(CKR_SIGNATURE_INVALID,
            f_->C_Verify(session_, data.data(), static_cast<UL>(data.size()), signature.data(), len));
}

TEST_P(RemotedExtendedTest, PinsReachTheToken) {
  EXPECT_EQ(extended_ ? CKR_OK : kTransportFailed, setPin("1234", "4321"));
  ASSERT_EQ(CKR_OK, f_->C_Logout(session_));
  EXPECT_EQ(extended_ ? CKR_OK : CKR_PIN_INCORRECT, login(CKU_USER, "4321"));
  f_->C_Logout(session_);

  ASSERT_EQ(CKR_OK, login(CKU_SO, "5678"));
  Bytes pin = bytesOf("999999");
  EXPECT_EQ(extended_ ? CKR_OK : kTransportFailed,
            f_->C_InitPIN(session_, pin.data(), static_cast<UL>(pin.size())));
  ASSERT_EQ(CKR_OK, f_->C_Logout(session_));
  EXPECT_EQ(extended_ ? CKR_OK : CKR_PIN_INCORRECT, login(CKU_USER, "999999"));
}

TEST_P(RemotedExtendedTest, SessionInfoDescribesTheSessionAskedFor) {
  A::CK_SESSION_INFO info{};
  const CK_RV rv = f_->C_GetSessionInfo(session_, &info);
  if (!extended_) {
    EXPECT_EQ(CKR_SESSION_HANDLE_INVALID, rv);
    return;
  }
  ASSERT_EQ(CKR_OK, rv);
  EXPECT_EQ(slot_, info.slotID);
  EXPECT_EQ(static_cast<UL>(CKS_RW_USER_FUNCTIONS), info.state);
  EXPECT_EQ(static_cast<UL>(CKF_SERIAL_SESSION | CKF_RW_SESSION), info.flags);
}

// The README's case: the last block's padding leaves the final nothing to
// produce, and the caller asks for its length first.
TEST_P(RemotedExtendedTest, LengthQueriesOfFinalsThatProduceNothing) {
  const UL key = aesKey();
  Mech cbc(CKM_AES_CBC_PAD, iv_);
  const Bytes plain = bytesOf("thirty-two bytes of plain text..");
  ASSERT_EQ(CKR_OK, f_->C_EncryptInit(session_, cbc.get(), key));
  Bytes cipher(48);
  UL cipherLen = 48;
  ASSERT_EQ(CKR_OK, f_->C_Encrypt(session_, const_cast<CK_BYTE_PTR>(plain.data()), 32,
                                  cipher.data(), &cipherLen));
  ASSERT_EQ(48u, cipherLen);

  ASSERT_EQ(CKR_OK, f_->C_DecryptInit(session_, cbc.get(), key));
  Bytes first, last;
  const auto update = queryThenFetch(
      [&](CK_BYTE_PTR out, CK_ULONG_PTR len) {
        return f_->C_DecryptUpdate(session_, cipher.data(), 48, out, len);
      },
      first);
  const auto final = queryThenFetch(
      [&](CK_BYTE_PTR out, CK_ULONG_PTR len) { return f_->C_DecryptFinal(session_, out, len); },
      last);
  Bytes whole = first;
  whole.insert(whole.end(), last.begin(), last.end());
  const bool right = update.first == CKR_OK && update.second == CKR_OK && final.first == CKR_OK &&
                     final.second == CKR_OK && whole == plain;
  EXPECT_EQ(extended_, right) << "update " << update.first << "/" << update.second << ", final "
                              << final.first << "/" << final.second;
}

// An update that only buffers: its query must not feed the input.
TEST_P(RemotedExtendedTest, LengthQueriesOfUpdatesThatOnlyBuffer) {
  const UL key = aesKey();
  Mech cbc(CKM_AES_CBC_PAD, iv_);
  Bytes part = bytesOf("ten bytes!");
  ASSERT_EQ(CKR_OK, f_->C_EncryptInit(session_, cbc.get(), key));
  Bytes out;
  const auto update = queryThenFetch(
      [&](CK_BYTE_PTR o, CK_ULONG_PTR len) {
        return f_->C_EncryptUpdate(session_, part.data(), static_cast<UL>(part.size()), o, len);
      },
      out);
  Bytes last;
  const auto final = queryThenFetch(
      [&](CK_BYTE_PTR o, CK_ULONG_PTR len) { return f_->C_EncryptFinal(session_, o, len); }, last);
  out.insert(out.end(), last.begin(), last.end());
  if (!extended_) return;  // the query fed the input already: the rest is the legacy mess
  EXPECT_EQ(CKR_OK, update.first);
  EXPECT_EQ(CKR_OK, update.second);
  EXPECT_EQ(CKR_OK, final.second);
  ASSERT_EQ(16u, out.size());

  Bytes back(16);
  UL backLen = 16;
  ASSERT_EQ(CKR_OK, f_->C_DecryptInit(session_, cbc.get(), key));
  ASSERT_EQ(CKR_OK, f_->C_Decrypt(session_, out.data(), 16, back.data(), &backLen));
  back.resize(backLen);
  EXPECT_EQ(part, back);
}

TEST_P(RemotedExtendedTest, AbsentMechanismParametersStayAbsent) {
  const UL wrapping = aesKey();
  const UL wrapped = aesKey();
  Mech keyWrap(CKM_AES_KEY_WRAP);
  Bytes blob(40);
  UL len = 40;
  const CK_RV rv = f_->C_WrapKey(session_, keyWrap.get(), wrapping, wrapped, blob.data(), &len);
  if (!extended_) {
    EXPECT_NE(CKR_OK, rv);
    return;
  }
  ASSERT_EQ(CKR_OK, rv);
  EXPECT_EQ(40u, len);

  const KeyPair rsa = rsaKeys();
  Mech rsaPkcs(CKM_RSA_PKCS);
  Bytes rsaBlob(256);
  UL rsaLen = 256;
  EXPECT_EQ(CKR_OK, f_->C_WrapKey(session_, rsaPkcs.get(), rsa.pub, wrapped, rsaBlob.data(), &rsaLen));
  EXPECT_EQ(256u, rsaLen);
}

// A PIN with a zero byte travels whole to an extended server: the token
// takes it as set, and the same PIN cut at the zero is a different one.
TEST_P(RemotedExtendedTest, PinsTravelAsTheirExactBytes) {
  if (!extended_) return;  // a deployed server never routes C_SetPIN
  const std::string withZero("12\0" "34", 5);
  ASSERT_EQ(CKR_OK, setPin("1234", withZero));
  ASSERT_EQ(CKR_OK, f_->C_Logout(session_));
  EXPECT_NE(CKR_OK, login(CKU_USER, "12"));
  EXPECT_EQ(CKR_OK, login(CKU_USER, withZero));
}

// The peer's public point travels by pointer: to an extended server in
// depth (both sides agree on the secret), and to a deployed one not at all
// (refused here, where it would crash the serving process).
TEST_P(RemotedExtendedTest, Ecdh1DeriveAgreesBothSides) {
  const KeyPair alice = ecKeys(), bob = ecKeys();
  // The raw point, without its DER OCTET STRING header.
  Bytes alicePoint = value(alice.pub, CKA_EC_POINT), bobPoint = value(bob.pub, CKA_EC_POINT);
  alicePoint.erase(alicePoint.begin(), alicePoint.begin() + 2);
  bobPoint.erase(bobPoint.begin(), bobPoint.begin() + 2);
  auto derive = [&](UL priv, Bytes& peer, Bytes& secret) {
    A::CK_ECDH1_DERIVE_PARAMS p{};
    p.kdf = CKD_NULL;
    p.pPublicData = peer.data();
    p.ulPublicDataLen = static_cast<UL>(peer.size());
    Mech m(CKM_ECDH1_DERIVE, p);
    Template t;
    t.ulong(CKA_CLASS, CKO_SECRET_KEY).ulong(CKA_KEY_TYPE, CKK_GENERIC_SECRET).ulong(CKA_VALUE_LEN, 32);
    t.flag(CKA_TOKEN, false).flag(CKA_SENSITIVE, false).flag(CKA_EXTRACTABLE, true);
    UL key = 0;
    const CK_RV rv = f_->C_DeriveKey(session_, m.get(), priv, t.data(), t.count(), &key);
    if (rv == CKR_OK) secret = value(key, CKA_VALUE);
    return rv;
  };
  Bytes a, b;
  if (!extended_) {
    EXPECT_EQ(CKR_MECHANISM_PARAM_INVALID, derive(alice.priv, bobPoint, a));
    return;
  }
  ASSERT_EQ(CKR_OK, derive(alice.priv, bobPoint, a));
  ASSERT_EQ(CKR_OK, derive(bob.priv, alicePoint, b));
  EXPECT_EQ(32u, a.size());
  EXPECT_EQ(a, b);
}

TEST_P(RemotedExtendedTest, AesGcmRoundTripsWithIvAndAad) {
  const UL key = aesKey();
  unsigned char iv[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  unsigned char aad[5] = {'h', 'e', 'l', 'l', 'o'};
  A::CK_AES_GCM_PARAMS g{};
  g.pIv = iv;
  g.ulIvLen = 12;
  g.ulIvBits = 96;
  g.pAAD = aad;
  g.ulAADLen = 5;
  g.ulTagBits = 128;
  Mech gcm(CKM_AES_GCM, g);
  Bytes plain = bytesOf("sealed with an IV and associated data");
  const CK_RV init = f_->C_EncryptInit(session_, gcm.get(), key);
  if (!extended_) {
    EXPECT_EQ(CKR_MECHANISM_PARAM_INVALID, init);
    return;
  }
  ASSERT_EQ(CKR_OK, init);
  const Bytes sealed = sized([&](CK_BYTE_PTR out, CK_ULONG_PTR len) {
    return f_->C_Encrypt(session_, plain.data(), static_cast<UL>(plain.size()), out, len);
  });
  EXPECT_EQ(plain.size() + 16, sealed.size());
  ASSERT_EQ(CKR_OK, f_->C_DecryptInit(session_, gcm.get(), key));
  Bytes in = sealed;
  EXPECT_EQ(plain, sized([&](CK_BYTE_PTR out, CK_ULONG_PTR len) {
              return f_->C_Decrypt(session_, in.data(), static_cast<UL>(in.size()), out, len);
            }));
  // Other associated data: the tag no longer matches.
  aad[0] = 'j';
  Mech other(CKM_AES_GCM, g);
  ASSERT_EQ(CKR_OK, f_->C_DecryptInit(session_, other.get(), key));
  Bytes out(in.size());
  UL outLen = static_cast<UL>(out.size());
  EXPECT_NE(CKR_OK, f_->C_Decrypt(session_, in.data(), static_cast<UL>(in.size()), out.data(), &outLen));
}

INSTANTIATE_TEST_SUITE_P(Servers, RemotedExtendedTest,
                         ::testing::Values(Server::kExtended, Server::kDeployed),
                         [](const ::testing::TestParamInfo<Server>& info) {
                           return info.param == Server::kExtended ? "ExtendedServer"
                                                                  : "DeployedServer";
                         });

}  // namespace
}  // namespace qor::test
