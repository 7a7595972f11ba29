// Objects and attributes, both ways: CK_ULONG values, arrays and nested
// templates change size on the way; bytes do not.
#include <set>

#include "token.h"

namespace qor::test {
namespace {

template <class Via>
class ObjectsTest : public TokenTest<Via> {
 protected:
  using UL = typename TokenTest<Via>::UL;
  using Template = typename TokenTest<Via>::Template;

  UL dataObject(const std::string& label, const std::string& value = "hello") {
    Template t;
    t.ulong(CKA_CLASS, CKO_DATA).flag(CKA_TOKEN, false).text(CKA_LABEL, label);
    t.text(CKA_APPLICATION, "qor").text(CKA_VALUE, value);
    UL h = 0;
    EXPECT_EQ(CKR_OK, this->f_->C_CreateObject(this->session_, t.data(), t.count(), &h));
    return h;
  }

  std::vector<UL> find(Template& t, UL chunk = 16) {
    EXPECT_EQ(CKR_OK, this->f_->C_FindObjectsInit(this->session_, t.data(), t.count()));
    std::vector<UL> all;
    for (;;) {
      std::vector<UL> some(chunk + 1, 0xAB);
      UL n = 0xAB;
      EXPECT_EQ(CKR_OK, this->f_->C_FindObjects(this->session_, some.data(), chunk, &n));
      EXPECT_LE(n, chunk);
      EXPECT_EQ(0xABu, some[chunk]);
      if (n == 0 || n > chunk) break;
      all.insert(all.end(), some.begin(), some.begin() + n);
    }
    EXPECT_EQ(CKR_OK, this->f_->C_FindObjectsFinal(this->session_));
    return all;
  }

  std::vector<UL> dataObjects(const std::string& label) {
    Template t;
    t.ulong(CKA_CLASS, CKO_DATA).text(CKA_LABEL, label);
    return find(t);
  }
};
TYPED_TEST_SUITE(ObjectsTest, BothWays);

TYPED_TEST(ObjectsTest, CreateFindReadSetCopyDestroy) {
  using UL = typename TestFixture::UL;
  auto* f = this->f_;
  const UL h = this->dataObject("note");
  ASSERT_EQ(std::vector<UL>{h}, this->dataObjects("note"));

  typename TestFixture::Template t;
  t.room(CKA_CLASS, sizeof(UL)).query(CKA_LABEL).room(CKA_VALUE, 64);
  ASSERT_EQ(CKR_OK, f->C_GetAttributeValue(this->session_, h, t.data(), t.count()));
  EXPECT_EQ(sizeof(UL), t.length(0));
  EXPECT_EQ(CKO_DATA, t.ulongAt(0));
  EXPECT_EQ(4u, t.length(1));
  EXPECT_EQ(bytesOf("hello"), t.bytesAt(2));

  UL size = 0;
  EXPECT_EQ(CKR_OK, f->C_GetObjectSize(this->session_, h, &size));
  EXPECT_EQ(TestFixture::kUnavailable, size) << "SoftHSM does not tell object sizes";

  typename TestFixture::Template rename;
  rename.text(CKA_LABEL, "renamed");
  ASSERT_EQ(CKR_OK, f->C_SetAttributeValue(this->session_, h, rename.data(), 1));
  EXPECT_EQ(bytesOf("renamed"), this->value(h, CKA_LABEL));

  typename TestFixture::Template copyLabel;
  copyLabel.text(CKA_LABEL, "renamed");
  UL copy = 0;
  ASSERT_EQ(CKR_OK, f->C_CopyObject(this->session_, h, copyLabel.data(), 1, &copy));
  EXPECT_NE(h, copy);
  EXPECT_EQ(2u, this->dataObjects("renamed").size());
  ASSERT_EQ(CKR_OK, f->C_DestroyObject(this->session_, h));
  EXPECT_EQ(std::vector<UL>{copy}, this->dataObjects("renamed"));
  EXPECT_EQ(CKR_OBJECT_HANDLE_INVALID, f->C_DestroyObject(this->session_, h));
}

TYPED_TEST(ObjectsTest, FoundObjectsComeInChunks) {
  for (int i = 0; i < 5; ++i) this->dataObject("chunk");
  typename TestFixture::Template t;
  t.text(CKA_LABEL, "chunk");
  const auto found = this->find(t, 2);
  EXPECT_EQ(5u, found.size());
  EXPECT_EQ(5u, std::set<typename TestFixture::UL>(found.begin(), found.end()).size());
}

TYPED_TEST(ObjectsTest, UnavailableValuesAreMarkedPerAttribute) {
  typename TestFixture::Template key;
  key.ulong(CKA_CLASS, CKO_SECRET_KEY).ulong(CKA_KEY_TYPE, CKK_AES).ulong(CKA_VALUE_LEN, 16);
  key.flag(CKA_SENSITIVE, true).flag(CKA_EXTRACTABLE, false).flag(CKA_ENCRYPT, true);
  const auto h = this->generate(CKM_AES_KEY_GEN, key);

  using UL = typename TestFixture::UL;
  typename TestFixture::Template t;
  t.room(CKA_VALUE, 32).room(CKA_VALUE_LEN, sizeof(UL)).room(CKA_KEY_TYPE, sizeof(UL));
  t.room(CKA_VENDOR_DEFINED + 0x7777, 8).room(CKA_CLASS, 2).room(CKA_KEY_GEN_MECHANISM, 2 * sizeof(UL));
  const auto rv = this->f_->C_GetAttributeValue(this->session_, h, t.data(), t.count());
  EXPECT_TRUE(rv == CKR_ATTRIBUTE_SENSITIVE || rv == CKR_ATTRIBUTE_TYPE_INVALID ||
              rv == CKR_BUFFER_TOO_SMALL)
      << rv;
  EXPECT_EQ(TestFixture::kUnavailable, t.length(0)) << "sensitive";
  EXPECT_EQ(sizeof(UL), t.length(1));
  EXPECT_EQ(16u, t.ulongAt(1));
  EXPECT_EQ(CKK_AES, t.ulongAt(2));
  EXPECT_EQ(TestFixture::kUnavailable, t.length(3)) << "no such attribute";
  EXPECT_EQ(TestFixture::kUnavailable, t.length(4)) << "no room for a CK_ULONG";
  EXPECT_EQ(sizeof(UL), t.length(5)) << "more room than needed";
  EXPECT_EQ(CKM_AES_KEY_GEN, t.ulongAt(5));
}

TYPED_TEST(ObjectsTest, UlongValuesOfTheWrongSizeAreRefused) {
  using UL = typename TestFixture::UL;
  typename TestFixture::Template t;
  t.ulong(CKA_CLASS, CKO_DATA).flag(CKA_TOKEN, false);
  t[0].ulValueLen = sizeof(UL) - 1;
  UL h = 0;
  EXPECT_EQ(CKR_ATTRIBUTE_VALUE_INVALID,
            this->f_->C_CreateObject(this->session_, t.data(), t.count(), &h));
  EXPECT_EQ(0u, h);
}

TYPED_TEST(ObjectsTest, AllowedMechanismsAreAnArray) {
  using UL = typename TestFixture::UL;
  typename TestFixture::Template key;
  key.ulong(CKA_CLASS, CKO_SECRET_KEY).ulong(CKA_KEY_TYPE, CKK_AES).ulong(CKA_VALUE_LEN, 32);
  key.flag(CKA_ENCRYPT, true).ulongs(CKA_ALLOWED_MECHANISMS, {CKM_AES_CBC_PAD, CKM_AES_GCM});
  const UL h = this->generate(CKM_AES_KEY_GEN, key);

  typename TestFixture::Template q;
  q.query(CKA_ALLOWED_MECHANISMS);
  ASSERT_EQ(CKR_OK, this->f_->C_GetAttributeValue(this->session_, h, q.data(), 1));
  ASSERT_EQ(2 * sizeof(UL), q.length(0));
  typename TestFixture::Template t;
  t.room(CKA_ALLOWED_MECHANISMS, 3 * sizeof(UL));
  ASSERT_EQ(CKR_OK, this->f_->C_GetAttributeValue(this->session_, h, t.data(), 1));
  ASSERT_EQ(2 * sizeof(UL), t.length(0));
  EXPECT_EQ(CKM_AES_CBC_PAD, t.ulongAt(0, 0));
  EXPECT_EQ(CKM_AES_GCM, t.ulongAt(0, 1));

  Bytes iv(16, 1);
  typename TestFixture::Mech ecb(CKM_AES_ECB), cbc(CKM_AES_CBC_PAD, iv);
  EXPECT_EQ(CKR_MECHANISM_INVALID, this->f_->C_EncryptInit(this->session_, ecb.get(), h));
  EXPECT_EQ(CKR_OK, this->f_->C_EncryptInit(this->session_, cbc.get(), h));
}

TYPED_TEST(ObjectsTest, WrapTemplateIsANestedTemplate) {
  using UL = typename TestFixture::UL;
  using Attribute = typename TestFixture::A::CK_ATTRIBUTE;
  typename TestFixture::Template inner, key;
  inner.ulong(CKA_KEY_TYPE, CKK_AES).flag(CKA_EXTRACTABLE, true);
  key.ulong(CKA_CLASS, CKO_SECRET_KEY).ulong(CKA_KEY_TYPE, CKK_AES).ulong(CKA_VALUE_LEN, 32);
  key.flag(CKA_WRAP, true).nested(CKA_WRAP_TEMPLATE, inner);
  const UL h = this->generate(CKM_AES_KEY_GEN, key);

  // Three rounds, as the standard reads a template: the count, each value's
  // length, then the values.
  typename TestFixture::Template q;
  q.query(CKA_WRAP_TEMPLATE);
  ASSERT_EQ(CKR_OK, this->f_->C_GetAttributeValue(this->session_, h, q.data(), 1));
  ASSERT_EQ(2 * sizeof(Attribute), q.length(0));

  typename TestFixture::Template lengths, outer;
  lengths.query(CKA_KEY_TYPE).query(CKA_EXTRACTABLE);
  outer.nested(CKA_WRAP_TEMPLATE, lengths);
  ASSERT_EQ(CKR_OK, this->f_->C_GetAttributeValue(this->session_, h, outer.data(), 1));
  EXPECT_EQ(2 * sizeof(Attribute), outer.length(0));
  EXPECT_EQ(sizeof(UL), lengths.length(0));
  EXPECT_EQ(1u, lengths.length(1));

  typename TestFixture::Template values, full;
  values.room(CKA_KEY_TYPE, sizeof(UL)).room(CKA_EXTRACTABLE, 1);
  full.nested(CKA_WRAP_TEMPLATE, values);
  ASSERT_EQ(CKR_OK, this->f_->C_GetAttributeValue(this->session_, h, full.data(), 1));
  EXPECT_EQ(CKK_AES, values.ulongAt(0));
  EXPECT_EQ(Bytes{CK_TRUE}, values.bytesAt(1));
}

}  // namespace
}  // namespace qor::test
