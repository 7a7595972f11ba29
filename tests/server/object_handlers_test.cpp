// Object and attribute handlers: templates in, templates and handles out.
#include "server_fixture.h"

namespace qor::test {
namespace {

using pkcs11::Operation;
using pkcs11::OperationResult;
using Template = google::protobuf::RepeatedPtrField<pkcs11::CK_ATTRIBUTE>;

// Appends {type, value, length}; a null value leaves pvalue absent.
void add(Template* t, uint32_t type, const char* value, uint32_t length) {
  pkcs11::CK_ATTRIBUTE* a = t->Add();
  a->set_type(type);
  if (value != nullptr) a->set_pvalue(value);
  a->set_ulvaluelen(length);
}

const HandlerCase kCases[] = {
    // A value asked for comes back as far as the module set its length; a
    // size query returns the length, "unavailable" included.
    {"GetAttributeValue",
     "C_GetAttributeValue",
     [](Operation& o) {
       auto* r = o.mutable_c_getattributevalue();
       r->set_hsession(7);
       r->set_hobject(9);
       r->set_ulcount(2);
       add(r->mutable_ptemplate(), 3, "abcd", 4);
       add(r->mutable_ptemplate(), 0x11, nullptr, 0);
     },
     {CKR_OK, "xy", -1, -1, {2, CK_UNAVAILABLE_INFORMATION}},
     "C_GetAttributeValue(hSession=7, hObject=9, pTemplate=[{type=0x3, pValue=[61626364], "
     "ulValueLen=4}, "
     "{type=0x11, pValue=null, ulValueLen=0}], ulCount=2)",
     [](const OperationResult& r) {
       const auto& t = r.c_getattributevalue_response();
       EXPECT_EQ(2u, t.ulcount());
       ASSERT_EQ(2, t.ptemplate_size());
       EXPECT_EQ("xy", t.ptemplate(0).pvalue());
       EXPECT_EQ(2u, t.ptemplate(0).ulvaluelen());
       EXPECT_EQ(0x11u, t.ptemplate(1).type());
       EXPECT_FALSE(t.ptemplate(1).has_pvalue());
       EXPECT_EQ(CK_UNAVAILABLE_INFORMATION, t.ptemplate(1).ulvaluelen());
     }},
    // Unavailable although asked for with a buffer: no value and no length.
    {"GetAttributeValueSensitive",
     "C_GetAttributeValue",
     [](Operation& o) {
       o.mutable_c_getattributevalue()->set_ulcount(1);
       add(o.mutable_c_getattributevalue()->mutable_ptemplate(), 0x11, "ab", 4);
     },
     {CKR_ATTRIBUTE_SENSITIVE, "", -1, -1, {CK_UNAVAILABLE_INFORMATION}},
     "C_GetAttributeValue(hSession=0, hObject=0, pTemplate=[{type=0x11, pValue=[61620000], "
     "ulValueLen=4}], "
     "ulCount=1)",
     [](const OperationResult& r) {
       ASSERT_EQ(1, r.c_getattributevalue_response().ptemplate_size());
       EXPECT_FALSE(r.c_getattributevalue_response().ptemplate(0).has_pvalue());
       EXPECT_FALSE(r.c_getattributevalue_response().ptemplate(0).has_ulvaluelen());
     }},
    // A length beyond the buffer is reported, but only the buffer is sent.
    {"GetAttributeValueLongerThanBuffer",
     "C_GetAttributeValue",
     [](Operation& o) {
       o.mutable_c_getattributevalue()->set_ulcount(1);
       add(o.mutable_c_getattributevalue()->mutable_ptemplate(), 3, "abcd", 4);
     },
     {CKR_BUFFER_TOO_SMALL, "", -1, -1, {100}},
     "C_GetAttributeValue(hSession=0, hObject=0, pTemplate=[{type=0x3, pValue=[61626364], "
     "ulValueLen=4}], "
     "ulCount=1)",
     [](const OperationResult& r) {
       EXPECT_EQ("abcd", r.c_getattributevalue_response().ptemplate(0).pvalue());
       EXPECT_EQ(100u, r.c_getattributevalue_response().ptemplate(0).ulvaluelen());
     }},
    {"GetAttributeValueNone",
     "C_GetAttributeValue",
     [](Operation& o) { o.mutable_c_getattributevalue(); },
     {CKR_OK},
     "C_GetAttributeValue(hSession=0, hObject=0, pTemplate=[], ulCount=0)",
     [](const OperationResult& r) {
       EXPECT_TRUE(r.c_getattributevalue_response().has_ulcount());
       EXPECT_EQ(0, r.c_getattributevalue_response().ptemplate_size());
     }},
    {"SetAttributeValue",
     "C_SetAttributeValue",
     [](Operation& o) {
       auto* r = o.mutable_c_setattributevalue();
       r->set_hsession(7);
       r->set_hobject(9);
       r->set_ulcount(1);
       add(r->mutable_ptemplate(), 3, "keyx", 3);
     },
     {CKR_OK},
     "C_SetAttributeValue(hSession=7, hObject=9, pTemplate=[{type=0x3, pValue=[6b6579], "
     "ulValueLen=3}], "
     "ulCount=1)",
     [](const OperationResult& r) {
       ASSERT_EQ(1, r.c_setattributevalue_response().ptemplate_size());
       EXPECT_EQ("key", r.c_setattributevalue_response().ptemplate(0).pvalue());
       EXPECT_EQ(3u, r.c_setattributevalue_response().ptemplate(0).ulvaluelen());
       EXPECT_EQ(1u, r.c_setattributevalue_response().ulcount());
     }},
    // Every record gets a buffer, also one without a value.
    {"FindObjectsInit",
     "C_FindObjectsInit",
     [](Operation& o) {
       auto* r = o.mutable_c_findobjectsinit();
       r->set_hsession(7);
       r->set_ulcount(2);
       add(r->mutable_ptemplate(), 0, "\x04", 1);
       add(r->mutable_ptemplate(), 3, nullptr, 0);
     },
     {CKR_OK},
     "C_FindObjectsInit(hSession=7, pTemplate=[{type=0x0, pValue=[04], ulValueLen=1}, "
     "{type=0x3, pValue=[], ulValueLen=0}], ulCount=2)",
     [](const OperationResult& r) {
       const auto& t = r.c_findobjectsinit_response();
       EXPECT_EQ(2u, t.ulcount());
       ASSERT_EQ(2, t.ptemplate_size());
       EXPECT_EQ("\x04", t.ptemplate(0).pvalue());
       EXPECT_TRUE(t.ptemplate(1).has_pvalue());
     }},
    {"FindObjects",
     "C_FindObjects",
     [](Operation& o) {
       o.mutable_c_findobjects()->set_hsession(7);
       o.mutable_c_findobjects()->set_ulmaxobjectcount(3);
     },
     {CKR_OK, "", -1, 2, {11, 12}},
     "C_FindObjects(hSession=7, phObject=nonnull, ulMaxObjectCount=3, pulObjectCount=nonnull)",
     [](const OperationResult& r) {
       ASSERT_EQ(2, r.c_findobjects_response().phobject_size());
       EXPECT_EQ(12, r.c_findobjects_response().phobject(1));
       EXPECT_EQ(2, r.c_findobjects_response().pulobjectcount());
     }},
    {"FindObjectsMoreThanRoomFor",
     "C_FindObjects",
     [](Operation& o) { o.mutable_c_findobjects()->set_ulmaxobjectcount(3); },
     {CKR_OK, "", -1, 5, {11, 12, 13}},
     "C_FindObjects(hSession=0, phObject=nonnull, ulMaxObjectCount=3, pulObjectCount=nonnull)",
     [](const OperationResult& r) {
       EXPECT_EQ(0, r.c_findobjects_response().phobject_size());
       EXPECT_EQ(5, r.c_findobjects_response().pulobjectcount());
     }},
    {"FindObjectsFinal",
     "C_FindObjectsFinal",
     [](Operation& o) { o.mutable_c_findobjectsfinal()->set_hsession(7); },
     {CKR_OK},
     "C_FindObjectsFinal(hSession=7)",
     [](const OperationResult& r) { EXPECT_FALSE(r.has_c_findobjectsfinal_response()); }},
    {"CreateObject",
     "C_CreateObject",
     [](Operation& o) {
       auto* r = o.mutable_c_createobject();
       r->set_hsession(7);
       r->set_ulcount(2);
       add(r->mutable_ptemplate(), 0, "\x04", 1);
       add(r->mutable_ptemplate(), 3, nullptr, 5);
     },
     {CKR_OK, "", -1, -1, {77}},
     "C_CreateObject(hSession=7, pTemplate=[{type=0x0, pValue=[04], ulValueLen=1}, "
     "{type=0x3, pValue=null, ulValueLen=5}], ulCount=2, phObject=nonnull)",
     [](const OperationResult& r) {
       ASSERT_EQ(1, r.c_createobject_response().phobject_size());
       EXPECT_EQ(77, r.c_createobject_response().phobject(0));
     }},
    {"CreateObjectFails",
     "C_CreateObject",
     [](Operation& o) { o.mutable_c_createobject(); },
     {CKR_TEMPLATE_INCOMPLETE},
     "C_CreateObject(hSession=0, pTemplate=[], ulCount=0, phObject=nonnull)",
     [](const OperationResult& r) {
       ASSERT_EQ(1, r.c_createobject_response().phobject_size());
       EXPECT_EQ(0, r.c_createobject_response().phobject(0));
     }},
    {"CopyObject",
     "C_CopyObject",
     [](Operation& o) {
       auto* r = o.mutable_c_copyobject();
       r->set_hsession(7);
       r->set_hobject(9);
       r->set_ulcount(1);
       add(r->mutable_ptemplate(), 1, "\x01", 1);
     },
     {CKR_OK, "", -1, -1, {78}},
     "C_CopyObject(hSession=7, hObject=9, pTemplate=[{type=0x1, pValue=[01], ulValueLen=1}], "
     "ulCount=1, "
     "phNewObject=nonnull)",
     [](const OperationResult& r) {
       ASSERT_EQ(1, r.c_copyobject_response().phnewobject_size());
       EXPECT_EQ(78, r.c_copyobject_response().phnewobject(0));
     }},
    {"DestroyObject",
     "C_DestroyObject",
     [](Operation& o) {
       o.mutable_c_destroyobject()->set_hsession(7);
       o.mutable_c_destroyobject()->set_hobject(9);
     },
     {CKR_OK},
     "C_DestroyObject(hSession=7, hObject=9)"},
    {"GetObjectSize",
     "C_GetObjectSize",
     [](Operation& o) { o.mutable_c_getobjectsize()->set_hobject(9); },
     {CKR_OK, "", 2048},
     "C_GetObjectSize(hSession=0, hObject=9, pulSize=nonnull)",
     [](const OperationResult& r) { EXPECT_EQ(2048, r.c_getobjectsize_response().pulsize()); }},
};

INSTANTIATE_TEST_SUITE_P(Objects, HandlerTest, ::testing::ValuesIn(kCases), label<HandlerCase>);

// A value shorter than its length reaches the module padded with zeros.
const HandlerCase kShortValues[] = {
    {"SetAttributeValueShortValue", "C_SetAttributeValue",
     [](Operation& o) {
       o.mutable_c_setattributevalue()->set_ulcount(1);
       add(o.mutable_c_setattributevalue()->mutable_ptemplate(), 3, "ab", 3);
     },
     {CKR_OK},
     "C_SetAttributeValue(hSession=0, hObject=0, pTemplate=[{type=0x3, pValue=[616200], "
     "ulValueLen=3}], ulCount=1)"},
    {"FindObjectsInitMissingValue", "C_FindObjectsInit",
     [](Operation& o) {
       o.mutable_c_findobjectsinit()->set_ulcount(1);
       add(o.mutable_c_findobjectsinit()->mutable_ptemplate(), 3, nullptr, 4);
     },
     {CKR_OK},
     "C_FindObjectsInit(hSession=0, pTemplate=[{type=0x3, pValue=[00000000], ulValueLen=4}], "
     "ulCount=1)"},
    {"CopyObjectShortValue", "C_CopyObject",
     [](Operation& o) {
       o.mutable_c_copyobject()->set_ulcount(1);
       add(o.mutable_c_copyobject()->mutable_ptemplate(), 3, "", 1);
     },
     {CKR_OK},
     "C_CopyObject(hSession=0, hObject=0, pTemplate=[{type=0x3, pValue=[00], ulValueLen=1}], "
     "ulCount=1, phNewObject=nonnull)"},
};

INSTANTIATE_TEST_SUITE_P(ObjectsShortValues, HandlerTest, ::testing::ValuesIn(kShortValues),
                         label<HandlerCase>);

// Attribute lists: a count above the messages, or a value length no frame
// could carry.
const Refusal kRefusals[] = {
    {"GetAttributeValueCount", "C_GetAttributeValue",
     [](Operation& o) {
       o.mutable_c_getattributevalue()->set_ulcount(2);
       add(o.mutable_c_getattributevalue()->mutable_ptemplate(), 3, nullptr, 0);
     }},
    {"GetAttributeValueNegativeCount", "C_GetAttributeValue",
     [](Operation& o) { o.mutable_c_getattributevalue()->set_ulcount(-1); }},
    {"SetAttributeValueLengthBeyondAnyFrame", "C_SetAttributeValue",
     [](Operation& o) {
       o.mutable_c_setattributevalue()->set_ulcount(1);
       add(o.mutable_c_setattributevalue()->mutable_ptemplate(), 3, "ab", 0x80000000u);
     }},
    {"FindObjectsInitCount", "C_FindObjectsInit",
     [](Operation& o) { o.mutable_c_findobjectsinit()->set_ulcount(1); }},
    {"CreateObjectCount", "C_CreateObject",
     [](Operation& o) { o.mutable_c_createobject()->set_ulcount(3); }},
};

INSTANTIATE_TEST_SUITE_P(Objects, RefusalTest, ::testing::ValuesIn(kRefusals), label<Refusal>);

}  // namespace
}  // namespace qor::test
