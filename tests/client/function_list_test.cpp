// The function list, and what every entry does when the exchange fails or
// the reply carries nothing.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "every_call.h"
#include "fake_server.h"
#include "qorpkcs11/client/proxy.h"

namespace qor::test {
namespace {

CK_FUNCTION_LIST& functionList() {
  CK_FUNCTION_LIST_PTR list = nullptr;
  EXPECT_EQ(CKR_OK, C_GetFunctionList(&list));
  return *list;
}

TEST(FunctionList, IsBuiltOnceWithVersionTwoTwentyAndRejectsANullTarget) {
  EXPECT_EQ(CKR_ARGUMENTS_BAD, C_GetFunctionList(nullptr));
  CK_FUNCTION_LIST_PTR first = nullptr;
  CK_FUNCTION_LIST_PTR second = nullptr;
  ASSERT_EQ(CKR_OK, C_GetFunctionList(&first));
  ASSERT_EQ(CKR_OK, C_GetFunctionList(&second));
  EXPECT_EQ(first, second);
  EXPECT_EQ(first, mFunctionList);
  EXPECT_EQ(2, first->version.major);
  EXPECT_EQ(20, first->version.minor);
}

// Peers index the packed list by byte offset: entry k sits at 2 + k pointers.
TEST(FunctionList, EntriesSitAtTheirPackedOffsetsInStandardOrder) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(&functionList());
  std::vector<void*> expected;
#define QOR_EXPECTED(name, params, args) expected.push_back(reinterpret_cast<void*>(&name));
  QOR_PKCS11_FUNCTIONS(QOR_EXPECTED)
#undef QOR_EXPECTED
  ASSERT_EQ(68u, expected.size());
  for (size_t k = 0; k < expected.size(); ++k) {
    void* entry = nullptr;
    std::memcpy(&entry, bytes + 2 + k * sizeof(void*), sizeof(entry));
    EXPECT_EQ(expected[k], entry) << "entry " << k + 1;
  }
  EXPECT_EQ(reinterpret_cast<void*>(&C_UnwrapKey),
            reinterpret_cast<void*>(functionList().C_UnwrapKey));
}

TEST(FunctionList, RacingFirstCallsAllGetTheSameList) {
  std::vector<CK_FUNCTION_LIST_PTR> seen(8, nullptr);
  std::vector<std::thread> threads;
  for (auto& slot : seen) threads.emplace_back([&slot] { C_GetFunctionList(&slot); });
  for (auto& t : threads) t.join();
  for (auto* list : seen) EXPECT_EQ(seen[0], list);
  EXPECT_NE(nullptr, seen[0]);
}

TEST(FunctionList, CoversEveryForwardingFunctionOnce) {
  std::set<std::string> names;
  for (const auto& call : everyCall()) names.insert(call.wireName);
  EXPECT_EQ(67u, names.size());
  EXPECT_EQ(67u, everyCall().size());
}

// Without a transport every forwarding function fails the same way and
// leaves the caller's memory as it was.
TEST(TransportDown, EveryFunctionReturnsAllOnesAndWritesNothing) {
  for (const auto& call : everyCall()) {
    CallerMemory memory;
    const auto before = memory.bytes();
    EXPECT_EQ(0xFFFFFFFFu, call.invoke(functionList(), memory.b)) << call.wireName;
    EXPECT_EQ(before, memory.bytes()) << call.wireName;
  }
}

using EveryFunction = ProxyTest;

TEST_F(EveryFunction, SendsItsOperationNameAndTakesANameOnlyReplyAsSuccess) {
  pkcs11::OperationResult nameOnly;
  nameOnly.set_name("whatever");
  answerBytes(nameOnly.SerializePartialAsString());
  for (const auto& call : everyCall()) {
    CallerMemory memory;
    const auto before = memory.bytes();
    EXPECT_EQ(CKR_OK, call.invoke(functionList(), memory.b)) << call.wireName;
    EXPECT_EQ(before, memory.bytes()) << call.wireName;
    EXPECT_EQ(call.wireName, sent().name());
  }
  EXPECT_EQ(everyCall().size(), received().size());
}

// The server's answer to a request it cannot serve.
TEST_F(EveryFunction, FailsOnAZeroLengthReplyWithoutWriting) {
  answerBytes("");
  for (const auto& call : everyCall()) {
    CallerMemory memory;
    const auto before = memory.bytes();
    EXPECT_EQ(0xFFFFFFFFu, call.invoke(functionList(), memory.b)) << call.wireName;
    EXPECT_EQ(before, memory.bytes()) << call.wireName;
  }
}

}  // namespace
}  // namespace qor::test
