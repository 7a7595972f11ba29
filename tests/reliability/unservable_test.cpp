// A request whose answer cannot be built, because memory runs out on the way
// (for a reply as large as the peer asked for, say), gets the empty reply of
// any request the server cannot serve, and the serving process serves on:
// nothing may unwind into the transport thread, where it would end the
// process.
#include <gtest/gtest.h>

#include <new>

#include "replaced_entries.h"

namespace qor::test {
namespace {

CK_RV outOfMemory(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG) { throw std::bad_alloc(); }

TEST(UnservableRequest, FailedAllocationAnswersEmptyAndTheServerServesOn) {
  ReplacedEntries served("@qor-unservable");
  served.functions().C_GenerateRandom = outOfMemory;

  pkcs11::Operation random;
  random.set_name("C_GenerateRandom");
  random.mutable_c_generaterandom()->set_hsession(1);
  random.mutable_c_generaterandom()->set_ulrandomlen(16);
  EXPECT_EQ("", process(random));

  pkcs11::Operation info;
  info.set_name("C_GetInfo");
  pkcs11::OperationResult result;
  ASSERT_TRUE(result.ParseFromString(process(info)));
  EXPECT_EQ(0, result.rv());
  EXPECT_TRUE(result.has_c_getinfo_response());
}

}  // namespace
}  // namespace qor::test
