// Key generation, wrapping, unwrapping, derivation and random-number natives.
#include "qorpkcs11/jni/convert_mechanism.h"
#include "qorpkcs11/jni/natives_common.h"

using namespace qor::jni;

QOR_NATIVE(jlong, C_1GenerateKey)(JNIEnv* env, jobject self, jlong hSession, jobject jMechanism,
                                 jobjectArray jTemplate) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return 0;
  CkMechanism mechanism;
  if (!mechanism.convert(env, jMechanism) || env->ExceptionCheck()) return 0;
  CkTemplate t;
  if (!t.convert(env, jTemplate)) return 0;
  CK_OBJECT_HANDLE key = 0;
  CK_RV rv = callModule(f->C_GenerateKey, toCk(hSession), mechanism.get(), t.get(), t.count(), &key);
  if (rv == CKR_OK) copyBackPBEInitializationVector(env, mechanism.converted(), jMechanism);
  if (ckAssertReturnValueOK(env, rv) != CKR_OK) return 0;
  return toJ(key);
}

QOR_NATIVE(jlongArray, C_1GenerateKeyPair)(JNIEnv* env, jobject self, jlong hSession, jobject jMechanism,
                                          jobjectArray jPublicTemplate, jobjectArray jPrivateTemplate) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return nullptr;
  CkMechanism mechanism;
  CkTemplate publicTemplate, privateTemplate;
  if (!mechanism.convert(env, jMechanism) || !publicTemplate.convert(env, jPublicTemplate) ||
      !privateTemplate.convert(env, jPrivateTemplate)) {
    return nullptr;
  }
  CK_OBJECT_HANDLE keys[2] = {0, 0};
  CK_RV rv = callModule(f->C_GenerateKeyPair, toCk(hSession), mechanism.get(), publicTemplate.get(),
                        publicTemplate.count(), privateTemplate.get(), privateTemplate.count(), &keys[0], &keys[1]);
  if (ckAssertReturnValueOK(env, rv) != CKR_OK) return nullptr;
  return ckULongArrayToJLongArray(env, keys, 2);
}

QOR_NATIVE(jbyteArray, C_1WrapKey)(JNIEnv* env, jobject self, jlong hSession, jobject jMechanism,
                                  jlong hWrappingKey, jlong hKey) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return nullptr;
  CkMechanism mechanism;
  if (!mechanism.convert(env, jMechanism)) return nullptr;
  return queryThenFetchBytes(env, [&](CK_BYTE_PTR out, CK_ULONG_PTR length) {
    return callModule(f->C_WrapKey, toCk(hSession), mechanism.get(), toCk(hWrappingKey), toCk(hKey), out, length);
  });
}

QOR_NATIVE(jlong, C_1UnwrapKey)(JNIEnv* env, jobject self, jlong hSession, jobject jMechanism,
                               jlong hUnwrappingKey, jbyteArray jWrappedKey, jobjectArray jTemplate) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return 0;
  CkMechanism mechanism;
  CkBytes wrapped;
  CkTemplate t;
  if (!mechanism.convert(env, jMechanism) || !wrapped.convert(env, jWrappedKey) || !t.convert(env, jTemplate)) {
    return 0;
  }
  CK_OBJECT_HANDLE key = 0;
  CK_RV rv = callModule(f->C_UnwrapKey, toCk(hSession), mechanism.get(), toCk(hUnwrappingKey), wrapped.get(),
                        wrapped.length(), t.get(), t.count(), &key);
  if (rv == CKR_OK) copyBackSetUnwrappedKey(env, mechanism.converted(), jMechanism);
  if (ckAssertReturnValueOK(env, rv) != CKR_OK) return 0;
  return toJ(key);
}

QOR_NATIVE(jlong, C_1DeriveKey)(JNIEnv* env, jobject self, jlong hSession, jobject jMechanism, jlong hBaseKey,
                               jobjectArray jTemplate) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return 0;
  CkMechanism mechanism;
  CkTemplate t;
  if (!mechanism.convert(env, jMechanism) || !t.convert(env, jTemplate)) return 0;
  CK_OBJECT_HANDLE key = 0;
  CK_RV rv = callModule(f->C_DeriveKey, toCk(hSession), mechanism.get(), toCk(hBaseKey), t.get(), t.count(), &key);
  if (rv == CKR_OK) {
    // Each runs only for its own mechanism (SSL3 master key, SSL3 key and MAC).
    copyBackClientVersion(env, mechanism.converted(), jMechanism);
    copyBackSSLKeyMatParams(env, mechanism.converted(), jMechanism);
  }
  if (ckAssertReturnValueOK(env, rv) != CKR_OK) return 0;
  return toJ(key);
}

QOR_NATIVE(void, C_1SeedRandom)(JNIEnv* env, jobject self, jlong hSession, jbyteArray jSeed) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return;
  CkBytes seed;
  if (!seed.convert(env, jSeed)) return;
  ckAssertReturnValueOK(env, callModule(f->C_SeedRandom, toCk(hSession), seed.get(), seed.length()));
}

QOR_NATIVE(jbyteArray, C_1GenerateRandom)(JNIEnv* env, jobject self, jlong hSession, jlong randomLen) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return nullptr;
  const CK_ULONG length = toCk(randomLen);
  HeapPtr<CK_BYTE> random(zeroAlloc<CK_BYTE>(length));
  if (!random) {
    throwOutOfMemoryError(env);
    return nullptr;
  }
  if (ckAssertReturnValueOK(env, callModule(f->C_GenerateRandom, toCk(hSession), random.get(), length)) != CKR_OK) {
    return nullptr;
  }
  return ckByteArrayToJByteArray(env, random.get(), length);
}
