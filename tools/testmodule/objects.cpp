// Object and attribute functions.
#include <cstring>

#include "impl.h"
#include "token.h"

namespace qor::tm::impl {
namespace {

// Secret parts of keys that are sensitive or unextractable never leave.
bool isSensitive(const Object& o, CK_ATTRIBUTE_TYPE t) {
  switch (t) {
    case CKA_VALUE: case CKA_PRIVATE_EXPONENT: case CKA_PRIME_1: case CKA_PRIME_2: case CKA_EXPONENT_1:
    case CKA_EXPONENT_2: case CKA_COEFFICIENT:
      break;
    default:
      return false;
  }
  const CK_ULONG cls = o.ulong(CKA_CLASS, CKO_DATA);
  if (cls != CKO_PRIVATE_KEY && cls != CKO_SECRET_KEY) return false;
  return o.flag(CKA_SENSITIVE, false) || !o.flag(CKA_EXTRACTABLE, true);
}

CK_RV findBoth(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, Session*& s, Object*& o) {
  if (CK_RV rv = findSession(hSession, s)) return rv;
  return findObject(hObject, o);
}

CK_RV checkWritable(const Session& s, const Object& o) {
  if (o.owner == 0 && (s.flags & CKF_RW_SESSION) == 0) return CKR_SESSION_READ_ONLY;
  return CKR_OK;
}

bool matches(const Object& o, const Attributes& tpl) {
  for (const auto& want : tpl) {
    const Bytes* have = o.find(want.first);
    if (have == nullptr || *have != want.second) return false;
  }
  return true;
}

}  // namespace

CK_RV C_CreateObject(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount,
                     CK_OBJECT_HANDLE_PTR phObject) {
  Session* s;
  if (CK_RV rv = findSession(hSession, s)) return rv;
  if (phObject == nullptr) return CKR_ARGUMENTS_BAD;
  Attributes attrs;
  if (CK_RV rv = readTemplate(pTemplate, ulCount, attrs)) return rv;
  return addObject(hSession, std::move(attrs), phObject);
}

CK_RV C_CopyObject(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE_PTR pTemplate,
                   CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phNewObject) {
  Session* s;
  Object* o;
  if (CK_RV rv = findBoth(hSession, hObject, s, o)) return rv;
  if (phNewObject == nullptr) return CKR_ARGUMENTS_BAD;
  Attributes changes;
  if (CK_RV rv = readTemplate(pTemplate, ulCount, changes)) return rv;
  Attributes attrs = o->attrs;
  for (auto& c : changes) {
    if (c.first == CKA_CLASS && c.second != attrs[CKA_CLASS]) return CKR_TEMPLATE_INCONSISTENT;
    attrs[c.first] = std::move(c.second);
  }
  return addObject(hSession, std::move(attrs), phNewObject);
}

CK_RV C_DestroyObject(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject) {
  Session* s;
  Object* o;
  if (CK_RV rv = findBoth(hSession, hObject, s, o)) return rv;
  if (CK_RV rv = checkWritable(*s, *o)) return rv;
  token().objects.erase(hObject);
  return CKR_OK;
}

CK_RV C_GetObjectSize(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ULONG_PTR pulSize) {
  Session* s;
  Object* o;
  if (CK_RV rv = findBoth(hSession, hObject, s, o)) return rv;
  if (pulSize == nullptr) return CKR_ARGUMENTS_BAD;
  CK_ULONG size = 0;
  for (const auto& a : o->attrs) size += static_cast<CK_ULONG>(a.second.size());
  *pulSize = size;
  return CKR_OK;
}

// Every attribute is answered; the first failing one decides the return value.
CK_RV C_GetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE_PTR pTemplate,
                          CK_ULONG ulCount) {
  Session* s;
  Object* o;
  if (CK_RV rv = findBoth(hSession, hObject, s, o)) return rv;
  if (pTemplate == nullptr && ulCount != 0) return CKR_ARGUMENTS_BAD;
  CK_RV result = CKR_OK;
  for (CK_ULONG i = 0; i < ulCount; ++i) {
    CK_ATTRIBUTE& a = pTemplate[i];
    const Bytes* v = o->find(a.type);
    CK_RV rv = CKR_OK;
    if (v == nullptr) {
      rv = CKR_ATTRIBUTE_TYPE_INVALID;
    } else if (isSensitive(*o, a.type)) {
      rv = CKR_ATTRIBUTE_SENSITIVE;
    } else if (a.pValue != nullptr && a.ulValueLen < v->size()) {
      rv = CKR_BUFFER_TOO_SMALL;
    } else {
      if (a.pValue != nullptr && !v->empty()) std::memcpy(a.pValue, v->data(), v->size());
      a.ulValueLen = static_cast<CK_ULONG>(v->size());
    }
    if (rv != CKR_OK) a.ulValueLen = CK_UNAVAILABLE_INFORMATION;
    if (result == CKR_OK) result = rv;
  }
  return result;
}

CK_RV C_SetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE_PTR pTemplate,
                          CK_ULONG ulCount) {
  Session* s;
  Object* o;
  if (CK_RV rv = findBoth(hSession, hObject, s, o)) return rv;
  Attributes changes;
  if (CK_RV rv = readTemplate(pTemplate, ulCount, changes)) return rv;
  if (CK_RV rv = checkWritable(*s, *o)) return rv;
  if (!o->flag(CKA_MODIFIABLE, true)) return CKR_ATTRIBUTE_READ_ONLY;
  for (const auto& c : changes)
    if (c.first == CKA_CLASS && o->find(CKA_CLASS) != nullptr && c.second != *o->find(CKA_CLASS))
      return CKR_ATTRIBUTE_READ_ONLY;
  for (auto& c : changes) o->attrs[c.first] = std::move(c.second);
  return CKR_OK;
}

CK_RV C_FindObjectsInit(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount) {
  Session* s;
  if (CK_RV rv = findSession(hSession, s)) return rv;
  if (s->finding) return CKR_OPERATION_ACTIVE;
  Attributes tpl;
  if (CK_RV rv = readTemplate(pTemplate, ulCount, tpl, false)) return rv;
  s->found.clear();
  for (const auto& o : token().objects)
    if (visible(o.second) && matches(o.second, tpl)) s->found.push_back(o.first);
  s->nextFound = 0;
  s->finding = true;
  return CKR_OK;
}

CK_RV C_FindObjects(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE_PTR phObject, CK_ULONG ulMaxObjectCount,
                    CK_ULONG_PTR pulObjectCount) {
  Session* s;
  if (CK_RV rv = findSession(hSession, s)) return rv;
  if (!s->finding) return CKR_OPERATION_NOT_INITIALIZED;
  if (pulObjectCount == nullptr || (phObject == nullptr && ulMaxObjectCount != 0)) return CKR_ARGUMENTS_BAD;
  CK_ULONG n = 0;
  while (n < ulMaxObjectCount && s->nextFound < s->found.size()) {
    const CK_OBJECT_HANDLE h = s->found[s->nextFound++];
    if (token().objects.count(h) != 0) phObject[n++] = h;  // skip objects destroyed meanwhile
  }
  *pulObjectCount = n;
  return CKR_OK;
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE hSession) {
  Session* s;
  if (CK_RV rv = findSession(hSession, s)) return rv;
  if (!s->finding) return CKR_OPERATION_NOT_INITIALIZED;
  s->finding = false;
  s->found.clear();
  return CKR_OK;
}

}  // namespace qor::tm::impl
