#include <functional>
#include <mutex>
#include <unordered_map>

#include "qorpkcs11/jni/jni_util.h"

namespace qor::jni {
namespace {

struct MethodKey {
  const char* className;
  const char* name;
  const char* signature;
  bool operator==(const MethodKey& o) const {
    return className == o.className && name == o.name && signature == o.signature;
  }
};

struct MethodKeyHash {
  size_t operator()(const MethodKey& k) const {
    const std::hash<const void*> h;
    return h(k.className) ^ (h(k.name) << 1) ^ (h(k.signature) << 2);
  }
};

// Keyed by the names' addresses, so a lookup builds no string. Never
// destroyed: natives may still run while the process exits.
struct Known {
  std::mutex lock;
  std::unordered_map<const char*, jclass> classes;
  std::unordered_map<MethodKey, jmethodID, MethodKeyHash> methods;
};

Known& known() {
  static Known* const k = new Known();
  return *k;
}

}  // namespace

jclass knownClass(JNIEnv* env, const char* name) {
  Known& k = known();
  {
    std::lock_guard<std::mutex> guard(k.lock);
    const auto found = k.classes.find(name);
    if (found != k.classes.end()) return found->second;
  }
  LocalRef<jclass> local(env, env->FindClass(name));
  if (!local) return nullptr;
  const auto global = static_cast<jclass>(env->NewGlobalRef(local.get()));
  if (global == nullptr) return nullptr;
  std::lock_guard<std::mutex> guard(k.lock);
  const auto placed = k.classes.emplace(name, global);
  // Another thread got there first: keep its reference.
  if (!placed.second) env->DeleteGlobalRef(global);
  return placed.first->second;
}

jclass knownClassQuietly(JNIEnv* env, const char* name) {
  jclass cls = knownClass(env, name);
  if (cls == nullptr) env->ExceptionClear();
  return cls;
}

jmethodID knownMethod(JNIEnv* env, const char* className, const char* name, const char* signature) {
  const MethodKey key{className, name, signature};
  Known& k = known();
  {
    std::lock_guard<std::mutex> guard(k.lock);
    const auto found = k.methods.find(key);
    if (found != k.methods.end()) return found->second;
  }
  jclass cls = knownClass(env, className);
  if (cls == nullptr) return nullptr;
  const jmethodID method = env->GetMethodID(cls, name, signature);
  if (method == nullptr) return nullptr;
  std::lock_guard<std::mutex> guard(k.lock);
  k.methods.emplace(key, method);
  return method;
}

}  // namespace qor::jni
