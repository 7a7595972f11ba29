// The info structures from a module's answer to the caller's structure: the
// serving side's put and the client's take together, as a deployed pair of
// peers moves them.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "qorpkcs11/protocol/codec.h"

namespace qor::test {
namespace {

using protocol::put;
using protocol::take;

template <typename Info, typename Wire>
Info roundTrip(const Info& answered, unsigned char callerFill) {
  Wire message;
  put(answered, &message);
  const std::string bytes = message.SerializeAsString();
  Wire received;
  EXPECT_TRUE(received.ParseFromString(bytes));
  Info caller;
  std::memset(&caller, callerFill, sizeof(caller));
  take(received, &caller);
  return caller;
}

template <size_t N>
std::string member(const CK_UTF8CHAR (&m)[N]) { return std::string(reinterpret_cast<const char*>(m), N); }

template <size_t N>
void setText(CK_UTF8CHAR (&m)[N], const std::string& text) { std::memcpy(m, text.data(), text.size()); }

TEST(CodecTest, InfoTextsLandByTheirLength) {
  struct Case {
    const char* name;
    std::string manufacturer;  // what the module writes, the rest stays zero
    std::string landed;        // the caller's member afterwards
  };
  const Case cases[] = {
      {"Shorter", "Qor", std::string("Qor\0", 4) + std::string(28, '\x55')},
      // Unterminated, it runs on into the flags; too long to land, the
      // caller's member keeps its bytes.
      {"FullWidth", std::string(32, 'M'), std::string(32, '\x55')},
  };
  for (const Case& c : cases) {
    CK_INFO info{};
    info.cryptokiVersion = {2, 40};
    info.libraryVersion = {1, 7};
    info.flags = 1;
    setText(info.manufacturerID, c.manufacturer);
    const CK_INFO got = roundTrip<CK_INFO, pkcs11::CK_INFO>(info, 0x55);
    EXPECT_EQ(c.landed, member(got.manufacturerID)) << c.name;
    EXPECT_EQ(std::string(1, '\0') + std::string(31, '\x55'), member(got.libraryDescription)) << c.name;
    EXPECT_EQ(2, got.cryptokiVersion.major);
    EXPECT_EQ(40, got.cryptokiVersion.minor);
    EXPECT_EQ(7, got.libraryVersion.minor);
    EXPECT_EQ(1u, CK_ULONG{got.flags});  // a copy: the member is unaligned
  }
}

TEST(CodecTest, TokenInfoTextsArePaddedWithBlanksAndCountersKeepTheirBits) {
  CK_TOKEN_INFO info{};
  setText(info.label, "token");
  setText(info.serialNumber, std::string(16, 'S'));  // runs on into utcTime's zeros
  info.ulMaxSessionCount = CK_EFFECTIVELY_INFINITE;
  info.ulFreePrivateMemory = CK_UNAVAILABLE_INFORMATION;
  info.ulMinPinLen = 4;
  info.firmwareVersion = {3, 1};
  const CK_TOKEN_INFO got = roundTrip<CK_TOKEN_INFO, pkcs11::CK_TOKEN_INFO>(info, 0x55);
  EXPECT_EQ("token" + std::string(27, ' '), member(got.label));
  EXPECT_EQ(std::string(16, 'S'), member(got.serialNumber));
  EXPECT_EQ(std::string(16, ' '), member(got.utcTime));
  EXPECT_EQ(CK_EFFECTIVELY_INFINITE, CK_ULONG{got.ulMaxSessionCount});
  EXPECT_EQ(CK_UNAVAILABLE_INFORMATION, CK_ULONG{got.ulFreePrivateMemory});
  EXPECT_EQ(4u, CK_ULONG{got.ulMinPinLen});
  EXPECT_EQ(3, got.firmwareVersion.major);
  EXPECT_EQ(1, got.firmwareVersion.minor);
}

}  // namespace
}  // namespace qor::test
