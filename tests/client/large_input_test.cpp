// A large input goes from the caller's buffer to the socket with the
// request serialized around it: the bytes that arrive must be exactly the
// request serialized whole, whatever the input's size and place.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "fake_server.h"
#include "qorpkcs11/client/detached.h"

namespace qor::test {
namespace {

using pkcs11::Operation;

std::vector<CK_BYTE> pattern(size_t n, int seed) {
  std::vector<CK_BYTE> b(n);
  for (size_t i = 0; i < n; ++i) b[i] = static_cast<CK_BYTE>((i * 131 + seed) % 251 + 1);  // no zero
  return b;
}
std::string str(const std::vector<CK_BYTE>& b) { return std::string(b.begin(), b.end()); }

constexpr size_t kFrom = client::kDetachFrom;

struct Row {
  const char* what;
  std::vector<size_t> sizes;  // of the caller's inputs
  std::function<CK_RV(std::vector<std::vector<CK_BYTE>>&)> call;
  // The inputs as the request carries them.
  std::function<std::vector<std::string>(const Operation&)> carried;
};
void PrintTo(const Row& row, std::ostream* os) { *os << row.what; }

const Row kRows[] = {
    {"Digest1MiB", {size_t{1} << 20},
     [](auto& in) {
       CK_BYTE out[32];
       CK_ULONG len = sizeof out;
       return C_Digest(1, in[0].data(), static_cast<CK_ULONG>(in[0].size()), out, &len);
     },
     [](const Operation& op) { return std::vector{op.c_digest().pdata()}; }},
    {"UpdateAtTheThreshold", {kFrom},
     [](auto& in) { return C_DigestUpdate(1, in[0].data(), in[0].size()); },
     [](const Operation& op) { return std::vector{op.c_digestupdate().ppart()}; }},
    {"UpdateBelowTheThreshold", {kFrom - 1},
     [](auto& in) { return C_DigestUpdate(1, in[0].data(), in[0].size()); },
     [](const Operation& op) { return std::vector{op.c_digestupdate().ppart()}; }},
    {"EncryptLengthQuery", {200000},
     [](auto& in) {
       CK_ULONG len = 0;
       return C_Encrypt(1, in[0].data(), in[0].size(), nullptr, &len);
     },
     [](const Operation& op) { return std::vector{op.c_encrypt().pdata()}; }},
    {"VerifyLargeDataAndSignature", {size_t{1} << 20, 70000},
     [](auto& in) { return C_Verify(1, in[0].data(), in[0].size(), in[1].data(), in[1].size()); },
     [](const Operation& op) { return std::vector{op.c_verify().pdata(), op.c_verify().psignature()}; }},
    {"TwoLargeTemplateValues", {100000, 150000},
     [](auto& in) {
       CK_ATTRIBUTE t[3] = {{CKA_VALUE, in[0].data(), static_cast<CK_ULONG>(in[0].size())},
                            {CKA_LABEL, const_cast<char*>("x"), 1},
                            {CKA_SUBJECT, in[1].data(), static_cast<CK_ULONG>(in[1].size())}};
       CK_OBJECT_HANDLE h = 0;
       return C_CreateObject(1, t, 3, &h);
     },
     [](const Operation& op) {
       return std::vector{op.c_createobject().ptemplate(0).pvalue(),
                          op.c_createobject().ptemplate(2).pvalue()};
     }},
    {"LargerThanTheKeptStandIn", {size_t{5} << 20},
     [](auto& in) { return C_SignUpdate(1, in[0].data(), in[0].size()); },
     [](const Operation& op) { return std::vector{op.c_signupdate().ppart()}; }},
};

class LargeInput : public ProxyTest, public ::testing::WithParamInterface<Row> {};

TEST_P(LargeInput, ArrivesAsTheRequestSerializedWhole) {
  const Row& row = GetParam();
  // Twice, the second time one byte shorter: the stand-in kept from the
  // first call must not leave its length behind.
  for (const size_t shorter : {size_t{0}, size_t{1}}) {
    std::vector<std::vector<CK_BYTE>> in;
    for (size_t i = 0; i < row.sizes.size(); ++i)
      in.push_back(pattern(row.sizes[i] - shorter, static_cast<int>(i + shorter)));
    const auto kept = in;
    answer(CKR_OK);
    row.call(in);

    const std::string raw = sentBytes();
    Operation op;
    ASSERT_TRUE(op.ParsePartialFromString(raw)) << "the request does not parse";
    EXPECT_TRUE(op.SerializePartialAsString() == raw) << "not the bytes of the request serialized whole";
    const std::vector<std::string> carried = row.carried(op);
    ASSERT_EQ(kept.size(), carried.size());
    for (size_t i = 0; i < kept.size(); ++i)
      EXPECT_TRUE(carried[i] == str(kept[i])) << "input " << i << " is not the caller's bytes";
    EXPECT_TRUE(in == kept) << "the caller's input changed";
  }
  // A small call after it goes out as before.
  CK_BYTE seed[3] = {1, 2, 3};
  EXPECT_EQ(CKR_OK, C_SeedRandom(7, seed, 3));
  EXPECT_EQ(str({1, 2, 3}), sent().c_seedrandom().pseed());
}

INSTANTIATE_TEST_SUITE_P(Calls, LargeInput, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<Row>& info) { return info.param.what; });

}  // namespace
}  // namespace qor::test
