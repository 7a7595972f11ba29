#include "qorpkcs11/common/sizes.h"

#include <gtest/gtest.h>

namespace qor::test {
namespace {

TEST(SizesTest, BytesForBitsNeverWraps) {
  struct Case {
    uint32_t bits, bytes;
  } const cases[] = {
      {0, 0}, {1, 1}, {8, 1}, {9, 2}, {64, 8}, {0xFFFFFFF8u, 0x1FFFFFFFu}, {0xFFFFFFF9u, 0x20000000u},
      {0xFFFFFFFFu, 0x20000000u},
  };
  for (const Case& c : cases) EXPECT_EQ(c.bytes, bytes_for_bits(c.bits)) << c.bits;
}

}  // namespace
}  // namespace qor::test
