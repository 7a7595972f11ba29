// The lifecycle natives of com.qor.smartcard.pkcs11.Pkcs11: the registry lock,
// loading and binding a module, and choosing this process's role (server for
// the vendor module, or client of another process's server).
#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "qorpkcs11/client/proxy.h"
#include "qorpkcs11/common/log.h"
#include "qorpkcs11/jni/exceptions.h"
#include "qorpkcs11/jni/jni_util.h"
#include "qorpkcs11/registry/registry.h"
#include "qorpkcs11/server/server.h"

using qor::jni::UtfChars;
using qor::log::kNative;

namespace {

// Loading this very library as the module means "call the module in the
// serving process": its own C_GetFunctionList hands out the client proxies.
constexpr const char kWrapperLibrary[] = "libKorvanePkcs11Wrapper.so";
constexpr int kModeServer = 1;

// Loader failures reach Java as IOException with the loader's own words.
void throwLoaderError(JNIEnv* env, const char* fallback) {
  const char* why = dlerror();
  std::string message = why != nullptr ? why : fallback;
  QOR_LOGD(kNative, "%s...", message.c_str());
  throwIOException(env, message.c_str());
}

void releaseBinding(ModuleBinding* binding) {
  if (binding == nullptr) return;
  if (binding->libraryHandle != nullptr) dlclose(binding->libraryHandle);
  std::free(binding->moduleName);
  delete binding;
}

// Registers the binding for `self`. A repeated connect replaces the object's
// binding in place and leaves the earlier one loaded: another thread may
// still be inside a call on it. Without a registry (before
// initializeLibrary) nothing can be registered, so nothing is kept.
void registerBinding(JNIEnv* env, jobject self, ModuleBinding* binding) {
  if (moduleListLock == nullptr) {
    releaseBinding(binding);
    return;
  }
  jobject ref = env->NewGlobalRef(self);
  if (ref == nullptr) {
    releaseBinding(binding);
    throwOutOfMemoryError(env);
    return;
  }
  putModuleEntry(env, ref, binding);
}

}  // namespace

extern "C" {

JNIEXPORT void JNICALL Java_com_qor_smartcard_pkcs11_Pkcs11_initializeLibrary(JNIEnv* env, jobject) {
  if (moduleListLock == nullptr) moduleListLock = createLockObject(env);
}

JNIEXPORT void JNICALL Java_com_qor_smartcard_pkcs11_Pkcs11_finalizeLibrary(JNIEnv* env, jobject) {
  removeAllModuleEntries(env);
  if (moduleListHead == nullptr && moduleListLock != nullptr) {
    destroyLockObject(env, moduleListLock);
    moduleListLock = nullptr;
  }
}

JNIEXPORT void JNICALL Java_com_qor_smartcard_pkcs11_Pkcs11_connect(JNIEnv* env, jobject self,
                                                                   jstring jLibraryName,
                                                                   jstring jGetFunctionListName,
                                                                   jstring jModuleName, jint mode) {
  // One at a time: no JNI call may run with an OutOfMemoryError pending.
  UtfChars libraryName(env, jLibraryName);
  if (libraryName.failed()) return;
  UtfChars getterName(env, jGetFunctionListName);
  if (getterName.failed()) return;
  UtfChars moduleName(env, jModuleName);
  if (moduleName.failed()) return;
  const char* shownLibrary = libraryName.get() != nullptr ? libraryName.get() : "(null)";
  QOR_LOGD(kNative, "DEBUG: connect to PKCS#11 module: %s ... ", shownLibrary);
  QOR_LOGD(kNative, "DEBUG: connect to PKCS#11 module: %s ", shownLibrary);
  QOR_LOGD(kNative, "%s...", "Java_com_qor_smartcard_pkcs11_Pkcs11_connect");

  // The transport comes first: a server answers as soon as its module is
  // registered, a client is connected before its first call.
  if (moduleName.get() != nullptr) {
    if (mode == kModeServer) {
      qorpkcs11_init_server(moduleName.get());
    } else {
      QOR_LOGD(kNative, "Client socket init, libraryName: %s, ", shownLibrary);
      if (libraryName.get() != nullptr && std::strcmp(libraryName.get(), kWrapperLibrary) == 0) {
        qorpkcs11_client_init(moduleName.get());
      }
    }
  }

  // dlopen(NULL) would hand out the main program and dlsym(h, NULL) faults:
  // neither names a module.
  if (libraryName.get() == nullptr || getterName.get() == nullptr) {
    throwIOException(env, libraryName.get() == nullptr ? "No PKCS#11 library name given."
                                                        : "No function-list getter name given.");
    return;
  }

  dlerror();
  void* handle = dlopen(libraryName.get(), RTLD_LAZY);
  if (handle == nullptr) {
    throwLoaderError(env, "dlopen failed");
    return;
  }
  dlerror();
  auto getter = reinterpret_cast<CK_RV (*)(CK_FUNCTION_LIST_PTR_PTR)>(dlsym(handle, getterName.get()));
  if (getter == nullptr) {
    QOR_LOGD(kNative, "C_GetFunctionList load failed");
    // The library stays loaded, as it always has after a failed lookup.
    throwLoaderError(env, "dlsym failed");
    return;
  }

  auto* binding = new (std::nothrow) ModuleBinding{handle, nullptr, nullptr, nullptr};
  if (binding == nullptr || (moduleName.get() != nullptr &&
                             (binding->moduleName = strdup(moduleName.get())) == nullptr)) {
    delete binding;
    dlclose(handle);
    throwOutOfMemoryError(env);
    return;
  }
  CK_RV rv = getter(&binding->functionList);
  if (binding->functionList != nullptr) {
    const CK_VERSION version = binding->functionList->version;
    QOR_LOGD(kNative, "version from function ptr addr major %d, minor %d", version.major, version.minor);
  }
  // Registered even when the getter failed: the Java side learns of the
  // failure from the exception and may still disconnect.
  registerBinding(env, self, binding);
  if (env->ExceptionCheck()) return;
  QOR_LOGD(kNative, "FINISHED\n");
  QOR_LOGD(kNative, "FINISHED: %s rv:%d", "Java_com_qor_smartcard_pkcs11_Pkcs11_connect", static_cast<int>(rv));
  ckAssertReturnValueOK(env, rv);
}

JNIEXPORT void JNICALL Java_com_qor_smartcard_pkcs11_Pkcs11_disconnect(JNIEnv* env, jobject self) {
  QOR_LOGD(kNative, "DEBUG: disconnecting module...");
  releaseBinding(removeModuleEntry(env, self));
  // Whichever transport this process started: the client's closes its
  // connection, the server's only reports (its thread serves on).
  qorpkcs11_client_deinit();
  qorpkcs11_server_deinit();
  QOR_LOGD(kNative, "FINISHED\n");
}

}  // extern "C"
