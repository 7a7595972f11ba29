// Every PKCS#11 constant of the Java API (QorConstants) against the header,
// compared by the compiler: the rows are the Java source's own values.
#include <gtest/gtest.h>

#include "qorpkcs11/pkcs11.h"

#define X(name, value) \
  static_assert(static_cast<CK_ULONG>(name) == value##u, #name " differs between the header and the Java API");
#include QOR_JAVA_CONSTANT_ROWS
#undef X

namespace qor::test {
namespace {

TEST(JavaConstants, TheJavaApiHasTheHeadersConstants) {
  size_t rows = 0;
#define X(name, value) ++rows;
#include QOR_JAVA_CONSTANT_ROWS
#undef X
  // Every prefix the header defines is there (the header defines about 500).
  EXPECT_GT(rows, 500u);
}

}  // namespace
}  // namespace qor::test
