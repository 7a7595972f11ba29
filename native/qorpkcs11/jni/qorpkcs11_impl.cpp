#include "qorpkcs11/jni/qorpkcs11_impl.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "qorpkcs11/common/log.h"
#include "qorpkcs11/registry/registry.h"

using qor::log::kNativeInterface;

namespace {

// Looks the module up and forwards one call to the member of the same name;
// without a registered module the call fails with CKR_FUNCTION_FAILED.
template <typename Entry, typename... Args>
CK_RV forward(const char* moduleName, const char* function, const char* resultFormat, Entry entry,
              Args... args) {
  QOR_LOGD(kNativeInterface, "%s...", function);
  CK_FUNCTION_LIST_PTR list = getFunctionsByModule(moduleName);
  if (list == nullptr) {
    QOR_LOGD(kNativeInterface, "getFunctions return NULL");
    return CKR_FUNCTION_FAILED;
  }
  auto fn = entry(list);
  CK_RV rv = fn != nullptr ? fn(args...) : CKR_FUNCTION_NOT_SUPPORTED;
  QOR_LOGD(kNativeInterface, resultFormat, static_cast<int>(rv));
  return rv;
}

// C_Verify alone names itself in its result line.
constexpr const char* resultFormatOf(const char* function) {
  return function[2] == 'V' && function[3] == 'e' && function[4] == 'r' && function[5] == 'i' &&
                 function[6] == 'f' && function[7] == 'y' && function[8] == '\0'
             ? "C_Verify return %d"
             : "return %d";
}

// Every member forwards (the member pointer only names the entry point; it
// is read by name, as the packed list requires), except C_GetFunctionList: the native interface
// never hands out a function list, so it answers without a lookup or a log.
template <auto Member>
struct Forward {
  template <typename Entry, typename... Args>
  static CK_RV call(const char* moduleName, const char* function, Entry entry, Args... args) {
    return forward(moduleName, function, resultFormatOf(function), entry, args...);
  }
};
template <>
struct Forward<&CK_FUNCTION_LIST::C_GetFunctionList> {
  template <typename Entry, typename... Args>
  static CK_RV call(const char*, const char*, Entry, Args...) {
    return CKR_FUNCTION_NOT_SUPPORTED;
  }
};

}  // namespace

IQorPkcs11::~IQorPkcs11() = default;

IQorPkcs11* IQorPkcs11::getInstance(const char* moduleName) {
  std::unique_ptr<QorPkcs11Impl> instance(new (std::nothrow) QorPkcs11Impl(moduleName));
  // Without its copy of the name it would route every call to the first module.
  if (instance != nullptr && moduleName != nullptr && instance->moduleName() == nullptr) return nullptr;
  return instance.release();
}

QorPkcs11Impl::QorPkcs11Impl(const char* moduleName) {
  if (moduleName == nullptr) return;
  const size_t size = std::strlen(moduleName) + 1;
  mModuleName.reset(new (std::nothrow) char[size]);
  if (mModuleName != nullptr) std::memcpy(mModuleName.get(), moduleName, size);
}

QorPkcs11Impl::~QorPkcs11Impl() = default;

#define QOR_UNPACK(...) __VA_ARGS__
#define QOR_IMPL_FORWARD(name, params, args)                                           \
  CK_RV QorPkcs11Impl::name params {                                                   \
    return Forward<&CK_FUNCTION_LIST::name>::call(                                      \
        mModuleName.get(), #name, [](CK_FUNCTION_LIST_PTR list) { return list->name; }, QOR_UNPACK args); \
  }
QOR_PKCS11_FUNCTIONS(QOR_IMPL_FORWARD)
#undef QOR_IMPL_FORWARD
#undef QOR_UNPACK
