// What lands in the caller's memory: the template, list and output-buffer
// rules, bounded both by what the reply carries and by what the caller gave.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "fake_server.h"

namespace qor::test {
namespace {

using pkcs11::OperationResult;

constexpr CK_BYTE kUntouched = '.';
std::string untouched(size_t n) { return std::string(n, kUntouched); }
std::string text(const CK_BYTE* p, size_t n) { return std::string(reinterpret_cast<const char*>(p), n); }

// A caller buffer of `capacity` bytes followed by a guard that must survive.
struct Buffer {
  explicit Buffer(size_t capacity) : bytes(capacity + 8, kUntouched), capacity(capacity) {}
  CK_BYTE* data() { return reinterpret_cast<CK_BYTE*>(&bytes[0]); }
  std::string value() const { return bytes.substr(0, capacity); }
  bool guardIntact() const { return bytes.substr(capacity) == untouched(8); }
  std::string bytes;
  size_t capacity;
};

void addAttribute(google::protobuf::RepeatedPtrField<pkcs11::CK_ATTRIBUTE>* t, CK_ULONG type,
                  const char* value, CK_ULONG len) {
  auto* a = t->Add();
  a->set_type(type);
  if (value) a->set_pvalue(value);
  a->set_ulvaluelen(len);
}

using CopyBack = ProxyTest;

// Reading and writing attribute values copy back the same way.
TEST_F(CopyBack, AttributeValuesFollowTheReplyWithinBothBounds) {
  struct Case {
    const char* what;
    bool buffer;
    const char* value;  // reply pvalue, or none
    CK_ULONG len;       // reply ulvaluelen
    uint32_t count;     // reply ulcount
    CK_ULONG expectLen;
    std::string expectValue;
  };
  const Case cases[] = {
      {"size query", false, nullptr, 32, 1, 32, ""},
      {"unavailable information", false, nullptr, CK_UNAVAILABLE_INFORMATION, 1, CK_UNAVAILABLE_INFORMATION, ""},
      {"value", true, "abcd", 4, 1, 4, "abcd" + untouched(12)},
      {"no pvalue leaves the entry", true, nullptr, CK_UNAVAILABLE_INFORMATION, 1, 16, untouched(16)},
      {"length beyond the carried bytes", true, "abcd", 12, 1, 12, "abcd" + untouched(12)},
      {"value beyond the buffer", true, "0123456789abcdefXYZ", 19, 1, 19, "0123456789abcdef"},
      {"count zero", true, "abcd", 4, 0, 16, untouched(16)},
  };
  for (auto fn : {C_GetAttributeValue, C_SetAttributeValue}) {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.what);
      answer(CKR_OK, [&](OperationResult& r) {
        for (auto* t : {r.mutable_c_getattributevalue_response()->mutable_ptemplate(),
                        r.mutable_c_setattributevalue_response()->mutable_ptemplate()}) {
          addAttribute(t, CKA_LABEL, c.value, c.len);
          addAttribute(t, CKA_LABEL, "other", 5);  // beyond the caller's count
        }
        r.mutable_c_getattributevalue_response()->set_ulcount(c.count ? 2 : 0);
        r.mutable_c_setattributevalue_response()->set_ulcount(c.count ? 2 : 0);
      });
      Buffer buffer(16);
      CK_ATTRIBUTE t[2] = {{CKA_VALUE, c.buffer ? buffer.data() : nullptr, 16}, {CKA_ID, nullptr, 7}};
      EXPECT_EQ(CKR_OK, fn(1, 2, t, 1));
      EXPECT_EQ(c.count ? CKA_LABEL : CKA_VALUE, CK_ULONG{t[0].type});
      EXPECT_EQ(c.expectLen, CK_ULONG{t[0].ulValueLen});
      if (c.buffer) {
        EXPECT_EQ(c.expectValue, buffer.value());
      }
      EXPECT_TRUE(buffer.guardIntact());
      EXPECT_EQ(CKA_ID, CK_ULONG{t[1].type});
      EXPECT_EQ(7u, CK_ULONG{t[1].ulValueLen});
    }
  }
}

TEST_F(CopyBack, SearchTemplateIsOverwrittenWithinTheCallersBuffer) {
  answer(CKR_OK, [](OperationResult& r) {
    auto* t = r.mutable_c_findobjectsinit_response();
    addAttribute(t->mutable_ptemplate(), CKA_LABEL, "abcdefgh", 8);
    addAttribute(t->mutable_ptemplate(), CKA_ID, "xyz", 3);
    t->set_ulcount(5);  // more than it carries
  });
  Buffer buffer(4);
  CK_ATTRIBUTE t[3] = {{CKA_CLASS, buffer.data(), 4}, {CKA_ID, nullptr, 0}, {CKA_VALUE, nullptr, 0}};
  EXPECT_EQ(CKR_OK, C_FindObjectsInit(1, t, 3));
  EXPECT_EQ("abcd", buffer.value());
  EXPECT_TRUE(buffer.guardIntact());
  EXPECT_EQ(CKA_LABEL, CK_ULONG{t[0].type});
  EXPECT_EQ(8u, CK_ULONG{t[0].ulValueLen});
  EXPECT_EQ(3u, CK_ULONG{t[1].ulValueLen});  // no buffer: the length alone
  EXPECT_EQ(CKA_VALUE, CK_ULONG{t[2].type});
}

TEST_F(CopyBack, CreatedAndCopiedHandlesComeFromTheFirstListEntry) {
  for (bool empty : {false, true}) {
    answer(CKR_OK, [&](OperationResult& r) {
      r.mutable_c_createobject_response();
      r.mutable_c_copyobject_response();
      if (empty) return;
      r.mutable_c_createobject_response()->add_phobject(55);
      r.mutable_c_createobject_response()->add_phobject(56);
      r.mutable_c_copyobject_response()->add_phnewobject(66);
    });
    CK_OBJECT_HANDLE created = 1, copied = 2;
    CK_ATTRIBUTE t[1] = {{CKA_LABEL, nullptr, 5}};
    EXPECT_EQ(CKR_OK, C_CreateObject(1, t, 1, &created));
    EXPECT_EQ(CKR_OK, C_CopyObject(1, 3, t, 1, &copied));
    EXPECT_EQ(empty ? 1u : 55u, created);
    EXPECT_EQ(empty ? 2u : 66u, copied);
  }
}

// The count is reported as stated; entries go only as far as the reply
// carries them and the caller's array holds them.
TEST_F(CopyBack, ListCountsAndEntriesAreBounded) {
  struct Case {
    const char* what;
    CK_ULONG capacity;  // 0 with `null` for a count query
    bool null;
    int32_t count;
    std::vector<int32_t> ids;
    size_t expectWritten;
  };
  const Case cases[] = {
      {"count query", 0, true, 3, {1, 2, 3}, 0},
      {"more than the array holds", 2, false, 5, {1, 2, 3, 4, 5}, 2},
      {"more than the reply carries", 4, false, 3, {1}, 1},
      {"count zero", 4, false, 0, {1, 2}, 0},
      {"caller count zero", 0, false, 2, {1, 2}, 0},
  };
  using ListFn = CK_RV (*)(CK_ULONG, CK_ULONG_PTR, CK_ULONG_PTR);
  const ListFn slotList = [](CK_ULONG, CK_ULONG_PTR list, CK_ULONG_PTR count) {
    return C_GetSlotList(CK_TRUE, list, count);
  };
  for (ListFn fn : {slotList, static_cast<ListFn>(C_GetMechanismList)}) {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.what);
      answer(CKR_BUFFER_TOO_SMALL, [&](OperationResult& r) {
        for (int32_t id : c.ids) {
          r.mutable_c_getslotlist_response()->add_pslotlist(id + 100);
          r.mutable_c_getmechanismlist_response()->add_pmechanismlist(id + 100);
        }
        r.mutable_c_getslotlist_response()->set_pulcount(c.count);
        r.mutable_c_getmechanismlist_response()->set_pulcount(c.count);
      });
      std::vector<CK_ULONG> list(c.capacity + 1, 7);
      CK_ULONG count = c.capacity;
      EXPECT_EQ(CKR_BUFFER_TOO_SMALL, fn(1, c.null ? nullptr : list.data(), &count));
      EXPECT_EQ(static_cast<CK_ULONG>(c.count), count);
      for (size_t i = 0; i < list.size(); ++i)
        EXPECT_EQ(i < c.expectWritten ? 101 + i : 7u, list[i]) << i;
    }
  }
}

TEST_F(CopyBack, FoundHandlesAreBoundedByTheArrayAndTheReply) {
  struct Case {
    CK_ULONG max;
    int32_t count;
    int ids;
    size_t expectWritten;
  };
  // The reported count is what was written, never a count the array lacks.
  for (const Case& c : {Case{10, 0, 3, 0}, Case{2, 3, 3, 2}, Case{4, 3, 1, 1}, Case{4, -2, 3, 0}}) {
    answer(CKR_OK, [&](OperationResult& r) {
      for (int i = 0; i < c.ids; ++i) r.mutable_c_findobjects_response()->add_phobject(100 + i);
      r.mutable_c_findobjects_response()->set_pulobjectcount(c.count);
    });
    std::vector<CK_OBJECT_HANDLE> handles(c.max + 1, 7);
    CK_ULONG found = 99;
    EXPECT_EQ(CKR_OK, C_FindObjects(1, handles.data(), c.max, &found));
    EXPECT_EQ(c.expectWritten, found);
    for (size_t i = 0; i < handles.size(); ++i)
      EXPECT_EQ(i < c.expectWritten ? 100 + i : 7u, handles[i]) << c.max << "/" << i;
  }
}

// The output-buffer protocol, for each kind of data-producing call.
TEST_F(CopyBack, OutputBuffersAndSizeQueries) {
  // Each kind of call: its output pair on the wire, whatever its input.
  struct Fn {
    const char* name;
    std::function<CK_RV(CK_BYTE_PTR, CK_ULONG_PTR)> call;
    std::function<void(OperationResult&, const std::string&, int32_t)> fill;
  };
  CK_MECHANISM mech = {CKM_RSA_PKCS, nullptr, 0};
  const Fn fns[] = {
      {"in and out", [](CK_BYTE_PTR out, CK_ULONG_PTR len) { return C_Sign(1, nullptr, 0, out, len); },
       [](OperationResult& r, const std::string& b, int32_t n) {
         r.mutable_c_sign_response()->set_psignature(b);
         r.mutable_c_sign_response()->set_pulsignaturelen(n);
       }},
      {"out only", [](CK_BYTE_PTR out, CK_ULONG_PTR len) { return C_EncryptFinal(1, out, len); },
       [](OperationResult& r, const std::string& b, int32_t n) {
         r.mutable_c_encryptfinal_response()->set_plastencryptedpart(b);
         r.mutable_c_encryptfinal_response()->set_pullastencryptedpartlen(n);
       }},
      {"wrap", [&](CK_BYTE_PTR out, CK_ULONG_PTR len) { return C_WrapKey(1, &mech, 2, 3, out, len); },
       [](OperationResult& r, const std::string& b, int32_t n) {
         r.mutable_c_wrapkey_response()->set_pwrappedkey(b);
         r.mutable_c_wrapkey_response()->set_pulwrappedkeylen(n);
       }},
      {"state", [](CK_BYTE_PTR out, CK_ULONG_PTR len) { return C_GetOperationState(1, out, len); },
       [](OperationResult& r, const std::string& b, int32_t n) {
         r.mutable_c_getoperationstate_response()->set_poperationstate(b);
         r.mutable_c_getoperationstate_response()->set_puloperationstatelen(n);
       }},
  };
  struct Case {
    const char* what;
    bool buffer;  // 16-byte buffer, else a size query
    CK_RV rv;
    bool response;
    std::string bytes;
    int32_t len;
    CK_RV expectRv;
    CK_ULONG expectLen;
    std::string expectValue;
  };
  const std::string big(64, 's');
  const Case cases[] = {
      {"value", true, CKR_OK, true, "signatur", 8, CKR_OK, 8, "signatur" + untouched(8)},
      {"too small, bytes bounded", true, CKR_BUFFER_TOO_SMALL, true, big, 64, CKR_BUFFER_TOO_SMALL, 64,
       std::string(16, 's')},
      {"length beyond the bytes", true, CKR_OK, true, "abcd", 12, CKR_OK, 12, "abcd" + untouched(12)},
      {"size query answered", false, CKR_BUFFER_TOO_SMALL, true, "", 64, CKR_OK, 64, ""},
      {"size query ok", false, CKR_OK, true, "", 48, CKR_OK, 48, ""},
      {"size query failing", false, CKR_KEY_HANDLE_INVALID, true, "", 0, CKR_KEY_HANDLE_INVALID, 0, ""},
      {"size query without response", false, CKR_BUFFER_TOO_SMALL, false, "", 64, CKR_BUFFER_TOO_SMALL, 16, ""},
  };
  for (const Fn& fn : fns) {
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(fn.name) + ": " + c.what);
      answer(c.rv, [&](OperationResult& r) {
        if (c.response) fn.fill(r, c.bytes, c.len);
      });
      Buffer buffer(16);
      CK_ULONG len = 16;
      EXPECT_EQ(c.expectRv, fn.call(c.buffer ? buffer.data() : nullptr, &len));
      EXPECT_EQ(c.expectLen, len);
      EXPECT_EQ(c.buffer ? c.expectValue : untouched(16), buffer.value());
      EXPECT_TRUE(buffer.guardIntact());
    }
  }
}

TEST_F(CopyBack, EchoedInputsAndRandomBytesStayWithinTheCallersBuffer) {
  answer(CKR_SIGNATURE_INVALID, [](OperationResult& r) {
    r.mutable_c_verify_response()->set_psignature(std::string(40, 'v'));
    r.mutable_c_verify_response()->set_ulsignaturelen(40);
    r.mutable_c_seedrandom_response()->set_pseed("seeded");
    r.mutable_c_seedrandom_response()->set_ulseedlen(6);
    r.mutable_c_generaterandom_response()->set_randomdata("rnd");
    r.mutable_c_generaterandom_response()->set_ulrandomlen(32);
  });
  Buffer sig(8), seed(16), random(16);
  EXPECT_EQ(CKR_SIGNATURE_INVALID, C_Verify(1, nullptr, 0, sig.data(), 8));
  EXPECT_EQ(std::string(8, 'v'), sig.value());
  EXPECT_EQ(CKR_SIGNATURE_INVALID, C_SeedRandom(1, seed.data(), 16));
  EXPECT_EQ("seeded" + untouched(10), seed.value());
  EXPECT_EQ(CKR_SIGNATURE_INVALID, C_GenerateRandom(1, random.data(), 16));
  EXPECT_EQ("rnd" + untouched(13), random.value());
  for (const Buffer* b : {&sig, &seed, &random}) EXPECT_TRUE(b->guardIntact());
}

TEST_F(CopyBack, InfoTextsFollowTheFieldWidthRule) {
  struct Case {
    size_t size;
    std::string expect;  // the 32-byte manufacturerID afterwards
  };
  for (const Case& c : {Case{31, std::string(31, 'm') + '\0'}, Case{32, std::string(32, 'm')},
                        Case{33, untouched(32)}, Case{3, "mmm" + std::string(1, '\0') + untouched(28)}}) {
    answer(CKR_OK, [&](OperationResult& r) {
      auto* info = r.mutable_c_getinfo_response()->mutable_pinfo();
      info->set_manufacturerid(std::string(c.size, 'm'));
      info->set_flags(0x80000001u);
      info->mutable_cryptokiversion()->set_major(2);
      info->mutable_cryptokiversion()->set_minor(40);
      auto* slot = r.mutable_c_getslotinfo_response()->mutable_pinfo();
      slot->set_manufacturerid(std::string(c.size, 'm'));
      slot->set_slotdescription(std::string(c.size * 2, 'd'));
      slot->mutable_firmwareversion()->set_major(0x1FF);
    });
    CK_INFO info;
    CK_SLOT_INFO slot;
    std::memset(&info, kUntouched, sizeof(info));
    std::memset(&slot, kUntouched, sizeof(slot));
    EXPECT_EQ(CKR_OK, C_GetInfo(&info));
    EXPECT_EQ(CKR_OK, C_GetSlotInfo(1, &slot));
    EXPECT_EQ(c.expect, text(info.manufacturerID, 32)) << c.size;
    EXPECT_EQ(c.expect, text(slot.manufacturerID, 32)) << c.size;
    const size_t n = c.size * 2;  // the description is sent twice as long
    const std::string description = n > 64    ? untouched(64)
                                    : n == 64 ? std::string(64, 'd')
                                              : std::string(n, 'd') + '\0' + untouched(63 - n);
    EXPECT_EQ(description, text(slot.slotDescription, 64)) << c.size;
    EXPECT_EQ(0x80000001u, CK_ULONG{info.flags});
    EXPECT_EQ(2, info.cryptokiVersion.major);
    EXPECT_EQ(40, info.cryptokiVersion.minor);
    EXPECT_EQ(0, info.libraryVersion.major);  // absent in the reply
    EXPECT_EQ(0xFF, slot.firmwareVersion.major);
    EXPECT_EQ(kUntouched, info.libraryDescription[1]);  // empty text: the terminator only
    EXPECT_EQ(0, info.libraryDescription[0]);
  }
}

TEST_F(CopyBack, TokenInfoTextsAreRawBlocksPaddedWithBlanks) {
  answer(CKR_OK, [](OperationResult& r) {
    auto* t = r.mutable_c_gettokeninfo_response()->mutable_pinfo();
    t->set_label(std::string(32, ' '));
    t->set_manufacturerid("maker");
    t->set_model(std::string(40, 'M'));  // the server ran on past the field
    t->set_ulmaxsessioncount(-1);
    t->set_ulfreeprivatememory(4096);
    t->mutable_hardwareversion()->set_major('3');
  });
  CK_TOKEN_INFO info;
  std::memset(&info, kUntouched, sizeof(info));
  EXPECT_EQ(CKR_OK, C_GetTokenInfo(1, &info));
  EXPECT_EQ(std::string(32, ' '), text(info.label, 32));
  EXPECT_EQ("maker" + std::string(27, ' '), text(info.manufacturerID, 32));
  EXPECT_EQ(std::string(16, 'M'), text(info.model, 16));
  EXPECT_EQ(std::string(16, ' '), text(info.serialNumber, 16));
  EXPECT_EQ(std::string(16, ' '), text(info.utcTime, 16));
  EXPECT_EQ(CK_UNAVAILABLE_INFORMATION, CK_ULONG{info.ulMaxSessionCount});
  EXPECT_EQ(4096u, CK_ULONG{info.ulFreePrivateMemory});
  EXPECT_EQ(0u, CK_ULONG{info.flags});
  EXPECT_EQ('3', info.hardwareVersion.major);
}

// Copied whenever the response came back, whatever rv says.
TEST_F(CopyBack, SingleOutputsArrive) {
  answer(CKR_DEVICE_ERROR, [](OperationResult& r) {
    auto* s = r.mutable_c_getsessioninfo_response()->mutable_pinfo();
    s->set_slotid(4);
    s->set_state(CKS_RW_USER_FUNCTIONS);
    s->set_flags(CKF_RW_SESSION);
    s->set_uldeviceerror(-2);
    auto* m = r.mutable_c_getmechanisminfo_response()->mutable_pinfo();
    m->set_ulminkeysize(128);
    m->set_ulmaxkeysize(256);
    m->set_flags(CKF_ENCRYPT);
    r.mutable_c_opensession_response()->set_phsession(0);
    r.mutable_c_getobjectsize_response()->set_pulsize(77);
    r.mutable_c_waitforslotevent_response()->set_pslot(5);
    r.mutable_c_generatekey_response()->set_phkey(11);
    r.mutable_c_unwrapkey_response()->set_phkey(12);
    r.mutable_c_derivekey_response()->set_phkey(13);
    r.mutable_c_generatekeypair_response()->set_phpublickey(14);
    r.mutable_c_generatekeypair_response()->set_phprivatekey(15);
  });
  CK_SESSION_INFO session;
  CK_MECHANISM_INFO mechanism;
  CK_ULONG session0 = 9, size = 0, slot = 0, key = 0, unwrapped = 0, derived = 0, pub = 0, priv = 0;
  CK_MECHANISM mech = {CKM_RSA_PKCS, nullptr, 0};
  const CK_RV rv = CKR_DEVICE_ERROR;
  EXPECT_EQ(rv, C_GetSessionInfo(1, &session));
  EXPECT_EQ(rv, C_GetMechanismInfo(1, CKM_AES_CBC, &mechanism));
  EXPECT_EQ(rv, C_OpenSession(1, 0, nullptr, nullptr, &session0));
  EXPECT_EQ(rv, C_OpenSession(1, 0, nullptr, nullptr, nullptr));
  EXPECT_EQ(rv, C_GetObjectSize(1, 2, &size));
  EXPECT_EQ(rv, C_WaitForSlotEvent(0, &slot, nullptr));
  EXPECT_EQ(rv, C_GenerateKey(1, &mech, nullptr, 0, &key));
  EXPECT_EQ(rv, C_UnwrapKey(1, &mech, 2, nullptr, 0, nullptr, 0, &unwrapped));
  EXPECT_EQ(rv, C_DeriveKey(1, &mech, 2, nullptr, 0, &derived));
  EXPECT_EQ(rv, C_GenerateKeyPair(1, &mech, nullptr, 0, nullptr, 0, &pub, &priv));
  EXPECT_EQ(4u, CK_ULONG{session.slotID});
  EXPECT_EQ(CKS_RW_USER_FUNCTIONS, CK_ULONG{session.state});
  EXPECT_EQ(CKF_RW_SESSION, CK_ULONG{session.flags});
  EXPECT_EQ(0xFFFFFFFEu, CK_ULONG{session.ulDeviceError});
  EXPECT_EQ(128u, CK_ULONG{mechanism.ulMinKeySize});
  EXPECT_EQ(256u, CK_ULONG{mechanism.ulMaxKeySize});
  EXPECT_EQ(CKF_ENCRYPT, CK_ULONG{mechanism.flags});
  EXPECT_EQ(0u, session0);
  EXPECT_EQ(77u, size);
  EXPECT_EQ(5u, slot);
  EXPECT_EQ(std::vector<CK_ULONG>({11, 12, 13, 14, 15}), std::vector<CK_ULONG>({key, unwrapped, derived, pub, priv}));
}

}  // namespace
}  // namespace qor::test
