// Scoped owners for the JNI resources and native buffers the bridge takes:
// every path out of a native, the exception paths included, gives back what
// it took, and loops over Java arrays keep the local reference table flat.
#pragma once

#include <jni.h>

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace qor::jni {

// A JNI local reference, deleted when the owner leaves scope.
template <typename T = jobject>
class LocalRef {
 public:
  LocalRef() = default;
  LocalRef(JNIEnv* env, T ref) : env_(env), ref_(ref) {}
  ~LocalRef() { reset(); }
  LocalRef(LocalRef&& other) noexcept : env_(other.env_), ref_(other.release()) {}
  LocalRef& operator=(LocalRef&& other) noexcept {
    if (this != &other) {
      reset();
      env_ = other.env_;
      ref_ = other.release();
    }
    return *this;
  }
  LocalRef(const LocalRef&) = delete;
  LocalRef& operator=(const LocalRef&) = delete;

  T get() const { return ref_; }
  explicit operator bool() const { return ref_ != nullptr; }
  // Hands the reference to the caller, typically as a native's result.
  T release() {
    T ref = ref_;
    ref_ = nullptr;
    return ref;
  }
  void reset() {
    if (ref_ != nullptr) env_->DeleteLocalRef(ref_);
    ref_ = nullptr;
  }

 private:
  JNIEnv* env_ = nullptr;
  T ref_ = nullptr;
};

// Modified UTF-8 chars of a Java string; null for a null string. failed()
// tells a JVM out-of-memory (an OutOfMemoryError is then pending).
class UtfChars {
 public:
  UtfChars(JNIEnv* env, jstring str)
      : env_(env), str_(str), chars_(str != nullptr ? env->GetStringUTFChars(str, nullptr) : nullptr) {}
  ~UtfChars() {
    if (chars_ != nullptr) env_->ReleaseStringUTFChars(str_, chars_);
  }
  UtfChars(const UtfChars&) = delete;
  UtfChars& operator=(const UtfChars&) = delete;

  const char* get() const { return chars_; }
  bool failed() const { return str_ != nullptr && chars_ == nullptr; }

 private:
  JNIEnv* env_;
  jstring str_;
  const char* chars_;
};

// Buffers handed to modules and taken back by free(): the conversion
// routines produce malloc'ed memory, so everything here releases with free.
struct FreeDeleter {
  void operator()(void* p) const { std::free(p); }
};
template <typename T>
using HeapPtr = std::unique_ptr<T, FreeDeleter>;

// Zero-filled room for count elements plus one spare zero element, so even an
// empty buffer is a real pointer and text readers find a terminator. Null
// only when the allocation fails (or count would overflow).
template <typename T>
T* zeroAlloc(size_t count) {
  if (count >= (static_cast<size_t>(-1) / sizeof(T)) - 1) return nullptr;
  return static_cast<T*>(std::calloc(count + 1, sizeof(T)));
}

// Classes, methods and fields the conversions use on every call, looked up
// once and then kept for the life of the process: a FindClass costs more
// than most conversions. The classes are resolved when the library loads
// (resolveKnownClasses from JNI_OnLoad), on the thread and class loader that
// load it: on Android a native thread attached later finds only the system's
// classes. This library is loaded by one class loader, so a name always
// means the same class. Classes are global references: never delete them.
// One that is not found is looked up again next time. Names must be the
// library's string constants (they are kept, by their text).
//
// The class of a name; null with FindClass's exception pending when missing.
jclass knownClass(JNIEnv* env, const char* name);
// The same, but null without a pending exception when the class is not there
// (an application may strip classes it never uses).
jclass knownClassQuietly(JNIEnv* env, const char* name);
// A method of a known class; null with an exception pending when missing.
jmethodID knownMethod(JNIEnv* env, const char* className, const char* name, const char* signature);
// A field of a known class (valid for its subclasses' objects too); null
// with an exception pending when missing.
jfieldID knownField(JNIEnv* env, const char* className, const char* name, const char* signature);
// Every class the natives use that this library's class loader can see,
// looked up now; a missing one is left for its first use.
void resolveKnownClasses(JNIEnv* env);

inline bool isInstanceOf(JNIEnv* env, jobject obj, const char* className) {
  jclass cls = knownClassQuietly(env, className);
  return cls != nullptr && env->IsInstanceOf(obj, cls) == JNI_TRUE;
}

}  // namespace qor::jni
