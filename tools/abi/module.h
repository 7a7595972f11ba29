// The library a translation module forwards to.
#pragma once

#include <atomic>
#include <mutex>

#include "abi.h"

namespace qor::abi {

// Opens a library for good (RTLD_LAZY | RTLD_LOCAL, so its C_* names stay
// its own); null, with dlerror() on stderr, when it cannot.
void* openLibrary(const char* path);
void closeLibrary(void* handle);
// A symbol of an opened library, or null.
void* librarySymbol(void* handle, const char* name);
// Tells the user on stderr why a library is not used.
void reportLibrary(const char* path, const char* why);

// A PKCS#11 library of ABI T, loaded on first use and kept until the process
// ends: a caller may still hold its entry points, and unloading a module
// under its own threads is not something every module survives.
template <class T>
class Module {
 public:
  using List = typename T::CK_FUNCTION_LIST;

  bool load(const char* path) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (list_.load(std::memory_order_acquire) != nullptr) return true;
    void* handle = openLibrary(path);
    if (handle == nullptr) return false;
    auto get = reinterpret_cast<typename T::CK_C_GetFunctionList>(
        librarySymbol(handle, "C_GetFunctionList"));
    List* list = nullptr;
    if (get == nullptr || get(&list) != CKR_OK || list == nullptr) {
      reportLibrary(path, "no usable C_GetFunctionList");
      closeLibrary(handle);
      return false;
    }
    handle_ = handle;
    list_.store(list, std::memory_order_release);
    return true;
  }

  // Null until load() has succeeded.
  const List* list() const { return list_.load(std::memory_order_acquire); }
  void* handle() const { return list() ? handle_ : nullptr; }

 private:
  std::mutex mutex_;
  std::atomic<const List*> list_{nullptr};
  void* handle_ = nullptr;
};

// The Side of a translation module (frame.h) whose callee is the library
// Derived::library() names, loaded on the first C_Initialize.
template <class T, class Derived>
struct LoadsLibrary {
  static Module<T>& module() {
    static Module<T> callee;
    return callee;
  }
  static const typename T::CK_FUNCTION_LIST* callee() { return module().list(); }
  static bool load() { return module().load(Derived::library()); }
  static bool connect() { return true; }
  static void disconnect() {}
};

}  // namespace qor::abi
