// Serving side: the processing callback the transport server calls for every
// request, the entry points that start and query it, and one handler per
// remoted PKCS#11 function.
#pragma once

#include <cstdint>
#include <string>

#include "qorpkcs11/pkcs11.h"
#include "qorpkcs11/protocol/calls.h"
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
// Off by default. On: a client whose connection ends after C_Initialize and
// before C_Finalize leaves the module finalized (no session, no login) for
// the next one. Always 0.
int qorpkcs11_server_set_reset_on_disconnect(int32_t on);
// Always 0. A null name stores null without freeing the previous one.
int setModuleName_Server(const char* name);
// Decodes one Operation, runs its handler and hands back a malloc'ed reply
// (empty when nothing could be served). Always 0.
int Generate_Operation_Result_Server(const void* in, int32_t len, void** out, uint32_t* outLen);

}  // extern "C"

// One handler per route of the protocol table, <route>_Server. The handlers
// are exported under their plain names, so they take C linkage
// although they trade in std::string (only C++ callers use them).
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"
#endif
extern "C" {
#define QOR_DECLARE_HANDLER(function, sent, routed, answered) std::string routed##_Server(const std::string& request);
QOR_REMOTED_CALLS(QOR_DECLARE_HANDLER)
#undef QOR_DECLARE_HANDLER
}
#if defined(__clang__)
#pragma clang diagnostic pop
#endif
