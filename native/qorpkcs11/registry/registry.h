// The module registry: which loaded PKCS#11 module each Java Pkcs11 object
// is bound to, guarded by the monitor of one Java lock object. Native code
// (the server dispatcher, IQorPkcs11) finds modules here by name.
#pragma once

#include <jni.h>

#include "qorpkcs11/pkcs11.h"

struct ModuleBinding {
  void* libraryHandle;              // from dlopen
  CK_FUNCTION_LIST_PTR functionList;
  void* reserved;                   // always null
  char* moduleName;                 // strdup'ed module/socket name, or null
};

struct ModuleEntry {
  jobject javaObject;               // global reference to the Pkcs11 object
  ModuleBinding* binding;
  ModuleEntry* next;
};

extern "C" {
extern JavaVM* gJavaVM;
extern ModuleEntry* moduleListHead;
extern jobject moduleListLock;
}

// A global reference to a fresh java.lang.Object to serve as the lock, and
// its release (null is ignored).
jobject createLockObject(JNIEnv* env);
void destroyLockObject(JNIEnv* env, jobject lockObject);

// Every call below takes the monitor of moduleListLock; without a lock
// nothing is stored and nothing is found. Java objects are compared by
// identity (Object.equals called non-virtually).

// Appends {javaObject, binding}, or replaces the binding of a node that has
// that object already (the earlier binding is not released). The registry
// keeps javaObject, which must be a global reference, and takes over the
// binding's moduleName (strdup'ed). Throws OutOfMemoryError if no node can
// be allocated.
void putModuleEntry(JNIEnv* env, jobject javaObject, ModuleBinding* binding);
ModuleBinding* getModuleEntry(JNIEnv* env, jobject javaObject);
// From any native thread: one the VM does not know is attached for the
// lookup only. A null name selects the oldest registration; modules
// registered without a name never match a name. Null without a Java VM.
ModuleBinding* getModuleEntryByName(const char* name);
// Unlinks the node, deletes its global reference and frees moduleName (the
// binding's field is nulled); the binding itself goes back to the caller,
// who closes its library and frees it.
ModuleBinding* removeModuleEntry(JNIEnv* env, jobject javaObject);
// As removeModuleEntry for every node, but the bindings are left alone.
void removeAllModuleEntries(JNIEnv* env);
// The function list registered under name (null: the oldest), or null.
CK_FUNCTION_LIST_PTR getFunctionsByModule(const char* name);
bool isModulePresent(JNIEnv* env, jobject javaObject);
bool equals(JNIEnv* env, jobject a, jobject b);
