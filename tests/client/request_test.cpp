// What each family of functions puts on the wire: every field present or
// absent, its value, and the text-versus-bytes differences peers rely on.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>

#include "fake_server.h"

namespace qor::test {
namespace {

using pkcs11::Operation;

// Caller memory the rows share, so expectations can name its addresses.
struct Memory {
  CK_BYTE data[20];
  CK_BYTE sig[8] = {'x', 'y', 0, 'z', 'z', 'z', 'z', 'z'};
  CK_BYTE iv[16];
  CK_ULONG len = 256;
  CK_ULONG count = 5;
  CK_OBJECT_HANDLE handles[2] = {};
  Memory() {
    for (int i = 0; i < 20; ++i) data[i] = static_cast<CK_BYTE>(i);  // a zero byte first
    std::memset(iv, 0xA5, sizeof(iv));
  }
};

struct Row {
  const char* what;
  const char* name;
  std::function<CK_RV(Memory&)> call;
  std::function<void(Memory&, Operation&)> expect;  // fills in all but the name
};

// Names the row instead of dumping its bytes.
void PrintTo(const Row& row, std::ostream* os) { *os << row.what; }

std::string bytes(const void* p, size_t n) { return std::string(static_cast<const char*>(p), n); }
int32_t address(const void* p) { return static_cast<int32_t>(reinterpret_cast<uintptr_t>(p)); }
CK_UTF8CHAR_PTR text(const char* s) { return reinterpret_cast<CK_UTF8CHAR_PTR>(const_cast<char*>(s)); }

void attribute(pkcs11::CK_ATTRIBUTE* a, CK_ULONG type, const std::string* value, CK_ULONG len) {
  a->set_type(type);
  if (value) a->set_pvalue(*value);
  a->set_ulvaluelen(len);
}

void mechanism(pkcs11::CK_MECHANISM* w, CK_ULONG type, const std::string& parameter = "") {
  w->set_mechanism(static_cast<int32_t>(type));
  w->set_pparameter(parameter);
  w->set_ulparameterlen(static_cast<int32_t>(parameter.size()));
}

const Row kRows[] = {
    {"initialize args never travel", "C_Initialize", [](Memory& m) { return C_Initialize(m.data); },
     [](Memory&, Operation&) {}},
    {"session info request carries no submessage", "C_GetSessionInfo",
     [](Memory&) {
       CK_SESSION_INFO info;
       return C_GetSessionInfo(42, &info);
     },
     [](Memory&, Operation&) {}},
    {"slot count query sends no list", "C_GetSlotList",
     [](Memory& m) { return C_GetSlotList(7, nullptr, &m.count); },
     [](Memory&, Operation& op) {
       auto* r = op.mutable_c_getslotlist();
       r->set_tokenpresent(true);
       r->set_pulcount(5);
     }},
    {"slot list sends the caller's entries", "C_GetSlotList",
     [](Memory& m) {
       CK_SLOT_ID ids[2] = {11, 0xFFFFFFFF};
       m.count = 2;
       return C_GetSlotList(CK_FALSE, ids, &m.count);
     },
     [](Memory&, Operation& op) {
       auto* r = op.mutable_c_getslotlist();
       r->set_tokenpresent(false);
       r->add_pslotlist(11); r->add_pslotlist(-1); r->set_pulcount(2);
     }},
    {"mechanism list slot id is int64", "C_GetMechanismList",
     [](Memory& m) { return C_GetMechanismList(0xFFFFFFFF, nullptr, &m.count); },
     [](Memory&, Operation& op) {
       op.mutable_c_getmechanismlist()->set_slotid(0xFFFFFFFFll);
       op.mutable_c_getmechanismlist()->set_pulcount(5);
     }},
    {"token info slot id is int32", "C_GetTokenInfo",
     [](Memory&) {
       CK_TOKEN_INFO info;
       return C_GetTokenInfo(0xFFFFFFFF, &info);
     },
     [](Memory&, Operation& op) { op.mutable_c_gettokeninfo()->set_slotid(-1); }},
    {"PIN is text cut at its first zero", "C_Login",
     [](Memory&) { return C_Login(7, CKU_USER, text("12\0\0"), 4); },
     [](Memory&, Operation& op) {
       auto* r = op.mutable_c_login();
       r->set_hsession(7); r->set_usertype(CKU_USER); r->set_ppin("12"); r->set_ulpinlen(4);
     }},
    {"PIN text never runs past its length", "C_InitPIN",
     [](Memory&) { return C_InitPIN(7, text("123456"), 4); },
     [](Memory&, Operation& op) {
       auto* r = op.mutable_c_initpin();
       r->set_hsession(7); r->set_ppin("1234"); r->set_ulpinlen(4);
     }},
    {"a null PIN sends no PIN field", "C_SetPIN",
     [](Memory&) { return C_SetPIN(7, nullptr, 0, text("newer"), 5); },
     [](Memory&, Operation& op) {
       auto* r = op.mutable_c_setpin();
       r->set_hsession(7); r->set_uloldlen(0); r->set_pnewpin("newer"); r->set_ulnewlen(5);
     }},
    {"token label is its 32-byte field", "C_InitToken",
     [](Memory&) {
       CK_UTF8CHAR label[40];
       std::memset(label, ' ', sizeof(label));  // blank-padded, no terminator
       return C_InitToken(3, text("0000"), 4, label);
     },
     [](Memory&, Operation& op) {
       auto* r = op.mutable_c_inittoken();
       r->set_slotid(3); r->set_ppin("0000"); r->set_ulpinlen(4); r->set_plabel(std::string(32, ' '));
     }},
    {"open session sends slot and flags only", "C_OpenSession",
     [](Memory& m) { return C_OpenSession(3, CKF_SERIAL_SESSION, m.data, nullptr, &m.handles[0]); },
     [](Memory&, Operation& op) {
       op.mutable_c_opensession()->set_slotid(3);
       op.mutable_c_opensession()->set_flags(CKF_SERIAL_SESSION);
     }},
    {"get attribute: a null value sends no value and length 0", "C_GetAttributeValue",
     [](Memory& m) {
       CK_ATTRIBUTE t[2] = {{CKA_VALUE, nullptr, 123}, {CKA_LABEL, m.data + 1, 3}};
       return C_GetAttributeValue(7, 9, t, 2);
     },
     [](Memory& m, Operation& op) {
       auto* r = op.mutable_c_getattributevalue();
       r->set_hsession(7); r->set_hobject(9); r->set_ulcount(2);
       const std::string value = bytes(m.data + 1, 3);
       attribute(r->add_ptemplate(), CKA_VALUE, nullptr, 0);
       attribute(r->add_ptemplate(), CKA_LABEL, &value, 3);
     }},
    {"create object: a null value keeps the caller's length", "C_CreateObject",
     [](Memory& m) {
       CK_ATTRIBUTE t[1] = {{CKA_LABEL, nullptr, 5}};
       return C_CreateObject(7, t, 1, &m.handles[0]);
     },
     [](Memory& m, Operation& op) {
       auto* r = op.mutable_c_createobject();
       r->set_hsession(7); r->set_ulcount(1); r->set_phobject(address(&m.handles[0]));
       attribute(r->add_ptemplate(), CKA_LABEL, nullptr, 5);
     }},
    {"find init sends every value, an empty one as empty bytes", "C_FindObjectsInit",
     [](Memory& m) {
       CK_ATTRIBUTE t[2] = {{CKA_CLASS, m.data, 4}, {CKA_LABEL, nullptr, 0}};
       return C_FindObjectsInit(7, t, 2);
     },
     [](Memory& m, Operation& op) {
       auto* r = op.mutable_c_findobjectsinit();
       r->set_hsession(7); r->set_ulcount(2);
       const std::string value = bytes(m.data, 4), empty;
       attribute(r->add_ptemplate(), CKA_CLASS, &value, 4);
       attribute(r->add_ptemplate(), CKA_LABEL, &empty, 0);
     }},
    {"find objects sends its pointers as numbers", "C_FindObjects",
     [](Memory& m) { return C_FindObjects(7, m.handles, 2, &m.count); },
     [](Memory& m, Operation& op) {
       auto* r = op.mutable_c_findobjects();
       r->set_hsession(7); r->set_ulmaxobjectcount(2);
       r->set_phobject(address(m.handles)); r->set_pulobjectcount(address(&m.count));
     }},
    {"find final sends the session alone", "C_FindObjectsFinal",
     [](Memory&) { return C_FindObjectsFinal(7); },
     [](Memory&, Operation& op) { op.mutable_c_findobjectsfinal()->set_hsession(7); }},
    {"mechanism parameter travels as bytes", "C_EncryptInit",
     [](Memory& m) {
       CK_MECHANISM mech = {CKM_AES_CBC, m.iv, 16};
       return C_EncryptInit(7, &mech, 9);
     },
     [](Memory& m, Operation& op) {
       auto* r = op.mutable_c_encryptinit();
       r->set_hsession(7); r->set_hkey(9);
       mechanism(r->mutable_pmechanism(), CKM_AES_CBC, bytes(m.iv, 16));
     }},
    {"a mechanism without parameter sends empty bytes", "C_DigestInit",
     [](Memory&) {
       CK_MECHANISM mech = {CKM_SHA256, nullptr, 0};
       return C_DigestInit(7, &mech);
     },
     [](Memory&, Operation& op) {
       op.mutable_c_digestinit()->set_hsession(7);
       mechanism(op.mutable_c_digestinit()->mutable_pmechanism(), CKM_SHA256);
     }},
    {"sign: input as bytes, output buffer as text with its capacity", "C_Sign",
     [](Memory& m) { return C_Sign(7, m.data, 20, m.sig, &m.len); },
     [](Memory& m, Operation& op) {
       auto* r = op.mutable_c_sign();
       r->set_hsession(7); r->set_pdata(bytes(m.data, 20)); r->set_uldatalen(20);
       r->set_psignature("xy"); r->set_pulsignaturelen(256);
     }},
    {"output text never runs past the capacity", "C_DecryptFinal",
     [](Memory& m) {
       CK_BYTE out[4] = {'a', 'b', 'c', 'd'};
       m.len = 3;
       return C_DecryptFinal(7, out, &m.len);
     },
     [](Memory&, Operation& op) {
       auto* r = op.mutable_c_decryptfinal();
       r->set_hsession(7); r->set_plastpart("abc"); r->set_pullastpartlen(3);
     }},
    // Whatever the caller's length says: a real capacity would let the module
    // do the work into a buffer nobody reads.
    {"a size query sends an empty output of capacity 0", "C_DecryptVerifyUpdate",
     [](Memory& m) { return C_DecryptVerifyUpdate(7, m.data, 20, nullptr, &m.len); },
     [](Memory& m, Operation& op) {
       auto* r = op.mutable_c_decryptverifyupdate();
       r->set_hsession(7); r->set_pencryptedpart(bytes(m.data, 20)); r->set_ulencryptedpartlen(20);
       r->set_ppart(""); r->set_pulpartlen(0);
     }},
    {"a signature size query sends capacity 0", "C_Sign",
     [](Memory& m) { return C_Sign(7, m.data, 20, nullptr, &m.len); },
     [](Memory& m, Operation& op) {
       auto* r = op.mutable_c_sign();
       r->set_hsession(7); r->set_pdata(bytes(m.data, 20)); r->set_uldatalen(20);
       r->set_psignature(""); r->set_pulsignaturelen(0);
     }},
    {"a wrapped key size query sends capacity 0", "C_WrapKey",
     [](Memory& m) {
       CK_MECHANISM mech = {CKM_RSA_PKCS, nullptr, 0};
       return C_WrapKey(7, &mech, 8, 9, nullptr, &m.len);
     },
     [](Memory&, Operation& op) {
       auto* r = op.mutable_c_wrapkey();
       r->set_hsession(7); r->set_hwrappingkey(8); r->set_hkey(9);
       r->set_pwrappedkey(""); r->set_pulwrappedkeylen(0);
       mechanism(r->mutable_pmechanism(), CKM_RSA_PKCS);
     }},
    {"verify cuts the signature at its first zero byte", "C_Verify",
     [](Memory& m) { return C_Verify(7, m.data, 20, m.sig, 8); },
     [](Memory& m, Operation& op) {
       auto* r = op.mutable_c_verify();
       r->set_hsession(7); r->set_pdata(bytes(m.data, 20)); r->set_uldatalen(20);
       r->set_psignature("xy"); r->set_ulsignaturelen(8);
     }},
    {"verify final sends the signature whole", "C_VerifyFinal",
     [](Memory& m) { return C_VerifyFinal(7, m.sig, 8); },
     [](Memory& m, Operation& op) {
       auto* r = op.mutable_c_verifyfinal();
       r->set_hsession(7); r->set_psignature(bytes(m.sig, 8)); r->set_ulsignaturelen(8);
     }},
    {"seed goes out as text", "C_SeedRandom", [](Memory& m) { return C_SeedRandom(7, m.sig, 8); },
     [](Memory&, Operation& op) {
       auto* r = op.mutable_c_seedrandom();
       r->set_hsession(7); r->set_pseed("xy"); r->set_ulseedlen(8);
     }},
    {"random buffer goes out as text with its length", "C_GenerateRandom",
     [](Memory& m) { return C_GenerateRandom(7, m.sig, 8); },
     [](Memory&, Operation& op) {
       auto* r = op.mutable_c_generaterandom();
       r->set_hsession(7); r->set_randomdata("xy"); r->set_ulrandomlen(8);
     }},
    {"unwrap key: wrapped key as bytes, template, its own operation name", "C_UnWrapKey",
     [](Memory& m) {
       CK_MECHANISM mech = {CKM_RSA_PKCS, nullptr, 0};
       CK_ATTRIBUTE t[1] = {{CKA_LABEL, m.data + 1, 2}};
       return C_UnwrapKey(7, &mech, 8, m.sig, 8, t, 1, &m.handles[0]);
     },
     [](Memory& m, Operation& op) {
       auto* r = op.mutable_c_unwrapkey();
       r->set_hsession(7); r->set_hunwrappingkey(8); r->set_ulattributecount(1);
       r->set_pwrappedkey(bytes(m.sig, 8)); r->set_ulwrappedkeylen(8);
       mechanism(r->mutable_pmechanism(), CKM_RSA_PKCS);
       const std::string value = bytes(m.data + 1, 2);
       attribute(r->add_ptemplate(), CKA_LABEL, &value, 2);
     }},
    {"key pair: an empty public template sends no entries", "C_GenerateKeyPair",
     [](Memory& m) {
       CK_MECHANISM mech = {CKM_RSA_PKCS_KEY_PAIR_GEN, nullptr, 0};
       CK_ATTRIBUTE priv[3] = {{CKA_LABEL, nullptr, 9}, {CKA_VALUE, m.data + 1, 1}, {CKA_CLASS, nullptr, 0}};
       return C_GenerateKeyPair(7, &mech, nullptr, 0, priv, 3, &m.handles[0], &m.handles[1]);
     },
     [](Memory& m, Operation& op) {
       auto* r = op.mutable_c_generatekeypair();
       r->set_hsession(7); r->set_ulpublickeyattributecount(0); r->set_ulprivatekeyattributecount(3);
       mechanism(r->mutable_pmechanism(), CKM_RSA_PKCS_KEY_PAIR_GEN);
       const std::string value = bytes(m.data + 1, 1);
       attribute(r->add_pprivatekeytemplate(), CKA_LABEL, nullptr, 0);
       attribute(r->add_pprivatekeytemplate(), CKA_VALUE, &value, 1);
       attribute(r->add_pprivatekeytemplate(), CKA_CLASS, nullptr, 0);
     }},
};

class Request : public ProxyTest, public ::testing::WithParamInterface<Row> {};

TEST_P(Request, CarriesExactlyTheseFields) {
  const Row& row = GetParam();
  Memory memory;
  EXPECT_EQ(CKR_OK, row.call(memory));
  Operation expected;
  expected.set_name(row.name);
  row.expect(memory, expected);
  EXPECT_SAME_WIRE(expected, sent());
}

INSTANTIATE_TEST_SUITE_P(Families, Request, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<Row>& info) {
                           std::string name;
                           for (const char* c = info.param.what; *c; ++c)
                             name += std::isalnum(static_cast<unsigned char>(*c)) ? *c : '_';
                           return name;
                         });

}  // namespace
}  // namespace qor::test
