// Natives of RemoteClient: the client connection's protocol, chosen from Java.
#include <jni.h>

#include "qorpkcs11/client/proxy.h"

#define QOR_REMOTE_NATIVE(ret, name) \
  extern "C" JNIEXPORT ret JNICALL Java_com_qor_smartcard_pkcs11_RemoteClient_##name

QOR_REMOTE_NATIVE(void, setExtensions)(JNIEnv*, jclass, jboolean on) {
  qorpkcs11_client_set_extensions(on == JNI_TRUE ? 1 : 0);
}

QOR_REMOTE_NATIVE(jboolean, isPeerExtended)(JNIEnv*, jclass) {
  return qorpkcs11_client_extended_peer() != 0 ? JNI_TRUE : JNI_FALSE;
}
