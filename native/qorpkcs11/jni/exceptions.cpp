#include "qorpkcs11/jni/exceptions.h"

#include "qorpkcs11/jni/jni_util.h"

using qor::jni::LocalRef;

namespace {

// new cls(<ctor>, arg) and throw it; a failure on the way (class missing,
// no memory) leaves the JVM's own exception pending instead.
template <typename... Args>
void throwNew(JNIEnv* env, const char* className, const char* ctorSig, Args... args) {
  jclass cls = qor::jni::knownClass(env, className);
  jmethodID ctor = cls ? qor::jni::knownMethod(env, className, "<init>", ctorSig) : nullptr;
  if (ctor == nullptr) return;
  LocalRef<jthrowable> ex(env, static_cast<jthrowable>(env->NewObject(cls, ctor, args...)));
  if (ex) env->Throw(ex.get());
}

void throwWithMessage(JNIEnv* env, const char* className, jstring message) {
  if (message == nullptr) {
    throwNew(env, className, "()V");
  } else {
    throwNew(env, className, "(Ljava/lang/String;)V", message);
  }
}

}  // namespace

CK_RV ckAssertReturnValueOK(JNIEnv* env, CK_RV rv) {
  if (rv != CKR_OK) {
    // CK_RV is unsigned: zero-extend, so 0xFFFFFFFF stays positive in Java.
    throwNew(env, QOR_PKCS11_CLASS("PKCS11Exception"), "(J)V", static_cast<jlong>(rv));
  }
  return rv;
}

void throwPKCS11RuntimeException(JNIEnv* env, jstring message) {
  throwWithMessage(env, QOR_PKCS11_CLASS("PKCS11RuntimeException"), message);
}

void throwPKCS11RuntimeException(JNIEnv* env, const char* message) {
  LocalRef<jstring> text(env, message != nullptr ? env->NewStringUTF(message) : nullptr);
  if (message != nullptr && !text) return;  // OutOfMemoryError pending
  throwPKCS11RuntimeException(env, text.get());
}

void throwDisconnectedRuntimeException(JNIEnv* env) {
  throwPKCS11RuntimeException(env, "This object is not connected to a module.");
}

void throwOutOfMemoryError(JNIEnv* env) { throwNew(env, "java/lang/OutOfMemoryError", "()V"); }

void throwIOException(JNIEnv* env, const char* message) {
  jclass cls = qor::jni::knownClass(env, "java/io/IOException");
  if (cls) env->ThrowNew(cls, message);
}

void throwIOExceptionUnicodeMessage(JNIEnv* env, const jchar* message) {
  jsize length = 0;
  if (message != nullptr) {
    while (message[length] != 0) ++length;
  }
  LocalRef<jstring> text(env, message != nullptr ? env->NewString(message, length) : nullptr);
  if (message != nullptr && !text) return;
  throwWithMessage(env, "java/io/IOException", text.get());
}

void throwFileNotFoundException(JNIEnv* env, jstring message) {
  throwWithMessage(env, "java/io/FileNotFoundException", message);
}
