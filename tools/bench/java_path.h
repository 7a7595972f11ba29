// The Java paths: a Java VM in the benchmark process whose Pkcs11 objects
// are bound to the same function lists as native paths (the wrapper library
// with its client connection, or a module in this process), so that a Java
// path and its native twin differ by the natives and nothing else.
#pragma once

#include <jni.h>

#include <string>

namespace qor::bench {

// Starts the VM once: `classPath` holds qorpkcs11.jar and the benchmark's
// classes, `wrapperPath` is the library the Java class loads.
void start_java(const std::string& classPath, const std::string& wrapperPath);

class JavaPath {
 public:
  // Binds `library` (with `socket`: the wrapper as the client of that
  // socket, whose native side is already connected; without: a module in
  // this process) to run on `session`.
  JavaPath(const std::string& library, const char* socket, unsigned long session, unsigned long key);

  // One operation, numbered as the native benchmark numbers them.
  bool run(int op) { return call(run_, op); }
  // A Java call that does nothing: what the loop's call into Java costs.
  bool nothing() { return call(nothing_, 0); }

 private:
  bool call(jmethodID method, int op);

  JNIEnv* env_ = nullptr;
  jobject calls_ = nullptr;
  jmethodID run_ = nullptr;
  jmethodID nothing_ = nullptr;
};

}  // namespace qor::bench
