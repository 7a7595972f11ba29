#include <jni.h>

#include "qorpkcs11/common/log.h"
#include "qorpkcs11/registry/registry.h"

extern "C" {

JavaVM* gJavaVM = nullptr;

// Keeps the VM so that native threads (the server's) can reach the registry.
JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void* /*reserved*/) {
  QOR_LOGD(qor::log::kJni, "jni_onload : KORVANE PKCS11Wrapper version : %s", "2.4");
  gJavaVM = vm;
  return JNI_VERSION_1_2;
}

}  // extern "C"
