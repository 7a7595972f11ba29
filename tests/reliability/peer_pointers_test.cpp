// Pointers from the peer's address space never reach the module: a nested
// template (wrap, unwrap, derive) crosses the wire as the peer's own
// CK_ATTRIBUTE records, value pointers included, and a module that follows
// them would read or write the serving process's memory wherever the peer
// pointed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "replaced_entries.h"

namespace qor::test {
namespace {

constexpr CK_ATTRIBUTE_TYPE kDeriveTemplate = CKF_ARRAY_ATTRIBUTE | 0x213u;

// What the module found in the first attribute's nested records.
struct Seen {
  int calls = 0;
  CK_ATTRIBUTE nested[2] = {};
};
Seen gSeen;

void look(const CK_ATTRIBUTE* t, CK_ULONG count) {
  ++gSeen.calls;
  if (count == 0 || t[0].pValue == nullptr) return;
  const size_t records = t[0].ulValueLen / sizeof(CK_ATTRIBUTE);
  std::memcpy(gSeen.nested, t[0].pValue, std::min<size_t>(records, 2) * sizeof(CK_ATTRIBUTE));
}

CK_RV create(CK_SESSION_HANDLE, CK_ATTRIBUTE_PTR t, CK_ULONG count, CK_OBJECT_HANDLE_PTR object) {
  look(t, count);
  *object = 7;
  return CKR_OK;
}

CK_RV getAttributes(CK_SESSION_HANDLE, CK_OBJECT_HANDLE, CK_ATTRIBUTE_PTR t, CK_ULONG count) {
  look(t, count);
  return CKR_OK;
}

// Two nested records as a peer's process laid them out, pointing into it.
std::string peerRecords() {
  CK_ATTRIBUTE records[2] = {{CKA_VALUE, reinterpret_cast<void*>(0x41414140), 16},
                             {CKA_LABEL, reinterpret_cast<void*>(0x42424240), 8}};
  return std::string(reinterpret_cast<const char*>(records), sizeof(records));
}

struct PointerCase {
  const char* name;
  CK_ATTRIBUTE_TYPE type;
  bool create;  // C_CreateObject (the module reads the template), else C_GetAttributeValue
};
void PrintTo(const PointerCase& c, std::ostream* os) { *os << c.name; }

class PeerPointerTest : public ::testing::TestWithParam<PointerCase> {
 protected:
  void SetUp() override {
    served_.functions().C_CreateObject = create;
    served_.functions().C_GetAttributeValue = getAttributes;
  }

  ReplacedEntries served_{"@qor-peer-pointers"};
};

TEST_P(PeerPointerTest, NestedRecordsReachTheModuleWithTypeAndLengthButNoValue) {
  const PointerCase& c = GetParam();
  pkcs11::Operation op;
  auto* templ = c.create ? op.mutable_c_createobject()->mutable_ptemplate()
                         : op.mutable_c_getattributevalue()->mutable_ptemplate();
  if (c.create) {
    op.set_name("C_CreateObject");
    op.mutable_c_createobject()->set_ulcount(1);
  } else {
    op.set_name("C_GetAttributeValue");
    op.mutable_c_getattributevalue()->set_ulcount(1);
  }
  pkcs11::CK_ATTRIBUTE* a = templ->Add();
  a->set_type(c.type);
  a->set_pvalue(peerRecords());
  a->set_ulvaluelen(static_cast<uint32_t>(peerRecords().size()));

  EXPECT_FALSE(process(op).empty());
  ASSERT_EQ(1, gSeen.calls);
  EXPECT_EQ(CKA_VALUE, gSeen.nested[0].type);
  EXPECT_EQ(16u, gSeen.nested[0].ulValueLen);
  EXPECT_EQ(nullptr, gSeen.nested[0].pValue);
  EXPECT_EQ(CKA_LABEL, gSeen.nested[1].type);
  EXPECT_EQ(nullptr, gSeen.nested[1].pValue);
}

INSTANTIATE_TEST_SUITE_P(Templates, PeerPointerTest,
                         ::testing::Values(PointerCase{"CreateWithWrapTemplate", CKA_WRAP_TEMPLATE, true},
                                           PointerCase{"CreateWithUnwrapTemplate", CKA_UNWRAP_TEMPLATE, true},
                                           PointerCase{"CreateWithDeriveTemplate", kDeriveTemplate, true},
                                           PointerCase{"ReadWrapTemplate", CKA_WRAP_TEMPLATE, false}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace qor::test
