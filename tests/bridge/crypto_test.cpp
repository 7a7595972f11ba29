// Encryption, signatures and digests against the real token, both ways,
// one table per kind of operation.
#include "mechanisms.h"

namespace qor::test {
namespace {

enum class Key { kAes, kRsa, kEc, kHmac };

template <class Via>
class CryptoTest : public TokenTest<Via> {
 protected:
  using UL = typename TokenTest<Via>::UL;
  using KeyPair = typename TokenTest<Via>::KeyPair;

  // One key of each kind per test; RSA takes a while to make.
  KeyPair keys(Key k) {
    if (!made_[static_cast<int>(k)]) {
      made_[static_cast<int>(k)] = true;
      switch (k) {
        case Key::kAes: {
          const UL h = this->aesKey();
          keys_[0] = {h, h};
          break;
        }
        case Key::kRsa:
          keys_[1] = this->rsaKeys();
          break;
        case Key::kEc:
          keys_[2] = this->ecKeys();
          break;
        case Key::kHmac: {
          typename TokenTest<Via>::Template t;
          t.ulong(CKA_CLASS, CKO_SECRET_KEY).ulong(CKA_KEY_TYPE, CKK_GENERIC_SECRET);
          t.ulong(CKA_VALUE_LEN, 32).flag(CKA_SIGN, true).flag(CKA_VERIFY, true);
          const UL h = this->generate(CKM_GENERIC_SECRET_KEY_GEN, t);
          keys_[3] = {h, h};
          break;
        }
      }
    }
    return keys_[static_cast<int>(k)];
  }

  static Bytes pattern(size_t n) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i) b[i] = static_cast<unsigned char>(i * 7 + 3);
    return b;
  }

  bool made_[4] = {};
  KeyPair keys_[4];
};
TYPED_TEST_SUITE(CryptoTest, BothWays);

struct CipherCase {
  const char* name;
  Key key;
  unsigned long mechanism;
  Param param;
  size_t length;
  bool multipart;
};

const CipherCase kCiphers[] = {
    {"AES-CBC-PAD", Key::kAes, CKM_AES_CBC_PAD, Param::kIv, 37, true},
    {"AES-GCM", Key::kAes, CKM_AES_GCM, Param::kGcm, 40, false},
    {"AES-CTR", Key::kAes, CKM_AES_CTR, Param::kCtr, 33, true},
    {"RSA-PKCS", Key::kRsa, CKM_RSA_PKCS, Param::kNone, 100, false},
    {"RSA-OAEP", Key::kRsa, CKM_RSA_PKCS_OAEP, Param::kOaep, 100, false},
};

TYPED_TEST(CryptoTest, EncryptAndDecrypt) {
  using UL = typename TestFixture::UL;
  using A = typename TestFixture::A;
  auto* f = this->f_;
  const UL s = this->session_;
  for (const CipherCase& c : kCiphers) {
    SCOPED_TRACE(c.name);
    const auto k = this->keys(c.key);
    const Bytes plain = this->pattern(c.length);
    auto m = mechanismOf<A>(c.mechanism, c.param);

    ASSERT_EQ(CKR_OK, f->C_EncryptInit(s, m.get(), k.pub));
    UL need = 0;
    ASSERT_EQ(CKR_OK, f->C_Encrypt(s, const_cast<unsigned char*>(plain.data()), c.length,
                                   nullptr, &need));
    Bytes cipher(need);
    UL little = 1;
    ASSERT_EQ(CKR_BUFFER_TOO_SMALL, f->C_Encrypt(s, const_cast<unsigned char*>(plain.data()),
                                                 c.length, cipher.data(), &little));
    EXPECT_EQ(need, little);
    ASSERT_EQ(CKR_OK, f->C_Encrypt(s, const_cast<unsigned char*>(plain.data()), c.length,
                                   cipher.data(), &need));
    cipher.resize(need);
    EXPECT_NE(plain, cipher);

    ASSERT_EQ(CKR_OK, f->C_DecryptInit(s, m.get(), k.priv));
    const Bytes back = this->sized([&](unsigned char* out, UL* len) {
      return f->C_Decrypt(s, cipher.data(), static_cast<UL>(cipher.size()), out, len);
    });
    EXPECT_EQ(plain, back);

    if (!c.multipart) continue;
    ASSERT_EQ(CKR_OK, f->C_EncryptInit(s, m.get(), k.pub));
    Bytes parts(c.length + 32);
    UL first = static_cast<UL>(parts.size()), rest;
    ASSERT_EQ(CKR_OK, f->C_EncryptUpdate(s, const_cast<unsigned char*>(plain.data()), 20,
                                         parts.data(), &first));
    rest = static_cast<UL>(parts.size() - first);
    ASSERT_EQ(CKR_OK, f->C_EncryptUpdate(s, const_cast<unsigned char*>(plain.data()) + 20,
                                         static_cast<UL>(c.length - 20), parts.data() + first,
                                         &rest));
    first += rest;
    rest = static_cast<UL>(parts.size() - first);
    ASSERT_EQ(CKR_OK, f->C_EncryptFinal(s, parts.data() + first, &rest));
    parts.resize(first + rest);
    EXPECT_EQ(cipher, parts);

    ASSERT_EQ(CKR_OK, f->C_DecryptInit(s, m.get(), k.priv));
    Bytes plainParts(parts.size());
    UL got = static_cast<UL>(plainParts.size());
    ASSERT_EQ(CKR_OK, f->C_DecryptUpdate(s, parts.data(), static_cast<UL>(parts.size()),
                                         plainParts.data(), &got));
    UL last = static_cast<UL>(plainParts.size() - got);
    ASSERT_EQ(CKR_OK, f->C_DecryptFinal(s, plainParts.data() + got, &last));
    plainParts.resize(got + last);
    EXPECT_EQ(plain, plainParts);
  }
}

struct SignCase {
  const char* name;
  Key key;
  unsigned long mechanism;
  Param param;
  size_t length;
  bool deterministic;  // the same data always gives the same signature
  bool multipart;
};

const SignCase kSignatures[] = {
    {"RSA-PKCS", Key::kRsa, CKM_RSA_PKCS, Param::kNone, 32, true, false},
    {"SHA256-RSA-PKCS", Key::kRsa, CKM_SHA256_RSA_PKCS, Param::kNone, 100, true, true},
    {"RSA-PSS", Key::kRsa, CKM_RSA_PKCS_PSS, Param::kPss, 32, false, false},
    {"SHA256-RSA-PKCS-PSS", Key::kRsa, CKM_SHA256_RSA_PKCS_PSS, Param::kPss, 100, false, true},
    {"ECDSA", Key::kEc, CKM_ECDSA, Param::kNone, 32, false, false},
    {"SHA256-HMAC", Key::kHmac, CKM_SHA256_HMAC, Param::kNone, 100, true, true},
};

TYPED_TEST(CryptoTest, SignAndVerify) {
  using UL = typename TestFixture::UL;
  using A = typename TestFixture::A;
  auto* f = this->f_;
  const UL s = this->session_;
  for (const SignCase& c : kSignatures) {
    SCOPED_TRACE(c.name);
    const auto k = this->keys(c.key);
    Bytes data = this->pattern(c.length);
    auto m = mechanismOf<A>(c.mechanism, c.param);

    ASSERT_EQ(CKR_OK, f->C_SignInit(s, m.get(), k.priv));
    const Bytes sig = this->sized([&](unsigned char* out, UL* len) {
      return f->C_Sign(s, data.data(), static_cast<UL>(data.size()), out, len);
    });
    ASSERT_FALSE(sig.empty());
    Bytes copy = sig;
    ASSERT_EQ(CKR_OK, f->C_VerifyInit(s, m.get(), k.pub));
    EXPECT_EQ(CKR_OK, f->C_Verify(s, data.data(), static_cast<UL>(data.size()), copy.data(),
                                  static_cast<UL>(copy.size())));
    data.back() ^= 1;
    ASSERT_EQ(CKR_OK, f->C_VerifyInit(s, m.get(), k.pub));
    EXPECT_EQ(CKR_SIGNATURE_INVALID, f->C_Verify(s, data.data(), static_cast<UL>(data.size()),
                                                 copy.data(), static_cast<UL>(copy.size())));
    data.back() ^= 1;

    if (!c.multipart) continue;
    ASSERT_EQ(CKR_OK, f->C_SignInit(s, m.get(), k.priv));
    ASSERT_EQ(CKR_OK, f->C_SignUpdate(s, data.data(), 10));
    ASSERT_EQ(CKR_OK, f->C_SignUpdate(s, data.data() + 10, static_cast<UL>(data.size() - 10)));
    Bytes parts = this->sized([&](unsigned char* out, UL* len) {
      return f->C_SignFinal(s, out, len);
    });
    if (c.deterministic) {
      EXPECT_EQ(sig, parts);
    }
    ASSERT_EQ(CKR_OK, f->C_VerifyInit(s, m.get(), k.pub));
    ASSERT_EQ(CKR_OK, f->C_VerifyUpdate(s, data.data(), static_cast<UL>(data.size())));
    EXPECT_EQ(CKR_OK, f->C_VerifyFinal(s, parts.data(), static_cast<UL>(parts.size())));
  }
}

struct DigestCase {
  unsigned long mechanism;
  const char* data;
  const char* hex;
};

const DigestCase kDigests[] = {
    {CKM_SHA_1, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
    {CKM_SHA256, "abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
    {CKM_SHA512, "abc",
     "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
     "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
};

TYPED_TEST(CryptoTest, DigestSingleAndInParts) {
  using UL = typename TestFixture::UL;
  using A = typename TestFixture::A;
  auto* f = this->f_;
  const UL s = this->session_;
  for (const DigestCase& c : kDigests) {
    SCOPED_TRACE(c.hex);
    Bytes data = bytesOf(c.data);
    Mechanism<A> m(c.mechanism);
    ASSERT_EQ(CKR_OK, f->C_DigestInit(s, m.get()));
    EXPECT_EQ(c.hex, hex(this->sized([&](unsigned char* out, UL* len) {
      return f->C_Digest(s, data.data(), static_cast<UL>(data.size()), out, len);
    })));
    ASSERT_EQ(CKR_OK, f->C_DigestInit(s, m.get()));
    for (unsigned char& b : data) ASSERT_EQ(CKR_OK, f->C_DigestUpdate(s, &b, 1));
    EXPECT_EQ(c.hex, hex(this->sized([&](unsigned char* out, UL* len) {
      return f->C_DigestFinal(s, out, len);
    })));
  }

  // A key's value digests like the same bytes given as data.
  const UL key = this->aesKey();
  Bytes value = this->value(key, CKA_VALUE);
  Mechanism<A> sha256(CKM_SHA256);
  ASSERT_EQ(CKR_OK, f->C_DigestInit(s, sha256.get()));
  ASSERT_EQ(CKR_OK, f->C_DigestKey(s, key));
  const Bytes ofKey = this->sized([&](unsigned char* out, UL* len) {
    return f->C_DigestFinal(s, out, len);
  });
  ASSERT_EQ(CKR_OK, f->C_DigestInit(s, sha256.get()));
  EXPECT_EQ(ofKey, this->sized([&](unsigned char* out, UL* len) {
    return f->C_Digest(s, value.data(), static_cast<UL>(value.size()), out, len);
  }));
}

}  // namespace
}  // namespace qor::test
