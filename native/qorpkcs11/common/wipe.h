// Clearing memory that held a caller's secrets (PINs, keys, plaintext).
#pragma once

#include <cstddef>
#include <cstring>

namespace qor {

// Zeroes `size` bytes at `p`. A plain memset right before the memory is
// freed or goes out of scope is a dead store the optimizer may remove; the
// empty asm that takes the pointer and clobbers memory tells the compiler
// the zeros are read, so the stores stay.
inline void wipe(void* p, size_t size) {
  if (p == nullptr || size == 0) return;
  std::memset(p, 0, size);
  __asm__ __volatile__("" : : "r"(p) : "memory");
}

}  // namespace qor
