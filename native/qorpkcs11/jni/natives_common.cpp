#include "qorpkcs11/jni/natives_common.h"

#include "qorpkcs11/registry/registry.h"

namespace qor::jni {

CK_FUNCTION_LIST_PTR boundFunctions(JNIEnv* env, jobject self, const char* native) {
  QOR_LOGD(qor::log::kJni, " %s", native);
  ModuleBinding* binding = getModuleEntry(env, self);
  if (binding == nullptr) {
    if (!env->ExceptionCheck()) throwDisconnectedRuntimeException(env);
    return nullptr;
  }
  if (binding->functionList == nullptr) {
    QOR_LOGD(qor::log::kJni, "ckpFunctions is null %s", native);
    ckAssertReturnValueOK(env, CKR_FUNCTION_FAILED);
    return nullptr;
  }
  return binding->functionList;
}

}  // namespace qor::jni
