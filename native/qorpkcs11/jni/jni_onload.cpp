#include <jni.h>

#include "qorpkcs11/common/log.h"
#include "qorpkcs11/jni/convert_mechanism.h"
#include "qorpkcs11/jni/jni_util.h"
#include "qorpkcs11/registry/registry.h"

extern "C" {

JavaVM* gJavaVM = nullptr;

// Keeps the VM so that native threads (the server's) can reach the registry,
// and resolves the classes the natives use.
JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void* /*reserved*/) {
  QOR_LOGD(qor::log::kJni, "jni_onload : KORVANE PKCS11Wrapper version : %s", "2.4");
  gJavaVM = vm;
  // Now, on the loading thread: its class loader is the app's.
  JNIEnv* env = nullptr;
  if (vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_2) == JNI_OK) {
    qor::jni::resolveKnownClasses(env);
    resolveParameterClasses(env);
  }
  return JNI_VERSION_1_2;
}

}  // extern "C"
