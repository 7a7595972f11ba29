// Every forwarding function, called through the function list with valid
// arguments that point into one block of caller memory.
#pragma once

#include <cstring>
#include <vector>

#include "qorpkcs11/pkcs11.h"

namespace qor::test {

// Caller memory filled with a pattern, so a byte-wise comparison shows
// whether a call wrote anything into it. Not copyable: it points into itself.
struct CallerMemory {
  CallerMemory();
  CallerMemory(const CallerMemory&) = delete;
  CallerMemory& operator=(const CallerMemory&) = delete;

  struct Block {
    CK_BYTE in[16];
    CK_BYTE out[16];
    CK_ULONG len;
    CK_ULONG count;
    CK_ULONG list[4];
    CK_ULONG handles[4];
    CK_BYTE values[2][8];
    CK_ATTRIBUTE attrs[2];
    CK_MECHANISM mechanism;
    CK_INFO info;
    CK_SLOT_INFO slotInfo;
    CK_TOKEN_INFO tokenInfo;
    CK_SESSION_INFO sessionInfo;
    CK_MECHANISM_INFO mechanismInfo;
  } b;

  std::vector<unsigned char> bytes() const {
    const auto* p = reinterpret_cast<const unsigned char*>(&b);
    return {p, p + sizeof(b)};
  }
};

struct EveryCall {
  const char* wireName;  // operation name the request must carry
  CK_RV (*invoke)(CK_FUNCTION_LIST& f, CallerMemory::Block& m);
};

// The 67 forwarding functions, in function-list order.
const std::vector<EveryCall>& everyCall();

}  // namespace qor::test
