// Entry points of the client proxy besides the PKCS#11 functions themselves:
// bring-up and tear-down of the link to the serving process, and the function
// list that C_GetFunctionList hands out.
#pragma once

#include "qorpkcs11/pkcs11.h"

extern "C" {

// Null until the first C_GetFunctionList; then the list, for the process's life.
extern CK_FUNCTION_LIST_PTR mFunctionList;

// Connects the transport client to the server named `serverName`; returns
// the transport's code unchanged.
int qorpkcs11_client_init(const char* serverName);
// Closes that connection; the transport's code.
int qorpkcs11_client_deinit(void);

}  // extern "C"
