#include "qorpkcs11/client/caller_memory.h"

#include "qorpkcs11/client/detached.h"

#include <algorithm>
#include <cstring>

#include "qorpkcs11/client/extensions.h"
#include "qorpkcs11/client/parameters.h"
#include "qorpkcs11/common/log.h"

namespace qor::client {
namespace {

using log::kClient;

size_t textLength(const void* p, size_t max) {
  return p ? strnlen(static_cast<const char*>(p), max) : 0;
}

// Log arguments for "%.*s": caller memory is printed as text, but never read
// past the bytes it is known to have.
int shown(const void* p, size_t max) { return static_cast<int>(std::min<size_t>(textLength(p, max), INT32_MAX)); }
const char* chars(const void* p) { return p ? static_cast<const char*>(p) : ""; }

}  // namespace

void putBytes(std::string* field, const void* p, CK_ULONG len) {
  if (DetachedInput::take(field, p, len)) return;
  field->assign(chars(p), p ? len : 0);
}

void putText(std::string* field, const void* p, CK_ULONG max) {
  field->assign(chars(p), textLength(p, max));
}

void copyBounded(void* dst, CK_ULONG capacity, const std::string& src, CK_ULONG stated) {
  const size_t n = std::min<size_t>({stated, capacity, src.size()});
  if (dst && n) std::memcpy(dst, src.data(), n);
}

bool readableMechanism(const CK_MECHANISM* m) {
  return m && readable(m->pParameter, m->ulParameterLen);
}

void putMechanism(pkcs11::CK_MECHANISM* out, const CK_MECHANISM& m) {
  out->set_mechanism(wire(m.mechanism));
  if (!putParameterInDepth(out, m)) putBytes(out->mutable_pparameter(), m.pParameter, m.ulParameterLen);
  out->set_ulparameterlen(wire(m.ulParameterLen));
}

bool readableTemplate(const CK_ATTRIBUTE* t, CK_ULONG count, TemplateUse use) {
  if (count == 0) return true;
  if (!t) return false;
  // The search rule sends every value, so a null one must be empty.
  if (use == TemplateUse::kSearch)
    for (CK_ULONG i = 0; i < count; ++i)
      if (!readable(t[i].pValue, t[i].ulValueLen)) return false;
  return true;
}

void putTemplate(WireTemplate* out, const CK_ATTRIBUTE* t, CK_ULONG count, TemplateUse use) {
  for (CK_ULONG i = 0; i < count; ++i) {
    const CK_ATTRIBUTE a = t[i];
    pkcs11::CK_ATTRIBUTE* w = out->Add();
    w->set_type(a.type);
    if (use == TemplateUse::kSearch) {
      putBytes(w->mutable_pvalue(), a.pValue, a.ulValueLen);
      w->set_ulvaluelen(a.ulValueLen);
      QOR_LOGD(kClient, "type -> %u", w->type());
      QOR_LOGD(kClient, "C_FindObjectsInit pvalue -> %.*s", shown(a.pValue, a.ulValueLen), chars(a.pValue));
      QOR_LOGD(kClient, "ulvaluelen -> %u", w->ulvaluelen());
      continue;
    }
    QOR_LOGD(kClient, "passed pvalue -> %.*s", shown(a.pValue, a.ulValueLen), chars(a.pValue));
    QOR_LOGD(kClient, "ulvaluelen = %u", a.ulValueLen);
    if (a.pValue) {
      putBytes(w->mutable_pvalue(), a.pValue, a.ulValueLen);
      w->set_ulvaluelen(a.ulValueLen);
      QOR_LOGD(kClient, "pvalue not NULL");
    } else {
      // A size query; a new object's template still tells the length.
      w->set_ulvaluelen(use == TemplateUse::kNewObject ? a.ulValueLen : 0);
      QOR_LOGD(kClient, "passed pvalue is NULL");
    }
    if (w->has_pvalue()) QOR_LOGD(kClient, "has pvalue");
    QOR_LOGD(kClient, "type -> %u", w->type());
    QOR_LOGD(kClient, "pvalue -> %.*s", shown(w->pvalue().data(), w->pvalue().size()), w->pvalue().c_str());
    QOR_LOGD(kClient, "ulvaluelen -> %u", w->ulvaluelen());
  }
}

void takeTemplate(const WireTemplate& in, uint32_t stated, CK_ATTRIBUTE* t, CK_ULONG count,
                  TemplateUse use) {
  const bool search = use == TemplateUse::kSearch;
  if (search) {
    QOR_LOGD(kClient, "ulcount returned C_FindObjectsInit = %u", stated);
    QOR_LOGD(kClient, "attribute returned C_FindObjectsInit size= %d", in.size());
  }
  const size_t n = std::min<size_t>({stated, count, static_cast<size_t>(in.size())});
  for (size_t i = 0; i < n; ++i) {
    const pkcs11::CK_ATTRIBUTE& w = in.Get(static_cast<int>(i));
    CK_ATTRIBUTE a = t[i];
    if (!search) {
      QOR_LOGD(kClient, "pvalue inside for client result= %.*s",
               shown(w.pvalue().data(), w.pvalue().size()), w.pvalue().c_str());
      QOR_LOGD(kClient, "ulvaluelen inside for client result= %u", w.ulvaluelen());
    }
    a.type = w.type();
    if (!a.pValue) {
      a.ulValueLen = w.ulvaluelen();  // sizes, and CK_UNAVAILABLE_INFORMATION, reach the caller
    } else if (search || w.has_pvalue()) {
      copyBounded(a.pValue, a.ulValueLen, w.pvalue(), w.ulvaluelen());
      a.ulValueLen = w.ulvaluelen();
    }
    t[i] = a;
    if (search) {
      QOR_LOGD(kClient, "C_FindObjectsInit pvalue -> %u",
               static_cast<unsigned>(reinterpret_cast<uintptr_t>(a.pValue)));
      QOR_LOGD(kClient, "type -> %u", a.type);
    }
  }
}

void CallerOutput::put(pkcs11::Operation& op, std::string* field) const {
  putCallerOutput(field, data_, capacity_);
  if (data_ == nullptr) markLengthQuery(op);
}

void CallerOutput::take(const std::string& bytes, int32_t stated, CK_RV& rv) const {
  if (data_)
    copyBounded(data_, capacity_, bytes, ul(stated));
  else if (rv == CKR_BUFFER_TOO_SMALL)
    rv = CKR_OK;  // the length query got its answer
  *len_ = ul(stated);
}

}  // namespace qor::client
