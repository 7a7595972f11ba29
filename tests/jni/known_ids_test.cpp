// The natives find their classes when the library loads and each field and
// method once: the conversions of every call then look nothing up by name.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "jvm.h"
#include "qorpkcs11/jni/convert_mechanism.h"
#include "qorpkcs11/jni/convert_values.h"
#include "qorpkcs11/jni/exceptions.h"

namespace qor::test {
namespace {

// Counts the lookups by name through this thread's environment: its function
// table swapped for a copy whose lookups count, the way an agent's
// SetJNIFunctionTable does.
struct Lookups {
  static inline const JNINativeInterface_* real = nullptr;
  static inline int classes = 0;
  static inline int members = 0;

  static jclass JNICALL findClass(JNIEnv* env, const char* name) {
    ++classes;
    return real->FindClass(env, name);
  }
  static jfieldID JNICALL fieldId(JNIEnv* env, jclass cls, const char* name, const char* sig) {
    ++members;
    return real->GetFieldID(env, cls, name, sig);
  }
  static jmethodID JNICALL methodId(JNIEnv* env, jclass cls, const char* name, const char* sig) {
    ++members;
    return real->GetMethodID(env, cls, name, sig);
  }

  explicit Lookups(JNIEnv* env) : env_(env), table_(*env->functions) {
    real = env->functions;
    table_.FindClass = findClass;
    table_.GetFieldID = fieldId;
    table_.GetMethodID = methodId;
    classes = members = 0;
    env_->functions = &table_;
  }
  ~Lookups() { env_->functions = real; }

 private:
  JNIEnv* env_;
  JNINativeInterface_ table_;
};

constexpr char kPackage[] = "com/qor/smartcard/pkcs11/";

jobject newObject(JNIEnv* env, const std::string& simpleName) {
  jclass cls = env->FindClass((kPackage + simpleName).c_str());
  EXPECT_NE(nullptr, cls) << simpleName;
  return cls ? env->AllocObject(cls) : nullptr;
}

void setObject(JNIEnv* env, jobject obj, const char* name, const std::string& type, jobject value) {
  jclass cls = env->GetObjectClass(obj);
  jfieldID id = env->GetFieldID(cls, name, type.c_str());
  ASSERT_NE(nullptr, id) << name;
  env->SetObjectField(obj, id, value);
}

jbyteArray bytes(JNIEnv* env, jsize n) { return env->NewByteArray(n); }

// A CK_MECHANISM of the given type holding `parameter`.
jobject mechanismOf(JNIEnv* env, CK_MECHANISM_TYPE type, jobject parameter) {
  jobject mechanism = newObject(env, "CK_MECHANISM");
  jclass cls = env->GetObjectClass(mechanism);
  env->SetLongField(mechanism, env->GetFieldID(cls, "mechanism", "J"), static_cast<jlong>(type));
  if (parameter != nullptr) setObject(env, mechanism, "pParameter", "Ljava/lang/Object;", parameter);
  return mechanism;
}

// Mechanisms whose conversion reads every kind of parameter field: none, a
// flat structure, a nested one with a version, and the copy-backs' fields.
std::vector<jobject> mechanisms(JNIEnv* env) {
  std::vector<jobject> all{mechanismOf(env, CKM_SHA256_RSA_PKCS, nullptr)};
  jobject oaep = newObject(env, "CK_RSA_PKCS_OAEP_PARAMS");
  setObject(env, oaep, "pSourceData", "[B", bytes(env, 4));
  all.push_back(mechanismOf(env, CKM_RSA_PKCS_OAEP, oaep));
  jobject random = newObject(env, "CK_SSL3_RANDOM_DATA");
  setObject(env, random, "pClientRandom", "[B", bytes(env, 32));
  setObject(env, random, "pServerRandom", "[B", bytes(env, 32));
  jobject master = newObject(env, "CK_SSL3_MASTER_KEY_DERIVE_PARAMS");
  setObject(env, master, "RandomInfo", std::string("L") + kPackage + "CK_SSL3_RANDOM_DATA;", random);
  setObject(env, master, "pVersion", std::string("L") + kPackage + "CK_VERSION;",
            newObject(env, "CK_VERSION"));
  all.push_back(mechanismOf(env, CKM_SSL3_MASTER_KEY_DERIVE, master));
  jobject pbe = newObject(env, "CK_PBE_PARAMS");
  setObject(env, pbe, "pInitVector", "[C", env->NewCharArray(8));
  setObject(env, pbe, "pInitVektor", "[C", env->NewCharArray(8));
  setObject(env, pbe, "pPassword", "[C", env->NewCharArray(3));
  all.push_back(mechanismOf(env, CKM_PBE_SHA1_DES3_EDE_CBC, pbe));
  return all;
}

// What a call's natives convert both ways: info structures, a template
// with each kind of value, mechanisms with their copy-backs, and a failing
// return value.
void convertOneCallsWorth(JNIEnv* env, const std::vector<jobject>& mechanisms) {
  CK_INFO info{};
  env->DeleteLocalRef(ckInfoPtrToJInfo(env, &info));
  for (jobject mechanism : mechanisms) {
    ConvertedMechanism converted;
    ASSERT_TRUE(jMechanismToCKMechanism(env, mechanism, &converted));
    copyBackClientVersion(env, &converted, mechanism);
    copyBackPBEInitializationVector(env, &converted, mechanism);
    ASSERT_FALSE(env->ExceptionCheck());
    freeCKMechanismParameter(&converted);
  }
  CK_ULONG keyClass = CKO_PRIVATE_KEY;
  CK_BBOOL yes = CK_TRUE;
  char label[] = "key";
  CK_DATE date{};
  CK_ATTRIBUTE attributes[] = {{CKA_CLASS, &keyClass, sizeof keyClass},
                               {CKA_SIGN, &yes, sizeof yes},
                               {CKA_LABEL, label, 3},
                               {CKA_START_DATE, &date, sizeof date}};
  jobjectArray array = ckAttributeArrayToJAttributeArray(env, attributes, 4);
  ASSERT_NE(nullptr, array);
  {
    jni::CkTemplate back;
    ASSERT_TRUE(back.convert(env, array));
    ASSERT_EQ(4u, back.count());
  }
  env->DeleteLocalRef(array);
  ckAssertReturnValueOK(env, CKR_PIN_INCORRECT);
  ASSERT_TRUE(env->ExceptionCheck());
  env->ExceptionClear();
}

TEST(KnownIdsTest, ClassesAreFoundAtLoadAndNothingIsLookedUpTwice) {
  // The VM starts (and the library's JNI_OnLoad runs) with the Java API.
  ::setenv("QOR_TEST_JAVA_API_JAR", QOR_JAVA_API_JAR, 1);
  JNIEnv* env = jni_env();
  ASSERT_NE(nullptr, env->FindClass("com/qor/smartcard/pkcs11/CK_MECHANISM"))
      << "the Java API is not on the test VM's class path";
  const std::vector<jobject> all = mechanisms(env);
  {
    // Fields and methods on first use; the classes were found at load.
    Lookups first(env);
    convertOneCallsWorth(env, all);
    EXPECT_EQ(0, Lookups::classes);
  }
  Lookups again(env);
  convertOneCallsWorth(env, all);
  EXPECT_EQ(0, Lookups::classes);
  EXPECT_EQ(0, Lookups::members);
}

}  // namespace
}  // namespace qor::test
