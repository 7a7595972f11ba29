// IQorPkcs11 from native code: every call looks its module up by name in the
// registry and forwards to that module's function list unchanged.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "jvm.h"
#include "log_capture.h"
#include "qorpkcs11/IQorPkcs11.h"
#include "qorpkcs11/common/log.h"
#include "qorpkcs11/registry/registry.h"

namespace qor::test {
namespace {

constexpr const char* kTag = log::kNativeInterface;

// What the fake module last received: the function and its arguments as
// plain numbers (pointers by address).
struct Received {
  std::string function;
  std::vector<uintptr_t> args;
};
Received gReceived;

template <typename T>
uintptr_t number(T value) {
  if constexpr (std::is_pointer_v<T>) {
    return reinterpret_cast<uintptr_t>(value);
  } else {
    return static_cast<uintptr_t>(value);
  }
}

// The answer each fake function gives: distinct per function.
constexpr CK_RV answerOf(size_t index) { return 0x80000000u + static_cast<CK_RV>(index); }

size_t indexOf(const std::string& function) {
  static const char* const kNames[] = {
#define QOR_NAME(name, params, args) #name,
      QOR_PKCS11_FUNCTIONS(QOR_NAME)
#undef QOR_NAME
  };
  for (size_t i = 0; i < sizeof kNames / sizeof kNames[0]; ++i) {
    if (function == kNames[i]) return i;
  }
  return SIZE_MAX;
}

template <typename... A>
CK_RV record(const char* function, A... args) {
  gReceived = Received{function, {number(args)...}};
  return answerOf(indexOf(function));
}

#define QOR_UNPACK(...) __VA_ARGS__
#define QOR_FAKE(name, params, args) \
  CK_RV fake_##name params { return record(#name, QOR_UNPACK args); }
QOR_PKCS11_FUNCTIONS(QOR_FAKE)
#undef QOR_FAKE

CK_FUNCTION_LIST makeFakeList() {
  CK_FUNCTION_LIST list{};
#define QOR_FILL(name, params, args) list.name = fake_##name;
  QOR_PKCS11_FUNCTIONS(QOR_FILL)
#undef QOR_FILL
  return list;
}

CK_FUNCTION_LIST gFirst = makeFakeList();
CK_FUNCTION_LIST gSecond = makeFakeList();

// Distinct, recognisable argument values: k-th argument of a call.
template <typename T>
T argument(uintptr_t k) {
  if constexpr (std::is_pointer_v<T>) {
    return reinterpret_cast<T>(0x10000 + 0x10 * k);
  } else {
    return static_cast<T>(0x100 + k);
  }
}

// Calls one method with distinct arguments; returns them as numbers.
template <typename... A, size_t... I>
std::vector<uintptr_t> callWith(IQorPkcs11* p11, CK_RV (IQorPkcs11::*method)(A...), CK_RV* rv,
                                std::index_sequence<I...>) {
  *rv = (p11->*method)(argument<A>(I)...);
  return {number(argument<A>(I))...};
}

template <typename... A>
std::vector<uintptr_t> callWith(IQorPkcs11* p11, CK_RV (IQorPkcs11::*method)(A...), CK_RV* rv) {
  return callWith(p11, method, rv, std::index_sequence_for<A...>{});
}

struct Method {
  const char* name;
  std::vector<uintptr_t> (*call)(IQorPkcs11*, CK_RV*);
};

const Method kMethods[] = {
#define QOR_METHOD(name, params, args) \
  {#name, [](IQorPkcs11* p, CK_RV* rv) { return callWith(p, &IQorPkcs11::name, rv); }},
    QOR_PKCS11_FUNCTIONS(QOR_METHOD)
#undef QOR_METHOD
};

class IQorPkcs11Test : public ::testing::Test {
 protected:
  void SetUp() override {
    ensure_registry_lock();
    removeAllModuleEntries(jni_env());
    gReceived = {};
  }

  LogCapture logs_;
};

TEST_F(IQorPkcs11Test, EveryCallReachesTheRegisteredModuleUnchanged) {
  Registration other("@other", &gSecond);
  Registration mine("@mine", &gFirst);
  std::unique_ptr<IQorPkcs11> p11(IQorPkcs11::getInstance("@mine"));
  for (const Method& m : kMethods) {
    if (std::string(m.name) == "C_GetFunctionList") continue;
    gReceived = {};
    CK_RV rv = 0;
    std::vector<uintptr_t> sent = m.call(p11.get(), &rv);
    EXPECT_EQ(answerOf(indexOf(m.name)), rv) << m.name;
    EXPECT_EQ(m.name, gReceived.function);
    EXPECT_EQ(sent, gReceived.args) << m.name;
    EXPECT_TRUE(logs_.contains(kTag, std::string(m.name) + "...")) << m.name;
  }
  EXPECT_TRUE(logs_.contains(kTag, "C_Verify return " + std::to_string(static_cast<int>(answerOf(indexOf("C_Verify"))))));
  EXPECT_TRUE(logs_.contains(kTag, "return " + std::to_string(static_cast<int>(answerOf(indexOf("C_Sign"))))));
}

TEST_F(IQorPkcs11Test, WithoutItsModuleEveryCallFailsWithFunctionFailed) {
  Registration other("@other", &gFirst);
  std::unique_ptr<IQorPkcs11> p11(IQorPkcs11::getInstance("@missing"));
  for (const Method& m : kMethods) {
    if (std::string(m.name) == "C_GetFunctionList") continue;
    CK_RV rv = 0;
    m.call(p11.get(), &rv);
    EXPECT_EQ(CKR_FUNCTION_FAILED, rv) << m.name;
  }
  EXPECT_EQ("", gReceived.function);
  EXPECT_TRUE(logs_.contains(kTag, "getFunctions return NULL"));
}

TEST_F(IQorPkcs11Test, GetFunctionListIsNeverForwarded) {
  Registration mine("@mine", &gFirst);
  for (const char* name : {"@mine", "@missing"}) {
    std::unique_ptr<IQorPkcs11> p11(IQorPkcs11::getInstance(name));
    logs_.clear();
    CK_FUNCTION_LIST_PTR list = &gSecond;
    EXPECT_EQ(CKR_FUNCTION_NOT_SUPPORTED, p11->C_GetFunctionList(&list));
    EXPECT_EQ(&gSecond, list);
    EXPECT_TRUE(logs_.messages(kTag).empty());
  }
  EXPECT_EQ("", gReceived.function);
}

TEST_F(IQorPkcs11Test, ANullNameSelectsTheFirstRegisteredModule) {
  Registration first("@first", &gFirst);
  Registration second("@second", &gSecond);
  // Tell the lists apart by a member the second one lacks.
  gSecond.C_Logout = nullptr;
  std::unique_ptr<IQorPkcs11> p11(IQorPkcs11::getInstance(nullptr));
  EXPECT_EQ(answerOf(indexOf("C_Logout")), p11->C_Logout(5));
  EXPECT_EQ(std::vector<uintptr_t>{5}, gReceived.args);
  std::unique_ptr<IQorPkcs11> named(IQorPkcs11::getInstance("@second"));
  EXPECT_EQ(CKR_FUNCTION_NOT_SUPPORTED, named->C_Logout(5)) << "a member the module left null";
  gSecond.C_Logout = fake_C_Logout;
}

TEST_F(IQorPkcs11Test, AnInstanceFollowsItsModuleThroughDisconnectAndConnect) {
  std::unique_ptr<IQorPkcs11> p11(IQorPkcs11::getInstance("@later"));
  EXPECT_EQ(CKR_FUNCTION_FAILED, p11->C_Finalize(nullptr));
  {
    Registration module("@later", &gFirst);
    EXPECT_EQ(answerOf(indexOf("C_Finalize")), p11->C_Finalize(nullptr));
  }
  EXPECT_EQ(CKR_FUNCTION_FAILED, p11->C_Finalize(nullptr));
  Registration again("@later", &gSecond);
  EXPECT_EQ(answerOf(indexOf("C_Finalize")), p11->C_Finalize(nullptr));
}

TEST_F(IQorPkcs11Test, TheNameIsCopiedAndEachInstanceIsIndependent) {
  Registration module("@copied", &gFirst);
  std::string name = "@copied";
  std::unique_ptr<IQorPkcs11> p11(IQorPkcs11::getInstance(name.c_str()));
  std::unique_ptr<IQorPkcs11> twin(IQorPkcs11::getInstance(name.c_str()));
  EXPECT_NE(p11.get(), twin.get());
  name = "@changed";
  EXPECT_EQ(answerOf(indexOf("C_CloseSession")), p11->C_CloseSession(1));
  twin.reset();
  EXPECT_EQ(answerOf(indexOf("C_CloseSession")), p11->C_CloseSession(1));
}

TEST_F(IQorPkcs11Test, ThreadsTheVmDoesNotKnowCanCall) {
  Registration module("@threads", &gFirst);
  std::unique_ptr<IQorPkcs11> p11(IQorPkcs11::getInstance("@threads"));
  CK_RV rv = 0;
  std::thread([&] { rv = p11->C_GetInfo(nullptr); }).join();
  EXPECT_EQ(answerOf(indexOf("C_GetInfo")), rv);
}

}  // namespace
}  // namespace qor::test
