// Encryption, decryption, digest, signature and verification natives,
// including the dual-function updates. Each family shares one shape, so the
// natives are stamped out from the tables at the end of this file.
#include "qorpkcs11/jni/convert_mechanism.h"
#include "qorpkcs11/jni/natives_common.h"
#include "qorpkcs11/protocol/calls.h"

using namespace qor::jni;

namespace {

// Single-part operations without a length query: what the deployed Java
// callers have always used. Longer results fail with the module's error.
constexpr CK_ULONG kEncryptCapacity = 260;
constexpr CK_ULONG kDigestCapacity = 65;
// First guess for signatures: a 4096-bit RSA signature fits in one call.
constexpr CK_ULONG kSignFirstCapacity = 512;

// Operation initialisation: session, converted mechanism, optional key.
template <typename Entry>
void initOperation(JNIEnv* env, jobject self, const char* native, Entry entry, jlong hSession,
                   jobject jMechanism, jlong hKey) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, native);
  if (f == nullptr) return;
  CkMechanism mechanism;
  if (!mechanism.convert(env, jMechanism)) return;
  ckAssertReturnValueOK(env, callModule(entry(f), toCk(hSession), mechanism.get(), toCk(hKey)));
}

// Data in, output sized by a length query first.
template <typename Entry>
jbyteArray dataInQueriedOut(JNIEnv* env, jobject self, const char* native, Entry entry,
                            jlong hSession, jbyteArray jIn) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, native);
  if (f == nullptr) return nullptr;
  CkBytes in;
  if (!in.convert(env, jIn)) return nullptr;
  auto fn = entry(f);
  return queryThenFetchBytes(env, [&](CK_BYTE_PTR out, CK_ULONG_PTR length) {
    return callModule(fn, toCk(hSession), in.get(), in.length(), out, length);
  });
}

// Data in, output into a buffer of fixed size.
template <typename Entry>
jbyteArray dataInFixedOut(JNIEnv* env, jobject self, const char* native, Entry entry,
                          jlong hSession, jbyteArray jIn, CK_ULONG capacity) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, native);
  if (f == nullptr) return nullptr;
  CkBytes in;
  if (!in.convert(env, jIn)) return nullptr;
  auto fn = entry(f);
  return fetchIntoFixedBuffer(env, capacity, [&](CK_BYTE_PTR out, CK_ULONG_PTR length) {
    return callModule(fn, toCk(hSession), in.get(), in.length(), out, length);
  });
}

// No input, output sized by a length query first (the ...Final functions).
template <typename Entry>
jbyteArray queriedOut(JNIEnv* env, jobject self, const char* native, Entry entry, jlong hSession) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, native);
  if (f == nullptr) return nullptr;
  auto fn = entry(f);
  return queryThenFetchBytes(env, [&](CK_BYTE_PTR out, CK_ULONG_PTR length) {
    return callModule(fn, toCk(hSession), out, length);
  });
}

// Data in, nothing out (the ...Update functions of digests and signatures,
// C_VerifyFinal).
template <typename Entry>
void dataIn(JNIEnv* env, jobject self, const char* native, Entry entry, jlong hSession,
            jbyteArray jIn) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, native);
  if (f == nullptr) return;
  CkBytes in;
  if (!in.convert(env, jIn)) return;
  ckAssertReturnValueOK(env, callModule(entry(f), toCk(hSession), in.get(), in.length()));
}

}  // namespace

// The families the calls table shares with both ends of the wire.
#define QOR_INIT_WITH_KEY(name, field)                                                        \
  QOR_NATIVE(void, C_1##name)(JNIEnv * env, jobject self, jlong hSession, jobject jMechanism, \
                              jlong hKey) {                                                   \
    initOperation(env, self, __func__, QOR_ENTRY(C_##name), hSession, jMechanism, hKey);      \
  }
QOR_INIT_CALLS(QOR_INIT_WITH_KEY)
#undef QOR_INIT_WITH_KEY

#define QOR_FINAL(name, field, out, outLength)                                    \
  QOR_NATIVE(jbyteArray, C_1##name)(JNIEnv * env, jobject self, jlong hSession) { \
    return queriedOut(env, self, __func__, QOR_ENTRY(C_##name), hSession);        \
  }
QOR_FINAL_CALLS(QOR_FINAL)
#undef QOR_FINAL

#define QOR_DATA_IN(name, field, in, inLength)                                              \
  QOR_NATIVE(void, C_1##name)(JNIEnv * env, jobject self, jlong hSession, jbyteArray jIn) { \
    dataIn(env, self, __func__, QOR_ENTRY(C_##name), hSession, jIn);                        \
  }
QOR_INPUT_CALLS(QOR_DATA_IN)
#undef QOR_DATA_IN

// Of the in-out family the natives size outputs their own way: a fixed
// buffer where deployed Java callers never queried, else a length query.
#define QOR_QUERIED(name)                                                                         \
  QOR_NATIVE(jbyteArray, C_1##name)(JNIEnv * env, jobject self, jlong hSession, jbyteArray jIn) { \
    return dataInQueriedOut(env, self, __func__, QOR_ENTRY(C_##name), hSession, jIn);             \
  }
#define QOR_FIXED(name, capacity)                                                                 \
  QOR_NATIVE(jbyteArray, C_1##name)(JNIEnv * env, jobject self, jlong hSession, jbyteArray jIn) { \
    return dataInFixedOut(env, self, __func__, QOR_ENTRY(C_##name), hSession, jIn, capacity);     \
  }

QOR_FIXED(Encrypt, kEncryptCapacity)
QOR_FIXED(Decrypt, kEncryptCapacity)
QOR_FIXED(Digest, kDigestCapacity)

QOR_QUERIED(EncryptUpdate)
QOR_QUERIED(DecryptUpdate)
QOR_QUERIED(SignRecover)
QOR_QUERIED(VerifyRecover)
QOR_QUERIED(DigestEncryptUpdate)
QOR_QUERIED(DecryptDigestUpdate)
QOR_QUERIED(SignEncryptUpdate)
QOR_QUERIED(DecryptVerifyUpdate)

QOR_NATIVE(void, C_1DigestInit)(JNIEnv* env, jobject self, jlong hSession, jobject jMechanism) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return;
  CkMechanism mechanism;
  if (!mechanism.convert(env, jMechanism)) return;
  ckAssertReturnValueOK(env, callModule(f->C_DigestInit, toCk(hSession), mechanism.get()));
}

QOR_NATIVE(void, C_1DigestKey)(JNIEnv* env, jobject self, jlong hSession, jlong hKey) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f != nullptr) ckAssertReturnValueOK(env, callModule(f->C_DigestKey, toCk(hSession), toCk(hKey)));
}

QOR_NATIVE(jbyteArray, C_1Sign)(JNIEnv* env, jobject self, jlong hSession, jbyteArray jData) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return nullptr;
  CkBytes data;
  if (!data.convert(env, jData)) return nullptr;
  CK_ULONG capacity = kSignFirstCapacity;
  HeapPtr<CK_BYTE> signature(zeroAlloc<CK_BYTE>(capacity));
  if (!signature) {
    throwOutOfMemoryError(env);
    return nullptr;
  }
  CK_ULONG length = capacity;
  CK_RV rv = callModule(f->C_Sign, toCk(hSession), data.get(), data.length(), signature.get(), &length);
  if (rv == CKR_BUFFER_TOO_SMALL) {
    // The module told us the size it needs: one more try with exactly that.
    capacity = length;
    signature.reset(zeroAlloc<CK_BYTE>(capacity));
    if (!signature) {
      throwOutOfMemoryError(env);
      return nullptr;
    }
    rv = callModule(f->C_Sign, toCk(hSession), data.get(), data.length(), signature.get(), &length);
  }
  if (ckAssertReturnValueOK(env, rv) != CKR_OK) return nullptr;
  return ckByteArrayToJByteArray(env, signature.get(), length < capacity ? length : capacity);
}

QOR_NATIVE(void, C_1Verify)(JNIEnv* env, jobject self, jlong hSession, jbyteArray jData, jbyteArray jSignature) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return;
  CkBytes data, signature;
  if (!data.convert(env, jData) || !signature.convert(env, jSignature)) return;
  ckAssertReturnValueOK(env, callModule(f->C_Verify, toCk(hSession), data.get(), data.length(), signature.get(),
                                        signature.length()));
}
