// Calls through the remoting that the serving process must carry out as the
// caller meant them, against a real SoftHSM2 token.
#include <gtest/gtest.h>

#include "remoted.h"

namespace qor::test {
namespace {

class RemotedTokenTest : public TokenTest<ViaRemoting> {
 protected:
  void SetUp() override {
    TokenTest::SetUp();
    if (HasFatalFailure()) ADD_FAILURE() << ViaRemoting::serverState();
  }

  // A length query that says it has room (as callers often leave *pulLen),
  // then the fetch into a buffer of the length it reported.
  template <class Fn>
  Bytes queryThenFetch(Fn fn) {
    UL len = 4096;
    EXPECT_EQ(CKR_OK, fn(nullptr, &len));
    EXPECT_NE(4096u, len);
    Bytes out(len);
    EXPECT_EQ(CKR_OK, fn(out.data(), &len));
    EXPECT_LE(len, out.size());
    out.resize(len);
    return out;
  }

  Bytes iv_ = Bytes(16, 0x42);
};

// A seed is sent as text, cut at its first zero byte: the token still gets
// one of the length the caller gave.
TEST_F(RemotedTokenTest, SeedWithAZeroByteReachesTheToken) {
  Bytes seed(32, 0x5a);
  seed[3] = 0;
  EXPECT_EQ(CKR_OK, f_->C_SeedRandom(session_, seed.data(), static_cast<UL>(seed.size())));
}

TEST_F(RemotedTokenTest, LengthQueriesLeaveTheOperationToTheFetch) {
  const UL key = aesKey();
  const Bytes plain = bytesOf("forty bytes of plaintext, not a multiple");
  Mech cbc(CKM_AES_CBC_PAD, iv_);

  ASSERT_EQ(CKR_OK, f_->C_EncryptInit(session_, cbc.get(), key));
  const Bytes cipher = queryThenFetch([&](CK_BYTE_PTR out, CK_ULONG_PTR len) {
    return f_->C_Encrypt(session_, const_cast<CK_BYTE_PTR>(plain.data()),
                         static_cast<UL>(plain.size()), out, len);
  });
  EXPECT_EQ(48u, cipher.size());

  ASSERT_EQ(CKR_OK, f_->C_DecryptInit(session_, cbc.get(), key));
  EXPECT_EQ(plain, queryThenFetch([&](CK_BYTE_PTR out, CK_ULONG_PTR len) {
    return f_->C_Decrypt(session_, const_cast<CK_BYTE_PTR>(cipher.data()),
                         static_cast<UL>(cipher.size()), out, len);
  }));

  const KeyPair rsa = rsaKeys();
  Mech sha256Rsa(CKM_SHA256_RSA_PKCS);
  ASSERT_EQ(CKR_OK, f_->C_SignInit(session_, sha256Rsa.get(), rsa.priv));
  Bytes signature = queryThenFetch([&](CK_BYTE_PTR out, CK_ULONG_PTR len) {
    return f_->C_Sign(session_, const_cast<CK_BYTE_PTR>(plain.data()),
                      static_cast<UL>(plain.size()), out, len);
  });
  ASSERT_EQ(256u, signature.size());
  ASSERT_EQ(CKR_OK, f_->C_VerifyInit(session_, sha256Rsa.get(), rsa.pub));
  ASSERT_EQ(CKR_OK, f_->C_VerifyUpdate(session_, const_cast<CK_BYTE_PTR>(plain.data()),
                                       static_cast<UL>(plain.size())));
  EXPECT_EQ(CKR_OK, f_->C_VerifyFinal(session_, signature.data(), 256));

  const UL wrapped = aesKey();
  Mech cbcWrap(CKM_AES_CBC, iv_);
  const Bytes blob = queryThenFetch([&](CK_BYTE_PTR out, CK_ULONG_PTR len) {
    return f_->C_WrapKey(session_, cbcWrap.get(), key, wrapped, out, len);
  });
  ASSERT_EQ(32u, blob.size());
  ASSERT_EQ(CKR_OK, f_->C_DecryptInit(session_, cbcWrap.get(), key));
  EXPECT_EQ(value(wrapped, CKA_VALUE), queryThenFetch([&](CK_BYTE_PTR out, CK_ULONG_PTR len) {
    return f_->C_Decrypt(session_, const_cast<CK_BYTE_PTR>(blob.data()),
                         static_cast<UL>(blob.size()), out, len);
  }));
}

}  // namespace
}  // namespace qor::test
