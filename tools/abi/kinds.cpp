#include "kinds.h"

#include <algorithm>
#include <iterator>

#include "qorpkcs11/pkcs11.h"

namespace qor::abi {
namespace {

// Attribute types of later amendments that hold a CK_ULONG.
constexpr unsigned long kNameHashAlgorithm = 0x0000008C;  // CKA_NAME_HASH_ALGORITHM
constexpr unsigned long kOtpFormat = 0x00000220;          // CKA_OTP_FORMAT ...
constexpr unsigned long kOtpPinRequirement = 0x00000227;  // ... CKA_OTP_PIN_REQUIREMENT

// Every attribute whose value is a CK_ULONG or an array of them.
constexpr unsigned long kUlongAttributes[] = {
    CKA_CLASS,           CKA_CERTIFICATE_TYPE, CKA_CERTIFICATE_CATEGORY,
    CKA_JAVA_MIDP_SECURITY_DOMAIN, kNameHashAlgorithm,  CKA_KEY_TYPE,
    CKA_MODULUS_BITS,    CKA_PRIME_BITS,       CKA_SUBPRIME_BITS,
    CKA_VALUE_BITS,      CKA_VALUE_LEN,        CKA_KEY_GEN_MECHANISM,
    CKA_AUTH_PIN_FLAGS,  kOtpFormat,           kOtpFormat + 1,  // CKA_OTP_LENGTH
    kOtpFormat + 2,  // CKA_OTP_TIME_INTERVAL
    kOtpFormat + 4,  // CKA_OTP_CHALLENGE_REQUIREMENT
    kOtpFormat + 5,  // CKA_OTP_TIME_REQUIREMENT
    kOtpFormat + 6,  // CKA_OTP_COUNTER_REQUIREMENT
    kOtpPinRequirement,  CKA_HW_FEATURE_TYPE,  CKA_PIXEL_X,
    CKA_PIXEL_Y,         CKA_RESOLUTION,       CKA_CHAR_ROWS,
    CKA_CHAR_COLUMNS,    CKA_BITS_PER_PIXEL,   CKA_MECHANISM_TYPE,
    CKA_ALLOWED_MECHANISMS,
};

struct ParameterRange {
  unsigned long first, last;
  ParameterKind kind;
};

// Mechanisms of later amendments.
constexpr unsigned long kAesCmacGeneral = 0x0000108B;  // CKM_AES_CMAC_GENERAL

using P = ParameterKind;
// Mechanisms whose parameter is not plain bytes, in ascending order. Those
// marked untranslated carry pointers in structures this module does not
// convert; passing them on as bytes would hand the module a structure of
// the wrong shape.
constexpr ParameterRange kParameters[] = {
    {CKM_RSA_PKCS_OAEP, CKM_RSA_PKCS_OAEP, P::kOaep},
    {CKM_RSA_PKCS_PSS, CKM_SHA1_RSA_PKCS_PSS, P::kPss},
    {CKM_X9_42_DH_DERIVE, CKM_X9_42_MQV_DERIVE, P::kUntranslated},
    {CKM_SHA256_RSA_PKCS_PSS, CKM_SHA512_RSA_PKCS_PSS, P::kPss},
    {CKM_SHA224_RSA_PKCS_PSS, CKM_SHA224_RSA_PKCS_PSS, P::kPss},
    {CKM_RC2_ECB, CKM_RC2_ECB, P::kUlong},
    {CKM_RC2_CBC, CKM_RC2_CBC, P::kUntranslated},
    {CKM_RC2_MAC, CKM_RC2_MAC, P::kUlong},
    {CKM_RC2_MAC_GENERAL, CKM_RC2_CBC_PAD, P::kUntranslated},
    {CKM_DES_MAC_GENERAL, CKM_DES_MAC_GENERAL, P::kUlong},
    {CKM_DES3_MAC_GENERAL, CKM_DES3_MAC_GENERAL, P::kUlong},
    {CKM_CDMF_MAC_GENERAL, CKM_CDMF_MAC_GENERAL, P::kUlong},
    {CKM_MD2_HMAC_GENERAL, CKM_MD2_HMAC_GENERAL, P::kUlong},
    {CKM_MD5_HMAC_GENERAL, CKM_MD5_HMAC_GENERAL, P::kUlong},
    {CKM_SHA_1_HMAC_GENERAL, CKM_SHA_1_HMAC_GENERAL, P::kUlong},
    {CKM_RIPEMD128_HMAC_GENERAL, CKM_RIPEMD128_HMAC_GENERAL, P::kUlong},
    {CKM_RIPEMD160_HMAC_GENERAL, CKM_RIPEMD160_HMAC_GENERAL, P::kUlong},
    {CKM_SHA256_HMAC_GENERAL, CKM_SHA256_HMAC_GENERAL, P::kUlong},
    {CKM_SHA224_HMAC_GENERAL, CKM_SHA224_HMAC_GENERAL, P::kUlong},
    {CKM_SHA384_HMAC_GENERAL, CKM_SHA384_HMAC_GENERAL, P::kUlong},
    {CKM_SHA512_HMAC_GENERAL, CKM_SHA512_HMAC_GENERAL, P::kUlong},
    {CKM_CAST_MAC_GENERAL, CKM_CAST_MAC_GENERAL, P::kUlong},
    {CKM_CAST3_MAC_GENERAL, CKM_CAST3_MAC_GENERAL, P::kUlong},
    {CKM_CAST5_MAC_GENERAL, CKM_CAST5_MAC_GENERAL, P::kUlong},
    {CKM_RC5_ECB, CKM_RC5_CBC_PAD, P::kUntranslated},
    {CKM_IDEA_MAC_GENERAL, CKM_IDEA_MAC_GENERAL, P::kUlong},
    {CKM_CONCATENATE_BASE_AND_KEY, CKM_CONCATENATE_BASE_AND_KEY, P::kUlong},
    {CKM_CONCATENATE_BASE_AND_DATA, CKM_XOR_BASE_AND_DATA, P::kStringData},
    {CKM_EXTRACT_KEY_FROM_KEY, CKM_EXTRACT_KEY_FROM_KEY, P::kUlong},
    {CKM_SSL3_MASTER_KEY_DERIVE, CKM_SSL3_MASTER_KEY_DERIVE_DH, P::kUntranslated},
    {CKM_TLS_MASTER_KEY_DERIVE, CKM_TLS_PRF, P::kUntranslated},
    {CKM_SSL3_MD5_MAC, CKM_SSL3_SHA1_MAC, P::kUlong},
    {CKM_PBE_MD2_DES_CBC, CKM_PBA_SHA1_WITH_SHA1_HMAC, P::kUntranslated},
    {CKM_WTLS_MASTER_KEY_DERIVE, CKM_WTLS_CLIENT_KEY_AND_MAC_DERIVE, P::kUntranslated},
    {CKM_KEY_WRAP_SET_OAEP, CKM_KEY_WRAP_SET_OAEP, P::kUntranslated},
    {CKM_CMS_SIG, CKM_CMS_SIG, P::kUntranslated},
    {CKM_SKIPJACK_PRIVATE_WRAP, CKM_SKIPJACK_RELAYX, P::kUntranslated},
    {CKM_KEA_KEY_DERIVE, CKM_KEA_KEY_DERIVE, P::kUntranslated},
    {CKM_ECDH1_DERIVE, CKM_ECDH1_COFACTOR_DERIVE, P::kEcdh1},
    {CKM_ECMQV_DERIVE, CKM_ECMQV_DERIVE, P::kUntranslated},
    {CKM_AES_MAC_GENERAL, CKM_AES_MAC_GENERAL, P::kUlong},
    {CKM_AES_CTR, CKM_AES_CTR, P::kCtr},
    {CKM_AES_GCM, CKM_AES_GCM, P::kGcm},
    {kAesCmacGeneral, kAesCmacGeneral, P::kUlong},
    {CKM_DES_ECB_ENCRYPT_DATA, CKM_DES_ECB_ENCRYPT_DATA, P::kStringData},
    {CKM_DES_CBC_ENCRYPT_DATA, CKM_DES_CBC_ENCRYPT_DATA, P::kDesCbcData},
    {CKM_DES3_ECB_ENCRYPT_DATA, CKM_DES3_ECB_ENCRYPT_DATA, P::kStringData},
    {CKM_DES3_CBC_ENCRYPT_DATA, CKM_DES3_CBC_ENCRYPT_DATA, P::kDesCbcData},
    {CKM_AES_ECB_ENCRYPT_DATA, CKM_AES_ECB_ENCRYPT_DATA, P::kStringData},
    {CKM_AES_CBC_ENCRYPT_DATA, CKM_AES_CBC_ENCRYPT_DATA, P::kAesCbcData},
};

constexpr bool ascending() {
  for (size_t i = 1; i < std::size(kParameters); ++i) {
    if (kParameters[i].first <= kParameters[i - 1].last) return false;
  }
  return true;
}
static_assert(ascending(), "mechanism ranges must be sorted and disjoint");

}  // namespace

AttributeKind attributeKind(unsigned long type) {
  if (std::find(std::begin(kUlongAttributes), std::end(kUlongAttributes), type) !=
      std::end(kUlongAttributes)) {
    return AttributeKind::kUlongs;
  }
  // Every other array attribute holds a template.
  return (type & CKF_ARRAY_ATTRIBUTE) ? AttributeKind::kTemplate : AttributeKind::kBytes;
}

ParameterKind parameterKind(unsigned long mechanism) {
  auto it = std::upper_bound(std::begin(kParameters), std::end(kParameters), mechanism,
                             [](unsigned long m, const ParameterRange& r) { return m < r.first; });
  if (it == std::begin(kParameters)) return ParameterKind::kBytes;
  --it;
  return mechanism <= it->last ? it->kind : ParameterKind::kBytes;
}

}  // namespace qor::abi
