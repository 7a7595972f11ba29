// The client's side of the extended protocol. Off by default: then every
// request is the bytes deployed servers expect. On, every request carries the
// marker, and once the connected server has answered one with its own
// marker the calls that deployed servers serve otherwise than the caller
// meant (signatures, PINs, labels and seeds cut at a zero byte, no session
// handle in C_GetSessionInfo) go out as the caller meant them.
#pragma once

#include <string>

#include "qorpkcs11/pkcs11.h"
#include "qorpkcs11/proto/pkcs11command.pb.h"
#include "qorpkcs11/protocol/extensions.h"

namespace qor::client {

bool extensionsOn();
// On, and the connected server confirmed it serves them.
bool extendedPeer();

using protocol::Kept;

// Whether this call keeps a difference the client keeps for deployed servers.
template <protocol::Kept difference>
bool keeps() {
  static_assert(protocol::keptBy(difference) == protocol::End::kClient, "kept by the serving side");
  return !extendedPeer();
}

// Called on every exchange: the marker out, the server's answer in.
void markRequest(pkcs11::Operation& op);
void notePeer(const pkcs11::OperationResult& result);
// A new connection: what the old server said no longer holds.
void forgetPeer();

// The caller's output buffer is null: with the extensions on the request
// says so, and an extended server asks the module with a null buffer.
void markLengthQuery(pkcs11::Operation& op);

// Input bytes deployed servers take as text: whole to an extended server,
// otherwise up to the first zero byte, never more than len bytes.
void putCallerBytes(std::string* field, const void* p, CK_ULONG len);

// The caller's output buffer, which deployed servers take as text and start
// the module's output from: nothing to an extended server, which has no use
// for stale bytes of the caller's memory.
void putCallerOutput(std::string* field, const void* p, CK_ULONG len);

}  // namespace qor::client
