// Object and attribute functions.
#include <algorithm>
#include <cstdint>

#include "qorpkcs11/client/call_frame.h"
#include "qorpkcs11/client/caller_memory.h"
#include "qorpkcs11/common/log.h"
#include "qorpkcs11/protocol/calls.h"

using namespace qor::client;
namespace sent = qor::protocol::sent;
using qor::log::kClient;

namespace {

constexpr Frame kCreateObject = Frame{sent::C_CreateObject}.rv("Create object rv = %u");
constexpr Frame kCopyObject = Frame{sent::C_CopyObject}.rv("Copy object rv = %u");
constexpr Frame kDestroyObject = Frame{sent::C_DestroyObject}.rv("C_DestroyObject rv  = %u");
constexpr Frame kGetObjectSize = Frame{sent::C_GetObjectSize}.rv("Find objects rv = %u");
constexpr Frame kGetAttributeValue = Frame{sent::C_GetAttributeValue}.rv("rv C_GetAttributeValue = %u");
constexpr Frame kSetAttributeValue = Frame{sent::C_SetAttributeValue}.rv("rv C_SetAttributeValue = %u");
constexpr Frame kFindObjectsInit{sent::C_FindObjectsInit};
constexpr Frame kFindObjects = Frame{sent::C_FindObjects}.rv("Find objects rv = %u");
constexpr Frame kFindObjectsFinal{sent::C_FindObjectsFinal};

// Deployed servers receive the caller's output pointers as numbers in a few
// fields; they carry no meaning beyond that.
int32_t address(const void* p) {
  return wire(static_cast<CK_ULONG>(reinterpret_cast<uintptr_t>(p)));
}

// The handle lists of the create and copy replies: an empty list leaves the
// caller's handle alone.
void takeFirst(const WireList& handles, CK_OBJECT_HANDLE_PTR out, const char* line) {
  if (handles.empty()) return;
  *out = ul(handles.Get(0));
  QOR_LOGD(kClient, line, *out);
}

// Reading and writing attribute values share the template rules both ways:
// a server that echoes a written template rewrites the caller's.
template <class Req, class Resp>
CK_RV attributeValues(const Frame& frame, const char* countLine, Req* (Op::*request)(),
                      Reply<Resp> where, TemplateUse use, CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                      CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount) {
  if (!readableTemplate(pTemplate, ulCount, use)) return CKR_ARGUMENTS_BAD;
  return call(
      frame,
      [&](Op& op) {
        QOR_LOGD(kClient, "passed session -> %u", hSession);
        QOR_LOGD(kClient, "passed object -> %u", hObject);
        QOR_LOGD(kClient, countLine, ulCount);
        Req* m = (op.*request)();
        m->set_hsession(wire(hSession));
        m->set_hobject(wire(hObject));
        m->set_ulcount(wire(ulCount));
        putTemplate(m->mutable_ptemplate(), pTemplate, ulCount, use);
      },
      where,
      [&](const Resp& r, CK_RV&) {
        takeTemplate(r.ptemplate(), r.ulcount(), pTemplate, ulCount, use);
      });
}

}  // namespace

CK_RV C_CreateObject(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount,
                     CK_OBJECT_HANDLE_PTR phObject) {
  if (!phObject || !readableTemplate(pTemplate, ulCount, TemplateUse::kNewObject))
    return CKR_ARGUMENTS_BAD;
  return call(
      kCreateObject,
      [&](Op& op) {
        pkcs11::C_CreateObject* m = op.mutable_c_createobject();
        m->set_hsession(wire(hSession));
        putTemplate(m->mutable_ptemplate(), pTemplate, ulCount, TemplateUse::kNewObject);
        m->set_ulcount(wire(ulCount));
        m->set_phobject(address(phObject));
      },
      reply(&Result::has_c_createobject_response, &Result::c_createobject_response),
      [&](const pkcs11::C_CreateObject_Response& r, CK_RV&) {
        takeFirst(r.phobject(), phObject, "Find objects phobject = %u");
      });
}

CK_RV C_CopyObject(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE_PTR pTemplate,
                   CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phNewObject) {
  if (!phNewObject || !readableTemplate(pTemplate, ulCount, TemplateUse::kNewObject))
    return CKR_ARGUMENTS_BAD;
  return call(
      kCopyObject,
      [&](Op& op) {
        pkcs11::C_CopyObject* m = op.mutable_c_copyobject();
        m->set_hsession(wire(hSession));
        m->set_hobject(wire(hObject));
        putTemplate(m->mutable_ptemplate(), pTemplate, ulCount, TemplateUse::kNewObject);
        m->set_ulcount(wire(ulCount));
        m->set_phnewobject(address(phNewObject));
      },
      reply(&Result::has_c_copyobject_response, &Result::c_copyobject_response),
      [&](const pkcs11::C_CopyObject_Response& r, CK_RV&) {
        takeFirst(r.phnewobject(), phNewObject, "Copy object phnewobject = %u");
      });
}

CK_RV C_DestroyObject(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject) {
  return call(kDestroyObject, [&](Op& op) {
    pkcs11::C_DestroyObject* m = op.mutable_c_destroyobject();
    m->set_hsession(wire(hSession));
    m->set_hobject(wire(hObject));
  });
}

CK_RV C_GetObjectSize(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ULONG_PTR pulSize) {
  if (!pulSize) return CKR_ARGUMENTS_BAD;
  return call(
      kGetObjectSize,
      [&](Op& op) {
        pkcs11::C_GetObjectSize* m = op.mutable_c_getobjectsize();
        m->set_hsession(wire(hSession));
        m->set_hobject(wire(hObject));
      },
      reply(&Result::has_c_getobjectsize_response, &Result::c_getobjectsize_response),
      [&](const pkcs11::C_GetObjectSize_Response& r, CK_RV&) { *pulSize = ul(r.pulsize()); });
}

CK_RV C_GetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                          CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount) {
  return attributeValues(kGetAttributeValue, "ulcount start C_GetAttributeValue = %u",
                         &Op::mutable_c_getattributevalue,
                         reply(&Result::has_c_getattributevalue_response,
                               &Result::c_getattributevalue_response),
                         TemplateUse::kAnswered, hSession, hObject, pTemplate, ulCount);
}

CK_RV C_SetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                          CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount) {
  return attributeValues(kSetAttributeValue, "ulcount start C_SetAttributeValue = %u",
                         &Op::mutable_c_setattributevalue,
                         reply(&Result::has_c_setattributevalue_response,
                               &Result::c_setattributevalue_response),
                         TemplateUse::kValues, hSession, hObject, pTemplate, ulCount);
}

// The server may rewrite the search template; deployed callers expect it.
CK_RV C_FindObjectsInit(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount) {
  if (!readableTemplate(pTemplate, ulCount, TemplateUse::kSearch)) return CKR_ARGUMENTS_BAD;
  return call(
      kFindObjectsInit,
      [&](Op& op) {
        QOR_LOGD(kClient, "session handle = %u", hSession);
        QOR_LOGD(kClient, "session handle = %u", hSession);
        QOR_LOGD(kClient, "ulcount start C_FindObjectsInit = %u", ulCount);
        pkcs11::C_FindObjectsInit* m = op.mutable_c_findobjectsinit();
        m->set_hsession(wire(hSession));
        putTemplate(m->mutable_ptemplate(), pTemplate, ulCount, TemplateUse::kSearch);
        m->set_ulcount(ulCount);
      },
      reply(&Result::has_c_findobjectsinit_response, &Result::c_findobjectsinit_response),
      [&](const pkcs11::C_FindObjectsInit_Response& r, CK_RV&) {
        takeTemplate(r.ptemplate(), r.ulcount(), pTemplate, ulCount, TemplateUse::kSearch);
      });
}

CK_RV C_FindObjects(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE_PTR phObject,
                    CK_ULONG ulMaxObjectCount, CK_ULONG_PTR pulObjectCount) {
  if (!pulObjectCount || !readable(phObject, ulMaxObjectCount)) return CKR_ARGUMENTS_BAD;
  return call(
      kFindObjects,
      [&](Op& op) {
        QOR_LOGD(kClient, "session handle = %u", hSession);
        QOR_LOGD(kClient, "session handle = %u", hSession);
        pkcs11::C_FindObjects* m = op.mutable_c_findobjects();
        m->set_hsession(wire(hSession));
        m->set_ulmaxobjectcount(wire(ulMaxObjectCount));
        m->set_phobject(address(phObject));
        QOR_LOGD(kClient, "phobject = %u", ul(m->phobject()));
        m->set_pulobjectcount(address(pulObjectCount));
        QOR_LOGD(kClient, "pul object count = %u", ul(m->pulobjectcount()));
      },
      reply(&Result::has_c_findobjects_response, &Result::c_findobjects_response),
      [&](const pkcs11::C_FindObjects_Response& r, CK_RV&) {
        const CK_ULONG n = r.pulobjectcount() < 1
            ? 0
            : std::min<CK_ULONG>({ul(r.pulobjectcount()), ulMaxObjectCount,
                                  static_cast<CK_ULONG>(r.phobject_size())});
        for (CK_ULONG i = 0; i < n; ++i) phObject[i] = ul(r.phobject(static_cast<int>(i)));
        // The count is not a size to learn: callers index their array with it,
        // so it never claims more handles than were written.
        *pulObjectCount = n;
        if (n) QOR_LOGD(kClient, "Find objects phobject = %u", phObject[0]);
      });
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE hSession) {
  return sessionOnly(kFindObjectsFinal, &Op::mutable_c_findobjectsfinal, hSession);
}
