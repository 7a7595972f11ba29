// Object and attribute natives.
#include <cstring>

#include "qorpkcs11/jni/natives_common.h"

using namespace qor::jni;
using qor::log::kJni;

namespace {

// The output side of C_GetAttributeValue: one zeroed record per requested
// type and the buffers this native allocated for the values. Values are read
// back through the buffers we own, never through pointers a module wrote,
// and by the types we asked for, never by types a module wrote: in the
// calling process the module is the client proxy, and what it writes comes
// from the peer.
class ValueBuffers {
 public:
  ~ValueBuffers() {
    for (CK_ULONG i = 0; owned_ && i < count_; ++i) std::free(owned_.get()[i]);
  }

  bool init(JNIEnv* env, const CkTemplate& request) {
    count_ = request.count();
    records_.reset(zeroAlloc<CK_ATTRIBUTE>(count_));
    owned_.reset(zeroAlloc<void*>(count_));
    capacity_.reset(zeroAlloc<CK_ULONG>(count_));
    types_.reset(zeroAlloc<CK_ATTRIBUTE_TYPE>(count_));
    if (!records_ || !owned_ || !capacity_ || !types_) {
      throwOutOfMemoryError(env);
      return false;
    }
    for (CK_ULONG i = 0; i < count_; ++i) {
      const CK_ATTRIBUTE a = request.get()[i];
      records_.get()[i].type = a.type;
      types_.get()[i] = a.type;
    }
    return true;
  }

  // Room for each value the module announced. A nested template's length
  // counts attributes; giving it that many records keeps a module that
  // counts bytes inside the buffer too.
  bool allocate(JNIEnv* env) {
    for (CK_ULONG i = 0; i < count_; ++i) {
      CK_ATTRIBUTE& r = records_.get()[i];
      const CK_ATTRIBUTE_TYPE type = types_.get()[i];
      r.type = type;
      const CK_ULONG length = r.ulValueLen;
      if (length == CK_UNAVAILABLE_INFORMATION) continue;
      // zeroAlloc refuses a count whose bytes wrap size_t (32 bits on the device).
      void* value = isTemplateAttribute(type) ? static_cast<void*>(zeroAlloc<CK_ATTRIBUTE>(length))
                                              : static_cast<void*>(zeroAlloc<CK_BYTE>(length));
      if (value == nullptr) {
        throwOutOfMemoryError(env);
        return false;
      }
      owned_.get()[i] = value;
      capacity_.get()[i] = length;
      r.pValue = value;
    }
    return true;
  }

  // The attribute as Java should see it: the type asked for, our buffer, at
  // most as long as it is. Of a nested template only the records are ours;
  // the value pointers in them were written by the module, so the nested
  // values read as absent (a conforming module leaves them null anyway: it
  // was given none).
  CK_ATTRIBUTE result(CK_ULONG i) {
    CK_ATTRIBUTE a = records_.get()[i];
    const CK_ULONG reported = a.ulValueLen;
    a.type = types_.get()[i];
    a.pValue = owned_.get()[i];
    a.ulValueLen = reported < capacity_.get()[i] ? reported : capacity_.get()[i];
    if (reported == CK_UNAVAILABLE_INFORMATION) a.pValue = nullptr;
    if (a.pValue != nullptr && isTemplateAttribute(a.type)) {
      auto* nested = static_cast<CK_ATTRIBUTE*>(a.pValue);
      for (CK_ULONG k = 0; k < a.ulValueLen; ++k) nested[k].pValue = nullptr;
    }
    return a;
  }

  CK_ATTRIBUTE_PTR records() const { return records_.get(); }
  CK_ULONG count() const { return count_; }

 private:
  CK_ULONG count_ = 0;
  HeapPtr<CK_ATTRIBUTE> records_;
  HeapPtr<void*> owned_;
  HeapPtr<CK_ULONG> capacity_;
  HeapPtr<CK_ATTRIBUTE_TYPE> types_;
};

void logTemplateValues(const CkTemplate& t) {
  for (CK_ULONG i = 0; i < t.count(); ++i) {
    const CK_ATTRIBUTE a = t.get()[i];
    // Bounded by the value's length: values are not text and carry no terminator.
    const int shown = a.pValue != nullptr && !isTemplateAttribute(a.type) ? static_cast<int>(a.ulValueLen) : 0;
    QOR_LOGD(kJni, " pvalue:%.*s", shown, shown > 0 ? static_cast<const char*>(a.pValue) : "");
    QOR_LOGD(kJni, " ulValueLen:%llu", static_cast<unsigned long long>(a.ulValueLen));
  }
}

}  // namespace

QOR_NATIVE(jlong, C_1CreateObject)(JNIEnv* env, jobject self, jlong hSession, jobjectArray jTemplate) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return 0;
  CkTemplate t;
  if (!t.convert(env, jTemplate)) return 0;
  CK_OBJECT_HANDLE object = 0;
  if (ckAssertReturnValueOK(env, callModule(f->C_CreateObject, toCk(hSession), t.get(), t.count(), &object)) !=
      CKR_OK) {
    return 0;
  }
  return toJ(object);
}

QOR_NATIVE(jlong, C_1CopyObject)(JNIEnv* env, jobject self, jlong hSession, jlong hObject, jobjectArray jTemplate) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return 0;
  CkTemplate t;
  if (!t.convert(env, jTemplate)) return 0;
  CK_OBJECT_HANDLE object = 0;
  CK_RV rv = callModule(f->C_CopyObject, toCk(hSession), toCk(hObject), t.get(), t.count(), &object);
  if (ckAssertReturnValueOK(env, rv) != CKR_OK) return 0;
  return toJ(object);
}

QOR_NATIVE(void, C_1DestroyObject)(JNIEnv* env, jobject self, jlong hSession, jlong hObject) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f != nullptr) ckAssertReturnValueOK(env, callModule(f->C_DestroyObject, toCk(hSession), toCk(hObject)));
}

QOR_NATIVE(jlong, C_1GetObjectSize)(JNIEnv* env, jobject self, jlong hSession, jlong hObject) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return 0;
  CK_ULONG size = 0;
  if (ckAssertReturnValueOK(env, callModule(f->C_GetObjectSize, toCk(hSession), toCk(hObject), &size)) != CKR_OK) {
    return 0;
  }
  return toJ(size);
}

QOR_NATIVE(void, C_1GetAttributeValue)(JNIEnv* env, jobject self, jlong hSession, jlong hObject,
                                      jobjectArray jTemplate) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return;
  QOR_LOGD(kJni, "DEBUG: C_GetAttributeValue");
  QOR_LOGD(kJni, ", hSession=%u", static_cast<unsigned>(toCk(hSession)));
  QOR_LOGD(kJni, ", hObject=%ld", static_cast<long>(toCk(hObject)));
  QOR_LOGD(kJni, ", pTemplate=%p", static_cast<void*>(jTemplate));
  QOR_LOGD(kJni, " ... ");
  QOR_LOGD(kJni, "jAttributeArrayToCKAttributeArray now with jTemplate = %d",
           jTemplate != nullptr ? static_cast<int>(env->GetArrayLength(jTemplate)) : 0);
  CkTemplate request;
  if (!request.convert(env, jTemplate)) return;
  // Only the types are asked for: the values Java sent are dropped.
  ValueBuffers values;
  if (!values.init(env, request)) return;
  const CK_SESSION_HANDLE session = toCk(hSession);
  const CK_OBJECT_HANDLE object = toCk(hObject);
  // The first call learns each length; its code is the second call's too.
  callModule(f->C_GetAttributeValue, session, object, values.records(), values.count());
  if (!values.allocate(env)) return;
  CK_RV rv = callModule(f->C_GetAttributeValue, session, object, values.records(), values.count());
  for (CK_ULONG i = 0; i < values.count(); ++i) {
    const CK_ATTRIBUTE a = values.result(i);
    LocalRef<jobject> attribute(env, ckAttributePtrToJAttribute(env, &a));
    if (env->ExceptionCheck()) return;
    env->SetObjectArrayElement(jTemplate, static_cast<jsize>(i), attribute.get());
    if (env->ExceptionCheck()) return;  // e.g. an ArrayStoreException
  }
  ckAssertReturnValueOK(env, rv);
}

QOR_NATIVE(void, C_1SetAttributeValue)(JNIEnv* env, jobject self, jlong hSession, jlong hObject,
                                      jobjectArray jTemplate) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return;
  CkTemplate t;
  if (!t.convert(env, jTemplate)) return;
  ckAssertReturnValueOK(env, callModule(f->C_SetAttributeValue, toCk(hSession), toCk(hObject), t.get(), t.count()));
}

QOR_NATIVE(void, C_1FindObjectsInit)(JNIEnv* env, jobject self, jlong hSession, jobjectArray jTemplate) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return;
  QOR_LOGD(kJni, "DEBUG: C_FindObjectsInit");
  QOR_LOGD(kJni, ", hSession=%ld", static_cast<long>(toCk(hSession)));
  QOR_LOGD(kJni, ", pTemplate=%p", static_cast<void*>(jTemplate));
  CkTemplate t;
  if (!t.convert(env, jTemplate)) return;
  logTemplateValues(t);
  ckAssertReturnValueOK(env, callModule(f->C_FindObjectsInit, toCk(hSession), t.get(), t.count()));
}

QOR_NATIVE(jlongArray, C_1FindObjects)(JNIEnv* env, jobject self, jlong hSession, jlong maxObjectCount) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f == nullptr) return nullptr;
  const CK_ULONG max = toCk(maxObjectCount);
  HeapPtr<CK_OBJECT_HANDLE> handles(zeroAlloc<CK_OBJECT_HANDLE>(max));
  if (!handles) {
    throwOutOfMemoryError(env);
    return nullptr;
  }
  QOR_LOGD(kJni, " ckMaxObjectLength:%llu", static_cast<unsigned long long>(max));
  CK_ULONG found = 0;
  CK_RV rv = callModule(f->C_FindObjects, toCk(hSession), handles.get(), max, &found);
  QOR_LOGD(kJni, " ckActualObjectCount:%llu", static_cast<unsigned long long>(found));
  if (ckAssertReturnValueOK(env, rv) != CKR_OK) return nullptr;
  return ckULongArrayToJLongArray(env, handles.get(), found < max ? found : max);
}

QOR_NATIVE(void, C_1FindObjectsFinal)(JNIEnv* env, jobject self, jlong hSession) {
  CK_FUNCTION_LIST_PTR f = boundFunctions(env, self, __func__);
  if (f != nullptr) ckAssertReturnValueOK(env, callModule(f->C_FindObjectsFinal, toCk(hSession)));
}
