#include "qorpkcs11/jni/convert_mechanism.h"

#include <cstdlib>
#include <cstring>

#include "qorpkcs11/common/log.h"
#include "qorpkcs11/common/sizes.h"
#include "qorpkcs11/jni/convert_values.h"
#include "qorpkcs11/jni/exceptions.h"
#include "qorpkcs11/jni/jni_util.h"

using qor::jni::LocalRef;
using qor::jni::zeroAlloc;
using qor::log::kJni;

namespace {

constexpr char kMechanismClass[] = QOR_PKCS11_CLASS("CK_MECHANISM");
constexpr char kVersionClass[] = QOR_PKCS11_CLASS("CK_VERSION");
constexpr char kKeyMatOutClass[] = QOR_PKCS11_CLASS("CK_SSL3_KEY_MAT_OUT");

// ---- parameter layouts ----------------------------------------------------
//
// Each parameter class is described member by member: which Java field feeds
// which native member at which byte offset of the packed structure. The same
// description drives conversion, freeing and the copy-backs, so the three
// can never disagree on where a buffer lives.

enum class Kind {
  kULong,       // long -> CK_ULONG
  kBBool,       // boolean -> CK_BBOOL
  kByte,        // byte -> CK_BYTE
  kBytes,       // byte[] -> heap buffer; its length to `extra` unless kNoLength
  kChars,       // char[] -> heap CK_CHAR buffer, narrowed; length as for kBytes
  kFixedBytes,  // byte[] -> inline array of `extra` bytes, zero padded or cut
  kVersionPtr,  // CK_VERSION -> heap CK_VERSION
  kNested,      // object -> structure embedded at `offset`, described by `nested`
  kKeyMatOut,   // heap CK_SSL3_KEY_MAT_OUT for the module to fill; IV bits at `extra`
};

constexpr size_t kNoLength = static_cast<size_t>(-1);

struct Member;
struct MemberTable {
  const Member* members;
  size_t count;
  const char* javaClass;      // the class that declares these fields
  const char* javaSignature;  // of a field holding such an object, when nested
};

struct Member {
  Kind kind;
  const char* javaName;
  size_t offset;
  size_t extra = kNoLength;
  const MemberTable* nested = nullptr;
  size_t room = 0;  // least bytes a kBytes/kChars buffer gets, for a module to write into
};

template <size_t N>
constexpr MemberTable table(const Member (&members)[N], const char* javaClass,
                            const char* signature = nullptr) {
  return MemberTable{members, N, javaClass, signature};
}

#define QOR_AT(type, member) offsetof(type, member)

// CK_SSL3_RANDOM_DATA, embedded in both SSL3 parameter structures.
const Member kRandomData[] = {
    {Kind::kBytes, "pClientRandom", QOR_AT(CK_SSL3_RANDOM_DATA, pClientRandom),
     QOR_AT(CK_SSL3_RANDOM_DATA, ulClientRandomLen)},
    {Kind::kBytes, "pServerRandom", QOR_AT(CK_SSL3_RANDOM_DATA, pServerRandom),
     QOR_AT(CK_SSL3_RANDOM_DATA, ulServerRandomLen)},
};
const MemberTable kRandomDataTable =
    table(kRandomData, QOR_PKCS11_CLASS("CK_SSL3_RANDOM_DATA"),
          "L" QOR_PKCS11_CLASS("CK_SSL3_RANDOM_DATA") ";");

const Member kOaep[] = {
    {Kind::kULong, "hashAlg", QOR_AT(CK_RSA_PKCS_OAEP_PARAMS, hashAlg)},
    {Kind::kULong, "mgf", QOR_AT(CK_RSA_PKCS_OAEP_PARAMS, mgf)},
    {Kind::kULong, "source", QOR_AT(CK_RSA_PKCS_OAEP_PARAMS, source)},
    {Kind::kBytes, "pSourceData", QOR_AT(CK_RSA_PKCS_OAEP_PARAMS, pSourceData),
     QOR_AT(CK_RSA_PKCS_OAEP_PARAMS, ulSourceDataLen)},
};
const Member kKea[] = {
    {Kind::kBBool, "isSender", QOR_AT(CK_KEA_DERIVE_PARAMS, isSender)},
    {Kind::kBytes, "pRandomA", QOR_AT(CK_KEA_DERIVE_PARAMS, pRandomA),
     QOR_AT(CK_KEA_DERIVE_PARAMS, ulRandomLen)},
    {Kind::kBytes, "pRandomB", QOR_AT(CK_KEA_DERIVE_PARAMS, pRandomB)},
    {Kind::kBytes, "pPublicData", QOR_AT(CK_KEA_DERIVE_PARAMS, pPublicData),
     QOR_AT(CK_KEA_DERIVE_PARAMS, ulPublicDataLen)},
};
const Member kRc2Cbc[] = {
    {Kind::kULong, "ulEffectiveBits", QOR_AT(CK_RC2_CBC_PARAMS, ulEffectiveBits)},
    {Kind::kFixedBytes, "iv", QOR_AT(CK_RC2_CBC_PARAMS, iv), sizeof(CK_RC2_CBC_PARAMS::iv)},
};
const Member kRc2MacGeneral[] = {
    {Kind::kULong, "ulEffectiveBits", QOR_AT(CK_RC2_MAC_GENERAL_PARAMS, ulEffectiveBits)},
    {Kind::kULong, "ulMacLength", QOR_AT(CK_RC2_MAC_GENERAL_PARAMS, ulMacLength)},
};
const Member kRc5[] = {
    {Kind::kULong, "ulWordsize", QOR_AT(CK_RC5_PARAMS, ulWordsize)},
    {Kind::kULong, "ulRounds", QOR_AT(CK_RC5_PARAMS, ulRounds)},
};
const Member kRc5Cbc[] = {
    {Kind::kULong, "ulWordsize", QOR_AT(CK_RC5_CBC_PARAMS, ulWordsize)},
    {Kind::kULong, "ulRounds", QOR_AT(CK_RC5_CBC_PARAMS, ulRounds)},
    {Kind::kBytes, "pIv", QOR_AT(CK_RC5_CBC_PARAMS, pIv), QOR_AT(CK_RC5_CBC_PARAMS, ulIvLen)},
};
const Member kRc5MacGeneral[] = {
    {Kind::kULong, "ulWordsize", QOR_AT(CK_RC5_MAC_GENERAL_PARAMS, ulWordsize)},
    {Kind::kULong, "ulRounds", QOR_AT(CK_RC5_MAC_GENERAL_PARAMS, ulRounds)},
    {Kind::kULong, "ulMacLength", QOR_AT(CK_RC5_MAC_GENERAL_PARAMS, ulMacLength)},
};
const Member kSkipjackPrivateWrap[] = {
    {Kind::kBytes, "pPassword", QOR_AT(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, pPassword),
     QOR_AT(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, ulPasswordLen)},
    {Kind::kBytes, "pPublicData", QOR_AT(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, pPublicData),
     QOR_AT(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, ulPublicDataLen)},
    {Kind::kBytes, "pRandomA", QOR_AT(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, pRandomA),
     QOR_AT(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, ulRandomLen)},
    {Kind::kBytes, "pPrimeP", QOR_AT(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, pPrimeP),
     QOR_AT(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, ulPAndGLen)},
    {Kind::kBytes, "pBaseG", QOR_AT(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, pBaseG)},
    {Kind::kBytes, "pSubprimeQ", QOR_AT(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, pSubprimeQ),
     QOR_AT(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, ulQLen)},
};
#define QOR_RELAYX(buffer, length) \
  {Kind::kBytes, #buffer, QOR_AT(CK_SKIPJACK_RELAYX_PARAMS, buffer), \
   QOR_AT(CK_SKIPJACK_RELAYX_PARAMS, length)}
const Member kSkipjackRelayx[] = {
    QOR_RELAYX(pOldWrappedX, ulOldWrappedXLen),   QOR_RELAYX(pOldPassword, ulOldPasswordLen),
    QOR_RELAYX(pOldPublicData, ulOldPublicDataLen), QOR_RELAYX(pOldRandomA, ulOldRandomLen),
    QOR_RELAYX(pNewPassword, ulNewPasswordLen),   QOR_RELAYX(pNewPublicData, ulNewPublicDataLen),
    QOR_RELAYX(pNewRandomA, ulNewRandomLen),
};
#undef QOR_RELAYX
// The IV buffer has no length member: the module writes as many bytes as its
// mechanism generates (8 for every PBE mechanism of the standard), so the
// buffer holds at least a 16-byte block whatever the Java array's length.
constexpr size_t kPbeIvRoom = 16;
const Member kPbe[] = {
    {Kind::kChars, "pInitVector", QOR_AT(CK_PBE_PARAMS, pInitVector), kNoLength, nullptr, kPbeIvRoom},
    {Kind::kChars, "pPassword", QOR_AT(CK_PBE_PARAMS, pPassword), QOR_AT(CK_PBE_PARAMS, ulPasswordLen)},
    {Kind::kChars, "pSalt", QOR_AT(CK_PBE_PARAMS, pSalt), QOR_AT(CK_PBE_PARAMS, ulSaltLen)},
    {Kind::kULong, "ulIteration", QOR_AT(CK_PBE_PARAMS, ulIteration)},
};
// The password members are not carried: modules see them empty.
const Member kPkcs5Pbkd2[] = {
    {Kind::kULong, "saltSource", QOR_AT(CK_PKCS5_PBKD2_PARAMS, saltSource)},
    {Kind::kBytes, "pSaltSourceData", QOR_AT(CK_PKCS5_PBKD2_PARAMS, pSaltSourceData),
     QOR_AT(CK_PKCS5_PBKD2_PARAMS, ulSaltSourceDataLen)},
    {Kind::kULong, "iterations", QOR_AT(CK_PKCS5_PBKD2_PARAMS, iterations)},
    {Kind::kULong, "prf", QOR_AT(CK_PKCS5_PBKD2_PARAMS, prf)},
    {Kind::kBytes, "pPrfData", QOR_AT(CK_PKCS5_PBKD2_PARAMS, pPrfData),
     QOR_AT(CK_PKCS5_PBKD2_PARAMS, ulPrfDataLen)},
};
const Member kKeyDerivationStringData[] = {
    {Kind::kBytes, "pData", QOR_AT(CK_KEY_DERIVATION_STRING_DATA, pData),
     QOR_AT(CK_KEY_DERIVATION_STRING_DATA, ulLen)},
};
const Member kKeyWrapSetOaep[] = {
    {Kind::kByte, "bBC", QOR_AT(CK_KEY_WRAP_SET_OAEP_PARAMS, bBC)},
    {Kind::kBytes, "pX", QOR_AT(CK_KEY_WRAP_SET_OAEP_PARAMS, pX), QOR_AT(CK_KEY_WRAP_SET_OAEP_PARAMS, ulXLen)},
};
const Member kSsl3MasterKeyDerive[] = {
    {Kind::kNested, "RandomInfo", QOR_AT(CK_SSL3_MASTER_KEY_DERIVE_PARAMS, RandomInfo), kNoLength,
     &kRandomDataTable},
    {Kind::kVersionPtr, "pVersion", QOR_AT(CK_SSL3_MASTER_KEY_DERIVE_PARAMS, pVersion)},
};
const Member kSsl3KeyMat[] = {
    {Kind::kULong, "ulMacSizeInBits", QOR_AT(CK_SSL3_KEY_MAT_PARAMS, ulMacSizeInBits)},
    {Kind::kULong, "ulKeySizeInBits", QOR_AT(CK_SSL3_KEY_MAT_PARAMS, ulKeySizeInBits)},
    {Kind::kULong, "ulIVSizeInBits", QOR_AT(CK_SSL3_KEY_MAT_PARAMS, ulIVSizeInBits)},
    {Kind::kBBool, "bIsExport", QOR_AT(CK_SSL3_KEY_MAT_PARAMS, bIsExport)},
    {Kind::kNested, "RandomInfo", QOR_AT(CK_SSL3_KEY_MAT_PARAMS, RandomInfo), kNoLength,
     &kRandomDataTable},
    {Kind::kKeyMatOut, "pReturnedKeyMaterial", QOR_AT(CK_SSL3_KEY_MAT_PARAMS, pReturnedKeyMaterial),
     QOR_AT(CK_SSL3_KEY_MAT_PARAMS, ulIVSizeInBits)},
};
const Member kRsaPkcsPss[] = {
    {Kind::kULong, "hashAlg", QOR_AT(CK_RSA_PKCS_PSS_PARAMS, hashAlg)},
    {Kind::kULong, "mgf", QOR_AT(CK_RSA_PKCS_PSS_PARAMS, mgf)},
    {Kind::kULong, "sLen", QOR_AT(CK_RSA_PKCS_PSS_PARAMS, sLen)},
};
// ECDH and X9.42 DH: the same shapes under other member names.
#define QOR_DH1(type, kdf, shared)                                                       \
  {Kind::kULong, "kdf", QOR_AT(type, kdf)},                                              \
      {Kind::kBytes, "p" #shared, QOR_AT(type, p##shared), QOR_AT(type, ul##shared##Len)}, \
      {Kind::kBytes, "pPublicData", QOR_AT(type, pPublicData), QOR_AT(type, ulPublicDataLen)}
#define QOR_DH2(type)                                                       \
  {Kind::kULong, "ulPrivateDataLen", QOR_AT(type, ulPrivateDataLen)},       \
      {Kind::kULong, "hPrivateData", QOR_AT(type, hPrivateData)},           \
      {Kind::kBytes, "pPublicData2", QOR_AT(type, pPublicData2), QOR_AT(type, ulPublicDataLen2)}
const Member kEcdh1[] = {QOR_DH1(CK_ECDH1_DERIVE_PARAMS, kdf, SharedData)};
const Member kEcdh2[] = {QOR_DH1(CK_ECDH2_DERIVE_PARAMS, kdf, SharedData),
                         QOR_DH2(CK_ECDH2_DERIVE_PARAMS)};
const Member kX942Dh1[] = {QOR_DH1(CK_X9_42_DH1_DERIVE_PARAMS, kdf, OtherInfo)};
const Member kX942Dh2[] = {QOR_DH1(CK_X9_42_DH2_DERIVE_PARAMS, kdf, OtherInfo),
                           QOR_DH2(CK_X9_42_DH2_DERIVE_PARAMS)};
#undef QOR_DH1
#undef QOR_DH2
const Member kDesCbcEncryptData[] = {
    {Kind::kFixedBytes, "iv", QOR_AT(CK_DES_CBC_ENCRYPT_DATA_PARAMS, iv),
     sizeof(CK_DES_CBC_ENCRYPT_DATA_PARAMS::iv)},
    {Kind::kBytes, "pData", QOR_AT(CK_DES_CBC_ENCRYPT_DATA_PARAMS, pData),
     QOR_AT(CK_DES_CBC_ENCRYPT_DATA_PARAMS, length)},
};
const Member kAesCbcEncryptData[] = {
    {Kind::kFixedBytes, "iv", QOR_AT(CK_AES_CBC_ENCRYPT_DATA_PARAMS, iv),
     sizeof(CK_AES_CBC_ENCRYPT_DATA_PARAMS::iv)},
    {Kind::kBytes, "pData", QOR_AT(CK_AES_CBC_ENCRYPT_DATA_PARAMS, pData),
     QOR_AT(CK_AES_CBC_ENCRYPT_DATA_PARAMS, length)},
};

// Member tables by structure name, for the class table below.
#define QOR_MEMBERS_CK_RSA_PKCS_OAEP_PARAMS kOaep
#define QOR_MEMBERS_CK_KEA_DERIVE_PARAMS kKea
#define QOR_MEMBERS_CK_RC2_CBC_PARAMS kRc2Cbc
#define QOR_MEMBERS_CK_RC2_MAC_GENERAL_PARAMS kRc2MacGeneral
#define QOR_MEMBERS_CK_RC5_PARAMS kRc5
#define QOR_MEMBERS_CK_RC5_CBC_PARAMS kRc5Cbc
#define QOR_MEMBERS_CK_RC5_MAC_GENERAL_PARAMS kRc5MacGeneral
#define QOR_MEMBERS_CK_SKIPJACK_PRIVATE_WRAP_PARAMS kSkipjackPrivateWrap
#define QOR_MEMBERS_CK_SKIPJACK_RELAYX_PARAMS kSkipjackRelayx
#define QOR_MEMBERS_CK_PBE_PARAMS kPbe
#define QOR_MEMBERS_CK_PKCS5_PBKD2_PARAMS kPkcs5Pbkd2
#define QOR_MEMBERS_CK_KEY_DERIVATION_STRING_DATA kKeyDerivationStringData
#define QOR_MEMBERS_CK_KEY_WRAP_SET_OAEP_PARAMS kKeyWrapSetOaep
#define QOR_MEMBERS_CK_SSL3_MASTER_KEY_DERIVE_PARAMS kSsl3MasterKeyDerive
#define QOR_MEMBERS_CK_SSL3_KEY_MAT_PARAMS kSsl3KeyMat
#define QOR_MEMBERS_CK_RSA_PKCS_PSS_PARAMS kRsaPkcsPss
#define QOR_MEMBERS_CK_ECDH1_DERIVE_PARAMS kEcdh1
#define QOR_MEMBERS_CK_ECDH2_DERIVE_PARAMS kEcdh2
#define QOR_MEMBERS_CK_X9_42_DH1_DERIVE_PARAMS kX942Dh1
#define QOR_MEMBERS_CK_X9_42_DH2_DERIVE_PARAMS kX942Dh2
#define QOR_MEMBERS_CK_DES_CBC_ENCRYPT_DATA_PARAMS kDesCbcEncryptData
#define QOR_MEMBERS_CK_AES_CBC_ENCRYPT_DATA_PARAMS kAesCbcEncryptData

// ---- generic fill, free and lookups ---------------------------------------

template <typename T>
void storeAt(void* base, size_t offset, T value) {
  std::memcpy(static_cast<char*>(base) + offset, &value, sizeof value);
}

template <typename T>
T loadAt(const void* base, size_t offset) {
  T value;
  std::memcpy(&value, static_cast<const char*>(base) + offset, sizeof value);
  return value;
}

const char* signatureOf(const Member& m) {
  switch (m.kind) {
    case Kind::kULong: return "J";
    case Kind::kBBool: return "Z";
    case Kind::kByte: return "B";
    case Kind::kBytes: return "[B";
    case Kind::kChars: return "[C";
    case Kind::kFixedBytes: return "[B";
    case Kind::kVersionPtr: return "L" QOR_PKCS11_CLASS("CK_VERSION") ";";
    case Kind::kNested: return m.nested->javaSignature;
    case Kind::kKeyMatOut: return "L" QOR_PKCS11_CLASS("CK_SSL3_KEY_MAT_OUT") ";";
  }
  return "";
}

// Looked up by the declaring class, so the ID is found once (at load) and
// serves every instance, subclasses included.
jfieldID fieldOf(JNIEnv* env, const MemberTable& members, const Member& m) {
  return qor::jni::knownField(env, members.javaClass, m.javaName, signatureOf(m));
}

bool fillMembers(JNIEnv* env, jobject obj, void* base, const MemberTable& members,
                 CK_ULONG* lengths);

// One member of a parameter from its Java field; lengths[i] (when given)
// receives the size of the buffer allocated for it.
bool fillMember(JNIEnv* env, jobject obj, void* base, const MemberTable& members, const Member& m,
                CK_ULONG* length) {
  if (m.kind == Kind::kKeyMatOut) {
    // Output only: IV buffers sized by the IV bits member filled before it.
    CK_ULONG bits = loadAt<CK_ULONG>(base, m.extra);
    size_t ivLength = qor::bytes_for_bits(bits);
    auto* out = zeroAlloc<CK_SSL3_KEY_MAT_OUT>(0);
    if (out == nullptr) {
      throwOutOfMemoryError(env);
      return false;
    }
    storeAt(base, m.offset, out);
    if (ivLength > 0) {
      CK_BYTE_PTR client = zeroAlloc<CK_BYTE>(ivLength);
      CK_BYTE_PTR server = client ? zeroAlloc<CK_BYTE>(ivLength) : nullptr;
      out->pIVClient = client;
      out->pIVServer = server;
      if (server == nullptr) {
        throwOutOfMemoryError(env);
        return false;
      }
    }
    if (length != nullptr) *length = static_cast<CK_ULONG>(ivLength);
    return true;
  }
  jfieldID id = fieldOf(env, members, m);
  if (id == nullptr) return false;
  switch (m.kind) {
    case Kind::kULong:
      storeAt(base, m.offset, static_cast<CK_ULONG>(env->GetLongField(obj, id)));
      return true;
    case Kind::kBBool:
      storeAt(base, m.offset, static_cast<CK_BBOOL>(env->GetBooleanField(obj, id) ? CK_TRUE : CK_FALSE));
      return true;
    case Kind::kByte:
      storeAt(base, m.offset, static_cast<CK_BYTE>(env->GetByteField(obj, id)));
      return true;
    case Kind::kBytes:
    case Kind::kChars: {
      LocalRef<jobject> array(env, env->GetObjectField(obj, id));
      CK_BYTE_PTR buffer = nullptr;
      CK_ULONG n = 0;
      int status = m.kind == Kind::kBytes
                       ? jByteArrayToCKByteArray(env, static_cast<jbyteArray>(array.get()), &buffer, &n)
                       : jCharArrayToCKCharArray(env, static_cast<jcharArray>(array.get()), &buffer, &n);
      if (status != 0) return false;
      if (buffer != nullptr && n < m.room) {
        CK_BYTE_PTR wider = zeroAlloc<CK_BYTE>(m.room);
        if (wider == nullptr) {
          std::free(buffer);
          throwOutOfMemoryError(env);
          return false;
        }
        std::memcpy(wider, buffer, n);
        std::free(buffer);
        buffer = wider;
        n = static_cast<CK_ULONG>(m.room);
      }
      storeAt(base, m.offset, buffer);
      if (m.extra != kNoLength) storeAt(base, m.extra, n);
      if (length != nullptr) *length = n;
      return true;
    }
    case Kind::kFixedBytes: {
      LocalRef<jbyteArray> array(env, static_cast<jbyteArray>(env->GetObjectField(obj, id)));
      if (!array) return true;
      jsize n = env->GetArrayLength(array.get());
      jsize take = static_cast<size_t>(n) < m.extra ? n : static_cast<jsize>(m.extra);
      env->GetByteArrayRegion(array.get(), 0, take,
                              reinterpret_cast<jbyte*>(static_cast<char*>(base) + m.offset));
      return true;
    }
    case Kind::kVersionPtr: {
      LocalRef<jobject> version(env, env->GetObjectField(obj, id));
      CK_VERSION* v = jVersionToCKVersionPtr(env, version.get());
      storeAt(base, m.offset, v);
      return !env->ExceptionCheck();
    }
    case Kind::kNested: {
      LocalRef<jobject> nested(env, env->GetObjectField(obj, id));
      if (!nested) return true;
      return fillMembers(env, nested.get(), static_cast<char*>(base) + m.offset, *m.nested, nullptr);
    }
    case Kind::kKeyMatOut:
      break;
  }
  return true;
}

bool fillMembers(JNIEnv* env, jobject obj, void* base, const MemberTable& members,
                 CK_ULONG* lengths) {
  for (size_t i = 0; i < members.count; ++i) {
    if (!fillMember(env, obj, base, members, members.members[i], lengths ? &lengths[i] : nullptr)) {
      return false;
    }
  }
  return true;
}

void freeMembers(void* base, const MemberTable& members) {
  for (size_t i = 0; i < members.count; ++i) {
    const Member& m = members.members[i];
    switch (m.kind) {
      case Kind::kBytes:
      case Kind::kChars:
      case Kind::kVersionPtr:
        std::free(loadAt<void*>(base, m.offset));
        break;
      case Kind::kNested:
        freeMembers(static_cast<char*>(base) + m.offset, *m.nested);
        break;
      case Kind::kKeyMatOut: {
        auto* out = loadAt<CK_SSL3_KEY_MAT_OUT*>(base, m.offset);
        if (out != nullptr) {
          std::free(out->pIVClient);
          std::free(out->pIVServer);
          std::free(out);
        }
        break;
      }
      default:
        break;
    }
  }
}

int memberIndex(const MemberTable& members, const char* javaName) {
  for (size_t i = 0; i < members.count; ++i) {
    if (std::strcmp(members.members[i].javaName, javaName) == 0) return static_cast<int>(i);
  }
  return -1;
}

}  // namespace

// ---- the parameter-class table --------------------------------------------

struct ParamClass {
  const char* structName;
  size_t size;
  bool (*convert)(JNIEnv*, jobject, void*);
  MemberTable members;  // members.javaClass is the parameter's Java class
  const char* className() const { return members.javaClass; }
};

namespace {

#define QOR_PARAM_ROW(type, converter)                                                      \
  {#type, sizeof(type),                                                                     \
   [](JNIEnv* env, jobject j, void* p) { return converter(env, j, static_cast<type*>(p)); }, \
   table(QOR_MEMBERS_##type, QOR_PKCS11_CLASS(#type))},
const ParamClass kParamClasses[] = {QOR_PARAM_CLASSES(QOR_PARAM_ROW)};
#undef QOR_PARAM_ROW

const ParamClass* paramClass(const char* structName) {
  for (const ParamClass& c : kParamClasses) {
    if (std::strcmp(c.structName, structName) == 0) return &c;
  }
  return nullptr;
}

}  // namespace

// Each converter fills through its own row's member table, found once.
#define QOR_DEFINE_PARAM_CONVERTER(type, converter)                                 \
  bool converter(JNIEnv* env, jobject jParam, type* ckParam) {                      \
    static_assert(sizeof(QOR_MEMBERS_##type) / sizeof(Member) <= kMaxParamMembers, \
                  "too many members for ConvertedMechanism::lengths");              \
    static const MemberTable& members = paramClass(#type)->members;                 \
    return fillMembers(env, jParam, ckParam, members, nullptr);                     \
  }
QOR_PARAM_CLASSES(QOR_DEFINE_PARAM_CONVERTER)
#undef QOR_DEFINE_PARAM_CONVERTER

namespace {

// The native parameter of a copy-back, when the Java mechanism still names
// the converted mechanism and the parameter was built from `structName`.
void* copyBackTarget(JNIEnv* env, const ConvertedMechanism* ck, jobject jMechanism,
                     const char* structName, LocalRef<jobject>* jParam) {
  if (ck == nullptr || jMechanism == nullptr || ck->mechanism.pParameter == nullptr) return nullptr;
  if (ck->parameterClass != paramClass(structName)) return nullptr;
  jfieldID mechanismId = qor::jni::knownField(env, kMechanismClass, "mechanism", "J");
  jfieldID parameterId =
      mechanismId ? qor::jni::knownField(env, kMechanismClass, "pParameter", "Ljava/lang/Object;")
                  : nullptr;
  if (parameterId == nullptr) return nullptr;
  if (static_cast<CK_MECHANISM_TYPE>(env->GetLongField(jMechanism, mechanismId)) !=
      ck->mechanism.mechanism) {
    return nullptr;
  }
  *jParam = LocalRef<jobject>(env, env->GetObjectField(jMechanism, parameterId));
  if (!*jParam || !qor::jni::isInstanceOf(env, jParam->get(), ck->parameterClass->className())) {
    return nullptr;
  }
  return ck->mechanism.pParameter;
}

CK_ULONG allocatedLength(const ConvertedMechanism* ck, const char* javaName) {
  int i = memberIndex(ck->parameterClass->members, javaName);
  return i >= 0 ? ck->lengths[i] : 0;
}

// A field of the copy-back's parameter object, by the class it was converted as.
jobject getObject(JNIEnv* env, const ConvertedMechanism* ck, jobject obj, const char* name,
                  const char* sig) {
  jfieldID id = qor::jni::knownField(env, ck->parameterClass->className(), name, sig);
  return id ? env->GetObjectField(obj, id) : nullptr;
}

// Copies up to n bytes into an existing Java byte[] or char[] field.
void copyIntoArrayField(JNIEnv* env, const ConvertedMechanism* ck, jobject obj, const char* name,
                        bool chars, const CK_BYTE* bytes, CK_ULONG n) {
  LocalRef<jarray> array(env,
                         static_cast<jarray>(getObject(env, ck, obj, name, chars ? "[C" : "[B")));
  if (!array || bytes == nullptr) return;
  CK_ULONG room = static_cast<CK_ULONG>(env->GetArrayLength(array.get()));
  CK_ULONG take = n < room ? n : room;
  if (chars) {
    LocalRef<jcharArray> widened(env, ckCharArrayToJCharArray(env, bytes, take));
    if (!widened) return;
    jchar window[64];
    for (CK_ULONG done = 0; done < take;) {
      CK_ULONG chunk = take - done < 64 ? take - done : 64;
      env->GetCharArrayRegion(widened.get(), static_cast<jsize>(done), static_cast<jsize>(chunk), window);
      env->SetCharArrayRegion(static_cast<jcharArray>(array.get()), static_cast<jsize>(done),
                              static_cast<jsize>(chunk), window);
      done += chunk;
    }
  } else {
    env->SetByteArrayRegion(static_cast<jbyteArray>(array.get()), 0, static_cast<jsize>(take),
                            reinterpret_cast<const jbyte*>(bytes));
  }
}

}  // namespace

// ==== conversion =============================================================

bool jMechanismParameterToCKMechanismParameter(JNIEnv* env, jobject jParam,
                                               ConvertedMechanism* out) {
  out->mechanism.pParameter = nullptr;
  out->mechanism.ulParameterLen = 0;
  out->parameterClass = nullptr;
  if (jParam == nullptr) return true;

  CK_VOID_PTR value = nullptr;
  CK_ULONG length = 0;
  if (qor::jni::isInstanceOf(env, jParam, "[B")) {
    CK_BYTE_PTR bytes = nullptr;
    jByteArrayToCKByteArray(env, static_cast<jbyteArray>(jParam), &bytes, &length);
    value = bytes;
  } else if (qor::jni::isInstanceOf(env, jParam, "java/lang/Long")) {
    value = jLongObjectToCKULongPtr(env, jParam);
    length = sizeof(CK_ULONG);
  } else if (qor::jni::isInstanceOf(env, jParam, QOR_PKCS11_CLASS("CK_VERSION"))) {
    value = jVersionToCKVersionPtr(env, jParam);
    length = sizeof(CK_VERSION);
  } else {
    for (const ParamClass& c : kParamClasses) {
      if (!qor::jni::isInstanceOf(env, jParam, c.className())) continue;
      void* structure = zeroAlloc<CK_BYTE>(c.size);
      if (structure == nullptr) {
        throwOutOfMemoryError(env);
        return false;
      }
      out->parameterClass = &c;
      out->mechanism.pParameter = structure;
      out->mechanism.ulParameterLen = static_cast<CK_ULONG>(c.size);
      // Buffers taken before a failure stay in the structure; the caller's
      // freeCKMechanismParameter releases them with it.
      return fillMembers(env, jParam, structure, c.members, out->lengths);
    }
    jObjectToPrimitiveCKObjectPtrPtr(env, jParam, &value, &length);
  }
  if (env->ExceptionCheck()) {
    std::free(value);
    return false;
  }
  out->mechanism.pParameter = value;
  out->mechanism.ulParameterLen = value != nullptr ? length : 0;
  return true;
}

bool jMechanismToCKMechanism(JNIEnv* env, jobject jMechanism, ConvertedMechanism* out) {
  QOR_LOGD(kJni, "%s", "jMechanismToCKMechanism");
  std::memset(out, 0, sizeof *out);
  jfieldID mechanismId = qor::jni::knownField(env, kMechanismClass, "mechanism", "J");
  jfieldID parameterId =
      mechanismId ? qor::jni::knownField(env, kMechanismClass, "pParameter", "Ljava/lang/Object;")
                  : nullptr;
  if (parameterId == nullptr) return false;
  out->mechanism.mechanism = static_cast<CK_MECHANISM_TYPE>(env->GetLongField(jMechanism, mechanismId));
  LocalRef<jobject> parameter(env, env->GetObjectField(jMechanism, parameterId));
  return jMechanismParameterToCKMechanismParameter(env, parameter.get(), out);
}

void freeCKMechanismParameter(ConvertedMechanism* ck) {
  if (ck == nullptr) return;
  void* parameter = ck->mechanism.pParameter;
  if (parameter != nullptr && ck->parameterClass != nullptr) {
    freeMembers(parameter, ck->parameterClass->members);
  }
  std::free(parameter);
  ck->mechanism.pParameter = nullptr;
  ck->mechanism.ulParameterLen = 0;
  ck->parameterClass = nullptr;
}

bool qor::jni::CkMechanism::convert(JNIEnv* env, jobject jMechanism) {
  if (jMechanism == nullptr) {
    ckAssertReturnValueOK(env, CKR_ARGUMENTS_BAD);
    return false;
  }
  return jMechanismToCKMechanism(env, jMechanism, &converted_) && !env->ExceptionCheck();
}

// ==== copy-backs =============================================================

void copyBackPBEInitializationVector(JNIEnv* env, const ConvertedMechanism* ck,
                                     jobject jMechanism) {
  LocalRef<jobject> jParam;
  void* params = copyBackTarget(env, ck, jMechanism, "CK_PBE_PARAMS", &jParam);
  if (params == nullptr) return;
  auto* iv = loadAt<CK_BYTE_PTR>(params, offsetof(CK_PBE_PARAMS, pInitVector));
  // The Java field is spelled "pInitVektor"; callers read the IV from there.
  copyIntoArrayField(env, ck, jParam.get(), "pInitVektor", true, iv, allocatedLength(ck, "pInitVector"));
}

void copyBackSetUnwrappedKey(JNIEnv* env, const ConvertedMechanism* ck, jobject jMechanism) {
  LocalRef<jobject> jParam;
  void* params = copyBackTarget(env, ck, jMechanism, "CK_KEY_WRAP_SET_OAEP_PARAMS", &jParam);
  if (params == nullptr) return;
  jfieldID bBC = qor::jni::knownField(env, QOR_PKCS11_CLASS("CK_KEY_WRAP_SET_OAEP_PARAMS"), "bBC", "B");
  if (bBC == nullptr) return;
  env->SetByteField(jParam.get(), bBC,
                    static_cast<jbyte>(loadAt<CK_BYTE>(params, offsetof(CK_KEY_WRAP_SET_OAEP_PARAMS, bBC))));
  // Never past the buffer we handed over, whatever length the module reports.
  CK_ULONG reported = loadAt<CK_ULONG>(params, offsetof(CK_KEY_WRAP_SET_OAEP_PARAMS, ulXLen));
  CK_ULONG allocated = allocatedLength(ck, "pX");
  copyIntoArrayField(env, ck, jParam.get(), "pX", false,
                     loadAt<CK_BYTE_PTR>(params, offsetof(CK_KEY_WRAP_SET_OAEP_PARAMS, pX)),
                     reported < allocated ? reported : allocated);
}

void copyBackClientVersion(JNIEnv* env, const ConvertedMechanism* ck, jobject jMechanism) {
  if (ck == nullptr || ck->mechanism.mechanism != CKM_SSL3_MASTER_KEY_DERIVE) return;
  LocalRef<jobject> jParam;
  void* params = copyBackTarget(env, ck, jMechanism, "CK_SSL3_MASTER_KEY_DERIVE_PARAMS", &jParam);
  if (params == nullptr) return;
  auto* version = loadAt<CK_VERSION*>(params, offsetof(CK_SSL3_MASTER_KEY_DERIVE_PARAMS, pVersion));
  LocalRef<jobject> jVersion(
      env, getObject(env, ck, jParam.get(), "pVersion", "L" QOR_PKCS11_CLASS("CK_VERSION") ";"));
  if (version == nullptr || !jVersion) return;
  jfieldID major = qor::jni::knownField(env, kVersionClass, "major", "B");
  jfieldID minor = major ? qor::jni::knownField(env, kVersionClass, "minor", "B") : nullptr;
  if (minor == nullptr) return;
  const CK_VERSION v = *version;
  env->SetByteField(jVersion.get(), major, static_cast<jbyte>(v.major));
  env->SetByteField(jVersion.get(), minor, static_cast<jbyte>(v.minor));
}

void copyBackSSLKeyMatParams(JNIEnv* env, const ConvertedMechanism* ck, jobject jMechanism) {
  if (ck == nullptr || ck->mechanism.mechanism != CKM_SSL3_KEY_AND_MAC_DERIVE) return;
  LocalRef<jobject> jParam;
  void* params = copyBackTarget(env, ck, jMechanism, "CK_SSL3_KEY_MAT_PARAMS", &jParam);
  if (params == nullptr) return;
  auto* out = loadAt<CK_SSL3_KEY_MAT_OUT*>(params, offsetof(CK_SSL3_KEY_MAT_PARAMS, pReturnedKeyMaterial));
  if (out == nullptr) return;
  jfieldID outId = qor::jni::knownField(env, QOR_PKCS11_CLASS("CK_SSL3_KEY_MAT_PARAMS"),
                                       "pReturnedKeyMaterial", "L" QOR_PKCS11_CLASS("CK_SSL3_KEY_MAT_OUT") ";");
  if (outId == nullptr) return;
  LocalRef<jobject> jOut(env, env->GetObjectField(jParam.get(), outId));
  if (!jOut) {
    // Nothing to write into yet: give the caller a fresh result object.
    jclass outCls = qor::jni::knownClass(env, kKeyMatOutClass);
    if (outCls == nullptr) return;
    jOut = LocalRef<jobject>(env, env->AllocObject(outCls));
    if (!jOut) return;
    env->SetObjectField(jParam.get(), outId, jOut.get());
  }
  const CK_SSL3_KEY_MAT_OUT keys = *out;
  const struct {
    const char* name;
    CK_OBJECT_HANDLE value;
  } handles[] = {{"hClientMacSecret", keys.hClientMacSecret},
                 {"hServerMacSecret", keys.hServerMacSecret},
                 {"hClientKey", keys.hClientKey},
                 {"hServerKey", keys.hServerKey}};
  for (const auto& h : handles) {
    jfieldID id = qor::jni::knownField(env, kKeyMatOutClass, h.name, "J");
    if (id == nullptr) return;
    env->SetLongField(jOut.get(), id, static_cast<jlong>(h.value));
  }
  CK_ULONG ivLength = allocatedLength(ck, "pReturnedKeyMaterial");
  const struct {
    const char* name;
    CK_BYTE_PTR iv;
  } ivs[] = {{"pIVClient", keys.pIVClient}, {"pIVServer", keys.pIVServer}};
  for (const auto& iv : ivs) {
    jfieldID id = qor::jni::knownField(env, kKeyMatOutClass, iv.name, "[B");
    if (id == nullptr) return;
    LocalRef<jbyteArray> bytes(env, ckByteArrayToJByteArray(env, iv.iv, iv.iv ? ivLength : 0));
    if (!bytes) return;
    env->SetObjectField(jOut.get(), id, bytes.get());
  }
}

namespace {

void resolveFields(JNIEnv* env, const MemberTable& members) {
  for (size_t i = 0; i < members.count; ++i) {
    const Member& m = members.members[i];
    if (m.kind == Kind::kKeyMatOut) continue;  // an output: no field is read
    if (fieldOf(env, members, m) == nullptr) env->ExceptionClear();
    if (m.kind == Kind::kNested) {
      qor::jni::knownClassQuietly(env, m.nested->javaClass);
      resolveFields(env, *m.nested);
    }
  }
}

}  // namespace

void resolveParameterClasses(JNIEnv* env) {
  for (const ParamClass& c : kParamClasses) {
    if (qor::jni::knownClassQuietly(env, c.className()) != nullptr) resolveFields(env, c.members);
  }
}
