#include "jvm.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void* reserved);

namespace qor::test {

JavaVM* java_vm() {
  static JavaVM* const vm = [] {
    // -Xrs keeps the VM's hands off the process signals the test framework
    // and the sanitizers use; -Xcheck:jni turns JNI misuse into failures.
    const char* flags[] = {"-Xrs", "-Xss1m", "-Xmx64m", "-Xcheck:jni"};
    constexpr size_t kFlags = sizeof flags / sizeof flags[0];
    JavaVMOption options[kFlags + 1];
    for (size_t i = 0; i < kFlags; ++i)
      options[i] = JavaVMOption{const_cast<char*>(flags[i]), nullptr};
    // A test that needs the Java API's classes names their jar in
    // QOR_TEST_JAVA_API_JAR before the VM starts; every other test goes without:
    // loading them costs every other test time and LeakSanitizer trouble.
    std::string classPath;
    size_t count = kFlags;
    if (const char* jar = std::getenv("QOR_TEST_JAVA_API_JAR")) {
      classPath = std::string("-Djava.class.path=") + jar;
      options[count++] = JavaVMOption{classPath.data(), nullptr};
    }
    JavaVMInitArgs args{};
    args.version = JNI_VERSION_1_8;
    args.nOptions = static_cast<jint>(count);
    args.options = options;
    args.ignoreUnrecognized = JNI_FALSE;
    JavaVM* created = nullptr;
    JNIEnv* env = nullptr;
    if (JNI_CreateJavaVM(&created, reinterpret_cast<void**>(&env), &args) != JNI_OK) {
      std::fprintf(stderr, "cannot start a Java VM\n");
      std::abort();
    }
    JNI_OnLoad(created, nullptr);
    return created;
  }();
  return vm;
}

JNIEnv* jni_env() {
  JavaVM* vm = java_vm();
  JNIEnv* env = nullptr;
  if (vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_8) == JNI_OK) return env;
  if (vm->AttachCurrentThread(reinterpret_cast<void**>(&env), nullptr) != JNI_OK) std::abort();
  return env;
}

void ensure_registry_lock() {
  JNIEnv* env = jni_env();
  if (moduleListLock == nullptr) moduleListLock = createLockObject(env);
}

jobject new_global_object() {
  JNIEnv* env = jni_env();
  jclass object = env->FindClass("java/lang/Object");
  jobject local = env->AllocObject(object);
  jobject global = env->NewGlobalRef(local);
  env->DeleteLocalRef(local);
  env->DeleteLocalRef(object);
  return global;
}

Registration::Registration(const char* name, CK_FUNCTION_LIST_PTR functions, void* libraryHandle)
    : object_(new_global_object()),
      binding_(new ModuleBinding{libraryHandle, functions, nullptr,
                                 name != nullptr ? strdup(name) : nullptr}),
      stored_(moduleListLock != nullptr) {
  putModuleEntry(jni_env(), object_, binding_);
}

Registration::~Registration() {
  // Once stored, the registry owns the reference and the name, and releases
  // them when the test removes the binding itself; without a lock nothing
  // was stored.
  bool listed = false;
  for (const ModuleEntry* e = moduleListHead; e != nullptr; e = e->next)
    listed |= e->binding == binding_;
  if (listed) {
    removeModuleEntry(jni_env(), object_);
  } else if (!stored_) {
    jni_env()->DeleteGlobalRef(object_);
    std::free(binding_->moduleName);
  }
  delete binding_;
}

}  // namespace qor::test
