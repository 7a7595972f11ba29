// What the natives and IQorPkcs11::getInstance do when memory runs out.
#include <gtest/gtest.h>
#include <jni.h>

#include <cstdlib>
#include <memory>
#include <new>

#include "qorpkcs11/IQorPkcs11.h"

extern "C" {
JNIEXPORT void JNICALL Java_com_qor_smartcard_pkcs11_Pkcs11_connect(JNIEnv*, jobject, jstring, jstring, jstring, jint);
}

namespace {
bool gFailArrays = false;
}  // namespace

// Array allocations fail while a test asks; the instance itself is no array.
// All array forms come from malloc, so that every delete[] matches.
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return gFailArrays ? nullptr : std::malloc(size != 0 ? size : 1);
}
void* operator new[](size_t size) {
  void* p = operator new[](size, std::nothrow);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }

namespace qor::test {
namespace {

TEST(InstanceTest, NoCopyOfTheNameGivesNoInstanceRatherThanTheFirstModule) {
  gFailArrays = true;
  std::unique_ptr<IQorPkcs11> lost(IQorPkcs11::getInstance("@vendor"));
  gFailArrays = false;
  EXPECT_EQ(nullptr, lost);
  std::unique_ptr<IQorPkcs11> named(IQorPkcs11::getInstance("@vendor"));
  EXPECT_NE(nullptr, named);
}

int gStringsAskedFor = 0;
const char* JNICALL noChars(JNIEnv*, jstring, jboolean*) {
  ++gStringsAskedFor;
  return nullptr;  // the VM is out of memory; an OutOfMemoryError is pending
}

// With an exception pending no JNI call but a few may run. This environment
// answers only GetStringUTFChars: any other call would crash the test.
TEST(OutOfMemoryTest, ConnectStopsAtTheFirstStringTheVmCannotGive) {
  JNINativeInterface_ functions{};
  functions.GetStringUTFChars = noChars;
  JNIEnv env{&functions};
  jstring text = reinterpret_cast<jstring>(&env);  // never dereferenced here
  Java_com_qor_smartcard_pkcs11_Pkcs11_connect(&env, nullptr, text, text, text, 0);
  EXPECT_EQ(1, gStringsAskedFor);
}

}  // namespace
}  // namespace qor::test
