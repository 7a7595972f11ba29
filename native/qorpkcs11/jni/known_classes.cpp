#include <functional>
#include <mutex>
#include <string_view>
#include <unordered_map>

#include "qorpkcs11/jni/exceptions.h"
#include "qorpkcs11/jni/jni_util.h"

namespace qor::jni {
namespace {

// Keyed by the names' text (string views of the library's constants), so the
// same name written in two places shares one entry and a lookup builds no
// string.
struct MemberKey {
  std::string_view className;
  std::string_view name;
  std::string_view signature;
  bool operator==(const MemberKey& o) const {
    return className == o.className && name == o.name && signature == o.signature;
  }
};

struct MemberKeyHash {
  size_t operator()(const MemberKey& k) const {
    const std::hash<std::string_view> h;
    return h(k.className) ^ (h(k.name) << 1) ^ (h(k.signature) << 2);
  }
};

// Never destroyed: natives may still run while the process exits.
struct Known {
  std::mutex lock;
  std::unordered_map<std::string_view, jclass> classes;
  std::unordered_map<MemberKey, jmethodID, MemberKeyHash> methods;
  std::unordered_map<MemberKey, jfieldID, MemberKeyHash> fields;
};

Known& known() {
  static Known* const k = new Known();
  return *k;
}

template <typename Id>
Id cached(std::unordered_map<MemberKey, Id, MemberKeyHash>& ids, JNIEnv* env, const char* className,
          const char* name, const char* signature,
          Id (JNIEnv::*lookUp)(jclass, const char*, const char*)) {
  const MemberKey key{className, name, signature};
  Known& k = known();
  {
    std::lock_guard<std::mutex> guard(k.lock);
    const auto found = ids.find(key);
    if (found != ids.end()) return found->second;
  }
  jclass cls = knownClass(env, className);
  if (cls == nullptr) return nullptr;
  const Id id = (env->*lookUp)(cls, name, signature);
  if (id == nullptr) return nullptr;
  std::lock_guard<std::mutex> guard(k.lock);
  ids.emplace(key, id);
  return id;
}

// The classes the conversions and exceptions use, besides the mechanism
// parameter classes (resolveParameterClasses).
const char* const kClassesAtLoad[] = {
    QOR_PKCS11_CLASS("CK_ATTRIBUTE"), QOR_PKCS11_CLASS("CK_MECHANISM"),
    QOR_PKCS11_CLASS("CK_VERSION"), QOR_PKCS11_CLASS("CK_DATE"), QOR_PKCS11_CLASS("CK_INFO"),
    QOR_PKCS11_CLASS("CK_SLOT_INFO"), QOR_PKCS11_CLASS("CK_TOKEN_INFO"),
    QOR_PKCS11_CLASS("CK_MECHANISM_INFO"), QOR_PKCS11_CLASS("CK_SESSION_INFO"),
    QOR_PKCS11_CLASS("CK_C_INITIALIZE_ARGS"), QOR_PKCS11_CLASS("CK_SSL3_KEY_MAT_OUT"),
    QOR_PKCS11_CLASS("PKCS11Exception"), QOR_PKCS11_CLASS("PKCS11RuntimeException"),
    "[L" QOR_PKCS11_CLASS("CK_ATTRIBUTE") ";", "[B", "[Z", "[I", "[J", "[C",
    "java/lang/Long", "java/lang/Integer", "java/lang/Boolean", "java/lang/Byte",
    "java/lang/Character", "java/lang/String", "java/lang/Class", "java/lang/OutOfMemoryError",
    "java/lang/IllegalArgumentException", "java/io/IOException", "java/io/FileNotFoundException",
};

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
  return cached(known().methods, env, className, name, signature, &JNIEnv::GetMethodID);
}

jfieldID knownField(JNIEnv* env, const char* className, const char* name, const char* signature) {
  return cached(known().fields, env, className, name, signature, &JNIEnv::GetFieldID);
}

void resolveKnownClasses(JNIEnv* env) {
  for (const char* name : kClassesAtLoad) knownClassQuietly(env, name);
}

}  // namespace qor::jni
