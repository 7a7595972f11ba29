// The processor and its handlers against the test module, registered in the
// module registry (inside an in-process Java VM) under the name the server
// serves.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "jvm.h"
#include "log_capture.h"
#include "qorpkcs11/proto/pkcs11command.pb.h"
#include "testmodule.h"

namespace qor::test {

using Bytes = std::vector<uint8_t>;
// Fills one request; the name is set separately.
using Fill = std::function<void(pkcs11::Operation&)>;

std::string bytes(std::initializer_list<int> values);
// A CK_ULONG as the module's structures hold it.
std::string le32(uint32_t value);
// Lower-case hex, as the test module shows buffers: "[0a0b]".
std::string shown(const std::string& data);
std::string zeros(size_t n);

pkcs11::Operation request(const std::string& name, const Fill& fill = nullptr);

class ServerTest : public ::testing::Test {
 protected:
  static constexpr const char* kModuleName = "@qor-server-test";

  void SetUp() override;
  void TearDown() override;

  // What the processor hands the transport for these request bytes.
  std::string process(const std::string& requestBytes);
  // The reply decoded; fails the test when there is none.
  pkcs11::OperationResult serve(const pkcs11::Operation& op);

  // The module's calls as canonical text, and one argument of the only call.
  std::vector<std::string> calls() const { return module_.calls(); }
  std::string arg(const char* name) const;

  TestModule module_{QOR_TESTMODULE_PATH};
  LogCapture logs_;
  std::unique_ptr<Registration> registration_;
};

// What the module answers the next call with (see testmodule_control.h):
// no output bytes leaves the output untouched, -1 leaves a length or count.
struct Answer {
  CK_RV rv = CKR_OK;
  std::string output{};
  int64_t len = -1;
  int64_t count = -1;
  std::vector<CK_ULONG> values{};
};

// One request, the answer of the module function it must call, that call
// as the test module shows it, and what the reply must carry besides the
// module's rv.
struct HandlerCase {
  const char* label;
  const char* wire;
  Fill fill;
  Answer answer;
  std::string call;
  std::function<void(const pkcs11::OperationResult&)> check = nullptr;  // null: name and rv only
  const char* result = nullptr;  // the reply's name when it is not the wire name
};
void PrintTo(const HandlerCase& c, std::ostream* os);
class HandlerTest : public ServerTest, public ::testing::WithParamInterface<HandlerCase> {};

// A request that declares more than it carries: refused without a module call.
struct Refusal {
  const char* label;
  const char* wire;
  Fill fill;
  const char* result = nullptr;
};
void PrintTo(const Refusal& c, std::ostream* os);
class RefusalTest : public ServerTest, public ::testing::WithParamInterface<Refusal> {};

// An output the module leaves unwritten while reporting more than it got.
struct Unwritten {
  const char* label;
  const char* wire;
  const char* member;
  Fill fill;  // asks for kCapacity bytes
  std::function<std::pair<std::string, int32_t>(const pkcs11::OperationResult&)> output;
  int32_t length;  // the reply's length field
};
inline constexpr int32_t kCapacity = 24;
void PrintTo(const Unwritten& c, std::ostream* os);
class UnwrittenTest : public ServerTest, public ::testing::WithParamInterface<Unwritten> {};

template <typename Param>
std::string label(const ::testing::TestParamInfo<Param>& info) {
  return info.param.label;
}

}  // namespace qor::test
