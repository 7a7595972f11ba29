// Key generation, wrapping and derivation. New keys get deterministic
// values; the mechanisms whose parameters carry outputs (PBE IV, SET OAEP,
// SSL3 version and key material) fill them in.
#include <algorithm>
#include <cstring>

#include "impl.h"
#include "qorpkcs11/pkcs11_params.h"
#include "token.h"

namespace qor::tm::impl {
namespace {

constexpr CK_ULONG kMaxValueLen = 4096;
const Bytes kP256 = {0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07};

Bytes yes() { return {CK_TRUE}; }
Bytes no() { return {CK_FALSE}; }

CK_ULONG ulongOf(const Attributes& a, CK_ATTRIBUTE_TYPE t, CK_ULONG otherwise) {
  Object o;
  o.attrs = a;
  return o.ulong(t, otherwise);
}

CK_RV valueLength(const Attributes& given, CK_ULONG otherwise, CK_ULONG min, CK_ULONG max, CK_ULONG& len) {
  len = ulongOf(given, CKA_VALUE_LEN, otherwise);
  return len < min || len > max || len > kMaxValueLen ? CKR_KEY_SIZE_RANGE : CKR_OK;
}

// Defaults overlaid by the caller's template; the class may not change.
CK_RV newKey(CK_SESSION_HANDLE h, const Attributes& given, Attributes attrs, CK_OBJECT_HANDLE_PTR out) {
  auto cls = given.find(CKA_CLASS);
  if (cls != given.end() && attrs.count(CKA_CLASS) != 0 && cls->second != attrs[CKA_CLASS])
    return CKR_TEMPLATE_INCONSISTENT;
  for (const auto& g : given) attrs[g.first] = g.second;
  return addObject(h, std::move(attrs), out);
}

// Keys the token makes allow every use unless the template says otherwise.
Attributes secretKey(CK_KEY_TYPE type, const Bytes& value, CK_MECHANISM_TYPE mechanism) {
  Attributes a = {{CKA_CLASS, ulongBytes(CKO_SECRET_KEY)},
                  {CKA_KEY_TYPE, ulongBytes(type)},
                  {CKA_VALUE, value},
                  {CKA_VALUE_LEN, ulongBytes(static_cast<CK_ULONG>(value.size()))},
                  {CKA_LOCAL, yes()},
                  {CKA_KEY_GEN_MECHANISM, ulongBytes(mechanism)},
                  {CKA_SENSITIVE, no()},
                  {CKA_EXTRACTABLE, yes()}};
  for (CK_ATTRIBUTE_TYPE use : {CKA_ENCRYPT, CKA_DECRYPT, CKA_SIGN, CKA_VERIFY, CKA_WRAP, CKA_UNWRAP, CKA_DERIVE})
    a[use] = yes();
  return a;
}

// The parameter as a structure of type P, when it has exactly P's size.
template <class P>
bool parameter(const CK_MECHANISM& m, P& out) {
  if (m.pParameter == nullptr || m.ulParameterLen != sizeof(P)) return false;
  std::memcpy(&out, m.pParameter, sizeof(P));
  return true;
}

bool isPbe(CK_MECHANISM_TYPE t) { return (t >= CKM_PBE_MD2_DES_CBC && t <= CKM_PBE_SHA1_RC2_40_CBC); }

CK_RV startNewKey(CK_SESSION_HANDLE h, CK_MECHANISM_PTR m, const void* out, CK_FLAGS need, const MechanismInfo*& info) {
  Session* s;
  if (CK_RV rv = findSession(h, s)) return rv;
  if (m == nullptr || out == nullptr) return CKR_ARGUMENTS_BAD;
  info = findMechanism(m->mechanism);
  return info == nullptr || (info->flags & need) == 0 ? CKR_MECHANISM_INVALID : CKR_OK;
}

// CKM_SSL3_KEY_AND_MAC_DERIVE: four keys, their handles and the IVs go into
// the caller's CK_SSL3_KEY_MAT_OUT.
CK_RV deriveKeyMaterial(CK_SESSION_HANDLE h, const CK_MECHANISM& m, const Attributes& given, CK_BYTE seed) {
  CK_SSL3_KEY_MAT_PARAMS p;
  CK_SSL3_KEY_MAT_OUT out;
  if (!parameter(m, p) || !peek(p.pReturnedKeyMaterial, &out, sizeof out)) return CKR_MECHANISM_PARAM_INVALID;
  const CK_ULONG macLen = p.ulMacSizeInBits / 8, keyLen = p.ulKeySizeInBits / 8, ivLen = p.ulIVSizeInBits / 8;
  if (macLen > kMaxValueLen || keyLen > kMaxValueLen || ivLen > kMaxValueLen) return CKR_MECHANISM_PARAM_INVALID;
  CK_OBJECT_HANDLE handles[4];
  for (int i = 0; i < 4; ++i) {
    const bool mac = i < 2;
    Attributes attrs = secretKey(CKK_GENERIC_SECRET, pattern(mac ? macLen : keyLen, static_cast<CK_BYTE>(seed + 16 * i)),
                                 m.mechanism);
    CK_RV rv = newKey(h, mac ? Attributes{} : given, std::move(attrs), &handles[i]);
    if (rv != CKR_OK) {
      while (i > 0) token().objects.erase(handles[--i]);
      return rv;
    }
  }
  out.hClientMacSecret = handles[0];
  out.hServerMacSecret = handles[1];
  out.hClientKey = handles[2];
  out.hServerKey = handles[3];
  if (out.pIVClient != nullptr && ivLen != 0) poke(out.pIVClient, pattern(ivLen, 0xC0).data(), ivLen);
  if (out.pIVServer != nullptr && ivLen != 0) poke(out.pIVServer, pattern(ivLen, 0xD0).data(), ivLen);
  poke(p.pReturnedKeyMaterial, &out, sizeof out);
  return CKR_OK;
}

}  // namespace

CK_RV C_GenerateKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_ATTRIBUTE_PTR pTemplate,
                    CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phKey) {
  const MechanismInfo* m;
  if (CK_RV rv = startNewKey(hSession, pMechanism, phKey, CKF_GENERATE, m)) return rv;
  Attributes given;
  if (CK_RV rv = readTemplate(pTemplate, ulCount, given)) return rv;
  const bool pbe = isPbe(m->type);
  CK_ULONG len;
  if (CK_RV rv = valueLength(given, pbe ? 24 : 16, m->minKey, m->maxKey, len)) return rv;
  const CK_KEY_TYPE type = m->type == CKM_AES_KEY_GEN ? CKK_AES : pbe ? CKK_DES3 : CKK_GENERIC_SECRET;
  const CK_BYTE seed = static_cast<CK_BYTE>(token().nextObject);
  if (CK_RV rv = newKey(hSession, given, secretKey(type, pattern(len, seed), m->type), phKey)) return rv;
  CK_PBE_PARAMS p;
  if (pbe && parameter(*pMechanism, p) && p.pInitVector != nullptr) poke(p.pInitVector, pattern(8, 0xB0).data(), 8);
  return CKR_OK;
}

CK_RV C_GenerateKeyPair(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_ATTRIBUTE_PTR pPublicKeyTemplate,
                        CK_ULONG ulPublicKeyAttributeCount, CK_ATTRIBUTE_PTR pPrivateKeyTemplate,
                        CK_ULONG ulPrivateKeyAttributeCount, CK_OBJECT_HANDLE_PTR phPublicKey,
                        CK_OBJECT_HANDLE_PTR phPrivateKey) {
  const MechanismInfo* m;
  if (CK_RV rv = startNewKey(hSession, pMechanism, phPublicKey, CKF_GENERATE_KEY_PAIR, m)) return rv;
  if (phPrivateKey == nullptr) return CKR_ARGUMENTS_BAD;
  Attributes pub, priv;
  if (CK_RV rv = readTemplate(pPublicKeyTemplate, ulPublicKeyAttributeCount, pub)) return rv;
  if (CK_RV rv = readTemplate(pPrivateKeyTemplate, ulPrivateKeyAttributeCount, priv)) return rv;
  const CK_BYTE seed = static_cast<CK_BYTE>(token().nextObject);
  Attributes pubKey = {{CKA_CLASS, ulongBytes(CKO_PUBLIC_KEY)}, {CKA_KEY_TYPE, ulongBytes(m->keyType)},
                       {CKA_LOCAL, yes()}, {CKA_KEY_GEN_MECHANISM, ulongBytes(m->type)}, {CKA_VERIFY, yes()}};
  Attributes privKey = {{CKA_CLASS, ulongBytes(CKO_PRIVATE_KEY)}, {CKA_KEY_TYPE, ulongBytes(m->keyType)},
                        {CKA_LOCAL, yes()}, {CKA_KEY_GEN_MECHANISM, ulongBytes(m->type)}, {CKA_SIGN, yes()},
                        {CKA_PRIVATE, yes()}, {CKA_SENSITIVE, yes()}, {CKA_EXTRACTABLE, no()}};
  if (m->keyType == CKK_RSA) {
    const CK_ULONG bits = ulongOf(pub, CKA_MODULUS_BITS, 2048);
    if (bits < m->minKey || bits > m->maxKey) return CKR_KEY_SIZE_RANGE;
    Bytes modulus = pattern(bits / 8, seed);
    modulus[0] |= 0x80;
    const Bytes exponent = pub.count(CKA_PUBLIC_EXPONENT) != 0 ? pub[CKA_PUBLIC_EXPONENT] : Bytes{0x01, 0x00, 0x01};
    for (Attributes* a : {&pubKey, &privKey}) {
      (*a)[CKA_MODULUS] = modulus;
      (*a)[CKA_MODULUS_BITS] = ulongBytes(bits);
      (*a)[CKA_PUBLIC_EXPONENT] = exponent;
    }
    pubKey[CKA_ENCRYPT] = pubKey[CKA_VERIFY_RECOVER] = pubKey[CKA_WRAP] = yes();
    privKey[CKA_PRIVATE_EXPONENT] = pattern(bits / 8, 0x11);
    privKey[CKA_DECRYPT] = privKey[CKA_SIGN_RECOVER] = privKey[CKA_UNWRAP] = yes();
  } else {
    const Bytes params = pub.count(CKA_EC_PARAMS) != 0 ? pub[CKA_EC_PARAMS] : kP256;
    pubKey[CKA_EC_PARAMS] = privKey[CKA_EC_PARAMS] = params;
    Bytes point = pattern(65, seed);
    point[0] = 0x04;
    pubKey[CKA_EC_POINT] = privKey[CKA_EC_POINT] = point;
    privKey[CKA_VALUE] = pattern(32, static_cast<CK_BYTE>(seed + 0x40));
    privKey[CKA_DERIVE] = yes();
  }
  if (CK_RV rv = newKey(hSession, pub, std::move(pubKey), phPublicKey)) return rv;
  if (CK_RV rv = newKey(hSession, priv, std::move(privKey), phPrivateKey)) {
    token().objects.erase(*phPublicKey);
    *phPublicKey = CK_INVALID_HANDLE;
    return rv;
  }
  return CKR_OK;
}

CK_RV C_WrapKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hWrappingKey,
                CK_OBJECT_HANDLE hKey, CK_BYTE_PTR pWrappedKey, CK_ULONG_PTR pulWrappedKeyLen) {
  const MechanismInfo* m;
  if (CK_RV rv = startNewKey(hSession, pMechanism, pulWrappedKeyLen, CKF_WRAP, m)) return rv;
  Object *wrapping, *key;
  if (CK_RV rv = findKey(hWrappingKey, *m, CKA_WRAP, CKR_WRAPPING_KEY_HANDLE_INVALID, wrapping)) return rv;
  if (findObject(hKey, key) != CKR_OK) return CKR_KEY_HANDLE_INVALID;
  const Bytes* value = key->find(CKA_VALUE);
  if (value == nullptr || key->ulong(CKA_CLASS, CKO_DATA) != CKO_SECRET_KEY) return CKR_KEY_NOT_WRAPPABLE;
  if (!key->flag(CKA_EXTRACTABLE, true)) return CKR_KEY_UNEXTRACTABLE;
  return putBytes(xorWith(value->data(), value->size(), keyByte(*wrapping, hWrappingKey)), pWrappedKey, pulWrappedKeyLen);
}

CK_RV C_UnwrapKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hUnwrappingKey,
                  CK_BYTE_PTR pWrappedKey, CK_ULONG ulWrappedKeyLen, CK_ATTRIBUTE_PTR pTemplate,
                  CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey) {
  const MechanismInfo* m;
  if (CK_RV rv = startNewKey(hSession, pMechanism, phKey, CKF_UNWRAP, m)) return rv;
  if (pWrappedKey == nullptr) return CKR_ARGUMENTS_BAD;
  Object* unwrapping;
  if (CK_RV rv = findKey(hUnwrappingKey, *m, CKA_UNWRAP, CKR_UNWRAPPING_KEY_HANDLE_INVALID, unwrapping)) return rv;
  if (ulWrappedKeyLen == 0 || ulWrappedKeyLen > kMaxValueLen) return CKR_WRAPPED_KEY_LEN_RANGE;
  Attributes given;
  if (CK_RV rv = readTemplate(pTemplate, ulAttributeCount, given)) return rv;
  const Bytes value = xorWith(pWrappedKey, ulWrappedKeyLen, keyByte(*unwrapping, hUnwrappingKey));
  Attributes attrs = secretKey(CKK_GENERIC_SECRET, value, m->type);
  attrs[CKA_LOCAL] = no();
  if (CK_RV rv = newKey(hSession, given, std::move(attrs), phKey)) return rv;
  // SET OAEP hands back the block contents byte and the extra data X.
  CK_KEY_WRAP_SET_OAEP_PARAMS p;
  if (m->type == CKM_KEY_WRAP_SET_OAEP && parameter(*pMechanism, p)) {
    p.bBC = 0x5B;
    if (p.pX == nullptr) {
      p.ulXLen = 8;
    } else {
      const CK_ULONG asked = p.ulXLen;  // a copy: std::min binds references
      p.ulXLen = std::min<CK_ULONG>(asked, 8);
      poke(p.pX, pattern(p.ulXLen, 0xA0).data(), p.ulXLen);
    }
    std::memcpy(pMechanism->pParameter, &p, sizeof p);
  }
  return CKR_OK;
}

CK_RV C_DeriveKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hBaseKey,
                  CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey) {
  const bool keyMaterial = pMechanism != nullptr && pMechanism->mechanism == CKM_SSL3_KEY_AND_MAC_DERIVE;
  const MechanismInfo* m;
  // Key-and-MAC derivation returns its keys in the parameter, not in phKey.
  if (CK_RV rv = startNewKey(hSession, pMechanism, keyMaterial ? static_cast<const void*>(pMechanism) : phKey, CKF_DERIVE, m)) return rv;
  Object* base;
  if (CK_RV rv = findKey(hBaseKey, *m, CKA_DERIVE, CKR_KEY_HANDLE_INVALID, base)) return rv;
  Attributes given;
  if (CK_RV rv = readTemplate(pTemplate, ulAttributeCount, given)) return rv;
  const CK_BYTE seed = keyByte(*base, hBaseKey);
  if (keyMaterial) {
    if (CK_RV rv = deriveKeyMaterial(hSession, *pMechanism, given, seed)) return rv;
    if (phKey != nullptr) *phKey = CK_INVALID_HANDLE;
    return CKR_OK;
  }
  const bool master = m->type == CKM_SSL3_MASTER_KEY_DERIVE;
  CK_ULONG len;
  if (CK_RV rv = valueLength(given, master ? 48 : 16, master ? 48 : 1, kMaxValueLen, len)) return rv;
  Attributes attrs = secretKey(CKK_GENERIC_SECRET, pattern(len, seed), m->type);
  attrs[CKA_LOCAL] = no();
  if (CK_RV rv = newKey(hSession, given, std::move(attrs), phKey)) return rv;
  CK_SSL3_MASTER_KEY_DERIVE_PARAMS p;
  const CK_VERSION version = {3, 0};
  if (master && parameter(*pMechanism, p) && p.pVersion != nullptr) poke(p.pVersion, &version, sizeof version);
  return CKR_OK;
}

}  // namespace qor::tm::impl
