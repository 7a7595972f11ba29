#include "java_path.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace qor::bench {
namespace {

JNIEnv* gEnv = nullptr;

[[noreturn]] void die(const char* what) {
  if (gEnv != nullptr && gEnv->ExceptionCheck()) gEnv->ExceptionDescribe();
  std::fprintf(stderr, "qor_bench: %s\n", what);
  std::exit(2);
}

}  // namespace

void start_java(const std::string& classPath, const std::string& wrapperPath) {
  std::string classPathOption = "-Djava.class.path=" + classPath;
  std::string libraryOption = "-Dcom.qor.smartcard.pkcs11.library=" + wrapperPath;
  std::vector<JavaVMOption> options = {{classPathOption.data(), nullptr},
                                       {libraryOption.data(), nullptr},
                                       {const_cast<char*>("-Xmx128m"), nullptr}};
  JavaVMInitArgs args{};
  args.version = JNI_VERSION_1_8;
  args.nOptions = static_cast<jint>(options.size());
  args.options = options.data();
  JavaVM* vm = nullptr;
  if (JNI_CreateJavaVM(&vm, reinterpret_cast<void**>(&gEnv), &args) != JNI_OK)
    die("no Java VM for the Java paths");
}

JavaPath::JavaPath(const std::string& library, const char* socket, unsigned long session,
                   unsigned long key)
    : env_(gEnv) {
  if (env_ == nullptr) die("the Java VM is not started");
  const jclass cls = env_->FindClass("com/qor/smartcard/bench/JavaCalls");
  if (cls == nullptr) die("no class com.qor.smartcard.bench.JavaCalls");
  run_ = env_->GetMethodID(cls, "run", "(I)Z");
  nothing_ = env_->GetMethodID(cls, "nothing", "(I)Z");
  const jmethodID init =
      env_->GetMethodID(cls, "<init>", "(Ljava/lang/String;Ljava/lang/String;JJ)V");
  if (run_ == nullptr || nothing_ == nullptr || init == nullptr) die("JavaCalls lacks a method");
  const jstring name = env_->NewStringUTF(library.c_str());
  const jstring server = socket != nullptr ? env_->NewStringUTF(socket) : nullptr;
  const jobject calls = env_->NewObject(cls, init, name, server, static_cast<jlong>(session),
                                        static_cast<jlong>(key));
  if (calls == nullptr || env_->ExceptionCheck()) die("the Java path cannot connect");
  calls_ = env_->NewGlobalRef(calls);
  env_->DeleteLocalRef(calls);
  env_->DeleteLocalRef(name);
  if (server != nullptr) env_->DeleteLocalRef(server);
  env_->DeleteLocalRef(cls);
}

bool JavaPath::call(jmethodID method, int op) {
  const bool ok = env_->CallBooleanMethod(calls_, method, static_cast<jint>(op)) == JNI_TRUE;
  if (env_->ExceptionCheck()) {
    env_->ExceptionClear();
    return false;
  }
  return ok;
}

}  // namespace qor::bench
