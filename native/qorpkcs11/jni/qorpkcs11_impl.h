// The implementation behind IQorPkcs11: a module name, resolved in the
// registry on every call.
#pragma once

#include <memory>

#include "qorpkcs11/IQorPkcs11.h"

class QorPkcs11Impl final : public IQorPkcs11 {
 public:
  explicit QorPkcs11Impl(const char* moduleName);
  ~QorPkcs11Impl() override;
  QorPkcs11Impl(const QorPkcs11Impl&) = delete;
  QorPkcs11Impl& operator=(const QorPkcs11Impl&) = delete;

  const char* moduleName() const { return mModuleName.get(); }

#define QOR_IMPL_METHOD(name, params, args) CK_RV name params override;
  QOR_PKCS11_FUNCTIONS(QOR_IMPL_METHOD)
#undef QOR_IMPL_METHOD

 private:
  // A copy of the name, or null for the first registered module (or when the
  // copy could not be made: getInstance then gives no instance at all).
  std::unique_ptr<char[]> mModuleName;
};
