// An in-process transport server standing in for the serving process: it
// records each Operation it receives and answers with a crafted reply.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "qorpkcs11/pkcs11.h"
#include "qorpkcs11/proto/pkcs11command.pb.h"

namespace qor::test {

using ReplyFill = std::function<void(pkcs11::OperationResult&)>;

// Each test runs in a process of its own: the server thread never stops, so
// SetUp starts one under a socket name unique to the test and connects the
// client proxy to it.
class ProxyTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Answers every following request with name and rv, plus whatever `fill` adds.
  static void answer(CK_RV rv, const ReplyFill& fill = {});
  // Answers with these exact bytes (an empty string is a zero-length reply).
  static void answerBytes(const std::string& bytes);
  // The requests received so far, oldest first.
  static std::vector<pkcs11::Operation> received();
  // The last request's payload as it crossed the socket.
  static std::string sentBytes();
  // The last request; fails the test when there was none.
  static pkcs11::Operation sent();
};

// The serialized form of a message as hex, for readable mismatches.
std::string hex(const std::string& bytes);

// Compares two requests by their wire bytes: every field, present or absent.
#define EXPECT_SAME_WIRE(expected, actual) \
  EXPECT_EQ(::qor::test::hex((expected).SerializePartialAsString()), ::qor::test::hex((actual).SerializePartialAsString()))

}  // namespace qor::test
