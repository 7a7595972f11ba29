#include "qorpkcs11/protocol/parameters.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "qorpkcs11/common/sizes.h"

namespace qor::protocol {
namespace {

constexpr int8_t kTop = -1;
constexpr Flow kIn = Flow::kIn;
constexpr Flow kOut = Flow::kOut;
constexpr Flow kInOut = Flow::kInOut;

// A block of the structure whose length is a member of it.
#define QOR_BYTES(T, p, len) {kTop, offsetof(T, p), Sized::kUlongAt, offsetof(T, len), kIn}
// The same inside an inline member structure (the random data of SSL3,
// TLS and WTLS derivations).
#define QOR_INNER_BYTES(T, inner, I, p, len) \
  {kTop, offsetof(T, inner) + offsetof(I, p), Sized::kUlongAt, offsetof(T, inner) + offsetof(I, len), kIn}

// Every pointer and every count a row names lies inside its holder, a
// holder comes before what it holds, and a count behind a pointer is a
// CK_ULONG block: both ends then read and write only inside their blocks.
constexpr bool inside(const Member* m, size_t count, size_t size) {
  for (size_t i = 0; i < count; ++i) {
    const int8_t w = m[i].within;
    if (w >= static_cast<int>(i) || (w >= 0 && m[w].sized != Sized::kFixed)) return false;
    const size_t holder = w < 0 ? size : m[w].arg;
    if (m[i].pointer + sizeof(void*) > holder) return false;
    switch (m[i].sized) {
      case Sized::kUlongAt:
      case Sized::kBitsAt:
        if (m[i].arg + sizeof(CK_ULONG) > size) return false;
        break;
      case Sized::kUlongIn:
        if (m[i].arg >= i || m[m[i].arg].sized != Sized::kFixed || m[m[i].arg].arg < sizeof(CK_ULONG))
          return false;
        break;
      case Sized::kFixed:
        break;
    }
  }
  return count <= 32;  // the absent members' bit set
}

#define QOR_LAYOUT(T, ...)                                                                   \
  constexpr Member k##T[] = {__VA_ARGS__};                                                     \
  static_assert(inside(k##T, std::size(k##T), sizeof(T)), #T ": a member outside its holder"); \
  constexpr Layout kLayout##T{#T, sizeof(T), k##T, static_cast<uint8_t>(std::size(k##T))};

QOR_LAYOUT(CK_RSA_PKCS_OAEP_PARAMS, QOR_BYTES(CK_RSA_PKCS_OAEP_PARAMS, pSourceData, ulSourceDataLen))
QOR_LAYOUT(CK_ECDH1_DERIVE_PARAMS, QOR_BYTES(CK_ECDH1_DERIVE_PARAMS, pSharedData, ulSharedDataLen),
           QOR_BYTES(CK_ECDH1_DERIVE_PARAMS, pPublicData, ulPublicDataLen))
QOR_LAYOUT(CK_ECMQV_DERIVE_PARAMS, QOR_BYTES(CK_ECMQV_DERIVE_PARAMS, pSharedData, ulSharedDataLen),
           QOR_BYTES(CK_ECMQV_DERIVE_PARAMS, pPublicData, ulPublicDataLen),
           QOR_BYTES(CK_ECMQV_DERIVE_PARAMS, pPublicData2, ulPublicDataLen2))
QOR_LAYOUT(CK_X9_42_DH1_DERIVE_PARAMS, QOR_BYTES(CK_X9_42_DH1_DERIVE_PARAMS, pOtherInfo, ulOtherInfoLen),
           QOR_BYTES(CK_X9_42_DH1_DERIVE_PARAMS, pPublicData, ulPublicDataLen))
QOR_LAYOUT(CK_X9_42_DH2_DERIVE_PARAMS, QOR_BYTES(CK_X9_42_DH2_DERIVE_PARAMS, pOtherInfo, ulOtherInfoLen),
           QOR_BYTES(CK_X9_42_DH2_DERIVE_PARAMS, pPublicData, ulPublicDataLen),
           QOR_BYTES(CK_X9_42_DH2_DERIVE_PARAMS, pPublicData2, ulPublicDataLen2))
QOR_LAYOUT(CK_X9_42_MQV_DERIVE_PARAMS, QOR_BYTES(CK_X9_42_MQV_DERIVE_PARAMS, pOtherInfo, ulOtherInfoLen),
           QOR_BYTES(CK_X9_42_MQV_DERIVE_PARAMS, pPublicData, ulPublicDataLen),
           QOR_BYTES(CK_X9_42_MQV_DERIVE_PARAMS, pPublicData2, ulPublicDataLen2))
QOR_LAYOUT(CK_KEA_DERIVE_PARAMS, QOR_BYTES(CK_KEA_DERIVE_PARAMS, pRandomA, ulRandomLen),
           QOR_BYTES(CK_KEA_DERIVE_PARAMS, pRandomB, ulRandomLen),
           QOR_BYTES(CK_KEA_DERIVE_PARAMS, pPublicData, ulPublicDataLen))
QOR_LAYOUT(CK_RC5_CBC_PARAMS, QOR_BYTES(CK_RC5_CBC_PARAMS, pIv, ulIvLen))
QOR_LAYOUT(CK_DES_CBC_ENCRYPT_DATA_PARAMS, QOR_BYTES(CK_DES_CBC_ENCRYPT_DATA_PARAMS, pData, length))
QOR_LAYOUT(CK_AES_CBC_ENCRYPT_DATA_PARAMS, QOR_BYTES(CK_AES_CBC_ENCRYPT_DATA_PARAMS, pData, length))
QOR_LAYOUT(CK_AES_GCM_PARAMS, QOR_BYTES(CK_AES_GCM_PARAMS, pIv, ulIvLen),
           QOR_BYTES(CK_AES_GCM_PARAMS, pAAD, ulAADLen))
QOR_LAYOUT(CK_SKIPJACK_PRIVATE_WRAP_PARAMS,
           QOR_BYTES(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, pPassword, ulPasswordLen),
           QOR_BYTES(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, pPublicData, ulPublicDataLen),
           QOR_BYTES(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, pRandomA, ulRandomLen),
           QOR_BYTES(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, pPrimeP, ulPAndGLen),
           QOR_BYTES(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, pBaseG, ulPAndGLen),
           QOR_BYTES(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, pSubprimeQ, ulQLen))
QOR_LAYOUT(CK_SKIPJACK_RELAYX_PARAMS,
           QOR_BYTES(CK_SKIPJACK_RELAYX_PARAMS, pOldWrappedX, ulOldWrappedXLen),
           QOR_BYTES(CK_SKIPJACK_RELAYX_PARAMS, pOldPassword, ulOldPasswordLen),
           QOR_BYTES(CK_SKIPJACK_RELAYX_PARAMS, pOldPublicData, ulOldPublicDataLen),
           QOR_BYTES(CK_SKIPJACK_RELAYX_PARAMS, pOldRandomA, ulOldRandomLen),
           QOR_BYTES(CK_SKIPJACK_RELAYX_PARAMS, pNewPassword, ulNewPasswordLen),
           QOR_BYTES(CK_SKIPJACK_RELAYX_PARAMS, pNewPublicData, ulNewPublicDataLen),
           QOR_BYTES(CK_SKIPJACK_RELAYX_PARAMS, pNewRandomA, ulNewRandomLen))
// The initialization vector the PBE key generation writes is 8 bytes.
QOR_LAYOUT(CK_PBE_PARAMS, {kTop, offsetof(CK_PBE_PARAMS, pInitVector), Sized::kFixed, 8, kOut},
           QOR_BYTES(CK_PBE_PARAMS, pPassword, ulPasswordLen),
           QOR_BYTES(CK_PBE_PARAMS, pSalt, ulSaltLen))
// ulPasswordLen points to the password's length.
QOR_LAYOUT(CK_PKCS5_PBKD2_PARAMS,
           {kTop, offsetof(CK_PKCS5_PBKD2_PARAMS, ulPasswordLen), Sized::kFixed, sizeof(CK_ULONG), kIn},
           {kTop, offsetof(CK_PKCS5_PBKD2_PARAMS, pPassword), Sized::kUlongIn, 0, kIn},
           QOR_BYTES(CK_PKCS5_PBKD2_PARAMS, pSaltSourceData, ulSaltSourceDataLen),
           QOR_BYTES(CK_PKCS5_PBKD2_PARAMS, pPrfData, ulPrfDataLen))
QOR_LAYOUT(CK_KEY_DERIVATION_STRING_DATA, QOR_BYTES(CK_KEY_DERIVATION_STRING_DATA, pData, ulLen))
QOR_LAYOUT(CK_KEY_WRAP_SET_OAEP_PARAMS, QOR_BYTES(CK_KEY_WRAP_SET_OAEP_PARAMS, pX, ulXLen))
QOR_LAYOUT(CK_SSL3_MASTER_KEY_DERIVE_PARAMS,
           QOR_INNER_BYTES(CK_SSL3_MASTER_KEY_DERIVE_PARAMS, RandomInfo, CK_SSL3_RANDOM_DATA, pClientRandom, ulClientRandomLen),
           QOR_INNER_BYTES(CK_SSL3_MASTER_KEY_DERIVE_PARAMS, RandomInfo, CK_SSL3_RANDOM_DATA, pServerRandom, ulServerRandomLen),
           {kTop, offsetof(CK_SSL3_MASTER_KEY_DERIVE_PARAMS, pVersion), Sized::kFixed, sizeof(CK_VERSION), kOut})
// The key material comes back: four handles and two IVs of ulIVSizeInBits.
QOR_LAYOUT(CK_SSL3_KEY_MAT_PARAMS,
           QOR_INNER_BYTES(CK_SSL3_KEY_MAT_PARAMS, RandomInfo, CK_SSL3_RANDOM_DATA, pClientRandom, ulClientRandomLen),
           QOR_INNER_BYTES(CK_SSL3_KEY_MAT_PARAMS, RandomInfo, CK_SSL3_RANDOM_DATA, pServerRandom, ulServerRandomLen),
           {kTop, offsetof(CK_SSL3_KEY_MAT_PARAMS, pReturnedKeyMaterial), Sized::kFixed, sizeof(CK_SSL3_KEY_MAT_OUT), kOut},
           {2, offsetof(CK_SSL3_KEY_MAT_OUT, pIVClient), Sized::kBitsAt, offsetof(CK_SSL3_KEY_MAT_PARAMS, ulIVSizeInBits), kOut},
           {2, offsetof(CK_SSL3_KEY_MAT_OUT, pIVServer), Sized::kBitsAt, offsetof(CK_SSL3_KEY_MAT_PARAMS, ulIVSizeInBits), kOut})
// The output's capacity goes in and its length comes back first.
QOR_LAYOUT(CK_TLS_PRF_PARAMS,
           {kTop, offsetof(CK_TLS_PRF_PARAMS, pulOutputLen), Sized::kFixed, sizeof(CK_ULONG), kInOut},
           QOR_BYTES(CK_TLS_PRF_PARAMS, pSeed, ulSeedLen), QOR_BYTES(CK_TLS_PRF_PARAMS, pLabel, ulLabelLen),
           {kTop, offsetof(CK_TLS_PRF_PARAMS, pOutput), Sized::kUlongIn, 0, kOut})
QOR_LAYOUT(CK_WTLS_MASTER_KEY_DERIVE_PARAMS,
           QOR_INNER_BYTES(CK_WTLS_MASTER_KEY_DERIVE_PARAMS, RandomInfo, CK_WTLS_RANDOM_DATA, pClientRandom, ulClientRandomLen),
           QOR_INNER_BYTES(CK_WTLS_MASTER_KEY_DERIVE_PARAMS, RandomInfo, CK_WTLS_RANDOM_DATA, pServerRandom, ulServerRandomLen),
           {kTop, offsetof(CK_WTLS_MASTER_KEY_DERIVE_PARAMS, pVersion), Sized::kFixed, 1, kOut})
QOR_LAYOUT(CK_WTLS_PRF_PARAMS,
           {kTop, offsetof(CK_WTLS_PRF_PARAMS, pulOutputLen), Sized::kFixed, sizeof(CK_ULONG), kInOut},
           QOR_BYTES(CK_WTLS_PRF_PARAMS, pSeed, ulSeedLen), QOR_BYTES(CK_WTLS_PRF_PARAMS, pLabel, ulLabelLen),
           {kTop, offsetof(CK_WTLS_PRF_PARAMS, pOutput), Sized::kUlongIn, 0, kOut})
QOR_LAYOUT(CK_WTLS_KEY_MAT_PARAMS,
           QOR_INNER_BYTES(CK_WTLS_KEY_MAT_PARAMS, RandomInfo, CK_WTLS_RANDOM_DATA, pClientRandom, ulClientRandomLen),
           QOR_INNER_BYTES(CK_WTLS_KEY_MAT_PARAMS, RandomInfo, CK_WTLS_RANDOM_DATA, pServerRandom, ulServerRandomLen),
           {kTop, offsetof(CK_WTLS_KEY_MAT_PARAMS, pReturnedKeyMaterial), Sized::kFixed, sizeof(CK_WTLS_KEY_MAT_OUT), kOut},
           {2, offsetof(CK_WTLS_KEY_MAT_OUT, pIV), Sized::kBitsAt, offsetof(CK_WTLS_KEY_MAT_PARAMS, ulIVSizeInBits), kOut})

#undef QOR_LAYOUT
#undef QOR_INNER_BYTES
#undef QOR_BYTES

struct Range {
  CK_MECHANISM_TYPE first, last;
  const Layout* layout;
};

// Sorted, disjoint mechanism ranges. A null layout: pointers that do not
// travel (CMS signatures nest whole mechanisms and a C string).
constexpr Range kRanges[] = {
    {CKM_RSA_PKCS_OAEP, CKM_RSA_PKCS_OAEP, &kLayoutCK_RSA_PKCS_OAEP_PARAMS},
    {CKM_X9_42_DH_DERIVE, CKM_X9_42_DH_DERIVE, &kLayoutCK_X9_42_DH1_DERIVE_PARAMS},
    {CKM_X9_42_DH_HYBRID_DERIVE, CKM_X9_42_DH_HYBRID_DERIVE, &kLayoutCK_X9_42_DH2_DERIVE_PARAMS},
    {CKM_X9_42_MQV_DERIVE, CKM_X9_42_MQV_DERIVE, &kLayoutCK_X9_42_MQV_DERIVE_PARAMS},
    {CKM_RC5_CBC, CKM_RC5_CBC, &kLayoutCK_RC5_CBC_PARAMS},
    {CKM_RC5_CBC_PAD, CKM_RC5_CBC_PAD, &kLayoutCK_RC5_CBC_PARAMS},
    {CKM_CONCATENATE_BASE_AND_DATA, CKM_XOR_BASE_AND_DATA, &kLayoutCK_KEY_DERIVATION_STRING_DATA},
    {CKM_SSL3_MASTER_KEY_DERIVE, CKM_SSL3_MASTER_KEY_DERIVE, &kLayoutCK_SSL3_MASTER_KEY_DERIVE_PARAMS},
    {CKM_SSL3_KEY_AND_MAC_DERIVE, CKM_SSL3_KEY_AND_MAC_DERIVE, &kLayoutCK_SSL3_KEY_MAT_PARAMS},
    {CKM_SSL3_MASTER_KEY_DERIVE_DH, CKM_SSL3_MASTER_KEY_DERIVE_DH, &kLayoutCK_SSL3_MASTER_KEY_DERIVE_PARAMS},
    {CKM_TLS_MASTER_KEY_DERIVE, CKM_TLS_MASTER_KEY_DERIVE, &kLayoutCK_SSL3_MASTER_KEY_DERIVE_PARAMS},
    {CKM_TLS_KEY_AND_MAC_DERIVE, CKM_TLS_KEY_AND_MAC_DERIVE, &kLayoutCK_SSL3_KEY_MAT_PARAMS},
    {CKM_TLS_MASTER_KEY_DERIVE_DH, CKM_TLS_MASTER_KEY_DERIVE_DH, &kLayoutCK_SSL3_MASTER_KEY_DERIVE_PARAMS},
    {CKM_TLS_PRF, CKM_TLS_PRF, &kLayoutCK_TLS_PRF_PARAMS},
    {CKM_PBE_MD2_DES_CBC, CKM_PBE_SHA1_RC2_40_CBC, &kLayoutCK_PBE_PARAMS},
    {CKM_PKCS5_PBKD2, CKM_PKCS5_PBKD2, &kLayoutCK_PKCS5_PBKD2_PARAMS},
    {CKM_PBA_SHA1_WITH_SHA1_HMAC, CKM_PBA_SHA1_WITH_SHA1_HMAC, &kLayoutCK_PBE_PARAMS},
    {CKM_WTLS_MASTER_KEY_DERIVE, CKM_WTLS_MASTER_KEY_DERIVE_DH_ECC, &kLayoutCK_WTLS_MASTER_KEY_DERIVE_PARAMS},
    {CKM_WTLS_PRF, CKM_WTLS_PRF, &kLayoutCK_WTLS_PRF_PARAMS},
    {CKM_WTLS_SERVER_KEY_AND_MAC_DERIVE, CKM_WTLS_CLIENT_KEY_AND_MAC_DERIVE, &kLayoutCK_WTLS_KEY_MAT_PARAMS},
    {CKM_KEY_WRAP_SET_OAEP, CKM_KEY_WRAP_SET_OAEP, &kLayoutCK_KEY_WRAP_SET_OAEP_PARAMS},
    {CKM_CMS_SIG, CKM_CMS_SIG, nullptr},
    {CKM_SKIPJACK_PRIVATE_WRAP, CKM_SKIPJACK_PRIVATE_WRAP, &kLayoutCK_SKIPJACK_PRIVATE_WRAP_PARAMS},
    {CKM_SKIPJACK_RELAYX, CKM_SKIPJACK_RELAYX, &kLayoutCK_SKIPJACK_RELAYX_PARAMS},
    {CKM_KEA_KEY_DERIVE, CKM_KEA_KEY_DERIVE, &kLayoutCK_KEA_DERIVE_PARAMS},
    {CKM_ECDH1_DERIVE, CKM_ECDH1_COFACTOR_DERIVE, &kLayoutCK_ECDH1_DERIVE_PARAMS},
    {CKM_ECMQV_DERIVE, CKM_ECMQV_DERIVE, &kLayoutCK_ECMQV_DERIVE_PARAMS},
    {CKM_AES_GCM, CKM_AES_GCM, &kLayoutCK_AES_GCM_PARAMS},
    {CKM_DES_ECB_ENCRYPT_DATA, CKM_DES_ECB_ENCRYPT_DATA, &kLayoutCK_KEY_DERIVATION_STRING_DATA},
    {CKM_DES_CBC_ENCRYPT_DATA, CKM_DES_CBC_ENCRYPT_DATA, &kLayoutCK_DES_CBC_ENCRYPT_DATA_PARAMS},
    {CKM_DES3_ECB_ENCRYPT_DATA, CKM_DES3_ECB_ENCRYPT_DATA, &kLayoutCK_KEY_DERIVATION_STRING_DATA},
    {CKM_DES3_CBC_ENCRYPT_DATA, CKM_DES3_CBC_ENCRYPT_DATA, &kLayoutCK_DES_CBC_ENCRYPT_DATA_PARAMS},
    {CKM_AES_ECB_ENCRYPT_DATA, CKM_AES_ECB_ENCRYPT_DATA, &kLayoutCK_KEY_DERIVATION_STRING_DATA},
    {CKM_AES_CBC_ENCRYPT_DATA, CKM_AES_CBC_ENCRYPT_DATA, &kLayoutCK_AES_CBC_ENCRYPT_DATA_PARAMS},
};

constexpr bool ascending() {
  for (size_t i = 1; i < std::size(kRanges); ++i)
    if (kRanges[i].first <= kRanges[i - 1].last) return false;
  return true;
}
static_assert(ascending(), "mechanism ranges must be sorted and disjoint");

const Range* rangeOf(CK_MECHANISM_TYPE mechanism) {
  auto it = std::upper_bound(std::begin(kRanges), std::end(kRanges), mechanism,
                             [](CK_MECHANISM_TYPE m, const Range& r) { return m < r.first; });
  if (it == std::begin(kRanges)) return nullptr;
  --it;
  return mechanism <= it->last ? it : nullptr;
}

CK_ULONG ulongAt(const void* p, size_t offset) {
  CK_ULONG value;
  std::memcpy(&value, static_cast<const CK_BYTE*>(p) + offset, sizeof value);
  return value;
}

}  // namespace

const Layout* parameterLayout(CK_MECHANISM_TYPE mechanism) {
  const Range* r = rangeOf(mechanism);
  return r ? r->layout : nullptr;
}

bool untranslatableParameter(CK_MECHANISM_TYPE mechanism) {
  const Range* r = rangeOf(mechanism);
  return r && !r->layout;
}

CK_ULONG memberLength(const Layout& layout, size_t index, const void* structure,
                      const void* const* blocks, const CK_ULONG* lengths) {
  const Member& m = layout.members[index];
  switch (m.sized) {
    case Sized::kUlongAt:
      return ulongAt(structure, m.arg);
    case Sized::kBitsAt:
      return bytes_for_bits(ulongAt(structure, m.arg));
    case Sized::kFixed:
      return m.arg;
    case Sized::kUlongIn:
      return blocks[m.arg] && lengths[m.arg] >= sizeof(CK_ULONG) ? ulongAt(blocks[m.arg], 0) : 0;
  }
  return 0;
}

void* pointerAt(const void* holder, size_t offset) {
  void* value;
  std::memcpy(&value, static_cast<const CK_BYTE*>(holder) + offset, sizeof value);
  return value;
}

void setPointerAt(void* holder, size_t offset, const void* value) {
  std::memcpy(static_cast<CK_BYTE*>(holder) + offset, &value, sizeof value);
}

}  // namespace qor::protocol
