// The buffer a call serializes its request into holds the caller's secrets
// (PINs, keys, plaintext); once the call is over it holds zeros, whether the
// thread keeps it for its next call or frees it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <string>

#include "fake_server.h"

namespace {

// Array allocations of at least this size made while a test watches: the
// request buffer and nothing else the call allocates is that large.
size_t gWatchFrom = 0;
const unsigned char* gBlock = nullptr;
size_t gBlockSize = 0;
bool gFreed = false;
bool gFreedWithSecret = false;

constexpr char kSecret = 'S';

bool holdsSecret(const unsigned char* p, size_t n) {
  const std::string run(64, kSecret);
  return std::search(p, p + n, run.begin(), run.end()) != p + n;
}

}  // namespace

void* operator new[](size_t size) {
  void* p = std::malloc(size != 0 ? size : 1);
  if (p == nullptr) throw std::bad_alloc();
  if (gWatchFrom != 0 && size >= gWatchFrom) {
    gBlock = static_cast<const unsigned char*>(p);
    gBlockSize = size;
  }
  return p;
}

void operator delete[](void* p) noexcept {
  if (p != nullptr && p == gBlock) {
    gFreed = true;
    gFreedWithSecret = holdsSecret(gBlock, gBlockSize);
    gBlock = nullptr;
  }
  std::free(p);
}

void operator delete[](void* p, size_t) noexcept { operator delete[](p); }

namespace qor::test {
namespace {

struct Case {
  const char* label;
  size_t pinLength;
  bool kept;  // the thread keeps the buffer for its next call
};

class Wipe : public ProxyTest, public ::testing::WithParamInterface<Case> {};

TEST_P(Wipe, RequestBufferHoldsNoSecretAfterTheCall) {
  const Case& c = GetParam();
  const std::string pin(c.pinLength, kSecret);
  answer(CKR_OK);
  gWatchFrom = c.pinLength;
  EXPECT_EQ(CKR_OK, C_Login(1, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(const_cast<char*>(pin.data())),
                            static_cast<CK_ULONG>(pin.size())));
  gWatchFrom = 0;
  EXPECT_EQ(pin, sent().c_login().ppin());
  if (c.kept) {
    ASSERT_NE(nullptr, gBlock) << "no request buffer kept";
    EXPECT_FALSE(holdsSecret(gBlock, gBlockSize));
  } else {
    ASSERT_TRUE(gFreed) << "the request buffer was not freed";
    EXPECT_FALSE(gFreedWithSecret);
  }
}

INSTANTIATE_TEST_SUITE_P(Buffers, Wipe,
                         ::testing::Values(Case{"Kept", 4096, true},
                                           Case{"FreedAfterALargeCall", size_t{5} << 20, false}),
                         [](const ::testing::TestParamInfo<Case>& info) { return info.param.label; });

}  // namespace
}  // namespace qor::test
