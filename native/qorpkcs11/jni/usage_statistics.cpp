#include <jni.h>

#include "qorpkcs11/common/log.h"
#include "qorpkcs11/server/server.h"

extern "C" {

// -1 while a request is being served, else the time of the last reply; the
// 32-bit value is widened with its sign.
JNIEXPORT jlong JNICALL
Java_com_qor_smartcard_adapter_SandboxedProcessUsageStatistics_native_1getLastUsageTime(
    JNIEnv* /*env*/, jobject /*self*/) {
  QOR_LOGD(qor::log::kNative, "Entered %s", __func__);
  return static_cast<jlong>(qorpkcs11_server_getLastUsageTime());
}

}  // extern "C"
