// Byte-exact encodings that deployed peers produce and expect, including the
// irregular integer widths of the schema.
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qorpkcs11/proto/pkcs11command.pb.h"
#include "wire_format.h"

namespace {

using wire::hex;
using wire::unhex;

template <class M>
std::string reencode(const std::string& bytes) {
    M m;
    EXPECT_TRUE(m.ParseFromString(bytes));
    return m.SerializeAsString();
}

template <class M>
bool parses(const std::string& bytes) {
    M m;
    return m.ParseFromString(bytes);
}

struct WrittenCase {
    const char* what;
    std::string written;  // by the generated setters
    std::string expected;
    std::string (*reencode)(const std::string&);
};

template <class M, class Fill>
WrittenCase written(const char* what, Fill fill, std::string expected) {
    M m;
    fill(m);
    return {what, m.SerializeAsString(), std::move(expected), &reencode<M>};
}

TEST(CommandWire, SettersWriteTheExpectedBytesAndParseBackToThem) {
    using namespace pkcs11;
    const std::vector<WrittenCase> cases = {
        written<Operation>("name alone", [](Operation& m) { m.set_name("C_Finalize"); },
                           unhex("0a0a") + "C_Finalize"),
        written<Operation>(
            "envelope with its request",
            [](Operation& m) {
                m.set_name("C_Login");
                C_Login* login = m.mutable_c_login();
                login->set_ulpinlen(4);
                login->set_ppin("1234");
                login->set_usertype(1);
                login->set_hsession(1);
            },
            unhex("0a07") + "C_Login" + unhex("3a0c 0801 1001 1a04") + "1234" + unhex("2004")),
        written<OperationResult>(
            "rv -1 is a ten-byte varint",
            [](OperationResult& m) {
                m.set_name("C_Sign");
                m.set_rv(-1);
            },
            unhex("0a06") + "C_Sign" + unhex("10 ffffffffffffffffff01")),
        written<OperationResult>(
            "vendor CK_RV travels negative",
            [](OperationResult& m) {
                m.set_name("C_Sign");
                m.set_rv(static_cast<std::int32_t>(0x80000000u));
            },
            unhex("0a06") + "C_Sign" + unhex("10 80808080f8ffffffff01")),
        written<OperationResult>(
            "response with an unpacked slot list",
            [](OperationResult& m) {
                m.set_name("C_GetSlotList");
                m.set_rv(0);
                m.mutable_c_getslotlist_response()->set_pulcount(1);
                m.mutable_c_getslotlist_response()->add_pslotlist(1);
            },
            unhex("0a0d") + "C_GetSlotList" + unhex("1000 2204 0801 1001")),
        written<CK_ATTRIBUTE>("vendor attribute type is five bytes",
                              [](CK_ATTRIBUTE& m) { m.set_type(0x80000000u); }, unhex("08 8080808008")),
        written<CK_MECHANISM>("vendor mechanism is ten bytes",
                              [](CK_MECHANISM& m) { m.set_mechanism(static_cast<std::int32_t>(0x80000001u)); },
                              unhex("08 81808080f8ffffffff01")),
        written<C_GetSlotInfo>("int64 slot id 2^32-1 is five bytes",
                               [](C_GetSlotInfo& m) { m.set_slotid(0xFFFFFFFFll); }, unhex("08 ffffffff0f")),
        written<C_GetMechanismList>("int64 slot id of the mechanism list",
                                    [](C_GetMechanismList& m) { m.set_slotid(0xFFFFFFFFll); },
                                    unhex("08 ffffffff0f")),
        written<C_GetTokenInfo>("int32 slot id 2^32-1 is ten bytes",
                                [](C_GetTokenInfo& m) { m.set_slotid(static_cast<std::int32_t>(0xFFFFFFFFu)); },
                                unhex("08 ffffffffffffffffff01")),
        written<C_GetSlotList>(
            "slot ids one tag each",
            [](C_GetSlotList& m) {
                m.set_tokenpresent(true);
                m.add_pslotlist(1);
                m.add_pslotlist(2);
                m.add_pslotlist(-1);
                m.set_pulcount(3);
            },
            unhex("0801 1001 1002 10ffffffffffffffffff01 1803")),
        written<C_Sign>("empty data is written", [](C_Sign& m) {
            m.set_hsession(1);
            m.set_pdata("");
        }, unhex("0801 1200")),
        written<C_Sign>("absent data is not", [](C_Sign& m) { m.set_hsession(1); }, unhex("0801")),
        written<C_GenerateKeyPair>(
            "empty public template writes no field 3",
            [](C_GenerateKeyPair& m) {
                m.set_ulprivatekeyattributecount(2);
                for (std::uint32_t type : {0x1u, 0x108u}) {  // CKA_TOKEN, CKA_SIGN
                    CK_ATTRIBUTE* a = m.add_pprivatekeytemplate();
                    a->set_type(type);
                    a->set_pvalue("\x01");
                    a->set_ulvaluelen(1);
                }
                m.set_ulpublickeyattributecount(0);
                m.mutable_pmechanism()->set_mechanism(0);  // CKM_RSA_PKCS_KEY_PAIR_GEN
                m.set_hsession(5);
            },
            unhex("0805 1202 0800 2000 2a07 0801 120101 1801 2a08 088802 120101 1801 3002")),
        written<CK_ATTRIBUTE>("length without value",
                              [](CK_ATTRIBUTE& m) {
                                  m.set_ulvaluelen(256);
                                  m.set_type(0x11);  // CKA_VALUE
                              },
                              unhex("0811 188002")),
    };
    for (const WrittenCase& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(hex(c.written), hex(c.expected));
        EXPECT_EQ(hex(c.reencode(c.expected)), hex(c.expected));
    }
}

struct ReencodedCase {
    const char* what;
    std::string received;
    std::string sent;
    std::string (*reencode)(const std::string&);
};

TEST(CommandWire, ForeignEncodingsParseToTheSameMessage) {
    using namespace pkcs11;
    const std::string name = unhex("0a06") + "C_Sign";
    const std::string rv = unhex("1000");
    const std::vector<ReencodedCase> cases = {
        {"unknown fields kept", name + wire::varintField(99, 7) + wire::lengthField(200, "peer"),
         name + wire::varintField(99, 7) + wire::lengthField(200, "peer"), &reencode<Operation>},
        {"unknown fields move behind known ones", wire::varintField(99, 7) + name,
         name + wire::varintField(99, 7), &reencode<Operation>},
        {"unknown field inside a request", name + unhex("aa01 07 0801") + wire::lengthField(9, "new"),
         name + unhex("aa01 07 0801") + wire::lengthField(9, "new"), &reencode<Operation>},
        {"response number beyond the table", name + rv + wire::lengthField(45, ""),
         name + rv + wire::lengthField(45, ""), &reencode<OperationResult>},
        {"packed slot list", unhex("0801 120c 01 02 ffffffffffffffffff01 1803"),
         unhex("0801 1001 1002 10ffffffffffffffffff01 1803"), &reencode<C_GetSlotList>},
        {"packed then unpacked slot ids", unhex("0a02 0102 0803 1003"), unhex("0801 0802 0803 1003"),
         &reencode<C_GetSlotList_Response>},
        {"packed mechanism list", unhex("08 ffffffff0f 1203 01 8102"), unhex("08 ffffffff0f 1001 108102"),
         &reencode<C_GetMechanismList>},
        {"packed mechanism list response", unhex("0a02 0140"), unhex("0801 0840"),
         &reencode<C_GetMechanismList_Response>},
        {"packed object handles", unhex("0a03 050607 1003"), unhex("0805 0806 0807 1003"),
         &reencode<C_FindObjects_Response>},
        {"packed created handle", unhex("0a01 2a"), unhex("082a"), &reencode<C_CreateObject_Response>},
        {"packed copied handle", unhex("0a01 2b"), unhex("082b"), &reencode<C_CopyObject_Response>},
    };
    for (const ReencodedCase& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(hex(c.reencode(c.received)), hex(c.sent));
    }
}

TEST(CommandWire, MissingRequiredFieldsFailTheParse) {
    const std::string name = unhex("0a06") + "C_Sign";
    const struct {
        const char* what;
        std::string bytes;
        bool (*parse)(const std::string&);
        bool ok;
    } cases[] = {
        {"result with name and rv", name + unhex("1000"), &parses<pkcs11::OperationResult>, true},
        {"result without rv", name, &parses<pkcs11::OperationResult>, false},
        {"result without name", unhex("10ffffffffffffffffff01"), &parses<pkcs11::OperationResult>, false},
        {"empty result", "", &parses<pkcs11::OperationResult>, false},
        {"operation with name alone", name, &parses<pkcs11::Operation>, true},
        {"operation with a request but no name", unhex("aa01 02 0801"), &parses<pkcs11::Operation>, false},
        {"empty operation", "", &parses<pkcs11::Operation>, false},
        {"truncated operation", name.substr(0, name.size() - 1), &parses<pkcs11::Operation>, false},
        {"empty request", "", &parses<pkcs11::C_Sign>, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(c.parse(c.bytes), c.ok);
    }
}

TEST(CommandWire, PresenceSurvivesParsing) {
    pkcs11::C_Sign emptyData;
    ASSERT_TRUE(emptyData.ParseFromString(unhex("0801 1200")));
    EXPECT_TRUE(emptyData.has_pdata());
    EXPECT_TRUE(emptyData.pdata().empty());

    pkcs11::C_Sign noData;
    ASSERT_TRUE(noData.ParseFromString(unhex("0801")));
    EXPECT_FALSE(noData.has_pdata());

    pkcs11::CK_ATTRIBUTE lengthOnly;
    ASSERT_TRUE(lengthOnly.ParseFromString(unhex("0811 188002")));
    EXPECT_FALSE(lengthOnly.has_pvalue());
    EXPECT_EQ(lengthOnly.ulvaluelen(), 256u);

    pkcs11::Operation nameOnly;
    ASSERT_TRUE(nameOnly.ParseFromString(unhex("0a0a") + "C_Finalize"));
    EXPECT_FALSE(nameOnly.has_c_sign());
    EXPECT_EQ(&nameOnly.c_sign(), &pkcs11::C_Sign::default_instance());
    EXPECT_FALSE(nameOnly.c_sign().has_hsession());
}

TEST(CommandWire, UnsignedValuesComeBackUnchanged) {
    pkcs11::OperationResult result;
    ASSERT_TRUE(result.ParseFromString(unhex("0a06") + "C_Sign" + unhex("10 ffffffffffffffffff01")));
    EXPECT_EQ(static_cast<std::uint32_t>(result.rv()), 0xFFFFFFFFu);  // CK_UNAVAILABLE_INFORMATION

    pkcs11::C_GetTokenInfo token;
    ASSERT_TRUE(token.ParseFromString(unhex("08 80808080f8ffffffff01")));
    EXPECT_EQ(static_cast<std::uint32_t>(token.slotid()), 0x80000000u);
}

}  // namespace
