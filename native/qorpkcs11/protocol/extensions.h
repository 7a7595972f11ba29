// The extended protocol: what a client of this library may ask a server of
// this library for, on top of the wire deployed peers speak. Both ends read
// these bits; the fields that carry them are numbered from 1000 on.
#pragma once

#include <cstdint>

namespace qor::protocol {

// Operation.qor_extensions and OperationResult.qor_extensions: the request
// asks for, and the result confirms, the calls served as the caller meant
// them (signatures verified, PINs routed, session and slot carried, length
// queries and absent parameters passed on as null, inputs at their own
// length).
inline constexpr uint32_t kExtendedCalls = 1u;

}  // namespace qor::protocol
