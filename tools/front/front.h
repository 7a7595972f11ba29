// The one thing the exported entry point needs from the translation code.
// Free of both PKCS#11 headers: they declare C_GetFunctionList differently.
#pragma once

namespace host {
struct CK_FUNCTION_LIST;
}

namespace qor::front {

// C_GetFunctionList of the platform's ABI (the CK_RV is unsigned long).
unsigned long getFunctionList(host::CK_FUNCTION_LIST** ppFunctionList);

}  // namespace qor::front
