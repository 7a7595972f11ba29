// The token's behaviour behind each entry point, one function per PKCS#11
// function with its standard signature. Called with gMutex held; never
// exported (the library is built with hidden visibility).
#ifndef QOR_TESTMODULE_IMPL_H
#define QOR_TESTMODULE_IMPL_H

#include "qorpkcs11/pkcs11.h"

namespace qor::tm {

CK_FUNCTION_LIST* functionList();

namespace impl {
#define QORTM_IMPL_DECLARE(name, params, args) CK_RV name params;
QOR_PKCS11_FUNCTIONS(QORTM_IMPL_DECLARE)
#undef QORTM_IMPL_DECLARE
}  // namespace impl

}  // namespace qor::tm

#endif  // QOR_TESTMODULE_IMPL_H
