#include "qorpkcs11/client/extensions.h"

#include <atomic>

#include "qorpkcs11/client/caller_memory.h"
#include "qorpkcs11/client/proxy.h"
#include "qorpkcs11/protocol/extensions.h"

namespace qor::client {
namespace {

std::atomic<bool> gOn{false};
std::atomic<bool> gPeer{false};

}  // namespace

bool extensionsOn() { return gOn.load(std::memory_order_relaxed); }

bool extendedPeer() { return extensionsOn() && gPeer.load(std::memory_order_relaxed); }

void markRequest(pkcs11::Operation& op) {
  if (extensionsOn()) op.set_qor_extensions(protocol::kExtendedCalls);
}

void notePeer(const pkcs11::OperationResult& result) {
  if (extensionsOn() && (result.qor_extensions() & protocol::kExtendedCalls) != 0) gPeer = true;
}

void forgetPeer() { gPeer = false; }

void markLengthQuery(pkcs11::Operation& op) {
  if (extensionsOn()) op.set_qor_output_absent(true);
}

void putCallerBytes(std::string* field, const void* p, CK_ULONG len) {
  if (keeps<Kept::kTextInputs>())
    putText(field, p, len);
  else
    putBytes(field, p, len);
}

void putCallerOutput(std::string* field, const void* p, CK_ULONG len) {
  if (keeps<Kept::kOutputBufferText>())
    putText(field, p, len);
  else
    field->clear();
}

}  // namespace qor::client

extern "C" {

int qorpkcs11_client_set_extensions(int32_t on) {
  qor::client::gOn = on != 0;
  return 0;
}

int qorpkcs11_client_extended_peer(void) { return qor::client::extendedPeer() ? 1 : 0; }

}  // extern "C"
