// Token contents after a reset, the mechanism table and the shared helpers.
#include "token.h"

#include <cstring>
#include <utility>

namespace qor::tm {

std::mutex gMutex;

std::condition_variable& slotEvent() {
  static std::condition_variable c;
  return c;
}

std::unique_lock<std::mutex>*& heldLock() {
  thread_local std::unique_lock<std::mutex>* lock = nullptr;
  return lock;
}

Bytes ulongBytes(CK_ULONG v) {
  Bytes b(sizeof v);
  std::memcpy(b.data(), &v, sizeof v);
  return b;
}

Bytes pattern(size_t n, CK_BYTE seed) {
  Bytes b(n);
  for (size_t i = 0; i < n; ++i) b[i] = static_cast<CK_BYTE>(seed + i);
  return b;
}


Bytes xorWith(const CK_BYTE* p, size_t n, CK_BYTE k) {
  Bytes b(n);
  for (size_t i = 0; i < n; ++i) b[i] = p[i] ^ k;
  return b;
}

namespace {

Bytes text(const char* s) { return Bytes(s, s + std::strlen(s)); }
Bytes yes() { return {CK_TRUE}; }
Bytes no() { return {CK_FALSE}; }
Bytes u(CK_ULONG v) { return ulongBytes(v); }

const Bytes kP256 = {0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07};

Bytes ecPoint() {
  Bytes p = pattern(64, 0x40);
  p.insert(p.begin(), 0x04);
  return p;
}

// Handles 1..8; attributes every object carries come first.
void addFixedObjects(Token& t) {
  auto add = [&t](CK_OBJECT_HANDLE h, CK_OBJECT_CLASS cls, const char* label, bool isPrivate, Attributes more) {
    Object o;
    o.attrs = std::move(more);
    o.attrs[CKA_CLASS] = u(cls);
    o.attrs[CKA_TOKEN] = yes();
    o.attrs[CKA_PRIVATE] = isPrivate ? yes() : no();
    o.attrs[CKA_MODIFIABLE] = yes();
    o.attrs[CKA_LABEL] = text(label);
    t.objects[h] = std::move(o);
  };
  const Bytes modulus = pattern(256, 0x80);
  add(1, CKO_DATA, "data", false, {{CKA_APPLICATION, text("qor")}, {CKA_VALUE, text("hello")}});
  add(2, CKO_CERTIFICATE, "rsa", false,
      {{CKA_ID, {0x01}}, {CKA_CERTIFICATE_TYPE, u(CKC_X_509)}, {CKA_SUBJECT, text("CN=Qor Test")},
       {CKA_VALUE, pattern(64, 0x30)}});
  add(3, CKO_PUBLIC_KEY, "rsa", false,
      {{CKA_KEY_TYPE, u(CKK_RSA)}, {CKA_ID, {0x01}}, {CKA_MODULUS, modulus}, {CKA_MODULUS_BITS, u(2048)},
       {CKA_PUBLIC_EXPONENT, {0x01, 0x00, 0x01}}, {CKA_ENCRYPT, yes()}, {CKA_VERIFY, yes()},
       {CKA_VERIFY_RECOVER, yes()}, {CKA_WRAP, yes()}});
  add(4, CKO_PRIVATE_KEY, "rsa", true,
      {{CKA_KEY_TYPE, u(CKK_RSA)}, {CKA_ID, {0x01}}, {CKA_MODULUS, modulus}, {CKA_MODULUS_BITS, u(2048)},
       {CKA_PUBLIC_EXPONENT, {0x01, 0x00, 0x01}}, {CKA_PRIVATE_EXPONENT, pattern(256, 0x11)},
       {CKA_SENSITIVE, yes()}, {CKA_EXTRACTABLE, no()}, {CKA_DECRYPT, yes()}, {CKA_SIGN, yes()},
       {CKA_SIGN_RECOVER, yes()}, {CKA_UNWRAP, yes()}});
  add(5, CKO_SECRET_KEY, "aes", false,
      {{CKA_KEY_TYPE, u(CKK_AES)}, {CKA_ID, {0x02}}, {CKA_VALUE, pattern(16, 0x00)}, {CKA_VALUE_LEN, u(16)},
       {CKA_SENSITIVE, no()}, {CKA_EXTRACTABLE, yes()}, {CKA_ENCRYPT, yes()}, {CKA_DECRYPT, yes()},
       {CKA_WRAP, yes()}, {CKA_UNWRAP, yes()}});
  add(6, CKO_PUBLIC_KEY, "ec", false,
      {{CKA_KEY_TYPE, u(CKK_EC)}, {CKA_ID, {0x03}}, {CKA_EC_PARAMS, kP256}, {CKA_EC_POINT, ecPoint()},
       {CKA_VERIFY, yes()}});
  add(7, CKO_PRIVATE_KEY, "ec", true,
      {{CKA_KEY_TYPE, u(CKK_EC)}, {CKA_ID, {0x03}}, {CKA_EC_PARAMS, kP256}, {CKA_EC_POINT, ecPoint()},
       {CKA_VALUE, pattern(32, 0x70)},
       {CKA_SENSITIVE, yes()}, {CKA_EXTRACTABLE, no()}, {CKA_SIGN, yes()}, {CKA_DERIVE, yes()}});
  add(8, CKO_SECRET_KEY, "secret", false,
      {{CKA_KEY_TYPE, u(CKK_GENERIC_SECRET)}, {CKA_ID, {0x04}}, {CKA_VALUE, pattern(48, 0x90)},
       {CKA_VALUE_LEN, u(48)}, {CKA_SENSITIVE, no()}, {CKA_EXTRACTABLE, yes()}, {CKA_DERIVE, yes()}});
}

bool isUlongAttribute(CK_ATTRIBUTE_TYPE t) {
  switch (t) {
    case CKA_CLASS: case CKA_KEY_TYPE: case CKA_CERTIFICATE_TYPE: case CKA_CERTIFICATE_CATEGORY:
    case CKA_MODULUS_BITS: case CKA_VALUE_BITS: case CKA_VALUE_LEN: case CKA_PRIME_BITS:
    case CKA_SUBPRIME_BITS: case CKA_KEY_GEN_MECHANISM: case CKA_HW_FEATURE_TYPE: case CKA_MECHANISM_TYPE:
      return true;
    default:
      return false;
  }
}

bool isBoolAttribute(CK_ATTRIBUTE_TYPE t) {
  switch (t) {
    case CKA_TOKEN: case CKA_PRIVATE: case CKA_TRUSTED: case CKA_SENSITIVE: case CKA_ENCRYPT: case CKA_DECRYPT:
    case CKA_WRAP: case CKA_UNWRAP: case CKA_SIGN: case CKA_SIGN_RECOVER: case CKA_VERIFY:
    case CKA_VERIFY_RECOVER: case CKA_DERIVE: case CKA_EXTRACTABLE: case CKA_LOCAL: case CKA_NEVER_EXTRACTABLE:
    case CKA_ALWAYS_SENSITIVE: case CKA_MODIFIABLE: case CKA_ALWAYS_AUTHENTICATE: case CKA_WRAP_WITH_TRUSTED:
    case CKA_RESET_ON_INIT: case CKA_HAS_RESET:
      return true;
    default:
      return false;
  }
}

void fill(Token& t, bool initialized, uint64_t epoch) {
  t = Token{};
  t.epoch = epoch;
  t.initialized = initialized;
  std::memset(t.label, ' ', sizeof t.label);
  std::memcpy(t.label, "Qor Test Token", 14);
  t.soPin = text("5678");
  t.userPin = text("1234");
  addFixedObjects(t);
}

}  // namespace

Token& token() {
  static Token t;
  static const bool filled = (fill(t, false, 0), true);
  (void)filled;
  return t;
}

void resetToken(bool initialized) {
  Token& t = token();
  fill(t, initialized, t.epoch + 1);
  slotEvent().notify_all();
}

const std::vector<MechanismInfo>& mechanisms() {
  static const std::vector<MechanismInfo> table = {
      {CKM_RSA_PKCS_KEY_PAIR_GEN, 512, 8192, CKF_HW | CKF_GENERATE_KEY_PAIR, CKK_RSA},
      {CKM_RSA_PKCS, 512, 8192,
       CKF_HW | CKF_ENCRYPT | CKF_DECRYPT | CKF_SIGN | CKF_VERIFY | CKF_SIGN_RECOVER | CKF_VERIFY_RECOVER |
           CKF_WRAP | CKF_UNWRAP,
       CKK_RSA},
      {CKM_RSA_PKCS_OAEP, 512, 8192, CKF_HW | CKF_ENCRYPT | CKF_DECRYPT | CKF_WRAP | CKF_UNWRAP, CKK_RSA},
      {CKM_SHA256_RSA_PKCS, 512, 8192, CKF_HW | CKF_SIGN | CKF_VERIFY, CKK_RSA},
      {CKM_SHA256_RSA_PKCS_PSS, 512, 8192, CKF_HW | CKF_SIGN | CKF_VERIFY, CKK_RSA},
      {CKM_SHA256, 0, 0, CKF_HW | CKF_DIGEST, kAnyKey},
      {CKM_GENERIC_SECRET_KEY_GEN, 1, 4096, CKF_HW | CKF_GENERATE, kAnyKey},
      {CKM_SSL3_MASTER_KEY_DERIVE, 48, 48, CKF_HW | CKF_DERIVE, kAnyKey},
      {CKM_SSL3_KEY_AND_MAC_DERIVE, 48, 48, CKF_HW | CKF_DERIVE, kAnyKey},
      {CKM_PBE_SHA1_DES3_EDE_CBC, 24, 24, CKF_HW | CKF_GENERATE, kAnyKey},
      {CKM_KEY_WRAP_SET_OAEP, 512, 8192, CKF_HW | CKF_WRAP | CKF_UNWRAP, CKK_RSA},
      {CKM_EC_KEY_PAIR_GEN, 256, 521, CKF_HW | CKF_GENERATE_KEY_PAIR, CKK_EC},
      {CKM_ECDSA, 256, 521, CKF_HW | CKF_SIGN | CKF_VERIFY, CKK_EC},
      {CKM_ECDH1_DERIVE, 256, 521, CKF_HW | CKF_DERIVE, CKK_EC},
      {CKM_AES_KEY_GEN, 16, 32, CKF_HW | CKF_GENERATE, CKK_AES},
      {CKM_AES_CBC, 16, 32, CKF_HW | CKF_ENCRYPT | CKF_DECRYPT | CKF_WRAP | CKF_UNWRAP, CKK_AES},
  };
  return table;
}

const MechanismInfo* findMechanism(CK_MECHANISM_TYPE type) {
  for (const MechanismInfo& m : mechanisms())
    if (m.type == type) return &m;
  return nullptr;
}

const Bytes* Object::find(CK_ATTRIBUTE_TYPE t) const {
  auto it = attrs.find(t);
  return it == attrs.end() ? nullptr : &it->second;
}

CK_ULONG Object::ulong(CK_ATTRIBUTE_TYPE t, CK_ULONG otherwise) const {
  const Bytes* v = find(t);
  if (v == nullptr || v->size() != sizeof(CK_ULONG)) return otherwise;
  CK_ULONG r;
  std::memcpy(&r, v->data(), sizeof r);
  return r;
}

bool Object::flag(CK_ATTRIBUTE_TYPE t, bool otherwise) const {
  const Bytes* v = find(t);
  return v == nullptr || v->size() != 1 ? otherwise : (*v)[0] != CK_FALSE;
}

CK_BYTE keyByte(const Object& key, CK_OBJECT_HANDLE h) {
  for (CK_ATTRIBUTE_TYPE t : {CKA_MODULUS, CKA_EC_POINT, CKA_VALUE}) {
    if (const Bytes* v = key.find(t)) {
      CK_BYTE k = 0x5A;
      for (CK_BYTE b : *v) k ^= b;
      return k;
    }
  }
  return static_cast<CK_BYTE>(0x5A ^ (h & 0xFF));
}

CK_RV checkInit() { return token().initialized ? CKR_OK : CKR_CRYPTOKI_NOT_INITIALIZED; }

CK_RV checkSlot(CK_SLOT_ID slot, bool needToken) {
  if (CK_RV rv = checkInit()) return rv;
  if (slot != kTokenSlot && slot != kEmptySlot) return CKR_SLOT_ID_INVALID;
  return needToken && slot == kEmptySlot ? CKR_TOKEN_NOT_PRESENT : CKR_OK;
}

CK_RV findSession(CK_SESSION_HANDLE h, Session*& s) {
  if (CK_RV rv = checkInit()) return rv;
  auto it = token().sessions.find(h);
  if (it == token().sessions.end()) return CKR_SESSION_HANDLE_INVALID;
  s = &it->second;
  return CKR_OK;
}

bool visible(const Object& o) { return !o.flag(CKA_PRIVATE, false) || token().login == Login::User; }

CK_RV findObject(CK_OBJECT_HANDLE h, Object*& o) {
  auto it = token().objects.find(h);
  if (it == token().objects.end()) return CKR_OBJECT_HANDLE_INVALID;
  if (!visible(it->second)) return CKR_USER_NOT_LOGGED_IN;
  o = &it->second;
  return CKR_OK;
}

CK_RV findKey(CK_OBJECT_HANDLE h, const MechanismInfo& m, CK_ATTRIBUTE_TYPE use, CK_RV invalid, Object*& key) {
  CK_RV rv = findObject(h, key);
  if (rv == CKR_OBJECT_HANDLE_INVALID) return invalid;
  if (rv != CKR_OK) return rv;
  const CK_ULONG cls = key->ulong(CKA_CLASS, CKO_DATA);
  if (cls != CKO_SECRET_KEY && cls != CKO_PUBLIC_KEY && cls != CKO_PRIVATE_KEY) return invalid;
  if (m.keyType != kAnyKey && key->ulong(CKA_KEY_TYPE, kAnyKey) != m.keyType) return CKR_KEY_TYPE_INCONSISTENT;
  if (use != 0 && !key->flag(use, false)) return CKR_KEY_FUNCTION_NOT_PERMITTED;
  return CKR_OK;
}

void closeSession(CK_SESSION_HANDLE h) {
  Token& t = token();
  for (auto it = t.objects.begin(); it != t.objects.end();) it = it->second.owner == h ? t.objects.erase(it) : ++it;
  t.sessions.erase(h);
  if (t.sessions.empty()) t.login = Login::None;
}

CK_RV putBytes(const Bytes& out, CK_BYTE_PTR p, CK_ULONG_PTR pul) {
  if (pul == nullptr) return CKR_ARGUMENTS_BAD;
  const CK_ULONG need = static_cast<CK_ULONG>(out.size());
  if (p != nullptr && *pul < need) {
    *pul = need;
    return CKR_BUFFER_TOO_SMALL;
  }
  if (p != nullptr && need != 0) std::memcpy(p, out.data(), need);
  *pul = need;
  return CKR_OK;
}

CK_RV putUlongs(const std::vector<CK_ULONG>& out, CK_ULONG_PTR p, CK_ULONG_PTR pul) {
  if (pul == nullptr) return CKR_ARGUMENTS_BAD;
  const CK_ULONG need = static_cast<CK_ULONG>(out.size());
  if (p != nullptr && *pul < need) {
    *pul = need;
    return CKR_BUFFER_TOO_SMALL;
  }
  if (p != nullptr && need != 0) std::memcpy(p, out.data(), need * sizeof(CK_ULONG));
  *pul = need;
  return CKR_OK;
}

CK_RV readTemplate(const CK_ATTRIBUTE* tpl, CK_ULONG count, Attributes& out, bool checkValues) {
  if (tpl == nullptr && count != 0) return CKR_ARGUMENTS_BAD;
  for (CK_ULONG i = 0; i < count; ++i) {
    const CK_ATTRIBUTE a = tpl[i];
    if (a.pValue == nullptr && a.ulValueLen != 0) return CKR_ARGUMENTS_BAD;
    if (checkValues && ((isUlongAttribute(a.type) && a.ulValueLen != sizeof(CK_ULONG)) ||
                        (isBoolAttribute(a.type) && a.ulValueLen != 1)))
      return CKR_ATTRIBUTE_VALUE_INVALID;
    const auto* v = static_cast<const CK_BYTE*>(a.pValue);
    out[a.type] = v == nullptr ? Bytes{} : Bytes(v, v + a.ulValueLen);
  }
  return CKR_OK;
}

CK_RV addObject(CK_SESSION_HANDLE h, Attributes attrs, CK_OBJECT_HANDLE_PTR out) {
  Token& t = token();
  if (attrs.count(CKA_CLASS) == 0) return CKR_TEMPLATE_INCOMPLETE;
  attrs.emplace(CKA_TOKEN, Bytes{CK_FALSE});
  attrs.emplace(CKA_PRIVATE, Bytes{CK_FALSE});
  attrs.emplace(CKA_MODIFIABLE, Bytes{CK_TRUE});
  Object o;
  o.attrs = std::move(attrs);
  const bool onToken = o.flag(CKA_TOKEN, false);
  if (onToken && (t.sessions.at(h).flags & CKF_RW_SESSION) == 0) return CKR_SESSION_READ_ONLY;
  if (o.flag(CKA_PRIVATE, false) && t.login != Login::User) return CKR_USER_NOT_LOGGED_IN;
  o.owner = onToken ? 0 : h;
  const CK_OBJECT_HANDLE handle = t.nextObject++;
  t.objects[handle] = std::move(o);
  *out = handle;
  return CKR_OK;
}

}  // namespace qor::tm
