// A Java VM inside the test process, for code that needs JNI (the module
// registry and everything that looks modules up through it).
//
//   JNIEnv* env = qor::test::jni_env();      // VM created on first use
//   qor::test::ensure_registry_lock();       // as initializeLibrary does
//   qor::test::Registration r("@mod", functionList);  // as connect does
//
// One VM per process, never destroyed (a JVM cannot be created twice).
// Under AddressSanitizer the test needs
// ASAN_OPTIONS=handle_segv=0:detect_leaks=0:allow_user_segv_handler=1
// (qor_add_gtest(<target> JAVA_VM ...) sets it).
#pragma once

#include <jni.h>

#include "qorpkcs11/registry/registry.h"
#include "qorpkcs11/pkcs11.h"

namespace qor::test {

// The VM, with the library's JNI_OnLoad already run on it as
// System.loadLibrary would; aborts the test process if it cannot start.
JavaVM* java_vm();

// The calling thread's environment; attaches the thread (for good) if the
// VM does not know it yet.
JNIEnv* jni_env();

// Creates moduleListLock if there is none.
void ensure_registry_lock();

// A new plain java.lang.Object, as a global reference.
jobject new_global_object();

// Binds `functions` under `name` to a fresh Java object, the way connect
// does (global reference, heap ModuleBinding, strdup'ed name), and removes
// the binding again when it goes out of scope (unless the test removed it).
class Registration {
 public:
  Registration(const char* name, CK_FUNCTION_LIST_PTR functions, void* libraryHandle = nullptr);
  ~Registration();
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;

  jobject object() const { return object_; }
  ModuleBinding* binding() const { return binding_; }

 private:
  jobject object_;
  ModuleBinding* binding_;
  bool stored_;
};

}  // namespace qor::test
