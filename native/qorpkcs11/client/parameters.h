// Mechanism parameters that hold pointers, with the extensions on. To a
// server that confirmed them, the blocks the structure points to travel
// beside it and the blocks the module writes come back into the caller's
// memory; to any other server such a parameter is refused, since the
// serving process would follow addresses of this one. With the extensions
// off a parameter travels as its raw bytes, as deployed peers expect.
#pragma once

#include "qorpkcs11/pkcs11.h"
#include "qorpkcs11/proto/pkcs11command.pb.h"

namespace qor::client {

// CKR_MECHANISM_PARAM_INVALID for a parameter that cannot reach the
// connected server as the caller meant it; CKR_OK otherwise.
CK_RV sendableParameter(const CK_MECHANISM& m);

// The parameter's structure (its own pointers zeroed) and its blocks, when
// the server takes it in depth; false when it goes as raw bytes.
bool putParameterInDepth(pkcs11::CK_MECHANISM* out, const CK_MECHANISM& m);

// The blocks the module wrote, each copied into the caller's block at most
// as far as the caller's own length for it says.
void takeParameterOutputs(const CK_MECHANISM& m, const google::protobuf::RepeatedPtrField<std::string>& blocks);

}  // namespace qor::client
