// The natives find their classes when the library loads and each field and
// method once: the conversions of every call then look nothing up by name.
#include <gtest/gtest.h>

#include <cstdlib>

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

// What a sign call's natives convert both ways: info structures, a template
// with each kind of value, a mechanism, and a failing return value.
void convertOneCallsWorth(JNIEnv* env, jobject mechanism) {
  CK_INFO info{};
  env->DeleteLocalRef(ckInfoPtrToJInfo(env, &info));
  ConvertedMechanism converted;
  ASSERT_TRUE(jMechanismToCKMechanism(env, mechanism, &converted));
  EXPECT_EQ(CKM_SHA256_RSA_PKCS, converted.mechanism.mechanism);
  freeCKMechanismParameter(&converted);
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
  jclass mechanismClass = env->FindClass("com/qor/smartcard/pkcs11/CK_MECHANISM");
  ASSERT_NE(nullptr, mechanismClass) << "the Java API is not on the test VM's class path";
  jobject mechanism = env->AllocObject(mechanismClass);
  env->SetLongField(mechanism, env->GetFieldID(mechanismClass, "mechanism", "J"), CKM_SHA256_RSA_PKCS);
  {
    // Fields and methods on first use; the classes were found at load.
    Lookups first(env);
    convertOneCallsWorth(env, mechanism);
    EXPECT_EQ(0, Lookups::classes);
  }
  Lookups again(env);
  convertOneCallsWorth(env, mechanism);
  EXPECT_EQ(0, Lookups::classes);
  EXPECT_EQ(0, Lookups::members);
}

}  // namespace
}  // namespace qor::test
