// Object and attribute functions.
#include "qorpkcs11/protocol/calls.h"
#include "qorpkcs11/server/handler.h"
#include "qorpkcs11/server/module_memory.h"

using namespace qor::server;
namespace answered = qor::protocol::answered;
using pkcs11::Operation;
using pkcs11::OperationResult;

namespace {

using AttributeFn = CK_C_GetAttributeValue;

// C_GetAttributeValue and C_SetAttributeValue: the same round trip, apart
// from whether the module reads the values or fills them.
template <typename Request, typename Response>
CK_RV serve_attributes(const Request& req, Call& call, Member<AttributeFn> member, TemplateUse use,
                       Response* (OperationResult::*response)()) {
  const char* name = call.name();
  const CK_ULONG count = ul(req.ulcount());
  QOR_LOGD(kTag, "Generate_Operation_Result ulcnt = %u", count);
  QOR_LOGD(kTag, "Generate_Operation_Result size of CK_ATTRIBUTE = %d",
           static_cast<int>(sizeof(CK_ATTRIBUTE)));
  Template attributes;
  if (const CK_RV bad = attributes.build(req.ptemplate(), count, use, "obj_attr"))
    return call.decline(bad);
  QOR_LOGD(kTag, "%s session = %u", name, ul(req.hsession()));
  QOR_LOGD(kTag, "%s object = %u", name, ul(req.hobject()));
  attributes.log_records();

  const CK_RV value = call.invoke(member, ul(req.hsession()), ul(req.hobject()),
                                  attributes.records(), attributes.count());
  if (use == TemplateUse::kAnswered) QOR_LOGD(kTag, "return value = %u", value);
  QOR_LOGD(kTag, "%s return value = %u", name, value);

  Response* out = (call.result().*response)();
  out->set_ulcount(count);
  QOR_LOGD(kTag, "ulcount = %u", count);
  attributes.answer(out->mutable_ptemplate());
  return value;
}

// C_CreateObject and C_CopyObject log the same lines and read their
// template the same way.
template <typename Request>
CK_RV build_new_object(const Request& req, CK_ULONG loggedHandle, Template* attributes) {
  QOR_LOGD(kTag, "Generate_Operation_Result session handle = %u", ul(req.hsession()));
  QOR_LOGD(kTag, "Generate_Operation_Result object handle = %u", loggedHandle);
  return attributes->build(req.ptemplate(), ul(req.ulcount()), TemplateUse::kNewObject, "obj_attr");
}

}  // namespace

std::string C_GetAttributeValue_Server(const std::string& request) {
  return serve(request, answered::C_GetAttributeValue, &Operation::c_getattributevalue, RvLine::kOwn,
               [](const pkcs11::C_GetAttributeValue& req, Call& call) {
                 return serve_attributes(req, call, QOR_MEMBER(C_GetAttributeValue),
                                         TemplateUse::kAnswered,
                                         &OperationResult::mutable_c_getattributevalue_response);
               });
}

std::string C_SetAttributeValue_Server(const std::string& request) {
  return serve(request, answered::C_SetAttributeValue, &Operation::c_setattributevalue, RvLine::kOwn,
               [](const pkcs11::C_SetAttributeValue& req, Call& call) {
                 return serve_attributes(req, call, QOR_MEMBER(C_SetAttributeValue), TemplateUse::kValues,
                                         &OperationResult::mutable_c_setattributevalue_response);
               });
}

// The reply always carries exactly one handle, 0 when the module set none.
std::string C_CreateObject_Server(const std::string& request) {
  return serve(request, answered::C_CreateObject, &Operation::c_createobject, RvLine::kReturnValue,
               [](const pkcs11::C_CreateObject& req, Call& call) {
                 Template attributes;
                 if (const CK_RV bad = build_new_object(req, ul(req.phobject()), &attributes))
                   return call.decline(bad);
                 CK_OBJECT_HANDLE handle = 0;
                 const CK_RV value = call.invoke(QOR_MEMBER(C_CreateObject), ul(req.hsession()),
                                                 attributes.records(), attributes.count(), &handle);
                 call.result().mutable_c_createobject_response()->add_phobject(wire(handle));
                 return value;
               });
}

std::string C_CopyObject_Server(const std::string& request) {
  return serve(request, answered::C_CopyObject, &Operation::c_copyobject, RvLine::kReturnValue,
               [](const pkcs11::C_CopyObject& req, Call& call) {
                 Template attributes;
                 if (const CK_RV bad = build_new_object(req, ul(req.hobject()), &attributes))
                   return call.decline(bad);
                 CK_OBJECT_HANDLE handle = 0;
                 const CK_RV value =
                     call.invoke(QOR_MEMBER(C_CopyObject), ul(req.hsession()), ul(req.hobject()),
                                 attributes.records(), attributes.count(), &handle);
                 call.result().mutable_c_copyobject_response()->add_phnewobject(wire(handle));
                 return value;
               });
}

QOR_SERVE_HANDLES(C_DestroyObject, c_destroyobject, kReturnValue, ul(req.hsession()),
                  ul(req.hobject()))

std::string C_GetObjectSize_Server(const std::string& request) {
  return serve(request, answered::C_GetObjectSize, &Operation::c_getobjectsize, RvLine::kReturnValue,
               [](const pkcs11::C_GetObjectSize& req, Call& call) {
                 CK_ULONG size = 0;
                 const CK_RV value = call.invoke(QOR_MEMBER(C_GetObjectSize), ul(req.hsession()),
                                                 ul(req.hobject()), &size);
                 call.result().mutable_c_getobjectsize_response()->set_pulsize(wire(size));
                 return value;
               });
}

std::string C_FindObjectsInit_Server(const std::string& request) {
  return serve(
      request, answered::C_FindObjectsInit, &Operation::c_findobjectsinit, RvLine::kOwn,
      [](const pkcs11::C_FindObjectsInit& req, Call& call) {
        QOR_LOGD(kTag, "Generate_Operation_Result session handle = %u", ul(req.hsession()));
        QOR_LOGD(kTag, "Generate_Operation_Result ulcnt = %u", req.ulcount());
        Template attributes;
        if (const CK_RV bad =
                attributes.build(req.ptemplate(), req.ulcount(), TemplateUse::kSearch, "obj_attr"))
          return call.decline(bad);
        const CK_RV value = call.invoke(QOR_MEMBER(C_FindObjectsInit), ul(req.hsession()),
                                        attributes.records(), attributes.count());
        QOR_LOGD(kTag, "C_FindObjectsInit rv = %u", value);
        QOR_LOGD(kTag, "return value = %u", value);
        pkcs11::C_FindObjectsInit_Response* out =
            call.result().mutable_c_findobjectsinit_response();
        attributes.echo(out->mutable_ptemplate());
        out->set_ulcount(req.ulcount());
        QOR_LOGD(kTag, "ulcount = %u", req.ulcount());
        return value;
      });
}

// Handles come back only when the module's count fits the array it was given.
std::string C_FindObjects_Server(const std::string& request) {
  return serve(
      request, answered::C_FindObjects, &Operation::c_findobjects, RvLine::kReturnValue,
      [](const pkcs11::C_FindObjects& req, Call& call) {
        const CK_ULONG max = ul(req.ulmaxobjectcount());
        Ulongs handles(max);
        if (!handles.ok()) return call.out_of_memory();
        QOR_LOGD(kTag, "Generate_Operation_Result session handle = %u", ul(req.hsession()));
        QOR_LOGD(kTag, "Generate_Operation_Result max object count = %u", max);
        QOR_LOGD(kTag, "Generate_Operation_Result object handle = %u", ul(req.phobject()));
        QOR_LOGD(kTag, "Generate_Operation_Result pul object count = %u", ul(req.pulobjectcount()));
        CK_ULONG count = 0;
        const CK_RV value =
            call.invoke(QOR_MEMBER(C_FindObjects), ul(req.hsession()), handles.data(), max, &count);
        pkcs11::C_FindObjects_Response* out = call.result().mutable_c_findobjects_response();
        if (count > 0 && count <= max)
          for (CK_ULONG i = 0; i < count; ++i) out->add_phobject(wire(handles.data()[i]));
        out->set_pulobjectcount(wire(count));
        return value;
      });
}

std::string C_FindObjectsFinal_Server(const std::string& request) {
  return serve(request, answered::C_FindObjectsFinal, &Operation::c_findobjectsfinal,
               RvLine::kGenerateResult, [](const pkcs11::C_FindObjectsFinal& req, Call& call) {
                 const CK_RV value =
                     call.invoke(QOR_MEMBER(C_FindObjectsFinal), ul(req.hsession()));
                 QOR_LOGD(kTag, "return value = %u", value);
                 return value;
               });
}
