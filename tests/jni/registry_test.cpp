// The module registry against a real Java VM: Java objects as keys, the
// monitor, name lookups from threads the VM does not know.
#include "qorpkcs11/registry/registry.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "jvm.h"
#include "log_capture.h"
#include "qorpkcs11/common/log.h"

namespace qor::test {
namespace {

constexpr const char* kTag = log::kJni;

// Distinct function lists to tell the registrations apart.
CK_FUNCTION_LIST gLists[4];

class RegistryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    env_ = jni_env();
    ensure_registry_lock();
    removeAllModuleEntries(env_);
  }

  // Registers names in order; "" registers a module without a name.
  void add(std::initializer_list<const char*> names) {
    for (const char* name : names) {
      const size_t i = modules_.size();
      modules_.push_back(std::make_unique<Registration>(*name ? name : nullptr, &gLists[i]));
    }
  }

  std::vector<ModuleBinding*> listed() const {
    std::vector<ModuleBinding*> out;
    for (ModuleEntry* e = moduleListHead; e != nullptr; e = e->next) out.push_back(e->binding);
    return out;
  }

  bool logged(const std::string& line) const { return logs_.contains(kTag, line); }

  JNIEnv* env_ = nullptr;
  LogCapture logs_;
  std::vector<std::unique_ptr<Registration>> modules_;
};

TEST_F(RegistryTest, OnLoadKeepsTheVmAndAsksForJni12) {
  JavaVM* vm = java_vm();
  gJavaVM = nullptr;
  EXPECT_EQ(0x10002, JNI_OnLoad(vm, nullptr));
  EXPECT_EQ(vm, gJavaVM);
  EXPECT_TRUE(logged("jni_onload : KORVANE PKCS11Wrapper version : 2.4"));
}

TEST_F(RegistryTest, NullNameSelectsTheOldestRegistration) {
  add({"@a", "@b"});
  EXPECT_EQ(&gLists[0], getFunctionsByModule(nullptr));
  EXPECT_TRUE(logged("module name passed NULL"));
  EXPECT_TRUE(logged("found default entry"));
}

TEST_F(RegistryTest, FindsEachModuleByName) {
  add({"@a", "@b", "@c"});
  EXPECT_EQ(&gLists[0], getFunctionsByModule("@a"));
  EXPECT_EQ(&gLists[1], getFunctionsByModule("@b"));
  EXPECT_EQ(&gLists[2], getFunctionsByModule("@c"));
  EXPECT_TRUE(logged("module name passed @c"));
  EXPECT_TRUE(logged("found the entry"));
}

TEST_F(RegistryTest, UnknownNameFindsNothing) {
  add({"@a"});
  logs_.clear();
  EXPECT_EQ(nullptr, getFunctionsByModule("@other"));
  const std::vector<std::string> expected = {
      " getFunctionsByModule", "module name passed @other", "the entry is not in the list",
      "failed getting module entry", "failed getting module entry"};
  EXPECT_EQ(expected, logs_.messages(kTag));
}

TEST_F(RegistryTest, EmptyRegistryFindsNothingByNameOrDefault) {
  EXPECT_EQ(nullptr, getFunctionsByModule("@a"));
  EXPECT_EQ(nullptr, getFunctionsByModule(nullptr));
  EXPECT_FALSE(logged("the entry is not in the list"));
}

TEST_F(RegistryTest, ModuleWithoutFunctionListIsReportedMissing) {
  add({"@a"});
  modules_[0]->binding()->functionList = nullptr;
  EXPECT_EQ(nullptr, getFunctionsByModule("@a"));
  EXPECT_TRUE(logged("ckpFunctions is null @a"));
}

TEST_F(RegistryTest, NamelessModulesAreSkippedByNameLookups) {
  add({"", "@b", ""});
  EXPECT_EQ(&gLists[1], getFunctionsByModule("@b"));
  EXPECT_EQ(nullptr, getFunctionsByModule("@x"));
  EXPECT_EQ(&gLists[0], getFunctionsByModule(nullptr));
}

TEST_F(RegistryTest, FindsBindingsByIdentityOfTheJavaObject) {
  add({"@a", "@b"});
  EXPECT_EQ(modules_[1]->binding(), getModuleEntry(env_, modules_[1]->object()));
  EXPECT_TRUE(logged("module name @b"));
  jobject stranger = new_global_object();
  EXPECT_EQ(nullptr, getModuleEntry(env_, stranger));
  EXPECT_FALSE(isModulePresent(env_, stranger));
  EXPECT_TRUE(isModulePresent(env_, modules_[0]->object()));
  EXPECT_TRUE(logged("the entry is not in the list"));
  env_->DeleteGlobalRef(stranger);
}

TEST_F(RegistryTest, EqualsIsIdentityEvenWhereTheClassOverridesIt) {
  jstring a = env_->NewStringUTF("same text");
  jstring b = env_->NewStringUTF("same text");
  EXPECT_TRUE(equals(env_, a, a));
  EXPECT_FALSE(equals(env_, a, b));  // String.equals would say true
  EXPECT_FALSE(equals(env_, a, nullptr));
  EXPECT_FALSE(equals(env_, nullptr, a));
  EXPECT_TRUE(equals(env_, nullptr, nullptr));
  env_->DeleteLocalRef(a);
  env_->DeleteLocalRef(b);
}

TEST_F(RegistryTest, PuttingTheSameObjectAgainReplacesItsBindingInPlace) {
  add({"@a", "@b", "@c"});
  ModuleBinding replacement{nullptr, &gLists[3], nullptr, nullptr};
  putModuleEntry(env_, modules_[1]->object(), &replacement);
  EXPECT_EQ(
      (std::vector<ModuleBinding*>{modules_[0]->binding(), &replacement, modules_[2]->binding()}),
      listed());
  // Put the original back so that the registration can remove it.
  putModuleEntry(env_, modules_[1]->object(), modules_[1]->binding());
}

TEST_F(RegistryTest, NullObjectOrBindingIsNotStored) {
  ModuleBinding binding{nullptr, &gLists[0], nullptr, nullptr};
  putModuleEntry(env_, nullptr, &binding);
  jobject object = new_global_object();
  putModuleEntry(env_, object, nullptr);
  EXPECT_EQ(nullptr, moduleListHead);
  env_->DeleteGlobalRef(object);
}

struct Removal {
  const char* name;
  size_t index;
};
void PrintTo(const Removal& r, std::ostream* os) { *os << r.name; }

class RegistryRemovalTest : public RegistryTest, public ::testing::WithParamInterface<Removal> {};

TEST_P(RegistryRemovalTest, UnlinksOnlyThatNodeAndHandsBackItsBinding) {
  add({"@a", "@b", "@c"});
  const size_t gone = GetParam().index;
  std::vector<ModuleBinding*> expected;
  for (size_t i = 0; i < modules_.size(); ++i)
    if (i != gone) expected.push_back(modules_[i]->binding());

  ModuleBinding* removed = removeModuleEntry(env_, modules_[gone]->object());
  ASSERT_EQ(modules_[gone]->binding(), removed);
  EXPECT_EQ(&gLists[gone], removed->functionList);  // still usable by the caller
  EXPECT_EQ(nullptr, removed->moduleName);          // the registry's copy is gone
  EXPECT_EQ(expected, listed());
}

INSTANTIATE_TEST_SUITE_P(Positions, RegistryRemovalTest,
                         ::testing::Values(Removal{"Head", 0}, Removal{"Middle", 1},
                                           Removal{"Tail", 2}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(RegistryTest, RemoveAllEmptiesTheList) {
  add({"@a", "@b"});
  removeAllModuleEntries(env_);
  EXPECT_EQ(nullptr, moduleListHead);
  EXPECT_EQ(nullptr, getFunctionsByModule(nullptr));
}

TEST_F(RegistryTest, WithoutALockNothingIsStoredOrFound) {
  add({"@a"});
  jobject lock = moduleListLock;
  moduleListLock = nullptr;
  jobject object = new_global_object();
  ModuleBinding binding{nullptr, &gLists[1], nullptr, nullptr};
  putModuleEntry(env_, object, &binding);
  EXPECT_EQ(nullptr, moduleListHead->next);
  EXPECT_EQ(nullptr, getModuleEntry(env_, modules_[0]->object()));
  EXPECT_EQ(nullptr, getFunctionsByModule("@a"));
  EXPECT_EQ(nullptr, removeModuleEntry(env_, modules_[0]->object()));
  moduleListLock = lock;
  env_->DeleteGlobalRef(object);
}

TEST_F(RegistryTest, WithoutAJavaVmLookupsFindNothing) {
  add({"@a"});
  JavaVM* vm = gJavaVM;
  gJavaVM = nullptr;
  EXPECT_EQ(nullptr, getFunctionsByModule("@a"));
  EXPECT_EQ(nullptr, getFunctionsByModule(nullptr));
  gJavaVM = vm;
}

TEST_F(RegistryTest, NativeThreadIsAttachedForTheLookupOnly) {
  add({"@a"});
  CK_FUNCTION_LIST_PTR found = nullptr;
  jint afterwards = JNI_OK;
  std::thread native([&] {
    found = getFunctionsByModule("@a");
    JNIEnv* env = nullptr;
    afterwards = gJavaVM->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_2);
  });
  native.join();
  EXPECT_EQ(&gLists[0], found);
  EXPECT_EQ(JNI_EDETACHED, afterwards);
  bool attachLine = false;
  for (const LogLine& line : logs_.lines())
    attachLine |=
        line.tag == kTag && line.priority == ANDROID_LOG_ERROR &&
        line.message == "callback_handler: failed to get JNI environment, assuming native thread";
  EXPECT_TRUE(attachLine);
}

TEST_F(RegistryTest, AttachedThreadIsNotDetachedByALookup) {
  add({"@a"});
  EXPECT_EQ(&gLists[0], getFunctionsByModule("@a"));
  JNIEnv* env = nullptr;
  EXPECT_EQ(JNI_OK, gJavaVM->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_2));
  EXPECT_FALSE(logged("callback_handler: failed to get JNI environment, assuming native thread"));
}

TEST_F(RegistryTest, LockObjectIsAFreshGlobalReference) {
  jobject lock = createLockObject(env_);
  ASSERT_NE(nullptr, lock);
  EXPECT_EQ(JNIGlobalRefType, env_->GetObjectRefType(lock));
  EXPECT_FALSE(env_->IsSameObject(lock, moduleListLock));
  destroyLockObject(env_, lock);
  destroyLockObject(env_, nullptr);
}

}  // namespace
}  // namespace qor::test
