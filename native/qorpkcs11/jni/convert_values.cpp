#include "qorpkcs11/jni/convert_values.h"

#include <climits>
#include <cstring>
#include <string>

#include "qorpkcs11/common/log.h"
#include "qorpkcs11/jni/exceptions.h"

using qor::jni::HeapPtr;
using qor::jni::knownClass;
using qor::jni::knownField;
using qor::jni::knownMethod;
using qor::jni::LocalRef;
using qor::jni::zeroAlloc;
using qor::log::kJni;

namespace {

constexpr const char kVersionSig[] = "L" QOR_PKCS11_CLASS("CK_VERSION") ";";
constexpr const char kAttributeClass[] = QOR_PKCS11_CLASS("CK_ATTRIBUTE");
constexpr const char kVersionClass[] = QOR_PKCS11_CLASS("CK_VERSION");
constexpr const char kDateClass[] = QOR_PKCS11_CLASS("CK_DATE");
constexpr const char kObjectSig[] = "Ljava/lang/Object;";

// Templates nest only one level in practice; the bound keeps a template that
// contains itself (or a module that reports a cyclic one) from exhausting
// the stack.
constexpr int kMaxTemplateDepth = 8;

// Java arrays are copied through a small stack window, so widening or
// narrowing element types needs no second heap buffer.
constexpr size_t kWindow = 256;

bool fitsJsize(CK_ULONG n) { return static_cast<unsigned long long>(n) <= INT_MAX; }

template <typename T>
T loadAt(const void* base, size_t offset) {
  T value;
  std::memcpy(&value, static_cast<const char*>(base) + offset, sizeof value);
  return value;
}

// ---- native structures to Java objects, by table -------------------------

struct ULongMember {
  const char* name;
  size_t offset;
};
struct TextMember {
  const char* name;
  size_t offset;
  size_t length;
};
struct VersionMember {
  const char* name;
  size_t offset;
};

struct StructMap {
  const char* className;
  const ULongMember* ulongs;
  size_t ulongCount;
  const TextMember* texts;
  size_t textCount;
  const VersionMember* versions;
  size_t versionCount;
};

template <typename T, size_t N>
constexpr size_t countOf(const T (&)[N]) {
  return N;
}

#define QOR_MEMBER(type, member) #member, offsetof(type, member)
#define QOR_TEXT(type, member) #member, offsetof(type, member), sizeof(type::member)

const ULongMember kInfoULongs[] = {{QOR_MEMBER(CK_INFO, flags)}};
const TextMember kInfoTexts[] = {{QOR_TEXT(CK_INFO, manufacturerID)},
                                 {QOR_TEXT(CK_INFO, libraryDescription)}};
const VersionMember kInfoVersions[] = {{QOR_MEMBER(CK_INFO, cryptokiVersion)},
                                       {QOR_MEMBER(CK_INFO, libraryVersion)}};

const ULongMember kSlotULongs[] = {{QOR_MEMBER(CK_SLOT_INFO, flags)}};
const TextMember kSlotTexts[] = {{QOR_TEXT(CK_SLOT_INFO, slotDescription)},
                                 {QOR_TEXT(CK_SLOT_INFO, manufacturerID)}};
const VersionMember kSlotVersions[] = {{QOR_MEMBER(CK_SLOT_INFO, hardwareVersion)},
                                       {QOR_MEMBER(CK_SLOT_INFO, firmwareVersion)}};

const ULongMember kTokenULongs[] = {
    {QOR_MEMBER(CK_TOKEN_INFO, flags)},
    {QOR_MEMBER(CK_TOKEN_INFO, ulMaxSessionCount)},
    {QOR_MEMBER(CK_TOKEN_INFO, ulSessionCount)},
    {QOR_MEMBER(CK_TOKEN_INFO, ulMaxRwSessionCount)},
    {QOR_MEMBER(CK_TOKEN_INFO, ulRwSessionCount)},
    {QOR_MEMBER(CK_TOKEN_INFO, ulMaxPinLen)},
    {QOR_MEMBER(CK_TOKEN_INFO, ulMinPinLen)},
    {QOR_MEMBER(CK_TOKEN_INFO, ulTotalPublicMemory)},
    {QOR_MEMBER(CK_TOKEN_INFO, ulFreePublicMemory)},
    {QOR_MEMBER(CK_TOKEN_INFO, ulTotalPrivateMemory)},
    {QOR_MEMBER(CK_TOKEN_INFO, ulFreePrivateMemory)},
};
const TextMember kTokenTexts[] = {
    {QOR_TEXT(CK_TOKEN_INFO, label)},        {QOR_TEXT(CK_TOKEN_INFO, manufacturerID)},
    {QOR_TEXT(CK_TOKEN_INFO, model)},        {QOR_TEXT(CK_TOKEN_INFO, serialNumber)},
    {QOR_TEXT(CK_TOKEN_INFO, utcTime)},
};
const VersionMember kTokenVersions[] = {{QOR_MEMBER(CK_TOKEN_INFO, hardwareVersion)},
                                        {QOR_MEMBER(CK_TOKEN_INFO, firmwareVersion)}};

const ULongMember kMechanismInfoULongs[] = {{QOR_MEMBER(CK_MECHANISM_INFO, ulMinKeySize)},
                                            {QOR_MEMBER(CK_MECHANISM_INFO, ulMaxKeySize)},
                                            {QOR_MEMBER(CK_MECHANISM_INFO, flags)}};

const ULongMember kSessionInfoULongs[] = {{QOR_MEMBER(CK_SESSION_INFO, slotID)},
                                          {QOR_MEMBER(CK_SESSION_INFO, state)},
                                          {QOR_MEMBER(CK_SESSION_INFO, flags)},
                                          {QOR_MEMBER(CK_SESSION_INFO, ulDeviceError)}};

const TextMember kDateTexts[] = {{QOR_TEXT(CK_DATE, year)},
                                 {QOR_TEXT(CK_DATE, month)},
                                 {QOR_TEXT(CK_DATE, day)}};

#define QOR_STRUCT_MAP(cls, ulongs, texts, versions) \
  {QOR_PKCS11_CLASS(cls), ulongs, countOf(ulongs), texts, countOf(texts), versions, countOf(versions)}

const StructMap kInfoMap = QOR_STRUCT_MAP("CK_INFO", kInfoULongs, kInfoTexts, kInfoVersions);
const StructMap kSlotInfoMap =
    QOR_STRUCT_MAP("CK_SLOT_INFO", kSlotULongs, kSlotTexts, kSlotVersions);
const StructMap kTokenInfoMap =
    QOR_STRUCT_MAP("CK_TOKEN_INFO", kTokenULongs, kTokenTexts, kTokenVersions);
const StructMap kMechanismInfoMap = {QOR_PKCS11_CLASS("CK_MECHANISM_INFO"), kMechanismInfoULongs,
                                     countOf(kMechanismInfoULongs), nullptr, 0, nullptr, 0};
const StructMap kSessionInfoMap = {QOR_PKCS11_CLASS("CK_SESSION_INFO"), kSessionInfoULongs,
                                   countOf(kSessionInfoULongs), nullptr, 0, nullptr, 0};
const StructMap kDateMap = {QOR_PKCS11_CLASS("CK_DATE"), nullptr, 0, kDateTexts,
                            countOf(kDateTexts), nullptr, 0};

// A new Java object of the map's class (no constructor runs) with every
// listed field set from the native structure at base.
jobject structToJObject(JNIEnv* env, const void* base, const StructMap& map) {
  if (base == nullptr) return nullptr;
  jclass cls = knownClass(env, map.className);
  if (cls == nullptr) return nullptr;
  LocalRef<jobject> obj(env, env->AllocObject(cls));
  if (!obj) return nullptr;
  for (size_t i = 0; i < map.ulongCount; ++i) {
    jfieldID id = knownField(env, map.className, map.ulongs[i].name, "J");
    if (id == nullptr) return nullptr;
    env->SetLongField(obj.get(), id, static_cast<jlong>(loadAt<CK_ULONG>(base, map.ulongs[i].offset)));
  }
  for (size_t i = 0; i < map.textCount; ++i) {
    const TextMember& m = map.texts[i];
    jfieldID id = knownField(env, map.className, m.name, "[C");
    if (id == nullptr) return nullptr;
    LocalRef<jcharArray> text(
        env, ckCharArrayToJCharArray(env, static_cast<const CK_CHAR*>(base) + m.offset,
                                     static_cast<CK_ULONG>(m.length)));
    if (!text) return nullptr;
    env->SetObjectField(obj.get(), id, text.get());
  }
  for (size_t i = 0; i < map.versionCount; ++i) {
    jfieldID id = knownField(env, map.className, map.versions[i].name, kVersionSig);
    if (id == nullptr) return nullptr;
    CK_VERSION version = loadAt<CK_VERSION>(base, map.versions[i].offset);
    LocalRef<jobject> jversion(env, ckVersionPtrToJVersion(env, &version));
    if (!jversion) return nullptr;
    env->SetObjectField(obj.get(), id, jversion.get());
  }
  return obj.release();
}

// new java.lang.<Box>(value)
template <typename J>
jobject box(JNIEnv* env, const char* className, const char* ctorSig, J value) {
  jclass cls = knownClass(env, className);
  jmethodID ctor = cls ? knownMethod(env, className, "<init>", ctorSig) : nullptr;
  if (ctor == nullptr) return nullptr;
  return env->NewObject(cls, ctor, value);
}

// ---- attribute values from the module ------------------------------------

enum class ValueForm { kULong, kBool, kChars, kDate, kTemplate, kULongArray, kBytes };

ValueForm valueFormOf(CK_ATTRIBUTE_TYPE type) {
  switch (type) {
    case CKA_CLASS:
    case CKA_CERTIFICATE_TYPE:
    case CKA_CERTIFICATE_CATEGORY:
    case CKA_JAVA_MIDP_SECURITY_DOMAIN:
    case CKA_KEY_TYPE:
    case CKA_MODULUS_BITS:
    case CKA_PRIME_BITS:
    case CKA_SUBPRIME_BITS:
    case CKA_VALUE_BITS:
    case CKA_VALUE_LEN:
    case CKA_KEY_GEN_MECHANISM:
    case CKA_AUTH_PIN_FLAGS:
    case CKA_HW_FEATURE_TYPE:
      return ValueForm::kULong;
    case CKA_TOKEN:
    case CKA_PRIVATE:
    case CKA_TRUSTED:
    case CKA_SENSITIVE:
    case CKA_ENCRYPT:
    case CKA_DECRYPT:
    case CKA_WRAP:
    case CKA_UNWRAP:
    case CKA_SIGN:
    case CKA_SIGN_RECOVER:
    case CKA_VERIFY:
    case CKA_VERIFY_RECOVER:
    case CKA_DERIVE:
    case CKA_EXTRACTABLE:
    case CKA_LOCAL:
    case CKA_NEVER_EXTRACTABLE:
    case CKA_ALWAYS_SENSITIVE:
    case CKA_MODIFIABLE:
    case CKA_SECONDARY_AUTH:
    case CKA_ALWAYS_AUTHENTICATE:
    case CKA_WRAP_WITH_TRUSTED:
    case CKA_RESET_ON_INIT:
    case CKA_HAS_RESET:
      return ValueForm::kBool;
    case CKA_LABEL:
    case CKA_APPLICATION:
    case CKA_URL:
      return ValueForm::kChars;
    case CKA_START_DATE:
    case CKA_END_DATE:
      return ValueForm::kDate;
    case CKA_WRAP_TEMPLATE:
    case CKA_UNWRAP_TEMPLATE:
      return ValueForm::kTemplate;
    case CKA_ALLOWED_MECHANISMS:
      return ValueForm::kULongArray;
    default:
      return ValueForm::kBytes;
  }
}

// A fixed-size value read from a value that may be shorter than it: the
// missing bytes read as zero instead of past the module's buffer.
template <typename T>
T loadValue(const CK_ATTRIBUTE& a) {
  T value;
  std::memset(&value, 0, sizeof value);
  std::memcpy(&value, a.pValue, a.ulValueLen < sizeof value ? a.ulValueLen : sizeof value);
  return value;
}

jobject attributeToJAttribute(JNIEnv* env, const CK_ATTRIBUTE* attribute, int depth);
jobjectArray attributesToJArray(JNIEnv* env, const CK_ATTRIBUTE* attributes, CK_ULONG count,
                                int depth);

jobject attributeValueToJObject(JNIEnv* env, const CK_ATTRIBUTE* attribute, int depth) {
  if (attribute == nullptr) return nullptr;
  const CK_ATTRIBUTE a = *attribute;
  if (a.ulValueLen < 1 || a.pValue == nullptr) return nullptr;
  switch (valueFormOf(a.type)) {
    case ValueForm::kULong: {
      CK_ULONG value = loadValue<CK_ULONG>(a);
      return ckULongPtrToJLongObject(env, &value);
    }
    case ValueForm::kBool: {
      CK_BBOOL value = *static_cast<const CK_BBOOL*>(a.pValue);
      return ckBBoolPtrToJBooleanObject(env, &value);
    }
    case ValueForm::kChars:
      return ckCharArrayToJCharArray(env, static_cast<const CK_CHAR*>(a.pValue), a.ulValueLen);
    case ValueForm::kDate: {
      CK_DATE value = loadValue<CK_DATE>(a);
      return ckDatePtrToJDateObject(env, &value);
    }
    case ValueForm::kTemplate:
      // The length counts attributes here, as it does on the way in.
      if (depth >= kMaxTemplateDepth) {
        throwPKCS11RuntimeException(env, "Attribute templates are nested too deeply.");
        return nullptr;
      }
      return attributesToJArray(env, static_cast<const CK_ATTRIBUTE*>(a.pValue), a.ulValueLen,
                                depth + 1);
    case ValueForm::kULongArray:
      return ckULongArrayToJLongArray(env, static_cast<const CK_ULONG*>(a.pValue),
                                      a.ulValueLen / sizeof(CK_ULONG));
    case ValueForm::kBytes:
      break;
  }
  return ckByteArrayToJByteArray(env, static_cast<const CK_BYTE*>(a.pValue), a.ulValueLen);
}

jobject attributeToJAttribute(JNIEnv* env, const CK_ATTRIBUTE* attribute, int depth) {
  if (attribute == nullptr) return nullptr;
  jclass cls = knownClass(env, kAttributeClass);
  if (cls == nullptr) return nullptr;
  LocalRef<jobject> obj(env, env->AllocObject(cls));
  if (!obj) return nullptr;
  jfieldID typeId = knownField(env, kAttributeClass, "type", "J");
  jfieldID valueId = typeId ? knownField(env, kAttributeClass, "pValue", kObjectSig) : nullptr;
  if (valueId == nullptr) return nullptr;
  const CK_ATTRIBUTE a = *attribute;
  env->SetLongField(obj.get(), typeId, static_cast<jlong>(a.type));
  LocalRef<jobject> value(env, attributeValueToJObject(env, attribute, depth));
  if (env->ExceptionCheck()) return nullptr;
  env->SetObjectField(obj.get(), valueId, value.get());
  return obj.release();
}

jobjectArray attributesToJArray(JNIEnv* env, const CK_ATTRIBUTE* attributes, CK_ULONG count,
                                int depth) {
  if (!fitsJsize(count)) {
    throwOutOfMemoryError(env);
    return nullptr;
  }
  jclass cls = knownClass(env, kAttributeClass);
  if (cls == nullptr) return nullptr;
  LocalRef<jobjectArray> array(env, env->NewObjectArray(static_cast<jsize>(count), cls, nullptr));
  if (!array) return nullptr;
  for (CK_ULONG i = 0; i < count && attributes != nullptr; ++i) {
    LocalRef<jobject> element(env, attributeToJAttribute(env, &attributes[i], depth));
    if (!element) return nullptr;
    env->SetObjectArrayElement(array.get(), static_cast<jsize>(i), element.get());
  }
  return array.release();
}

// ---- Java arrays to native buffers ----------------------------------------

// Copies a Java primitive array into a fresh zeroed buffer of To, element by
// element through From; GetRegion is the JNI Get<Type>ArrayRegion.
template <typename To, typename From, typename JArray, typename GetRegion>
int copyArray(JNIEnv* env, JArray array, To** out, CK_ULONG* length, GetRegion getRegion) {
  *out = nullptr;
  *length = 0;
  if (array == nullptr) return 0;
  jsize n = env->GetArrayLength(array);
  To* buffer = zeroAlloc<To>(static_cast<size_t>(n));
  if (buffer == nullptr) {
    throwOutOfMemoryError(env);
    return 1;
  }
  From window[kWindow];
  for (jsize done = 0; done < n;) {
    jsize chunk = n - done < static_cast<jsize>(kWindow) ? n - done : static_cast<jsize>(kWindow);
    (env->*getRegion)(array, done, chunk, window);
    for (jsize k = 0; k < chunk; ++k) buffer[done + k] = static_cast<To>(window[k]);
    done += chunk;
  }
  *out = buffer;
  *length = static_cast<CK_ULONG>(n);
  return 0;
}

// int[] travels like long[]: one CK_ULONG per element.
int jIntArrayToCKULongArray(JNIEnv* env, jintArray array, CK_ULONG_PTR* out, CK_ULONG* length) {
  return copyArray<CK_ULONG, jint>(env, array, out, length, &JNIEnv::GetIntArrayRegion);
}

template <typename T>
T* newValue(JNIEnv* env, T value) {
  T* out = static_cast<T*>(std::malloc(sizeof(T)));
  if (out == nullptr) {
    throwOutOfMemoryError(env);
    return nullptr;
  }
  std::memcpy(out, &value, sizeof(T));
  return out;
}

// A boxed value (Long, Integer, ...) as one heap value of type Ck: its
// accessor, e.g. longValue()J, is called through the matching
// JNIEnv::Call<Type>Method; Java's long, int and char narrow to their low bits.
template <typename Ck, typename J>
Ck* boxedToCk(JNIEnv* env, jobject value, const char* className, const char* method, const char* sig,
              J (JNIEnv::*call)(jobject, jmethodID, ...)) {
  if (value == nullptr) return nullptr;
  jmethodID id = qor::jni::knownMethod(env, className, method, sig);
  if (id == nullptr) return nullptr;
  J v = (env->*call)(value, id);
  if (env->ExceptionCheck()) return nullptr;
  return newValue<Ck>(env, static_cast<Ck>(v));
}

// ---- the dispatch of jObjectToPrimitiveCKObjectPtrPtr ---------------------

using PrimitiveConverter = void (*)(JNIEnv*, jobject, CK_VOID_PTR*, CK_ULONG*);

template <typename T, T* (*Convert)(JNIEnv*, jobject)>
void single(JNIEnv* env, jobject object, CK_VOID_PTR* out, CK_ULONG* length) {
  *out = Convert(env, object);
  *length = *out != nullptr ? sizeof(T) : 0;
}

template <typename T, typename JArray, int (*Convert)(JNIEnv*, JArray, T**, CK_ULONG*)>
void array(JNIEnv* env, jobject object, CK_VOID_PTR* out, CK_ULONG* length) {
  T* buffer = nullptr;
  Convert(env, static_cast<JArray>(object), &buffer, length);
  *out = buffer;
}

struct PrimitiveForm {
  const char* className;
  PrimitiveConverter convert;
};

// The first class in this order that the object is an instance of decides.
const PrimitiveForm kPrimitiveForms[] = {
    {"java/lang/Long", single<CK_ULONG, jLongObjectToCKULongPtr>},
    {"java/lang/Boolean", single<CK_BBOOL, jBooleanObjectToCKBBoolPtr>},
    {"[B", array<CK_BYTE, jbyteArray, jByteArrayToCKByteArray>},
    {"[C", array<CK_CHAR, jcharArray, jCharArrayToCKCharArray>},
    {"java/lang/Byte", single<CK_BYTE, jByteObjectToCKBytePtr>},
    {QOR_PKCS11_CLASS("CK_DATE"), single<CK_DATE, jDateObjectPtrToCKDatePtr>},
    {"java/lang/Character", single<CK_CHAR, jCharObjectToCKCharPtr>},
    {"java/lang/Integer", single<CK_ULONG, jIntegerObjectToCKULongPtr>},
    {"[Z", array<CK_BBOOL, jbooleanArray, jBooleanArrayToCKBBoolArray>},
    {"[I", array<CK_ULONG, jintArray, jIntArrayToCKULongArray>},
    {"[J", array<CK_ULONG, jlongArray, jLongArrayToCKULongArray>},
    {"java/lang/String", array<CK_UTF8CHAR, jstring, jStringToCKUTF8CharArray>},
};

void throwUnconvertible(JNIEnv* env, jobject object) {
  std::string message = "Java object of this class cannot be converted to native PKCS#11 type: ";
  LocalRef<jclass> objectClass(env, env->GetObjectClass(object));
  jmethodID getName = knownMethod(env, "java/lang/Class", "getName", "()Ljava/lang/String;");
  if (getName == nullptr) return;
  LocalRef<jstring> name(env, static_cast<jstring>(env->CallObjectMethod(objectClass.get(), getName)));
  if (env->ExceptionCheck()) return;
  qor::jni::UtfChars chars(env, name.get());
  if (chars.failed()) return;
  if (chars.get() != nullptr) message += chars.get();
  throwPKCS11RuntimeException(env, message.c_str());
}

int convertTemplate(JNIEnv* env, jobjectArray array, CK_ATTRIBUTE_PTR* out, CK_ULONG* count,
                    int depth);

bool convertAttribute(JNIEnv* env, jobject attribute, CK_ATTRIBUTE* out, int depth) {
  CK_ATTRIBUTE converted = {0, nullptr, 0};
  *out = converted;
  QOR_LOGD(kJni, "\nDEBUG: jAttributeToCKAttribute");
  if (attribute == nullptr) {
    throwPKCS11RuntimeException(env, "A template holds a null attribute.");
    return false;
  }
  QOR_LOGD(kJni, ", getting attribute object class");
  QOR_LOGD(kJni, ", getting type field");
  jfieldID typeId = knownField(env, kAttributeClass, "type", "J");
  if (typeId == nullptr) return false;
  converted.type = static_cast<CK_ATTRIBUTE_TYPE>(env->GetLongField(attribute, typeId));
  QOR_LOGD(kJni, ", type=0x%lX", static_cast<unsigned long>(converted.type));
  QOR_LOGD(kJni, ", getting pValue field");
  jfieldID valueId = knownField(env, kAttributeClass, "pValue", kObjectSig);
  if (valueId == nullptr) return false;
  LocalRef<jobject> value(env, env->GetObjectField(attribute, valueId));
  QOR_LOGD(kJni, ", pValue=%p", static_cast<void*>(value.get()));
  QOR_LOGD(kJni, ", converting pValue to primitive object");
  if (isTemplateAttribute(converted.type)) {
    QOR_LOGD(kJni, "\nCKF_ARRAY_ATTRIBUTE: \n");
    if (depth >= kMaxTemplateDepth) {
      throwPKCS11RuntimeException(env, "Attribute templates are nested too deeply.");
      return false;
    }
    if (value && !qor::jni::isInstanceOf(env, value.get(), "[L" QOR_PKCS11_CLASS("CK_ATTRIBUTE") ";")) {
      throwUnconvertible(env, value.get());
      return false;
    }
    CK_ATTRIBUTE_PTR nested = nullptr;
    CK_ULONG count = 0;
    if (convertTemplate(env, static_cast<jobjectArray>(value.get()), &nested, &count, depth + 1) != 0) {
      return false;
    }
    // The length of a nested template counts its attributes.
    converted.pValue = nested;
    converted.ulValueLen = count;
  } else {
    CK_VOID_PTR data = nullptr;
    CK_ULONG length = 0;
    jObjectToPrimitiveCKObjectPtrPtr(env, value.get(), &data, &length);
    if (env->ExceptionCheck()) {
      std::free(data);
      return false;
    }
    converted.pValue = data;
    converted.ulValueLen = length;
  }
  *out = converted;
  QOR_LOGD(kJni, "\nFINISHED\n");
  return true;
}

void logTemplateTypes(const CK_ATTRIBUTE* attributes, CK_ULONG count) {
#if QOR_DEBUG_LOG
  if (!qor::log::loggable(ANDROID_LOG_DEBUG, kJni)) return;
  std::string types = "\nConverted template with following types: ";
  char item[16];
  for (CK_ULONG i = 0; i < count; ++i) {
    const CK_ATTRIBUTE a = attributes[i];
    std::snprintf(item, sizeof item, i == 0 ? "0x%X" : ", 0x%X", static_cast<unsigned>(a.type));
    types += item;
  }
  QOR_LOGD(kJni, "%s", types.c_str());
#else
  (void)attributes;
  (void)count;
#endif
}

// 0, or 1 when the array itself could not be allocated, 2 for a later
// failure; an exception is pending after either.
int convertTemplate(JNIEnv* env, jobjectArray array, CK_ATTRIBUTE_PTR* out, CK_ULONG* count,
                    int depth) {
  *out = nullptr;
  *count = 0;
  QOR_LOGD(kJni, "%s", "jAttributeArrayToCKAttributeArray");
  QOR_LOGD(kJni, "\nDEBUG: jAttributeArrayToCKAttributeArray");
  if (array == nullptr) return 0;
  jsize n = env->GetArrayLength(array);
  CK_ATTRIBUTE_PTR attributes = zeroAlloc<CK_ATTRIBUTE>(static_cast<size_t>(n));
  if (attributes == nullptr) {
    throwOutOfMemoryError(env);
    return 1;
  }
  for (jsize i = 0; i < n; ++i) {
    QOR_LOGD(kJni, ", getting %llu. attribute", static_cast<unsigned long long>(i));
    LocalRef<jobject> element(env, env->GetObjectArrayElement(array, i));
    if (env->ExceptionCheck()) {
      freeCKAttributeArray(attributes, static_cast<CK_ULONG>(i));
      return 2;
    }
    QOR_LOGD(kJni, ", converting %llu. attribute", static_cast<unsigned long long>(i));
    CK_ATTRIBUTE converted;
    if (!convertAttribute(env, element.get(), &converted, depth)) {
      freeCKAttributeArray(attributes, static_cast<CK_ULONG>(i));
      return 2;
    }
    attributes[i] = converted;
  }
  QOR_LOGD(kJni, "FINISHED\n");
  logTemplateTypes(attributes, static_cast<CK_ULONG>(n));
  *out = attributes;
  *count = static_cast<CK_ULONG>(n);
  return 0;
}

// The char[] fields of a Java CK_DATE into the fixed digits of CK_DATE:
// shorter arrays leave zero bytes, longer ones are cut.
bool readDateField(JNIEnv* env, jobject date, const char* name, CK_CHAR* out, size_t size) {
  jfieldID id = knownField(env, kDateClass, name, "[C");
  if (id == nullptr) return false;
  LocalRef<jcharArray> chars(env, static_cast<jcharArray>(env->GetObjectField(date, id)));
  if (!chars) return true;
  jchar window[4] = {0, 0, 0, 0};
  jsize n = env->GetArrayLength(chars.get());
  jsize take = n < static_cast<jsize>(size) ? n : static_cast<jsize>(size);
  env->GetCharArrayRegion(chars.get(), 0, take, window);
  for (jsize k = 0; k < take; ++k) out[k] = static_cast<CK_CHAR>(window[k]);
  return true;
}

}  // namespace

// ==== native to Java =========================================================

jobject ckInfoPtrToJInfo(JNIEnv* env, const CK_INFO* info) {
  return structToJObject(env, info, kInfoMap);
}

jobject ckSlotInfoPtrToJSlotInfo(JNIEnv* env, const CK_SLOT_INFO* info) {
  return structToJObject(env, info, kSlotInfoMap);
}

jobject ckTokenInfoPtrToJTokenInfo(JNIEnv* env, const CK_TOKEN_INFO* info) {
  return structToJObject(env, info, kTokenInfoMap);
}

jobject ckMechanismInfoPtrToJMechanismInfo(JNIEnv* env, const CK_MECHANISM_INFO* info) {
  return structToJObject(env, info, kMechanismInfoMap);
}

jobject ckSessionInfoPtrToJSessionInfo(JNIEnv* env, const CK_SESSION_INFO* info) {
  return structToJObject(env, info, kSessionInfoMap);
}

jobject ckDatePtrToJDateObject(JNIEnv* env, const CK_DATE* date) {
  return structToJObject(env, date, kDateMap);
}

jobject ckVersionPtrToJVersion(JNIEnv* env, const CK_VERSION* version) {
  if (version == nullptr) return nullptr;
  jclass cls = knownClass(env, kVersionClass);
  if (cls == nullptr) return nullptr;
  LocalRef<jobject> obj(env, env->AllocObject(cls));
  jfieldID major = obj ? knownField(env, kVersionClass, "major", "B") : nullptr;
  jfieldID minor = major ? knownField(env, kVersionClass, "minor", "B") : nullptr;
  if (minor == nullptr) return nullptr;
  const CK_VERSION v = *version;
  env->SetByteField(obj.get(), major, static_cast<jbyte>(v.major));
  env->SetByteField(obj.get(), minor, static_cast<jbyte>(v.minor));
  return obj.release();
}

jobject ckAttributePtrToJAttribute(JNIEnv* env, const CK_ATTRIBUTE* attribute) {
  return attributeToJAttribute(env, attribute, 0);
}

jbyteArray ckByteArrayToJByteArray(JNIEnv* env, const CK_BYTE* bytes, CK_ULONG length) {
  if (!fitsJsize(length)) {
    throwOutOfMemoryError(env);
    return nullptr;
  }
  jbyteArray array = env->NewByteArray(static_cast<jsize>(length));
  if (array != nullptr && length > 0 && bytes != nullptr) {
    env->SetByteArrayRegion(array, 0, static_cast<jsize>(length), reinterpret_cast<const jbyte*>(bytes));
  }
  return array;
}

jcharArray ckCharArrayToJCharArray(JNIEnv* env, const CK_CHAR* chars, CK_ULONG length) {
  if (!fitsJsize(length)) {
    throwOutOfMemoryError(env);
    return nullptr;
  }
  jcharArray array = env->NewCharArray(static_cast<jsize>(length));
  if (array == nullptr || chars == nullptr) return array;
  jchar window[kWindow];
  for (CK_ULONG done = 0; done < length;) {
    CK_ULONG chunk = length - done < kWindow ? length - done : kWindow;
    for (CK_ULONG k = 0; k < chunk; ++k) window[k] = static_cast<jchar>(chars[done + k]);
    env->SetCharArrayRegion(array, static_cast<jsize>(done), static_cast<jsize>(chunk), window);
    done += chunk;
  }
  return array;
}

jlongArray ckULongArrayToJLongArray(JNIEnv* env, const CK_ULONG* values, CK_ULONG count) {
  if (!fitsJsize(count)) {
    throwOutOfMemoryError(env);
    return nullptr;
  }
  jlongArray array = env->NewLongArray(static_cast<jsize>(count));
  if (array == nullptr || values == nullptr) return array;
  jlong window[kWindow];
  for (CK_ULONG done = 0; done < count;) {
    CK_ULONG chunk = count - done < kWindow ? count - done : kWindow;
    for (CK_ULONG k = 0; k < chunk; ++k) window[k] = static_cast<jlong>(loadAt<CK_ULONG>(values, (done + k) * sizeof(CK_ULONG)));
    env->SetLongArrayRegion(array, static_cast<jsize>(done), static_cast<jsize>(chunk), window);
    done += chunk;
  }
  return array;
}

jobjectArray ckAttributeArrayToJAttributeArray(JNIEnv* env, const CK_ATTRIBUTE* attributes,
                                               CK_ULONG count) {
  return attributesToJArray(env, attributes, count, 0);
}

jobject ckBBoolPtrToJBooleanObject(JNIEnv* env, const CK_BBOOL* value) {
  if (value == nullptr) return nullptr;
  return box(env, "java/lang/Boolean", "(Z)V", static_cast<jboolean>(*value == CK_TRUE));
}

jobject ckULongPtrToJLongObject(JNIEnv* env, const CK_ULONG* value) {
  if (value == nullptr) return nullptr;
  return box(env, "java/lang/Long", "(J)V", static_cast<jlong>(loadAt<CK_ULONG>(value, 0)));
}

jobject ckAttributeValueToJObject(JNIEnv* env, const CK_ATTRIBUTE* attribute) {
  return attributeValueToJObject(env, attribute, 0);
}

// ==== Java to native =========================================================

int jByteArrayToCKByteArray(JNIEnv* env, jbyteArray array, CK_BYTE_PTR* out, CK_ULONG* length) {
  return copyArray<CK_BYTE, jbyte>(env, array, out, length, &JNIEnv::GetByteArrayRegion);
}

int jCharArrayToCKCharArray(JNIEnv* env, jcharArray array, CK_CHAR_PTR* out, CK_ULONG* length) {
  return copyArray<CK_CHAR, jchar>(env, array, out, length, &JNIEnv::GetCharArrayRegion);
}

int jBooleanArrayToCKBBoolArray(JNIEnv* env, jbooleanArray array, CK_BBOOL** out,
                                CK_ULONG* length) {
  return copyArray<CK_BBOOL, jboolean>(env, array, out, length, &JNIEnv::GetBooleanArrayRegion);
}

int jLongArrayToCKULongArray(JNIEnv* env, jlongArray array, CK_ULONG_PTR* out, CK_ULONG* length) {
  return copyArray<CK_ULONG, jlong>(env, array, out, length, &JNIEnv::GetLongArrayRegion);
}

int jStringToCKUTF8CharArray(JNIEnv* env, jstring string, CK_UTF8CHAR_PTR* out, CK_ULONG* length) {
  *out = nullptr;
  *length = 0;
  if (string == nullptr) return 0;
  qor::jni::UtfChars chars(env, string);
  if (chars.failed()) return 1;
  size_t n = std::strlen(chars.get());
  CK_UTF8CHAR_PTR buffer = zeroAlloc<CK_UTF8CHAR>(n);
  if (buffer == nullptr) {
    throwOutOfMemoryError(env);
    return 2;
  }
  std::memcpy(buffer, chars.get(), n);
  *out = buffer;
  *length = static_cast<CK_ULONG>(n);
  return 0;
}

int jAttributeArrayToCKAttributeArray(JNIEnv* env, jobjectArray array, CK_ATTRIBUTE_PTR* out,
                                      CK_ULONG* count) {
  return convertTemplate(env, array, out, count, 0);
}

bool jAttributeToCKAttribute(JNIEnv* env, jobject attribute, CK_ATTRIBUTE* out) {
  return convertAttribute(env, attribute, out, 0);
}

CK_BBOOL* jBooleanObjectToCKBBoolPtr(JNIEnv* env, jobject value) {
  return boxedToCk<CK_BBOOL>(env, value, "java/lang/Boolean", "booleanValue", "()Z", &JNIEnv::CallBooleanMethod);
}

CK_BYTE* jByteObjectToCKBytePtr(JNIEnv* env, jobject value) {
  return boxedToCk<CK_BYTE>(env, value, "java/lang/Byte", "byteValue", "()B", &JNIEnv::CallByteMethod);
}

CK_ULONG* jIntegerObjectToCKULongPtr(JNIEnv* env, jobject value) {
  return boxedToCk<CK_ULONG>(env, value, "java/lang/Integer", "intValue", "()I", &JNIEnv::CallIntMethod);
}

CK_ULONG* jLongObjectToCKULongPtr(JNIEnv* env, jobject value) {
  return boxedToCk<CK_ULONG>(env, value, "java/lang/Long", "longValue", "()J", &JNIEnv::CallLongMethod);
}

CK_CHAR* jCharObjectToCKCharPtr(JNIEnv* env, jobject value) {
  return boxedToCk<CK_CHAR>(env, value, "java/lang/Character", "charValue", "()C", &JNIEnv::CallCharMethod);
}

CK_VERSION* jVersionToCKVersionPtr(JNIEnv* env, jobject version) {
  if (version == nullptr) return nullptr;
  jfieldID major = knownField(env, kVersionClass, "major", "B");
  jfieldID minor = major ? knownField(env, kVersionClass, "minor", "B") : nullptr;
  if (minor == nullptr) return nullptr;
  CK_VERSION v;
  v.major = static_cast<CK_BYTE>(env->GetByteField(version, major));
  v.minor = static_cast<CK_BYTE>(env->GetByteField(version, minor));
  return newValue<CK_VERSION>(env, v);
}

CK_DATE* jDateObjectPtrToCKDatePtr(JNIEnv* env, jobject date) {
  if (date == nullptr) return nullptr;
  CK_DATE d;
  std::memset(&d, 0, sizeof d);
  CK_CHAR year[4] = {0, 0, 0, 0};
  CK_CHAR month[2] = {0, 0};
  CK_CHAR day[2] = {0, 0};
  if (!readDateField(env, date, "year", year, sizeof year) ||
      !readDateField(env, date, "month", month, sizeof month) ||
      !readDateField(env, date, "day", day, sizeof day)) {
    return nullptr;
  }
  std::memcpy(d.year, year, sizeof year);
  std::memcpy(d.month, month, sizeof month);
  std::memcpy(d.day, day, sizeof day);
  return newValue<CK_DATE>(env, d);
}

void jObjectToPrimitiveCKObjectPtrPtr(JNIEnv* env, jobject object, CK_VOID_PTR* out,
                                      CK_ULONG* length) {
  *out = nullptr;
  *length = 0;
  QOR_LOGD(kJni, "\nDEBUG: jObjectToPrimitiveCKObjectPtrPtr");
  if (object == nullptr) return;
  for (const PrimitiveForm& form : kPrimitiveForms) {
    if (qor::jni::isInstanceOf(env, object, form.className)) {
      form.convert(env, object, out, length);
      if (*out == nullptr) *length = 0;
      return;
    }
  }
  throwUnconvertible(env, object);
}

CK_C_INITIALIZE_ARGS_PTR makeCKInitArgsAdapter(JNIEnv* env, jobject args) {
  if (args == nullptr) return nullptr;
  HeapPtr<CK_C_INITIALIZE_ARGS> ck(zeroAlloc<CK_C_INITIALIZE_ARGS>(0));
  if (!ck) {
    throwOutOfMemoryError(env);
    return nullptr;
  }
  static constexpr char kArgsClass[] = QOR_PKCS11_CLASS("CK_C_INITIALIZE_ARGS");
  jfieldID flags = knownField(env, kArgsClass, "flags", "J");
  jfieldID reserved = flags ? knownField(env, kArgsClass, "pReserved", kObjectSig) : nullptr;
  if (reserved == nullptr) return nullptr;
  // Java has no mutex callbacks to offer: the four stay null.
  ck->flags = static_cast<CK_FLAGS>(env->GetLongField(args, flags));
  LocalRef<jobject> jReserved(env, env->GetObjectField(args, reserved));
  CK_VOID_PTR data = nullptr;
  CK_ULONG length = 0;
  jObjectToPrimitiveCKObjectPtrPtr(env, jReserved.get(), &data, &length);
  if (env->ExceptionCheck()) {
    std::free(data);
    return nullptr;
  }
  ck->pReserved = data;
  return ck.release();
}

void freeCKInitArgs(CK_C_INITIALIZE_ARGS_PTR args) {
  if (args == nullptr) return;
  std::free(args->pReserved);
  std::free(args);
}

void freeCKAttributeArray(CK_ATTRIBUTE_PTR attributes, CK_ULONG count) {
  if (attributes == nullptr) return;
  for (CK_ULONG i = 0; i < count; ++i) {
    const CK_ATTRIBUTE a = attributes[i];
    if (isTemplateAttribute(a.type)) {
      freeCKAttributeArray(static_cast<CK_ATTRIBUTE_PTR>(a.pValue), a.ulValueLen);
    } else {
      std::free(a.pValue);
    }
  }
  std::free(attributes);
}
