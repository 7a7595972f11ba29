// Java CK_MECHANISM objects and their parameter classes to native mechanisms,
// freeing them after the call, and the four copy-backs of results that a
// module writes into a parameter.
#pragma once

#include <jni.h>

#include "qorpkcs11/pkcs11.h"

// The parameter classes: Java class (also the native structure), converter.
#define QOR_PARAM_CLASSES(X)                                                                \
  X(CK_RSA_PKCS_OAEP_PARAMS, jRsaPkcsOaepParamToCKRsaPkcsOaepParam)                         \
  X(CK_KEA_DERIVE_PARAMS, jKeaDeriveParamToCKKeaDeriveParam)                                \
  X(CK_RC2_CBC_PARAMS, jRc2CbcParamToCKRc2CbcParam)                                         \
  X(CK_RC2_MAC_GENERAL_PARAMS, jRc2MacGeneralParamToCKRc2MacGeneralParam)                   \
  X(CK_RC5_PARAMS, jRc5ParamToCKRc5Param)                                                   \
  X(CK_RC5_CBC_PARAMS, jRc5CbcParamToCKRc5CbcParam)                                         \
  X(CK_RC5_MAC_GENERAL_PARAMS, jRc5MacGeneralParamToCKRc5MacGeneralParam)                   \
  X(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, jSkipjackPrivateWrapParamToCKSkipjackPrivateWrapParam) \
  X(CK_SKIPJACK_RELAYX_PARAMS, jSkipjackRelayxParamToCKSkipjackRelayxParam)                 \
  X(CK_PBE_PARAMS, jPbeParamToCKPbeParam)                                                   \
  X(CK_PKCS5_PBKD2_PARAMS, jPkcs5Pbkd2ParamToCKPkcs5Pbkd2Param)                             \
  X(CK_KEY_DERIVATION_STRING_DATA, jKeyDerivationStringDataToCKKeyDerivationStringData)     \
  X(CK_KEY_WRAP_SET_OAEP_PARAMS, jKeyWrapSetOaepParamToCKKeyWrapSetOaepParam)               \
  X(CK_SSL3_MASTER_KEY_DERIVE_PARAMS, jSsl3MasterKeyDeriveParamToCKSsl3MasterKeyDeriveParam) \
  X(CK_SSL3_KEY_MAT_PARAMS, jSsl3KeyMatParamToCKSsl3KeyMatParam)                            \
  X(CK_RSA_PKCS_PSS_PARAMS, jRsaPkcsPssParamToCKRsaPkcsPssParam)                            \
  X(CK_ECDH1_DERIVE_PARAMS, jEcdh1DeriveParamToCKEcdh1DeriveParam)                          \
  X(CK_ECDH2_DERIVE_PARAMS, jEcdh2DeriveParamToCKEcdh2DeriveParam)                          \
  X(CK_X9_42_DH1_DERIVE_PARAMS, jX942Dh1DeriveParamToCKX942Dh1DeriveParam)                  \
  X(CK_X9_42_DH2_DERIVE_PARAMS, jX942Dh2DeriveParamToCKX942Dh2DeriveParam)                  \
  X(CK_DES_CBC_ENCRYPT_DATA_PARAMS, jDesCbcEncryptDataParamToCKDesCbcEncryptData)           \
  X(CK_AES_CBC_ENCRYPT_DATA_PARAMS, jAesCbcEncryptDataParamToCKAesCbcEncryptData)

// Each fills a zeroed structure from the Java object's fields of the same
// names; false when an exception is pending (buffers taken so far stay in
// the structure for freeCKMechanismParameter).
#define QOR_DECLARE_PARAM_CONVERTER(type, converter) \
  bool converter(JNIEnv* env, jobject jParam, type* ckParam);
QOR_PARAM_CLASSES(QOR_DECLARE_PARAM_CONVERTER)
#undef QOR_DECLARE_PARAM_CONVERTER

// One row of the parameter-class table.
struct ParamClass;

// Most buffer members a parameter structure has.
constexpr int kMaxParamMembers = 12;

// A native mechanism and what built its parameter: freeing and the
// copy-backs read nested members only of a parameter whose layout they know,
// and only within the buffers that were allocated for it.
struct ConvertedMechanism {
  CK_MECHANISM mechanism;
  const ParamClass* parameterClass;      // null for raw values (byte[], Long, ...)
  CK_ULONG lengths[kMaxParamMembers];    // allocated length of each buffer member
};

// False when an exception is pending (nothing is then held).
bool jMechanismToCKMechanism(JNIEnv* env, jobject jMechanism, ConvertedMechanism* out);
// Looks up every mechanism parameter class the loader can see, and the
// fields the conversions read of each (at load).
void resolveParameterClasses(JNIEnv* env);
bool jMechanismParameterToCKMechanismParameter(JNIEnv* env, jobject jParam,
                                               ConvertedMechanism* out);
void freeCKMechanismParameter(ConvertedMechanism* mechanism);

void copyBackPBEInitializationVector(JNIEnv* env, const ConvertedMechanism* mechanism,
                                     jobject jMechanism);
void copyBackSetUnwrappedKey(JNIEnv* env, const ConvertedMechanism* mechanism, jobject jMechanism);
void copyBackClientVersion(JNIEnv* env, const ConvertedMechanism* mechanism, jobject jMechanism);
void copyBackSSLKeyMatParams(JNIEnv* env, const ConvertedMechanism* mechanism, jobject jMechanism);

namespace qor::jni {

// A Java mechanism converted for one module call, freed with the owner.
class CkMechanism {
 public:
  CkMechanism() : converted_{} {}
  ~CkMechanism() { freeCKMechanismParameter(&converted_); }
  CkMechanism(const CkMechanism&) = delete;
  CkMechanism& operator=(const CkMechanism&) = delete;

  // A null mechanism fails with CKR_ARGUMENTS_BAD before reaching a module.
  bool convert(JNIEnv* env, jobject jMechanism);
  CK_MECHANISM_PTR get() { return &converted_.mechanism; }
  const ConvertedMechanism* converted() const { return &converted_; }

 private:
  ConvertedMechanism converted_;
};

}  // namespace qor::jni
