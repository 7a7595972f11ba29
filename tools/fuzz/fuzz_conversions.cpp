// The Java bridge's conversions of what a module hands back (attribute
// values, info structures, lists) into Java objects, as the calling process
// runs them: the natives bound to the client proxies, whose outputs are the
// fuzzer's replies, coming through the real transport from an in-process
// server thread. No reply may crash the bridge or make it read or write
// past its buffers.
//
// Input: the native (see kNatives) and its arguments, then the replies the
// server gives in turn, each but the last behind a 2-byte length.
#include <jni.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>

#include "fuzz_common.h"
#include "jvm.h"
#include "qorpkcs11/client/proxy.h"
#include "qorpkcs11/comm/server.h"
#include "vm_options.h"

#define QOR_NATIVE_DECL(ret, name, ...) \
  extern "C" ret Java_com_qor_smartcard_pkcs11_Pkcs11_##name(JNIEnv*, jobject, ##__VA_ARGS__);
QOR_NATIVE_DECL(void, C_1GetAttributeValue, jlong, jlong, jobjectArray)
QOR_NATIVE_DECL(jobject, C_1GetInfo)
QOR_NATIVE_DECL(jobject, C_1GetSlotInfo, jlong)
QOR_NATIVE_DECL(jobject, C_1GetTokenInfo, jlong)
QOR_NATIVE_DECL(jobject, C_1GetMechanismInfo, jlong, jlong)
QOR_NATIVE_DECL(jobject, C_1GetSessionInfo, jlong)
QOR_NATIVE_DECL(jlongArray, C_1GetSlotList, jboolean)
QOR_NATIVE_DECL(jlongArray, C_1GetMechanismList, jlong)
QOR_NATIVE_DECL(jlongArray, C_1FindObjects, jlong, jlong)
QOR_NATIVE_DECL(jbyteArray, C_1GetOperationState, jlong)
#undef QOR_NATIVE_DECL

namespace {

using qor::fuzz::Input;

std::mutex gMutex;
std::deque<std::string> gReplies;  // what the server answers next, in turn
JNIEnv* gEnv = nullptr;
jobject gSelf = nullptr;
jclass gAttributeClass = nullptr;

int answer(const void*, int32_t, void** out, uint32_t* out_len) {
  std::lock_guard<std::mutex> lock(gMutex);
  std::string reply;
  if (!gReplies.empty()) {
    reply = std::move(gReplies.front());
    gReplies.pop_front();
  }
  *out = std::malloc(reply.size() + 1);
  if (!reply.empty()) std::memcpy(*out, reply.data(), reply.size());
  *out_len = static_cast<uint32_t>(reply.size());
  return 0;
}

void queue_replies(Input& in) {
  std::lock_guard<std::mutex> lock(gMutex);
  gReplies.clear();
  while (in.rest_size() > 2) {
    const size_t len = in.byte() | static_cast<size_t>(in.byte()) << 8;
    const size_t take = len < in.rest_size() ? len : in.rest_size();
    gReplies.emplace_back(reinterpret_cast<const char*>(in.rest()), take);
    for (size_t i = 0; i < take; ++i) in.byte();
  }
}

// One attribute type of each value form the bridge knows, and one it does not.
constexpr CK_ATTRIBUTE_TYPE kTypes[] = {
    CKA_CLASS,         CKA_TOKEN,           CKA_LABEL,          CKA_START_DATE,
    CKA_WRAP_TEMPLATE, CKA_UNWRAP_TEMPLATE, 0x40000600 /* allowed mechanisms */,
    CKA_VALUE,         0x80000001 /* vendor */};

jobjectArray java_template(Input& in) {
  const jsize count = in.byte() % 5;
  jobjectArray array = gEnv->NewObjectArray(count, gAttributeClass, nullptr);
  const jfieldID type = gEnv->GetFieldID(gAttributeClass, "type", "J");
  for (jsize i = 0; i < count; ++i) {
    jobject a = gEnv->AllocObject(gAttributeClass);
    gEnv->SetLongField(a, type, static_cast<jlong>(kTypes[in.byte() % (sizeof kTypes / sizeof kTypes[0])]));
    gEnv->SetObjectArrayElement(array, i, a);
    gEnv->DeleteLocalRef(a);
  }
  return array;
}

using Native = void (*)(Input& in);
const Native kNatives[] = {
    [](Input& in) {
      jobjectArray t = java_template(in);
      queue_replies(in);
      Java_com_qor_smartcard_pkcs11_Pkcs11_C_1GetAttributeValue(gEnv, gSelf, 1, 2, t);
    },
    [](Input& in) {
      queue_replies(in);
      Java_com_qor_smartcard_pkcs11_Pkcs11_C_1GetInfo(gEnv, gSelf);
    },
    [](Input& in) {
      queue_replies(in);
      Java_com_qor_smartcard_pkcs11_Pkcs11_C_1GetSlotInfo(gEnv, gSelf, 1);
    },
    [](Input& in) {
      queue_replies(in);
      Java_com_qor_smartcard_pkcs11_Pkcs11_C_1GetTokenInfo(gEnv, gSelf, 1);
    },
    [](Input& in) {
      queue_replies(in);
      Java_com_qor_smartcard_pkcs11_Pkcs11_C_1GetMechanismInfo(gEnv, gSelf, 1, 0x250);
    },
    [](Input& in) {
      queue_replies(in);
      Java_com_qor_smartcard_pkcs11_Pkcs11_C_1GetSessionInfo(gEnv, gSelf, 2);
    },
    [](Input& in) {
      queue_replies(in);
      Java_com_qor_smartcard_pkcs11_Pkcs11_C_1GetSlotList(gEnv, gSelf, JNI_TRUE);
    },
    [](Input& in) {
      queue_replies(in);
      Java_com_qor_smartcard_pkcs11_Pkcs11_C_1GetMechanismList(gEnv, gSelf, 1);
    },
    [](Input& in) {
      const jlong max = in.byte() % 64;
      queue_replies(in);
      Java_com_qor_smartcard_pkcs11_Pkcs11_C_1FindObjects(gEnv, gSelf, 2, max);
    },
    [](Input& in) {
      queue_replies(in);
      Java_com_qor_smartcard_pkcs11_Pkcs11_C_1GetOperationState(gEnv, gSelf, 2);
    },
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  qor::fuzz::leave_segv_to_the_vm(argc, argv);
  qor::fuzz::discard_logs();
  // The bridge's Java classes, for the VM the support code starts.
  setenv("JAVA_TOOL_OPTIONS", "-Djava.class.path=" QOR_BRIDGE_JAR, 1);
  gEnv = qor::test::jni_env();
  qor::test::ensure_registry_lock();
  gAttributeClass = static_cast<jclass>(gEnv->NewGlobalRef(gEnv->FindClass("com/qor/smartcard/pkcs11/CK_ATTRIBUTE")));
  if (gAttributeClass == nullptr) std::abort();

  const std::string id = qor::fuzz::server_id("conversions");
  if (qorpkcs11_comm_server_init(id.c_str(), answer) != 0) std::abort();
  ::close(qor::fuzz::connect_to(id));
  if (qorpkcs11_client_init(id.c_str()) != 0) std::abort();
  CK_FUNCTION_LIST_PTR proxies = nullptr;
  C_GetFunctionList(&proxies);
  static qor::test::Registration binding(id.c_str(), proxies);
  gSelf = binding.object();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input in(data, size);
  const Native native = kNatives[in.byte() % (sizeof kNatives / sizeof kNatives[0])];
  gEnv->PushLocalFrame(64);
  native(in);
  gEnv->ExceptionClear();  // PKCS11Exception for a failed call, OutOfMemoryError, ...
  gEnv->PopLocalFrame(nullptr);
  return 0;
}
