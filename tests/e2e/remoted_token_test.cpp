// Calls through the remoting that the serving process must carry out as the
// caller meant them, against a real SoftHSM2 token.
#include <gtest/gtest.h>

#include "remoted.h"

namespace qor::test {
namespace {

using RemotedTokenTest = TokenTest<ViaRemoting>;

// A seed is sent as text, cut at its first zero byte: the token still gets
// one of the length the caller gave.
TEST_F(RemotedTokenTest, SeedWithAZeroByteReachesTheToken) {
  Bytes seed(32, 0x5a);
  seed[3] = 0;
  EXPECT_EQ(CKR_OK, f_->C_SeedRandom(session_, seed.data(), static_cast<UL>(seed.size())));
}

}  // namespace
}  // namespace qor::test
