// Key pairs, wrapping, derivation and random numbers, both ways.
#include "mechanisms.h"

namespace qor::test {
namespace {

constexpr unsigned long kAesKeyWrap = 0x00002109;  // CKM_AES_KEY_WRAP

template <class Via>
class KeysTest : public TokenTest<Via> {
 protected:
  using UL = typename TokenTest<Via>::UL;
  using Template = typename TokenTest<Via>::Template;

  // A readable session secret key of `type` for a derive or unwrap.
  static Template secret(UL type, UL length) {
    Template t;
    t.ulong(CKA_CLASS, CKO_SECRET_KEY).ulong(CKA_KEY_TYPE, type).flag(CKA_TOKEN, false);
    if (length) t.ulong(CKA_VALUE_LEN, length);
    t.flag(CKA_SENSITIVE, false).flag(CKA_EXTRACTABLE, true).flag(CKA_ENCRYPT, true);
    return t;
  }
};
TYPED_TEST_SUITE(KeysTest, BothWays);

TYPED_TEST(KeysTest, KeyPairsCarryTheirUlongAttributes) {
  using UL = typename TestFixture::UL;
  const auto rsa = this->rsaKeys();
  typename TestFixture::Template t;
  t.room(CKA_CLASS, sizeof(UL)).room(CKA_KEY_TYPE, sizeof(UL)).room(CKA_MODULUS_BITS, sizeof(UL));
  t.room(CKA_KEY_GEN_MECHANISM, sizeof(UL)).query(CKA_MODULUS);
  ASSERT_EQ(CKR_OK, this->f_->C_GetAttributeValue(this->session_, rsa.pub, t.data(), t.count()));
  EXPECT_EQ(CKO_PUBLIC_KEY, t.ulongAt(0));
  EXPECT_EQ(CKK_RSA, t.ulongAt(1));
  EXPECT_EQ(2048u, t.ulongAt(2));
  EXPECT_EQ(CKM_RSA_PKCS_KEY_PAIR_GEN, t.ulongAt(3));
  EXPECT_EQ(256u, t.length(4));

  const auto ec = this->ecKeys();
  EXPECT_EQ(this->kP256, this->value(ec.pub, CKA_EC_PARAMS));
  const Bytes point = this->value(ec.pub, CKA_EC_POINT);
  ASSERT_EQ(67u, point.size());  // DER OCTET STRING of an uncompressed P-256 point
  EXPECT_EQ(0x04, point[2]);
}

struct WrapCase {
  const char* name;
  unsigned long mechanism;
  Param param;
  bool rsa;
};

const WrapCase kWraps[] = {
    {"RSA-OAEP", CKM_RSA_PKCS_OAEP, Param::kOaep, true},
    {"RSA-PKCS", CKM_RSA_PKCS, Param::kNone, true},
    {"AES-KEY-WRAP", kAesKeyWrap, Param::kNone, false},
};

TYPED_TEST(KeysTest, WrapAndUnwrap) {
  using UL = typename TestFixture::UL;
  auto* f = this->f_;
  const UL s = this->session_;
  const UL secret = this->aesKey();
  const Bytes original = this->value(secret, CKA_VALUE);
  const auto rsa = this->rsaKeys();
  const UL kek = this->aesKey();
  for (const WrapCase& c : kWraps) {
    SCOPED_TRACE(c.name);
    auto m = mechanismOf<typename TestFixture::A>(c.mechanism, c.param);
    const UL wrapping = c.rsa ? rsa.pub : kek, unwrapping = c.rsa ? rsa.priv : kek;
    Bytes wrapped = this->sized([&](unsigned char* out, UL* len) {
      return f->C_WrapKey(s, m.get(), wrapping, secret, out, len);
    });
    ASSERT_FALSE(wrapped.empty());
    auto t = TestFixture::secret(CKK_AES, 0);
    UL unwrapped = 0;
    ASSERT_EQ(CKR_OK, f->C_UnwrapKey(s, m.get(), unwrapping, wrapped.data(),
                                     static_cast<UL>(wrapped.size()), t.data(), t.count(),
                                     &unwrapped));
    EXPECT_NE(secret, unwrapped);
    EXPECT_EQ(original, this->value(unwrapped, CKA_VALUE));
  }
}

TYPED_TEST(KeysTest, Ecdh1DeriveAgreesBothSides) {
  using UL = typename TestFixture::UL;
  using A = typename TestFixture::A;
  const auto alice = this->ecKeys(), bob = this->ecKeys();
  // The raw point, without its DER OCTET STRING header.
  Bytes alicePoint = this->value(alice.pub, CKA_EC_POINT), bobPoint = this->value(bob.pub, CKA_EC_POINT);
  alicePoint.erase(alicePoint.begin(), alicePoint.begin() + 2);
  bobPoint.erase(bobPoint.begin(), bobPoint.begin() + 2);

  auto derive = [&](UL priv, Bytes& peer) {
    typename A::CK_ECDH1_DERIVE_PARAMS p{};
    p.kdf = CKD_NULL;
    p.pPublicData = peer.data();
    p.ulPublicDataLen = static_cast<UL>(peer.size());
    Mechanism<A> m(CKM_ECDH1_DERIVE, p);
    auto t = TestFixture::secret(CKK_GENERIC_SECRET, 32);
    UL key = 0;
    EXPECT_EQ(CKR_OK, this->f_->C_DeriveKey(this->session_, m.get(), priv, t.data(), t.count(), &key));
    return this->value(key, CKA_VALUE);
  };
  const Bytes a = derive(alice.priv, bobPoint), b = derive(bob.priv, alicePoint);
  EXPECT_EQ(32u, a.size());
  EXPECT_EQ(a, b);
}

TYPED_TEST(KeysTest, DeriveByEncryptingData) {
  using UL = typename TestFixture::UL;
  using A = typename TestFixture::A;
  auto* f = this->f_;
  const UL base = this->aesKey();
  Bytes data(32);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(0xA0 + i);

  auto derive = [&](Mechanism<A>& m) {
    auto t = TestFixture::secret(CKK_AES, 32);
    UL key = 0;
    EXPECT_EQ(CKR_OK, f->C_DeriveKey(this->session_, m.get(), base, t.data(), t.count(), &key));
    return this->value(key, CKA_VALUE);
  };
  auto encrypt = [&](Mechanism<A>& m) {
    EXPECT_EQ(CKR_OK, f->C_EncryptInit(this->session_, m.get(), base));
    return this->sized([&](unsigned char* out, UL* len) {
      return f->C_Encrypt(this->session_, data.data(), static_cast<UL>(data.size()), out, len);
    });
  };

  typename A::CK_KEY_DERIVATION_STRING_DATA sd{};
  sd.pData = data.data();
  sd.ulLen = static_cast<UL>(data.size());
  Mechanism<A> ecbData(CKM_AES_ECB_ENCRYPT_DATA, sd), ecb(CKM_AES_ECB);
  EXPECT_EQ(encrypt(ecb), derive(ecbData));

  typename A::CK_AES_CBC_ENCRYPT_DATA_PARAMS cd{};
  std::memcpy(cd.iv, gIv, sizeof cd.iv);
  cd.pData = data.data();
  cd.length = static_cast<UL>(data.size());
  Mechanism<A> cbcData(CKM_AES_CBC_ENCRYPT_DATA, cd), cbc = mechanismOf<A>(CKM_AES_CBC, Param::kIv);
  EXPECT_EQ(encrypt(cbc), derive(cbcData));
}

TYPED_TEST(KeysTest, RandomBytes) {
  Bytes a(32), b(32), zero(32);
  ASSERT_EQ(CKR_OK, this->f_->C_GenerateRandom(this->session_, a.data(), 32));
  ASSERT_EQ(CKR_OK, this->f_->C_GenerateRandom(this->session_, b.data(), 32));
  EXPECT_NE(a, b);
  EXPECT_NE(zero, a);
  EXPECT_EQ(CKR_OK, this->f_->C_SeedRandom(this->session_, a.data(), 32));
}

}  // namespace
}  // namespace qor::test
