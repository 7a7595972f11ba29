// Serving side: the processing callback the transport server calls for every
// request, the entry points that start and query it, and one handler per
// remoted PKCS#11 function.
#pragma once

#include <cstdint>
#include <string>

#include "qorpkcs11/pkcs11.h"
#include "qorpkcs11/proto/pkcs11command.pb.h"

// State shared by the processor and every handler. Requests are served one
// at a time on the transport's worker thread, so none of it is locked.
extern pkcs11::Operation operation;        // the request being served
extern CK_RV rv;                           // what the last module call returned
extern CK_FUNCTION_LIST_PTR ckpFunctions;  // resolved again for every request
extern char* mModuleName;                  // registry name and socket name

extern "C" {

// Stores the module name and starts the transport server on it.
int qorpkcs11_init_server(const char* moduleName);
// Reports only: the transport thread serves until the process ends.
int qorpkcs11_server_deinit(void);
int32_t qorpkcs11_server_getLastUsageTime(void);
// Always 0. A null name stores null without freeing the previous one.
int setModuleName_Server(const char* name);
// Decodes one Operation, runs its handler and hands back a malloc'ed reply
// (empty when nothing could be served). Always 0.
int Generate_Operation_Result_Server(const void* in, int32_t len, void** out, uint32_t* outLen);

}  // extern "C"

// Wire names in the order the processor compares them. Each handler is the
// wire name plus "_Server". "C_InitPin", "C_SetPin" and "C_UnWrapKey" are
// spelled as deployed peers send them.
#define QOR_SERVER_OPERATIONS(X)                                                              \
  X(C_Initialize) X(C_Finalize) X(C_OpenSession) X(C_CloseSession) X(C_Login) X(C_Logout)      \
  X(C_GetInfo) X(C_GetSlotList) X(C_GetSlotInfo) X(C_GetTokenInfo) X(C_GetMechanismInfo)      \
  X(C_GetSessionInfo) X(C_DestroyObject) X(C_GetAttributeValue) X(C_FindObjectsInit)          \
  X(C_FindObjects) X(C_FindObjectsFinal) X(C_EncryptInit) X(C_Encrypt) X(C_DecryptInit)       \
  X(C_Decrypt) X(C_DigestInit) X(C_Digest) X(C_SignInit) X(C_Sign) X(C_VerifyInit)             \
  X(C_Verify) X(C_GenerateRandom) X(C_SeedRandom) X(C_GetMechanismList) X(C_InitToken)        \
  X(C_InitPin) X(C_SetPin) X(C_CloseAllSessions) X(C_GetOperationState)                       \
  X(C_SetOperationState) X(C_CreateObject) X(C_CopyObject) X(C_GetObjectSize)                 \
  X(C_SetAttributeValue) X(C_EncryptUpdate) X(C_EncryptFinal) X(C_DecryptUpdate)              \
  X(C_DecryptFinal) X(C_DigestUpdate) X(C_DigestKey) X(C_DigestFinal) X(C_SignUpdate)         \
  X(C_SignFinal) X(C_SignRecoverInit) X(C_SignRecover) X(C_VerifyUpdate) X(C_VerifyFinal)     \
  X(C_VerifyRecoverInit) X(C_VerifyRecover) X(C_DigestEncryptUpdate)                          \
  X(C_DecryptDigestUpdate) X(C_SignEncryptUpdate) X(C_DecryptVerifyUpdate) X(C_GenerateKey)   \
  X(C_GenerateKeyPair) X(C_WrapKey) X(C_UnWrapKey) X(C_DeriveKey) X(C_GetFunctionStatus)      \
  X(C_CancelFunction) X(C_WaitForSlotEvent)

// The handlers are exported under their plain names, so they take C linkage
// although they trade in std::string (only C++ callers use them).
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"
#endif
extern "C" {
#define QOR_DECLARE_HANDLER(op) std::string op##_Server(const std::string& request);
QOR_SERVER_OPERATIONS(QOR_DECLARE_HANDLER)
#undef QOR_DECLARE_HANDLER
}
#if defined(__clang__)
#pragma clang diagnostic pop
#endif
