#include "qorpkcs11/registry/registry.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "qorpkcs11/common/log.h"

extern "C" {
ModuleEntry* moduleListHead = nullptr;
jobject moduleListLock = nullptr;
}

namespace {

constexpr const char* kTag = qor::log::kJni;

const char* shown(const char* text) { return text != nullptr ? text : "(null)"; }

// Where a walk ended: the node it stopped on, the one before it, and
// whether the final comparison matched.
struct Stop {
  ModuleEntry* node;
  ModuleEntry* previous;
  bool matched;
};

// The list is walked as deployed builds walk it: nodes with a successor are
// compared until one matches, then the node the walk stopped on is compared
// once more and that comparison decides. The list must not be empty.
template <typename Match>
Stop walk(Match match) {
  ModuleEntry* previous = nullptr;
  ModuleEntry* node = moduleListHead;
  while (node->next != nullptr) {
    if (match(node)) break;
    previous = node;
    node = node->next;
  }
  return {node, previous, match(node)};
}

Stop walk_to(JNIEnv* env, jobject javaObject) {
  return walk([&](const ModuleEntry* node) { return equals(env, javaObject, node->javaObject); });
}

void throw_out_of_memory(JNIEnv* env) {
  jclass error = env->FindClass("java/lang/OutOfMemoryError");
  if (error == nullptr) return;  // FindClass has thrown already
  jmethodID init = env->GetMethodID(error, "<init>", "()V");
  jobject thrown = init != nullptr ? env->NewObject(error, init) : nullptr;
  if (thrown != nullptr) env->Throw(static_cast<jthrowable>(thrown));
  env->DeleteLocalRef(error);
}

// Looks `javaObject` up under the monitor and lets `decide` act on where the
// walk stopped; null without an object, a lock or any entry.
template <typename Decide>
ModuleBinding* under_monitor(JNIEnv* env, jobject javaObject, Decide decide) {
  if (javaObject == nullptr || moduleListLock == nullptr) return nullptr;
  env->MonitorEnter(moduleListLock);
  ModuleBinding* binding = moduleListHead != nullptr ? decide(walk_to(env, javaObject)) : nullptr;
  env->MonitorExit(moduleListLock);
  return binding;
}

ModuleEntry* new_entry(jobject javaObject, ModuleBinding* binding) {
  return new (std::nothrow) ModuleEntry{javaObject, binding, nullptr};
}

// The calling thread's JNI environment; native threads unknown to the VM
// attach for the duration of a lookup.
class ThreadEnv {
 public:
  ThreadEnv() {
    if (gJavaVM->GetEnv(reinterpret_cast<void**>(&env_), JNI_VERSION_1_2) >= 0) return;
    QOR_LOGE(kTag, "callback_handler: failed to get JNI environment, assuming native thread");
#if defined(__ANDROID__)
    const jint attached = gJavaVM->AttachCurrentThread(&env_, nullptr);
#else
    const jint attached = gJavaVM->AttachCurrentThread(reinterpret_cast<void**>(&env_), nullptr);
#endif
    if (attached != JNI_OK) {
      QOR_LOGE(kTag, "callback_handler: failed to attach current thread");
      env_ = nullptr;
      return;
    }
    attached_ = true;
  }
  ThreadEnv(const ThreadEnv&) = delete;
  ThreadEnv& operator=(const ThreadEnv&) = delete;

  JNIEnv* get() const { return env_; }
  void detach() {
    if (attached_) gJavaVM->DetachCurrentThread();
    attached_ = false;
  }

 private:
  JNIEnv* env_ = nullptr;
  bool attached_ = false;
};

// java.lang.Object and its equals, resolved once: every lookup compares.
struct ObjectIds {
  jclass object = nullptr;  // a global reference, kept for the process
  jmethodID equals = nullptr;
};

const ObjectIds& object_ids(JNIEnv* env) {
  static const ObjectIds ids = [env] {
    ObjectIds found;
    jclass local = env->FindClass("java/lang/Object");
    if (local == nullptr) return found;
    found.object = static_cast<jclass>(env->NewGlobalRef(local));
    found.equals = env->GetMethodID(local, "equals", "(Ljava/lang/Object;)Z");
    env->DeleteLocalRef(local);
    return found;
  }();
  return ids;
}

}  // namespace

jobject createLockObject(JNIEnv* env) {
  jclass object = env->FindClass("java/lang/Object");
  if (object == nullptr) return nullptr;
  jmethodID init = env->GetMethodID(object, "<init>", "()V");
  jobject local = init != nullptr ? env->NewObject(object, init) : nullptr;
  jobject lock = local != nullptr ? env->NewGlobalRef(local) : nullptr;
  env->DeleteLocalRef(local);
  env->DeleteLocalRef(object);
  return lock;
}

void destroyLockObject(JNIEnv* env, jobject lockObject) {
  if (lockObject != nullptr) env->DeleteGlobalRef(lockObject);
}

bool equals(JNIEnv* env, jobject a, jobject b) {
  if (a == nullptr) return b == nullptr;
  // Object.equals called non-virtually is identity: an override in the
  // caller's class is never consulted.
  const ObjectIds& ids = object_ids(env);
  if (ids.object == nullptr || ids.equals == nullptr) return false;
  const jboolean same = env->CallNonvirtualBooleanMethod(a, ids.object, ids.equals, b);
  const bool thrown = env->ExceptionCheck() == JNI_TRUE;
  return !thrown && same == 1;
}

void putModuleEntry(JNIEnv* env, jobject javaObject, ModuleBinding* binding) {
  if (javaObject == nullptr || binding == nullptr) return;
  if (moduleListLock == nullptr) return;
  env->MonitorEnter(moduleListLock);
  if (moduleListHead == nullptr) {
    moduleListHead = new_entry(javaObject, binding);
    // Deployed builds leave the monitor entered after throwing here.
    if (moduleListHead == nullptr) return throw_out_of_memory(env);
  } else {
    const Stop stop = walk_to(env, javaObject);
    if (stop.matched) {
      // A repeated connect replaces the binding in place; the earlier one
      // stays with whoever made it.
      stop.node->binding = binding;
    } else {
      stop.node->next = new_entry(javaObject, binding);
      if (stop.node->next == nullptr) return throw_out_of_memory(env);
    }
  }
  env->MonitorExit(moduleListLock);
}

ModuleBinding* getModuleEntry(JNIEnv* env, jobject javaObject) {
  return under_monitor(env, javaObject, [](const Stop& stop) -> ModuleBinding* {
    if (!stop.matched) {
      QOR_LOGD(kTag, "the entry is not in the list");
      return nullptr;
    }
    QOR_LOGD(kTag, "found the entry");
    QOR_LOGD(kTag, "module name %s", shown(stop.node->binding->moduleName));
    return stop.node->binding;
  });
}

ModuleBinding* getModuleEntryByName(const char* name) {
  if (name != nullptr)
    QOR_LOGD(kTag, "module name passed %s", name);
  else
    QOR_LOGD(kTag, "module name passed NULL");
  // Without a Java VM there is no monitor to take and nothing registered.
  if (gJavaVM == nullptr) return nullptr;
  ThreadEnv thread;
  JNIEnv* env = thread.get();
  if (env == nullptr) return nullptr;
  // Without a lock the thread stays attached, as deployed builds leave it.
  if (moduleListLock == nullptr) return nullptr;

  ModuleBinding* binding = nullptr;
  env->MonitorEnter(moduleListLock);
  if (moduleListHead == nullptr) {
    binding = nullptr;
  } else if (name == nullptr) {
    QOR_LOGD(kTag, "found default entry");
    binding = moduleListHead->binding;
  } else {
    // A module registered without a name never matches one.
    const Stop stop = walk([name](const ModuleEntry* node) {
      const char* registered = node->binding != nullptr ? node->binding->moduleName : nullptr;
      return registered != nullptr && std::strcmp(name, registered) == 0;
    });
    if (stop.matched) {
      QOR_LOGD(kTag, "found the entry");
      binding = stop.node->binding;
    } else {
      QOR_LOGD(kTag, "the entry is not in the list");
    }
  }
  env->MonitorExit(moduleListLock);
  thread.detach();
  return binding;
}

CK_FUNCTION_LIST_PTR getFunctionsByModule(const char* name) {
  QOR_LOGD(kTag, " %s", "getFunctionsByModule");
  ModuleBinding* binding = getModuleEntryByName(name);
  if (binding == nullptr) {
    QOR_LOGD(kTag, "failed getting module entry");
    QOR_LOGD(kTag, "failed getting module entry");
    return nullptr;
  }
  if (binding->functionList == nullptr) {
    QOR_LOGD(kTag, "ckpFunctions is null %s", shown(name));
    return nullptr;
  }
  return binding->functionList;
}

ModuleBinding* removeModuleEntry(JNIEnv* env, jobject javaObject) {
  return under_monitor(env, javaObject, [env](const Stop& stop) -> ModuleBinding* {
    if (!stop.matched) return nullptr;
    ModuleEntry* node = stop.node;
    if (stop.previous == nullptr)
      moduleListHead = node->next;
    else
      stop.previous->next = node->next;
    env->DeleteGlobalRef(node->javaObject);
    // The caller gets the binding back to close its library; the name was ours.
    ModuleBinding* binding = node->binding;
    std::free(binding->moduleName);
    binding->moduleName = nullptr;
    delete node;
    return binding;
  });
}

void removeAllModuleEntries(JNIEnv* env) {
  if (moduleListLock == nullptr) return;
  env->MonitorEnter(moduleListLock);
  // The bindings and their libraries are left to process exit.
  for (ModuleEntry* node = moduleListHead; node != nullptr;) {
    ModuleEntry* next = node->next;
    env->DeleteGlobalRef(node->javaObject);
    if (node->binding != nullptr) {
      std::free(node->binding->moduleName);
      node->binding->moduleName = nullptr;
    }
    delete node;
    node = next;
  }
  moduleListHead = nullptr;
  env->MonitorExit(moduleListLock);
}

bool isModulePresent(JNIEnv* env, jobject javaObject) {
  return getModuleEntry(env, javaObject) != nullptr;
}
