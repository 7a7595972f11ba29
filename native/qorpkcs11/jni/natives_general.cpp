// General-purpose, slot, token and session natives, and the legacy
// parallel-function and slot-event ones.
#include <cstring>

#include "qorpkcs11/jni/natives_common.h"
#include "qorpkcs11/protocol/calls.h"

using namespace qor::jni;
using qor::log::kJni;

namespace {

// PKCS#11 labels are 32 blank-padded characters without a terminator; a
// shorter Java label is padded so the module never reads past it.
constexpr CK_ULONG kLabelLength = 32;

bool padLabel(JNIEnv* env, const CkChars& label, HeapPtr<CK_UTF8CHAR>* out) {
  if (label.get() == nullptr) return true;
  CK_ULONG n = label.length() > kLabelLength ? label.length() : kLabelLength;
  out->reset(zeroAlloc<CK_UTF8CHAR>(n));
  if (!*out) {
    throwOutOfMemoryError(env);
    return false;
  }
  std::memset(out->get(), ' ', n);
  std::memcpy(out->get(), label.get(), label.length());
  return true;
}

}  // namespace

QOR_NATIVE(void, C_1Initialize)(JNIEnv* env, jobject self, jobject jInitArgs) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return;
  QOR_LOGD(kJni, "DEBUG: initializing module... ");
  CK_C_INITIALIZE_ARGS_PTR args = makeCKInitArgsAdapter(env, jInitArgs);
  if (env->ExceptionCheck()) return;
  QOR_LOGD(kJni, "C_Initilize from function ptr addr %p", reinterpret_cast<void*>(f->C_Initialize));
  CK_RV rv = callModule(f->C_Initialize, static_cast<CK_VOID_PTR>(args));
  QOR_LOGD(kJni, "C_init Call completed");
  freeCKInitArgs(args);
  ckAssertReturnValueOK(env, rv);
}

QOR_NATIVE(void, C_1Finalize)(JNIEnv* env, jobject self, jobject jReserved) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return;
  // The reserved value travels like any other value object: a module sees a
  // real pointer (null for null), never a JNI reference.
  CK_VOID_PTR reserved = nullptr;
  CK_ULONG length = 0;
  jObjectToPrimitiveCKObjectPtrPtr(env, jReserved, &reserved, &length);
  HeapPtr<void> owner(reserved);
  if (env->ExceptionCheck()) return;
  ckAssertReturnValueOK(env, callModule(f->C_Finalize, reserved));
}

QOR_NATIVE(jobject, C_1GetInfo)(JNIEnv* env, jobject self) {
  return fetchInfo(env, self, __func__, QOR_ENTRY(C_GetInfo), ckInfoPtrToJInfo);
}

QOR_NATIVE(jlongArray, C_1GetSlotList)(JNIEnv* env, jobject self, jboolean tokenPresent) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return nullptr;
  const CK_BBOOL present = tokenPresent == JNI_TRUE ? CK_TRUE : CK_FALSE;
  return queryThenFetchULongs(
      env, [&](CK_SLOT_ID_PTR list, CK_ULONG_PTR count) { return callModule(f->C_GetSlotList, present, list, count); },
      true);
}

QOR_NATIVE(jobject, C_1GetSlotInfo)(JNIEnv* env, jobject self, jlong slotID) {
  return fetchInfo(env, self, __func__, QOR_ENTRY(C_GetSlotInfo), ckSlotInfoPtrToJSlotInfo, toCk(slotID));
}

QOR_NATIVE(jobject, C_1GetTokenInfo)(JNIEnv* env, jobject self, jlong slotID) {
  return fetchInfo(env, self, __func__, QOR_ENTRY(C_GetTokenInfo), ckTokenInfoPtrToJTokenInfo, toCk(slotID));
}

QOR_NATIVE(jlongArray, C_1GetMechanismList)(JNIEnv* env, jobject self, jlong slotID) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return nullptr;
  return queryThenFetchULongs(
      env,
      [&](CK_MECHANISM_TYPE_PTR list, CK_ULONG_PTR count) {
        return callModule(f->C_GetMechanismList, toCk(slotID), list, count);
      },
      false);
}

QOR_NATIVE(jobject, C_1GetMechanismInfo)(JNIEnv* env, jobject self, jlong slotID, jlong type) {
  return fetchInfo(env, self, __func__, QOR_ENTRY(C_GetMechanismInfo), ckMechanismInfoPtrToJMechanismInfo,
                   toCk(slotID), toCk(type));
}

QOR_NATIVE(void, C_1InitToken)(JNIEnv* env, jobject self, jlong slotID, jcharArray jPin, jcharArray jLabel) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return;
  CkChars pin, label;
  HeapPtr<CK_UTF8CHAR> padded;
  if (!pin.convert(env, jPin) || !label.convert(env, jLabel) || !padLabel(env, label, &padded)) return;
  CK_RV rv = callModule(f->C_InitToken, toCk(slotID), pin.get(), pin.length(), padded.get());
  QOR_LOGD(kJni, "InitToken return code: %llu", static_cast<unsigned long long>(rv));
  ckAssertReturnValueOK(env, rv);
}

QOR_NATIVE(void, C_1InitPIN)(JNIEnv* env, jobject self, jlong hSession, jcharArray jPin) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return;
  CkChars pin;
  if (!pin.convert(env, jPin)) return;
  ckAssertReturnValueOK(env, callModule(f->C_InitPIN, toCk(hSession), pin.get(), pin.length()));
}

QOR_NATIVE(void, C_1SetPIN)(JNIEnv* env, jobject self, jlong hSession, jcharArray jOldPin, jcharArray jNewPin) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return;
  CkChars oldPin, newPin;
  if (!oldPin.convert(env, jOldPin) || !newPin.convert(env, jNewPin)) return;
  ckAssertReturnValueOK(env, callModule(f->C_SetPIN, toCk(hSession), oldPin.get(), oldPin.length(),
                                        newPin.get(), newPin.length()));
}

QOR_NATIVE(jlong, C_1OpenSession)(JNIEnv* env, jobject self, jlong slotID, jlong flags, jobject, jobject) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return 0;
  QOR_LOGD(kJni, "DEBUG: C_OpenSession");
  QOR_LOGD(kJni, ", slotID=%llu", static_cast<unsigned long long>(toCk(slotID)));
  // Java callbacks are not bridged: no application value, no notify.
  CK_SESSION_HANDLE session = 0;
  CK_RV rv = callModule(f->C_OpenSession, toCk(slotID), toCk(flags), static_cast<CK_VOID_PTR>(nullptr),
                        static_cast<CK_NOTIFY>(nullptr), &session);
  QOR_LOGD(kJni, "got session");
  QOR_LOGD(kJni, ", SessionHandle=%llu", static_cast<unsigned long long>(session));
  if (ckAssertReturnValueOK(env, rv) != CKR_OK) return 0;
  return toJ(session);
}

// A session handle alone, as the calls table lists them.
#define QOR_SESSION_ONLY(name, field)                                                      \
  QOR_NATIVE(void, C_1##name)(JNIEnv * env, jobject self, jlong hSession) {                \
    CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);                          \
    if (f != nullptr) ckAssertReturnValueOK(env, callModule(f->C_##name, toCk(hSession))); \
  }
QOR_SESSION_CALLS(QOR_SESSION_ONLY)
#undef QOR_SESSION_ONLY

QOR_NATIVE(void, C_1CloseAllSessions)(JNIEnv* env, jobject self, jlong slotID) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f != nullptr) ckAssertReturnValueOK(env, callModule(f->C_CloseAllSessions, toCk(slotID)));
}

QOR_NATIVE(jobject, C_1GetSessionInfo)(JNIEnv* env, jobject self, jlong hSession) {
  return fetchInfo(env, self, __func__, QOR_ENTRY(C_GetSessionInfo), ckSessionInfoPtrToJSessionInfo,
                   toCk(hSession));
}

QOR_NATIVE(jbyteArray, C_1GetOperationState)(JNIEnv* env, jobject self, jlong hSession) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return nullptr;
  return queryThenFetchBytes(env, [&](CK_BYTE_PTR out, CK_ULONG_PTR length) {
    return callModule(f->C_GetOperationState, toCk(hSession), out, length);
  });
}

QOR_NATIVE(void, C_1SetOperationState)(JNIEnv* env, jobject self, jlong hSession, jbyteArray jState,
                                      jlong hEncryptionKey, jlong hAuthenticationKey) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return;
  CkBytes state;
  if (!state.convert(env, jState)) return;
  ckAssertReturnValueOK(env, callModule(f->C_SetOperationState, toCk(hSession), state.get(), state.length(),
                                        toCk(hEncryptionKey), toCk(hAuthenticationKey)));
}

QOR_NATIVE(void, C_1Login)(JNIEnv* env, jobject self, jlong hSession, jlong userType, jcharArray jPin) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return;
  CkChars pin;
  if (!pin.convert(env, jPin)) return;
  ckAssertReturnValueOK(env, callModule(f->C_Login, toCk(hSession), toCk(userType), pin.get(), pin.length()));
}


QOR_NATIVE(jlong, C_1WaitForSlotEvent)(JNIEnv* env, jobject self, jlong flags) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return 0;
  CK_SLOT_ID slot = 0;
  CK_RV rv = callModule(f->C_WaitForSlotEvent, toCk(flags), &slot, static_cast<CK_VOID_PTR>(nullptr));
  if (ckAssertReturnValueOK(env, rv) != CKR_OK) return 0;
  return toJ(slot);
}
