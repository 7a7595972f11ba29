#include "server_fixture.h"

#include <cstdlib>
#include <cstring>

#include "qorpkcs11/server/server.h"

namespace qor::test {

std::string bytes(std::initializer_list<int> values) {
  std::string out;
  for (int v : values) out.push_back(static_cast<char>(v));
  return out;
}

std::string le32(uint32_t value) {
  return bytes({static_cast<int>(value & 0xff), static_cast<int>((value >> 8) & 0xff),
                static_cast<int>((value >> 16) & 0xff), static_cast<int>(value >> 24)});
}

std::string shown(const std::string& data) {
  static const char digits[] = "0123456789abcdef";
  std::string out = "[";
  for (unsigned char c : data) {
    out += digits[c >> 4];
    out += digits[c & 15];
  }
  return out + "]";
}

std::string zeros(size_t n) { return std::string(n, '\0'); }

pkcs11::Operation request(const std::string& name, const Fill& fill) {
  pkcs11::Operation op;
  op.set_name(name);
  if (fill) fill(op);
  return op;
}

void ServerTest::SetUp() {
  ASSERT_TRUE(module_.ok()) << module_.error();
  ensure_registry_lock();
  module_.resetReady();
  registration_ =
      std::make_unique<Registration>(kModuleName, module_.functions(), module_.handle());
  setModuleName_Server(kModuleName);
}

void ServerTest::TearDown() { registration_.reset(); }

std::string ServerTest::process(const std::string& requestBytes) {
  void* out = nullptr;
  uint32_t outLen = 0xdeadbeef;
  EXPECT_EQ(0, Generate_Operation_Result_Server(
                   requestBytes.data(), static_cast<int32_t>(requestBytes.size()), &out, &outLen));
  EXPECT_NE(0xdeadbeef, outLen);
  std::string reply = out != nullptr ? std::string(static_cast<const char*>(out), outLen) : "";
  std::free(out);
  return reply;
}

pkcs11::OperationResult ServerTest::serve(const pkcs11::Operation& op) {
  const std::string reply = process(op.SerializeAsString());
  pkcs11::OperationResult result;
  EXPECT_FALSE(reply.empty()) << op.name() << " got no reply";
  EXPECT_TRUE(result.ParseFromString(reply)) << op.name();
  return result;
}

std::string ServerTest::arg(const char* name) const {
  EXPECT_EQ(1, module_.count());
  return module_.arg(0, name);
}

void PrintTo(const HandlerCase& c, std::ostream* os) { *os << c.label; }
void PrintTo(const Refusal& c, std::ostream* os) { *os << c.label; }
void PrintTo(const Unwritten& c, std::ostream* os) { *os << c.label; }

TEST_P(HandlerTest, HandsTheModuleWhatTheRequestSaysAndAnswersWithWhatItLeft) {
  const HandlerCase& c = GetParam();
  const Answer& a = c.answer;
  std::optional<TestModule::Bytes> output;
  if (!a.output.empty()) output.emplace(a.output.begin(), a.output.end());
  ASSERT_TRUE(module_.script(c.call.substr(0, c.call.find('(')).c_str(), a.rv, output, a.len,
                             a.count, a.values));
  const pkcs11::OperationResult result = serve(request(c.wire, c.fill));
  ASSERT_EQ(1, module_.count());
  EXPECT_EQ(c.call, module_.call(0));
  EXPECT_EQ(c.result != nullptr ? c.result : c.wire, result.name());
  EXPECT_EQ(module_.rv(0), static_cast<CK_RV>(result.rv()));
  if (c.check) c.check(result);
}

TEST_P(RefusalTest, AnswersArgumentsBadWithoutCallingTheModule) {
  const Refusal& c = GetParam();
  pkcs11::OperationResult expected;
  expected.set_name(c.result != nullptr ? c.result : c.wire);
  expected.set_rv(static_cast<int32_t>(CKR_ARGUMENTS_BAD));
  EXPECT_EQ(expected.SerializeAsString(), process(request(c.wire, c.fill).SerializeAsString()));
  EXPECT_EQ(0, module_.count());
}

// Leaves freed blocks of that size full of non-zero bytes, where a careless
// allocation would find them again.
void dirty_heap(size_t size) {
  std::vector<void*> blocks;
  for (int i = 0; i < 64; ++i) {
    blocks.push_back(std::malloc(size));
    std::memset(blocks.back(), 0xa5, size);
  }
  for (void* block : blocks) std::free(block);
}

TEST_P(UnwrittenTest, ReplyCarriesZerosBoundedByTheBuffer) {
  const Unwritten& c = GetParam();
  ASSERT_TRUE(module_.script(c.member, CKR_OK, std::nullopt, kCapacity + 100));
  dirty_heap(kCapacity);
  const std::pair<std::string, int32_t> output = c.output(serve(request(c.wire, c.fill)));
  ASSERT_EQ(1, module_.count());
  EXPECT_EQ(zeros(kCapacity), output.first);
  EXPECT_EQ(c.length, output.second);
}

}  // namespace qor::test
