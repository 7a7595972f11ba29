// What a value's bytes mean, so that a translation module knows which values
// change shape between ABIs: attribute values by attribute type, mechanism
// parameters by mechanism type. Both tables are ABI-neutral (type numbers
// are the same on either side).
#pragma once

namespace qor::abi {

enum class AttributeKind {
  kBytes,      // passed through untouched
  kUlongs,     // CK_ULONG, or an array of them (CKA_ALLOWED_MECHANISMS)
  kTemplate,   // an array of CK_ATTRIBUTE (CKA_WRAP_TEMPLATE, ...)
};

enum class ParameterKind {
  kBytes,         // no parameter, an IV or other plain bytes
  kUlong,         // a single CK_ULONG (MAC length, key handle, bit index)
  kOaep,          // CK_RSA_PKCS_OAEP_PARAMS
  kPss,           // CK_RSA_PKCS_PSS_PARAMS
  kEcdh1,         // CK_ECDH1_DERIVE_PARAMS
  kGcm,           // CK_AES_GCM_PARAMS
  kCtr,           // CK_AES_CTR_PARAMS
  kAesCbcData,    // CK_AES_CBC_ENCRYPT_DATA_PARAMS
  kDesCbcData,    // CK_DES_CBC_ENCRYPT_DATA_PARAMS
  kStringData,    // CK_KEY_DERIVATION_STRING_DATA
  kUntranslated,  // a structure with pointers that is not converted: refused
};

AttributeKind attributeKind(unsigned long type);
ParameterKind parameterKind(unsigned long mechanism);

}  // namespace qor::abi
