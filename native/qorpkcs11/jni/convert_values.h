// Conversions between the Java value classes of com.qor.smartcard.pkcs11
// (and boxed values, arrays, strings) and native PKCS#11 values.
//
// Java to native: buffers come from malloc and belong to the caller; array
// converters return 0, or 1/2 when the first/a later allocation failed (an
// OutOfMemoryError is then pending). A null Java value gives a null pointer
// and length 0. Native to Java: each result is a new local reference, or null.
#pragma once

#include <jni.h>

#include "qorpkcs11/jni/jni_util.h"
#include "qorpkcs11/pkcs11.h"

// ---- native to Java --------------------------------------------------------

jobject ckInfoPtrToJInfo(JNIEnv* env, const CK_INFO* info);
jobject ckSlotInfoPtrToJSlotInfo(JNIEnv* env, const CK_SLOT_INFO* info);
jobject ckTokenInfoPtrToJTokenInfo(JNIEnv* env, const CK_TOKEN_INFO* info);
jobject ckMechanismInfoPtrToJMechanismInfo(JNIEnv* env, const CK_MECHANISM_INFO* info);
jobject ckSessionInfoPtrToJSessionInfo(JNIEnv* env, const CK_SESSION_INFO* info);
jobject ckVersionPtrToJVersion(JNIEnv* env, const CK_VERSION* version);
jobject ckDatePtrToJDateObject(JNIEnv* env, const CK_DATE* date);
jobject ckAttributePtrToJAttribute(JNIEnv* env, const CK_ATTRIBUTE* attribute);

jbyteArray ckByteArrayToJByteArray(JNIEnv* env, const CK_BYTE* bytes, CK_ULONG length);
jcharArray ckCharArrayToJCharArray(JNIEnv* env, const CK_CHAR* chars, CK_ULONG length);
jlongArray ckULongArrayToJLongArray(JNIEnv* env, const CK_ULONG* values, CK_ULONG count);
jobjectArray ckAttributeArrayToJAttributeArray(JNIEnv* env, const CK_ATTRIBUTE* attributes,
                                               CK_ULONG count);
jobject ckBBoolPtrToJBooleanObject(JNIEnv* env, const CK_BBOOL* value);
jobject ckULongPtrToJLongObject(JNIEnv* env, const CK_ULONG* value);
jobject ckAttributeValueToJObject(JNIEnv* env, const CK_ATTRIBUTE* attribute);

// ---- Java to native --------------------------------------------------------

int jByteArrayToCKByteArray(JNIEnv* env, jbyteArray array, CK_BYTE_PTR* out, CK_ULONG* length);
int jCharArrayToCKCharArray(JNIEnv* env, jcharArray array, CK_CHAR_PTR* out, CK_ULONG* length);
int jBooleanArrayToCKBBoolArray(JNIEnv* env, jbooleanArray array, CK_BBOOL** out,
                                CK_ULONG* length);
int jLongArrayToCKULongArray(JNIEnv* env, jlongArray array, CK_ULONG_PTR* out, CK_ULONG* length);
int jStringToCKUTF8CharArray(JNIEnv* env, jstring string, CK_UTF8CHAR_PTR* out,
                             CK_ULONG* length);
int jAttributeArrayToCKAttributeArray(JNIEnv* env, jobjectArray array, CK_ATTRIBUTE_PTR* out,
                                      CK_ULONG* count);
// Fills *out; false when an exception is pending (out then owns nothing).
bool jAttributeToCKAttribute(JNIEnv* env, jobject attribute, CK_ATTRIBUTE* out);

CK_BBOOL* jBooleanObjectToCKBBoolPtr(JNIEnv* env, jobject value);
CK_BYTE* jByteObjectToCKBytePtr(JNIEnv* env, jobject value);
CK_ULONG* jIntegerObjectToCKULongPtr(JNIEnv* env, jobject value);
CK_ULONG* jLongObjectToCKULongPtr(JNIEnv* env, jobject value);
CK_CHAR* jCharObjectToCKCharPtr(JNIEnv* env, jobject value);
CK_VERSION* jVersionToCKVersionPtr(JNIEnv* env, jobject version);
CK_DATE* jDateObjectPtrToCKDatePtr(JNIEnv* env, jobject date);

// Any attribute or parameter value by its class; PKCS11RuntimeException for
// a class without a native form. *out null and *length 0 on every failure.
void jObjectToPrimitiveCKObjectPtrPtr(JNIEnv* env, jobject object, CK_VOID_PTR* out,
                                      CK_ULONG* length);

// C_Initialize's arguments (no mutex callbacks); null for a null object.
CK_C_INITIALIZE_ARGS_PTR makeCKInitArgsAdapter(JNIEnv* env, jobject args);
void freeCKInitArgs(CK_C_INITIALIZE_ARGS_PTR args);

// ---- ownership -------------------------------------------------------------

// Frees the values of converted attributes, nested templates included.
void freeCKAttributeArray(CK_ATTRIBUTE_PTR attributes, CK_ULONG count);

// The array attributes whose value is itself a template.
inline bool isTemplateAttribute(CK_ATTRIBUTE_TYPE type) {
  return type == CKA_WRAP_TEMPLATE || type == CKA_UNWRAP_TEMPLATE;
}

namespace qor::jni {

// A Java template converted for one module call, freed with the owner.
class CkTemplate {
 public:
  CkTemplate() = default;
  ~CkTemplate() { freeCKAttributeArray(attributes_, count_); }
  CkTemplate(const CkTemplate&) = delete;
  CkTemplate& operator=(const CkTemplate&) = delete;

  // False when the conversion threw; the template then holds nothing.
  bool convert(JNIEnv* env, jobjectArray array) {
    return jAttributeArrayToCKAttributeArray(env, array, &attributes_, &count_) == 0 &&
           env->ExceptionCheck() == JNI_FALSE;
  }
  CK_ATTRIBUTE_PTR get() const { return attributes_; }
  CK_ULONG count() const { return count_; }

 private:
  CK_ATTRIBUTE_PTR attributes_ = nullptr;
  CK_ULONG count_ = 0;
};

// A Java byte[] or char[] copied for one module call.
template <typename T>
class CkArray {
 public:
  CkArray() = default;
  CkArray(const CkArray&) = delete;
  CkArray& operator=(const CkArray&) = delete;

  bool convert(JNIEnv* env, jbyteArray array) {
    T* raw = nullptr;
    bool ok = jByteArrayToCKByteArray(env, array, &raw, &length_) == 0;
    data_.reset(raw);
    return ok;
  }
  bool convert(JNIEnv* env, jcharArray array) {
    T* raw = nullptr;
    bool ok = jCharArrayToCKCharArray(env, array, &raw, &length_) == 0;
    data_.reset(raw);
    return ok;
  }
  T* get() const { return data_.get(); }
  CK_ULONG length() const { return length_; }

 private:
  HeapPtr<T> data_;
  CK_ULONG length_ = 0;
};
using CkBytes = CkArray<CK_BYTE>;
using CkChars = CkArray<CK_CHAR>;

}  // namespace qor::jni
