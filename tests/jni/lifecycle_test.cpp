// The lifecycle natives called the way the VM calls them: which transport
// connect starts for each combination of mode, library and module name, and
// what it registers.
#include <gtest/gtest.h>
#include <jni.h>
#include <unistd.h>

#include <string>

#include "jvm.h"
#include "log_capture.h"
#include "qorpkcs11/common/log.h"
#include "qorpkcs11/registry/registry.h"
#include "testmodule.h"

extern "C" {
JNIEXPORT void JNICALL Java_com_qor_smartcard_pkcs11_Pkcs11_connect(JNIEnv*, jobject, jstring, jstring, jstring, jint);
JNIEXPORT void JNICALL Java_com_qor_smartcard_pkcs11_Pkcs11_disconnect(JNIEnv*, jobject);
}

namespace qor::test {
namespace {

constexpr const char kWrapper[] = "libKorvanePkcs11Wrapper.so";

struct Role {
  const char* what;
  int mode;
  bool wrapper;       // library: this wrapper itself, else the test module
  bool named;         // a module name is given
  bool serverStarts;
  bool clientStarts;
  bool clientLogLine;  // "Client socket init, libraryName: ..."
};

const Role kRoles[] = {
    {"server", 1, false, true, true, false, false},
    {"server without a name", 1, false, false, false, false, false},
    {"module in this process", 0, false, true, false, false, true},
    {"client of this wrapper", 0, true, true, false, true, true},
    {"client in any other mode", 7, true, true, false, true, true},
    {"wrapper without a name", 0, true, false, false, false, false},
};

class ConnectRole : public ::testing::TestWithParam<Role> {};

TEST_P(ConnectRole, StartsExactlyItsTransport) {
  const Role& role = GetParam();
  JNIEnv* env = jni_env();
  ensure_registry_lock();
  TestModule module(QOR_TESTMODULE_PATH);
  ASSERT_TRUE(module.ok()) << module.error();
  LogCapture logs;
  // A socket name of this process alone: tests run in parallel.
  const std::string socket = "@qor-lifecycle-" + std::to_string(getpid());
  jobject self = new_global_object();
  jstring library = env->NewStringUTF(role.wrapper ? kWrapper : QOR_TESTMODULE_PATH);
  jstring getter = env->NewStringUTF("C_GetFunctionList");
  jstring name = role.named ? env->NewStringUTF(socket.c_str()) : nullptr;
  Java_com_qor_smartcard_pkcs11_Pkcs11_connect(env, self, library, getter, name, role.mode);
  // This process never loaded the wrapper as a library: dlopen of its bare
  // name may fail after the transport started. Only the roles matter here.
  env->ExceptionClear();
  EXPECT_EQ(role.serverStarts, logs.contains(log::kServer, "server init")) << role.what;
  EXPECT_EQ(role.clientStarts, logs.contains(log::kClient, "client init")) << role.what;
  EXPECT_EQ(role.clientLogLine, logs.contains(log::kNative, std::string("Client socket init, libraryName: ") +
                                                                (role.wrapper ? kWrapper : QOR_TESTMODULE_PATH) + ", "))
      << role.what;
  if (!role.wrapper) {
    ModuleBinding* binding = getModuleEntry(env, self);
    ASSERT_NE(nullptr, binding);
    EXPECT_EQ(module.functions(), binding->functionList);
    if (role.named) {
      EXPECT_EQ(module.functions(), getFunctionsByModule(socket.c_str()));
    }
  }
  Java_com_qor_smartcard_pkcs11_Pkcs11_disconnect(env, self);
  EXPECT_EQ(nullptr, getModuleEntry(env, self));
  env->DeleteGlobalRef(self);
  env->DeleteLocalRef(library);
  env->DeleteLocalRef(getter);
  if (name != nullptr) env->DeleteLocalRef(name);
}

INSTANTIATE_TEST_SUITE_P(Roles, ConnectRole, ::testing::ValuesIn(kRoles),
                         [](const ::testing::TestParamInfo<Role>& info) {
                           std::string n = info.param.what;
                           for (char& c : n) c = isalnum(static_cast<unsigned char>(c)) ? c : '_';
                           return n;
                         });

TEST(Connect, LogsTheLibraryAndTheGetterResult) {
  JNIEnv* env = jni_env();
  ensure_registry_lock();
  TestModule module(QOR_TESTMODULE_PATH);
  LogCapture logs;
  jobject self = new_global_object();
  jstring library = env->NewStringUTF(QOR_TESTMODULE_PATH);
  jstring getter = env->NewStringUTF("C_GetFunctionList");
  Java_com_qor_smartcard_pkcs11_Pkcs11_connect(env, self, library, getter, nullptr, 0);
  EXPECT_FALSE(env->ExceptionCheck());
  const std::string path = QOR_TESTMODULE_PATH;
  EXPECT_TRUE(logs.contains(log::kNative, "DEBUG: connect to PKCS#11 module: " + path + " ... "));
  EXPECT_TRUE(logs.contains(log::kNative, "Java_com_qor_smartcard_pkcs11_Pkcs11_connect..."));
  EXPECT_TRUE(logs.contains(log::kNative, "FINISHED: Java_com_qor_smartcard_pkcs11_Pkcs11_connect rv:0"));
  Java_com_qor_smartcard_pkcs11_Pkcs11_disconnect(env, self);
  EXPECT_TRUE(logs.contains(log::kNative, "DEBUG: disconnecting module..."));
  env->DeleteGlobalRef(self);
  env->DeleteLocalRef(library);
  env->DeleteLocalRef(getter);
}

}  // namespace
}  // namespace qor::test
