// Natives of PeerAccess: the access measures of the transport and the
// serving side, turned on from Java.
#include <jni.h>

#include "qorpkcs11/comm/access.h"
#include "qorpkcs11/jni/jni_util.h"
#include "qorpkcs11/server/server.h"

#define QOR_ACCESS_NATIVE(ret, name) \
  extern "C" JNIEXPORT ret JNICALL Java_com_qor_smartcard_pkcs11_PeerAccess_##name

QOR_ACCESS_NATIVE(void, allowClientUid)(JNIEnv*, jclass, jint uid) {
  qorpkcs11_comm_server_allow_uid(static_cast<uint32_t>(uid));
}

QOR_ACCESS_NATIVE(void, allowClientPid)(JNIEnv*, jclass, jint pid) { qorpkcs11_comm_server_allow_pid(pid); }

QOR_ACCESS_NATIVE(void, setServerTimeouts)(JNIEnv* env, jclass, jint frameMillis, jint idleMillis) {
  if (qorpkcs11_comm_server_set_timeouts(frameMillis, idleMillis) != 0) {
    jclass error = qor::jni::knownClass(env, "java/lang/IllegalArgumentException");
    if (error != nullptr) env->ThrowNew(error, "a time limit cannot be negative");
  }
}

QOR_ACCESS_NATIVE(void, setResetOnDisconnect)(JNIEnv*, jclass, jboolean on) {
  qorpkcs11_server_set_reset_on_disconnect(on == JNI_TRUE ? 1 : 0);
}

QOR_ACCESS_NATIVE(jint, awaitListening)(JNIEnv*, jclass, jint timeoutMillis) {
  return qorpkcs11_comm_server_wait_listening(timeoutMillis);
}

QOR_ACCESS_NATIVE(void, expectServerUid)(JNIEnv*, jclass, jlong uid) {
  qorpkcs11_comm_client_expect_server_uid(uid);
}

QOR_ACCESS_NATIVE(void, expectServerPid)(JNIEnv*, jclass, jlong pid) {
  qorpkcs11_comm_client_expect_server_pid(pid);
}
