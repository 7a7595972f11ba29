// Natives of com.qor.smartcard.testmodule.TestModule: the control functions
// for Java tests, which System.load() this library and then call them.
#include <jni.h>

#include <string>
#include <vector>

#include "testmodule_control.h"

namespace {

// The Java string as UTF-8, released at scope end.
class Utf {
 public:
  Utf(JNIEnv* env, jstring s) : env_(env), s_(s), chars_(s != nullptr ? env->GetStringUTFChars(s, nullptr) : nullptr) {}
  ~Utf() {
    if (chars_ != nullptr) env_->ReleaseStringUTFChars(s_, chars_);
  }
  Utf(const Utf&) = delete;
  Utf& operator=(const Utf&) = delete;
  const char* get() const { return chars_; }

 private:
  JNIEnv* env_;
  jstring s_;
  const char* chars_;
};

template <class Get>
jstring text(JNIEnv* env, Get get) {
  const int n = get(nullptr, 0);
  if (n < 0) return nullptr;
  std::string s(static_cast<size_t>(n) + 1, '\0');
  get(s.data(), s.size());
  s.resize(static_cast<size_t>(n));
  return env->NewStringUTF(s.c_str());
}

}  // namespace

extern "C" {

JNIEXPORT void JNICALL Java_com_qor_smartcard_testmodule_TestModule_reset(JNIEnv*, jclass) { qortm_reset(); }

JNIEXPORT void JNICALL Java_com_qor_smartcard_testmodule_TestModule_resetReady(JNIEnv*, jclass) {
  qortm_reset_ready();
}

JNIEXPORT void JNICALL Java_com_qor_smartcard_testmodule_TestModule_clearCalls(JNIEnv*, jclass) {
  qortm_clear_calls();
}

JNIEXPORT void JNICALL Java_com_qor_smartcard_testmodule_TestModule_setRecording(JNIEnv*, jclass, jboolean on) {
  qortm_set_recording(on ? 1 : 0);
}

JNIEXPORT jint JNICALL Java_com_qor_smartcard_testmodule_TestModule_callCount(JNIEnv*, jclass) {
  return qortm_call_count();
}

JNIEXPORT jstring JNICALL Java_com_qor_smartcard_testmodule_TestModule_callText(JNIEnv* env, jclass, jint i) {
  return text(env, [i](char* b, size_t n) { return qortm_call_text(i, b, n); });
}

JNIEXPORT jstring JNICALL Java_com_qor_smartcard_testmodule_TestModule_callName(JNIEnv* env, jclass, jint i) {
  return text(env, [i](char* b, size_t n) { return qortm_call_name(i, b, n); });
}

JNIEXPORT jstring JNICALL Java_com_qor_smartcard_testmodule_TestModule_callArg(JNIEnv* env, jclass, jint i,
                                                                              jstring arg) {
  const Utf name(env, arg);
  if (name.get() == nullptr) return nullptr;
  return text(env, [&](char* b, size_t n) { return qortm_call_arg(i, name.get(), b, n); });
}

JNIEXPORT jlong JNICALL Java_com_qor_smartcard_testmodule_TestModule_callRv(JNIEnv*, jclass, jint i) {
  return qortm_call_rv(i);
}

JNIEXPORT jint JNICALL Java_com_qor_smartcard_testmodule_TestModule_lastCall(JNIEnv* env, jclass, jstring name) {
  const Utf n(env, name);
  return n.get() != nullptr ? qortm_last_call(n.get()) : -1;
}

JNIEXPORT void JNICALL Java_com_qor_smartcard_testmodule_TestModule_script(JNIEnv* env, jclass, jstring name,
                                                                          jlong rv, jbyteArray output,
                                                                          jlong lenValue, jlong countValue,
                                                                          jlongArray values) {
  const Utf n(env, name);
  std::vector<uint8_t> bytes;
  if (output != nullptr) {
    bytes.resize(static_cast<size_t>(env->GetArrayLength(output)));
    if (!bytes.empty()) env->GetByteArrayRegion(output, 0, static_cast<jsize>(bytes.size()), reinterpret_cast<jbyte*>(bytes.data()));
  }
  std::vector<CK_ULONG> ulongs;
  if (values != nullptr) {
    std::vector<jlong> longs(static_cast<size_t>(env->GetArrayLength(values)));
    if (!longs.empty()) env->GetLongArrayRegion(values, 0, static_cast<jsize>(longs.size()), longs.data());
    for (jlong v : longs) ulongs.push_back(static_cast<CK_ULONG>(v));
  }
  const int result = n.get() == nullptr ? -1
                                        : qortm_script(n.get(), static_cast<CK_RV>(rv),
                                                       output != nullptr ? bytes.data() : nullptr, bytes.size(),
                                                       lenValue, countValue, ulongs.data(), ulongs.size());
  if (result != 0 && !env->ExceptionCheck()) {
    jclass iae = env->FindClass("java/lang/IllegalArgumentException");
    if (iae != nullptr) env->ThrowNew(iae, "not a PKCS#11 function name");
  }
}

JNIEXPORT void JNICALL Java_com_qor_smartcard_testmodule_TestModule_slotEvent(JNIEnv*, jclass, jlong slot) {
  qortm_slot_event(static_cast<CK_SLOT_ID>(slot));
}

}  // extern "C"
