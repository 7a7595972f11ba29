// The values both ends move across the wire, in one vocabulary: a `put`
// writes a PKCS#11 value into its message, a `take` reads it back, and the
// serving side's puts are the client's takes. What the two ends do
// differently with the same message is said here, once.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>

#include "qorpkcs11/pkcs11.h"
#include "qorpkcs11/proto/pkcs11command.pb.h"

namespace qor::protocol {

// CK_ULONG values travel in int32 fields unchanged bit for bit (a few
// messages hold int64 or uint32; the value is the same).
constexpr int32_t wire(CK_ULONG value) { return static_cast<int32_t>(value); }
constexpr CK_ULONG ul(int32_t value) { return static_cast<CK_ULONG>(value); }
constexpr CK_ULONG ul(int64_t value) { return static_cast<CK_ULONG>(value); }
constexpr CK_ULONG ul(uint32_t value) { return value; }

// A length no frame could carry the bytes of: a peer cannot have meant it,
// and padding a field out to it would hand a module gigabytes of zeros.
constexpr bool beyond_any_frame(CK_ULONG declared) { return declared > INT32_MAX; }

// The info structures: the serving side puts what its module answered, the
// client takes it into its caller's structure. Their text members cross as
// deployed peers move them: the serving side reads each as a C string
// bounded by the structure that holds it (an unterminated member runs on
// into the next); the client lands CK_INFO's and CK_SLOT_INFO's with their
// terminator when shorter than the member and not at all when longer, and
// CK_TOKEN_INFO's as raw bytes blank-padded to the member's width.
void put(const CK_VERSION& from, pkcs11::CK_VERSION* to);
void put(const CK_INFO& from, pkcs11::CK_INFO* to);
void put(const CK_SLOT_INFO& from, pkcs11::CK_SLOT_INFO* to);
void put(const CK_TOKEN_INFO& from, pkcs11::CK_TOKEN_INFO* to);
void put(const CK_MECHANISM_INFO& from, pkcs11::CK_MECHANISM_INFO* to);
void put(const CK_SESSION_INFO& from, pkcs11::CK_SESSION_INFO* to);

void take(const pkcs11::CK_VERSION& from, CK_VERSION* to);
void take(const pkcs11::CK_INFO& from, CK_INFO* to);
void take(const pkcs11::CK_SLOT_INFO& from, CK_SLOT_INFO* to);
void take(const pkcs11::CK_TOKEN_INFO& from, CK_TOKEN_INFO* to);
void take(const pkcs11::CK_MECHANISM_INFO& from, CK_MECHANISM_INFO* to);
void take(const pkcs11::CK_SESSION_INFO& from, CK_SESSION_INFO* to);

// What a call does with its attribute template, and so how each end moves
// it. The client writes the request and reads the reply; the serving side
// builds the module's records from the request and answers from them.
enum class TemplateUse {
  // C_CreateObject, C_CopyObject. Client: a null value goes out without
  // bytes but with the caller's length. Server: values the module reads.
  kNewObject,
  // C_SetAttributeValue and the key functions' templates. Client: a null
  // value goes out without bytes and with length 0. Server: as kNewObject.
  kValues,
  // C_GetAttributeValue. Client: as kValues, and the reply's values land
  // in the caller's buffers. Server: buffers the module fills.
  kAnswered,
  // C_FindObjectsInit. Client: every value goes out as bytes, null or not.
  // Server: every record gets a buffer, value or not.
  kSearch,
};

}  // namespace qor::protocol
