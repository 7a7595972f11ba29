// How native failures reach Java: a nonzero CK_RV becomes PKCS11Exception,
// an unbound object or an unconvertible value PKCS11RuntimeException,
// allocation failures OutOfMemoryError, loader failures IOException.
#pragma once

#include <jni.h>

#include "qorpkcs11/pkcs11.h"

#define QOR_PKCS11_CLASS(name) "com/qor/smartcard/pkcs11/" name

// Throws PKCS11Exception(rv) unless rv is CKR_OK; returns rv either way.
CK_RV ckAssertReturnValueOK(JNIEnv* env, CK_RV rv);

void throwPKCS11RuntimeException(JNIEnv* env, jstring message);
// Same, for a message the native side composes.
void throwPKCS11RuntimeException(JNIEnv* env, const char* message);
void throwDisconnectedRuntimeException(JNIEnv* env);
void throwOutOfMemoryError(JNIEnv* env);
void throwIOException(JNIEnv* env, const char* message);
void throwIOExceptionUnicodeMessage(JNIEnv* env, const jchar* message);
void throwFileNotFoundException(JNIEnv* env, jstring message);
