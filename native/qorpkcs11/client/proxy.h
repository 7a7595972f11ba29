// Entry points of the client proxy besides the PKCS#11 functions themselves:
// bring-up and tear-down of the link to the serving process, and the function
// list that C_GetFunctionList hands out.
#pragma once

#include <cstdint>

#include "qorpkcs11/pkcs11.h"

extern "C" {

// Null until the first C_GetFunctionList; then the list, for the process's life.
extern CK_FUNCTION_LIST_PTR mFunctionList;

// Connects the transport client to the server named `serverName`; returns
// the transport's code unchanged.
int qorpkcs11_client_init(const char* serverName);
// Closes that connection; the transport's code.
int qorpkcs11_client_deinit(void);

// Turns the extended protocol on (nonzero) or off (0, the default) for the
// requests that follow; returns 0. With it on, a server of this library
// serves every call as the caller meant it; deployed servers ignore it.
int qorpkcs11_client_set_extensions(int32_t on);
// 1 when the extensions are on and the connected server has confirmed them
// (known from its first reply), else 0.
int qorpkcs11_client_extended_peer(void);

}  // extern "C"
