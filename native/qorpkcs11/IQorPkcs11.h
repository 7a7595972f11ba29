// PKCS#11 for native code in the same process as the Java binding.
//
// IQorPkcs11::getInstance(moduleName) gives an object whose methods are the
// PKCS#11 functions of the module registered under that name by
// Pkcs11.connect (a null name: the module connected first). Each call looks
// the module up again, so an instance outlives a disconnect and works again
// after the next connect; while no module is registered under the name every
// call returns CKR_FUNCTION_FAILED.
//
//   IQorPkcs11* p11 = IQorPkcs11::getInstance("@vendor");
//   CK_INFO info;
//   if (p11->C_GetInfo(&info) == CKR_OK) { ... }
//   delete p11;
//
// The virtual methods are declared in the order of CK_FUNCTION_LIST, which
// fixes the vtable layout that deployed callers were built against.
#ifndef QORPKCS11_IQORPKCS11_H
#define QORPKCS11_IQORPKCS11_H

#include "pkcs11.h"

class QOR_PKCS11_API IQorPkcs11 {
 public:
  // A new instance for the module name (copied; null selects the first
  // module). The caller owns it and deletes it through this interface.
  static IQorPkcs11* getInstance(const char* moduleName);

  virtual ~IQorPkcs11();

#define QOR_IQORPKCS11_METHOD(name, params, args) virtual CK_RV name params = 0;
  QOR_PKCS11_FUNCTIONS(QOR_IQORPKCS11_METHOD)
#undef QOR_IQORPKCS11_METHOD
};

#endif  // QORPKCS11_IQORPKCS11_H
