// What every C_<Function> native of com.qor.smartcard.pkcs11.Pkcs11 shares:
// finding the module bound to the Java object, calling a member of its
// function list, and the three schemes for sizing output buffers.
#pragma once

#include <jni.h>

#include <cstring>

#include "qorpkcs11/common/log.h"
#include "qorpkcs11/jni/convert_values.h"
#include "qorpkcs11/jni/exceptions.h"
#include "qorpkcs11/jni/jni_util.h"
#include "qorpkcs11/pkcs11.h"

#define QOR_NATIVE(ret, name) \
  extern "C" JNIEXPORT ret JNICALL Java_com_qor_smartcard_pkcs11_Pkcs11_##name

namespace qor::jni {

// The function list of the module bound to `self`. Null, with
// PKCS11RuntimeException pending, for an object that is not connected; with
// PKCS11Exception(CKR_FUNCTION_FAILED) when its getter produced no list.
CK_FUNCTION_LIST_PTR boundFunctions(JNIEnv* env, jobject self, const char* native);

// A member of a function list, read by name: the list is packed, so its
// entry points sit at unaligned offsets that only a direct member access
// reads safely (a pointer-to-member load would assume alignment).
#define QOR_ENTRY(name) [](CK_FUNCTION_LIST_PTR list) { return list->name; }

// Calls a member of a module's function list; a module that left the member
// null answers CKR_FUNCTION_NOT_SUPPORTED instead of faulting.
template <typename Fn, typename... Args>
CK_RV callModule(Fn fn, Args... args) {
  return fn != nullptr ? fn(args...) : CKR_FUNCTION_NOT_SUPPORTED;
}

inline CK_ULONG toCk(jlong value) { return static_cast<CK_ULONG>(value); }
inline jlong toJ(CK_ULONG value) { return static_cast<jlong>(value); }

// Two-call length query: call(null, &n) learns the length, call(buffer, &n)
// fills a zeroed buffer of that many elements. The Java array has the length
// the second call reports, never more than the buffer holds. With
// emptyWithoutFetch a length of 0 answers an empty array after one call.
template <typename T, typename JArray, typename Call>
JArray queryThenFetch(JNIEnv* env, Call call, bool emptyWithoutFetch,
                      JArray (*toJava)(JNIEnv*, const T*, CK_ULONG)) {
  CK_ULONG length = 0;
  if (ckAssertReturnValueOK(env, call(nullptr, &length)) != CKR_OK) return nullptr;
  if (length == 0 && emptyWithoutFetch) return toJava(env, nullptr, 0);
  const CK_ULONG capacity = length;
  HeapPtr<T> buffer(zeroAlloc<T>(capacity));
  if (!buffer) {
    throwOutOfMemoryError(env);
    return nullptr;
  }
  if (ckAssertReturnValueOK(env, call(buffer.get(), &length)) != CKR_OK) return nullptr;
  return toJava(env, buffer.get(), length < capacity ? length : capacity);
}

// Bytes out (the update, final, recover, state and wrap functions).
template <typename Call>
jbyteArray queryThenFetchBytes(JNIEnv* env, Call call) {
  return queryThenFetch<CK_BYTE>(env, call, false, ckByteArrayToJByteArray);
}

// CK_ULONGs out (slot ids, mechanism types).
template <typename Call>
jlongArray queryThenFetchULongs(JNIEnv* env, Call call, bool emptyWithoutFetch) {
  return queryThenFetch<CK_ULONG>(env, call, emptyWithoutFetch, ckULongArrayToJLongArray);
}

// An info structure out: zeroed before the call, converted after success.
template <typename Info, typename Entry, typename... Args>
jobject fetchInfo(JNIEnv* env, jobject self, const char* native, Entry entry,
                  jobject (*toJava)(JNIEnv*, const Info*), Args... args) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, native);
  if (f == nullptr) return nullptr;
  Info info;
  std::memset(&info, 0, sizeof info);
  if (ckAssertReturnValueOK(env, callModule(entry(f), args..., &info)) != CKR_OK) return nullptr;
  return toJava(env, &info);
}

// One call into a fixed buffer of `capacity` bytes; longer results fail with
// the module's own error (normally CKR_BUFFER_TOO_SMALL).
template <typename Call>
jbyteArray fetchIntoFixedBuffer(JNIEnv* env, CK_ULONG capacity, Call call) {
  HeapPtr<CK_BYTE> buffer(zeroAlloc<CK_BYTE>(capacity));
  if (!buffer) {
    throwOutOfMemoryError(env);
    return nullptr;
  }
  CK_ULONG length = capacity;
  if (ckAssertReturnValueOK(env, call(buffer.get(), &length)) != CKR_OK) return nullptr;
  return ckByteArrayToJByteArray(env, buffer.get(), length < capacity ? length : capacity);
}

}  // namespace qor::jni
