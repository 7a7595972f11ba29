// A real SoftHSM2 token for each test, reached through a translation module,
// with the helpers the token tests share. Everything is a template over the
// caller's ABI, so one test body runs through the bridge alone (project
// ABI) and through the front in front of the bridge (platform ABI): both
// translations, there and back, without any remoting.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <limits>
#include <string>
#include <vector>

#include "../proto/wire_format.h"
#include "abi.h"
#include "softhsm_token.h"

namespace qor::test {

using Bytes = std::vector<unsigned char>;

inline Bytes bytesOf(const std::string& s) { return Bytes(s.begin(), s.end()); }
inline std::string hex(const Bytes& b) { return wire::hex(std::string(b.begin(), b.end())); }

// libqorbridge.so, project ABI, in front of SoftHSM2.
struct ViaBridge {
  using Abi = abi::Target;
  static Abi::CK_FUNCTION_LIST* open();
};

// libqorfront.so, platform ABI, in front of libqorbridge.so.
struct ViaFront {
  using Abi = abi::Host;
  static Abi::CK_FUNCTION_LIST* open();
};

// A template built in the caller's ABI, owning its values.
template <class A>
class Attributes {
 public:
  using UL = typename A::CK_ULONG;
  using Attribute = typename A::CK_ATTRIBUTE;

  Attributes& ulong(UL type, UL v) { return add(type, &v, sizeof v); }
  Attributes& ulongs(UL type, const std::vector<UL>& v) {
    return add(type, v.data(), v.size() * sizeof(UL));
  }
  Attributes& flag(UL type, bool v) {
    const unsigned char b = v ? CK_TRUE : CK_FALSE;
    return add(type, &b, 1);
  }
  Attributes& bytes(UL type, const Bytes& v) { return add(type, v.data(), v.size()); }
  Attributes& text(UL type, const std::string& v) { return bytes(type, bytesOf(v)); }
  // Room for the callee to fill (`n` bytes), or a size query (no buffer).
  Attributes& room(UL type, size_t n) {
    Bytes zero(n);
    return add(type, zero.data(), n);
  }
  Attributes& query(UL type) { return add(type, nullptr, 0); }
  // A nested template; `inner` must outlive this one.
  Attributes& nested(UL type, Attributes& inner) {
    attrs_.push_back({});
    set(attrs_.back(), type, inner.data(), inner.count() * sizeof(Attribute));
    return *this;
  }

  Attribute* data() { return attrs_.data(); }
  UL count() const { return static_cast<UL>(attrs_.size()); }
  Attribute& operator[](size_t i) { return attrs_[i]; }

  UL length(size_t i) const { return attrs_[i].ulValueLen; }
  UL ulongAt(size_t i, size_t k = 0) const {
    UL v;
    std::memcpy(&v, static_cast<const unsigned char*>(attrs_[i].pValue) + k * sizeof v, sizeof v);
    return v;
  }
  Bytes bytesAt(size_t i) const {
    const auto* p = static_cast<const unsigned char*>(attrs_[i].pValue);
    return Bytes(p, p + attrs_[i].ulValueLen);
  }

 private:
  Attributes& add(UL type, const void* v, size_t n) {
    values_.emplace_back(static_cast<const unsigned char*>(v),
                         static_cast<const unsigned char*>(v) + (v ? n : 0));
    attrs_.push_back({});
    set(attrs_.back(), type, v ? values_.back().data() : nullptr, n);
    return *this;
  }
  static void set(Attribute& a, UL type, void* value, size_t n) {
    a.type = type;
    a.pValue = value;
    a.ulValueLen = static_cast<UL>(n);
  }

  std::deque<Bytes> values_;
  std::vector<Attribute> attrs_;
};

// A mechanism in the caller's ABI with a copy of its parameter block.
template <class A>
class Mechanism {
 public:
  using UL = typename A::CK_ULONG;

  explicit Mechanism(UL type) { m_.mechanism = type; }
  template <class P>
  Mechanism(UL type, const P& param) : Mechanism(type) {
    const auto* p = reinterpret_cast<const unsigned char*>(&param);
    param_.assign(p, p + sizeof param);
  }
  Mechanism(UL type, const Bytes& param) : Mechanism(type) { param_ = param; }

  typename A::CK_MECHANISM* get() {
    m_.pParameter = param_.empty() ? nullptr : param_.data();
    m_.ulParameterLen = static_cast<UL>(param_.size());
    return &m_;
  }

 private:
  typename A::CK_MECHANISM m_{};
  Bytes param_;
};

// A logged-in read/write session on the "test" token.
template <class Via>
class TokenTest : public ::testing::Test {
 protected:
  using A = typename Via::Abi;
  using UL = typename A::CK_ULONG;
  using Template = Attributes<A>;
  using Mech = Mechanism<A>;
  static constexpr UL kUnavailable = std::numeric_limits<UL>::max();

  void SetUp() override {
    ASSERT_TRUE(token_.ok()) << token_.error();
    f_ = Via::open();
    ASSERT_NE(nullptr, f_);
    ASSERT_EQ(CKR_OK, f_->C_Initialize(nullptr));
    slot_ = findSlot();
    ASSERT_NE(kUnavailable, slot_) << "no token labelled test";
    ASSERT_EQ(CKR_OK, f_->C_OpenSession(slot_, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr,
                                        nullptr, &session_));
    ASSERT_EQ(CKR_OK, login(CKU_USER, "1234"));
  }

  void TearDown() override {
    if (f_) f_->C_Finalize(nullptr);
  }

  typename A::CK_RV login(UL who, const std::string& pin) {
    Bytes p = bytesOf(pin);
    return f_->C_Login(session_, who, p.data(), static_cast<UL>(p.size()));
  }

  UL findSlot() {
    UL n = 0;
    EXPECT_EQ(CKR_OK, f_->C_GetSlotList(CK_TRUE, nullptr, &n));
    std::vector<UL> slots(n);
    EXPECT_EQ(CKR_OK, f_->C_GetSlotList(CK_TRUE, slots.data(), &n));
    for (UL i = 0; i < n; ++i) {
      typename A::CK_TOKEN_INFO info{};
      if (f_->C_GetTokenInfo(slots[i], &info) != CKR_OK) continue;
      if (std::memcmp(info.label, "test ", 5) == 0) return slots[i];
    }
    return kUnavailable;
  }

  // Calls fn(buffer, &length) for the size, then for the bytes.
  template <class Fn>
  Bytes sized(Fn fn) {
    UL len = 0;
    EXPECT_EQ(CKR_OK, fn(nullptr, &len));
    Bytes out(len);
    EXPECT_EQ(CKR_OK, fn(out.data(), &len));
    EXPECT_LE(len, out.size());
    out.resize(len);
    return out;
  }

  UL generate(UL mechanism, Template& t) {
    UL key = 0;
    Mech m(mechanism);
    EXPECT_EQ(CKR_OK, f_->C_GenerateKey(session_, m.get(), t.data(), t.count(), &key));
    return key;
  }

  // A session AES-256 key that can do everything and be read.
  UL aesKey() {
    Template t;
    t.ulong(CKA_CLASS, CKO_SECRET_KEY).ulong(CKA_KEY_TYPE, CKK_AES).ulong(CKA_VALUE_LEN, 32);
    for (UL a : {CKA_ENCRYPT, CKA_DECRYPT, CKA_WRAP, CKA_UNWRAP, CKA_DERIVE, CKA_EXTRACTABLE}) {
      t.flag(a, true);
    }
    t.flag(CKA_SENSITIVE, false);
    return generate(CKM_AES_KEY_GEN, t);
  }

  struct KeyPair {
    UL pub = 0, priv = 0;
  };

  KeyPair pair(UL mechanism, Template& pub, Template& priv) {
    KeyPair k;
    Mech m(mechanism);
    EXPECT_EQ(CKR_OK, f_->C_GenerateKeyPair(session_, m.get(), pub.data(), pub.count(),
                                            priv.data(), priv.count(), &k.pub, &k.priv));
    return k;
  }

  KeyPair rsaKeys() {
    Template pub, priv;
    pub.ulong(CKA_MODULUS_BITS, 2048).bytes(CKA_PUBLIC_EXPONENT, {1, 0, 1});
    for (UL a : {CKA_ENCRYPT, CKA_VERIFY, CKA_WRAP}) pub.flag(a, true);
    for (UL a : {CKA_DECRYPT, CKA_SIGN, CKA_UNWRAP}) priv.flag(a, true);
    return pair(CKM_RSA_PKCS_KEY_PAIR_GEN, pub, priv);
  }

  KeyPair ecKeys() {
    Template pub, priv;
    pub.bytes(CKA_EC_PARAMS, kP256).flag(CKA_VERIFY, true);
    priv.flag(CKA_SIGN, true).flag(CKA_DERIVE, true);
    return pair(CKM_EC_KEY_PAIR_GEN, pub, priv);
  }

  Bytes value(UL object, UL type) {
    Template t;
    t.query(type);
    EXPECT_EQ(CKR_OK, f_->C_GetAttributeValue(session_, object, t.data(), 1));
    Template v;
    v.room(type, t.length(0));
    EXPECT_EQ(CKR_OK, f_->C_GetAttributeValue(session_, object, v.data(), 1));
    return v.bytesAt(0);
  }

  // The named curve P-256, DER-encoded.
  inline static const Bytes kP256 = {0x06, 0x08, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07};

  SoftHsmToken token_;
  typename A::CK_FUNCTION_LIST* f_ = nullptr;
  UL slot_ = 0;
  UL session_ = 0;
};

using BothWays = ::testing::Types<ViaBridge, ViaFront>;

}  // namespace qor::test
