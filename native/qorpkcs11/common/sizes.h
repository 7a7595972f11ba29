// Size arithmetic on lengths that a peer or a module supplies. CK_ULONG and
// size_t are 32 bits on the device, so the obvious expressions wrap there.
#pragma once

#include <cstdint>

namespace qor {

// Whole bytes that hold `bits` bits, for any 32-bit count: (bits + 7) / 8
// wraps to 0 for the last seven values.
constexpr uint32_t bytes_for_bits(uint32_t bits) { return bits / 8 + (bits % 8 != 0 ? 1 : 0); }

}  // namespace qor
