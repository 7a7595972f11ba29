// A caller of the client proxies whose memory the fuzzer sizes: every
// buffer, list, template value and info structure is a heap block of exactly
// the size the call declares, so a copy-back that writes one byte too many
// lands in AddressSanitizer's red zone.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "fuzz_common.h"
#include "qorpkcs11/pkcs11.h"

namespace qor::fuzz {

struct Caller {
  // Reads its shape from the front of the input: 10 bytes.
  explicit Caller(Input& in);

  std::unique_ptr<CK_BYTE[]> data;  // input bytes
  CK_ULONG dataLen;
  std::unique_ptr<CK_BYTE[]> out;   // output buffer, or null for a size query
  std::unique_ptr<CK_ULONG> outLen;  // its capacity on entry
  std::unique_ptr<CK_ULONG[]> list;  // slot, mechanism or object handles, or null
  CK_ULONG listCapacity;
  std::unique_ptr<CK_ULONG> count;
  std::unique_ptr<CK_ATTRIBUTE[]> attrs;
  CK_ULONG attrCount;
  std::vector<std::unique_ptr<CK_BYTE[]>> values;
  CK_MECHANISM mechanism;
  std::unique_ptr<CK_ULONG> handle;
  std::unique_ptr<CK_ULONG> handle2;
  std::unique_ptr<CK_BYTE[]> label;  // C_InitToken's 32 blank-padded bytes
  std::unique_ptr<CK_INFO> info;
  std::unique_ptr<CK_SLOT_INFO> slotInfo;
  std::unique_ptr<CK_TOKEN_INFO> tokenInfo;
  std::unique_ptr<CK_SESSION_INFO> sessionInfo;
  std::unique_ptr<CK_MECHANISM_INFO> mechanismInfo;
};

struct ProxyCall {
  const char* name;
  CK_RV (*invoke)(CK_FUNCTION_LIST& f, Caller& c);
};

// The 67 forwarding functions, in function-list order.
const std::vector<ProxyCall>& proxyCalls();

}  // namespace qor::fuzz
