// Where the mechanism parameters that hold pointers keep them. Deployed
// peers send a parameter as its raw bytes, so the serving process would
// follow addresses of the calling process; between two extended ends the
// client sends each pointed-to block beside the structure and the server
// points the structure at its own copies. Both ends read this one table.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qorpkcs11/pkcs11.h"

namespace qor::protocol {

// Which way a pointed-to block travels.
enum class Flow : uint8_t {
  kIn,     // the caller's bytes, read by the module
  kOut,    // written by the module, copied back into the caller's memory
  kInOut,  // both
};

// How a block's length in bytes is found.
enum class Sized : uint8_t {
  kUlongAt,      // a CK_ULONG of the structure, at offset `arg`
  kBitsAt,       // a CK_ULONG count of bits of the structure, at offset `arg`
  kFixed,        // `arg` bytes
  kUlongIn,      // the CK_ULONG in the block of member number `arg`
};

// One pointer member. `within` is -1 for a pointer in the structure itself,
// else the number of an earlier member whose block holds it (the key
// material a structure points to, with the IV pointers inside it).
struct Member {
  int8_t within;
  uint16_t pointer;  // offset of the pointer in its holder
  Sized sized;
  uint16_t arg;
  Flow flow;
};

struct Layout {
  const char* name;
  size_t size;  // the structure's size, which the parameter's length must equal
  const Member* members;
  uint8_t count;
};

// The layout of a mechanism's parameter, or null for a parameter without
// pointers (plain bytes, an IV, CK_AES_CTR_PARAMS) or one not known here.
const Layout* parameterLayout(CK_MECHANISM_TYPE mechanism);

// A structure holding pointers that cannot travel in depth (nested
// mechanisms, strings without a length): refused to every peer when the
// extensions are on rather than sent as addresses.
bool untranslatableParameter(CK_MECHANISM_TYPE mechanism);

// The length of member `index`'s block, read from `structure` or from the
// block of an earlier member (`blocks[i]`, `lengths[i]` bytes, null when
// absent; a block too short to hold the count gives 0).
CK_ULONG memberLength(const Layout& layout, size_t index, const void* structure,
                      const void* const* blocks, const CK_ULONG* lengths);

// Reads and writes of a pointer slot at any alignment.
void* pointerAt(const void* holder, size_t offset);
void setPointerAt(void* holder, size_t offset, const void* value);

}  // namespace qor::protocol
