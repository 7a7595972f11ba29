// Attribute templates between the ABIs. A value is bytes, passed through,
// or an array of units that change size: CK_ULONGs (attributeKind), or the
// CK_ATTRIBUTEs of a nested template, converted in turn. Lengths are told in
// each side's units; all ones (CK_UNAVAILABLE_INFORMATION) stays all ones.
#pragma once

#include <cstring>
#include <limits>

#include "arena.h"
#include "kinds.h"

namespace qor::abi {

template <class F, class T>
class Templates : public Arena<F, T> {
 public:
  using Base = Arena<F, T>;
  using typename Base::FUL;
  using typename Base::TRV;
  using typename Base::TUL;
  using FAttribute = typename F::CK_ATTRIBUTE;
  using TAttribute = typename T::CK_ATTRIBUTE;

  // Where a template's values come from: the caller (create, find, set,
  // generate, unwrap, derive) or the callee (get attribute values).
  enum class Access { kWrite, kRead };

  // Templates inside templates beyond this depth are refused (and a
  // template that points at itself cannot recurse forever).
  static constexpr int kMaxNesting = 4;

  // A template of `count` attributes.
  TAttribute* attributes(FAttribute* tmpl, FUL count, Access access) {
    return convertTemplate(tmpl, count, access, 0);
  }

 protected:
  using Base::after;
  using Base::back;
  using Base::fail;
  using Base::filled;
  using Base::make;

 private:
  TAttribute* convertTemplate(FAttribute* tmpl, unsigned long long count, Access access,
                              int depth) {
    if (tmpl == nullptr) return nullptr;
    TAttribute* t;
    if (!make(t, count)) return nullptr;
    for (unsigned long long i = 0; i < count && this->status() == CKR_OK; ++i) {
      convertAttribute(tmpl[i], t[i], access, depth);
    }
    return t;
  }

  void convertAttribute(FAttribute& s, TAttribute& d, Access access, int depth) {
    const FUL type = s.type;
    void* const value = s.pValue;
    const FUL len = s.ulValueLen;
    const bool write = access == Access::kWrite;
    Narrow n;
    d.type = n(type);
    if (n.failed()) return fail(CKR_ATTRIBUTE_TYPE_INVALID);

    const AttributeKind kind = attributeKind(type);
    const bool bytes = kind == AttributeKind::kBytes;
    const bool nested = kind == AttributeKind::kTemplate;
    if (nested && depth >= kMaxNesting) return fail(CKR_ATTRIBUTE_VALUE_INVALID);
    const size_t from = bytes ? 1 : nested ? sizeof(FAttribute) : sizeof(FUL);
    const size_t to = bytes ? 1 : nested ? sizeof(TAttribute) : sizeof(TUL);
    const unsigned long long most = std::numeric_limits<TUL>::max() / to;
    unsigned long long units = len / from;
    if (write && (len % from != 0 || units > most)) return fail(CKR_ATTRIBUTE_VALUE_INVALID);
    if (units > most) units = most;  // more room than the callee can be told of
    d.ulValueLen = static_cast<TUL>(units * to);

    TUL* values = nullptr;
    if (value == nullptr || bytes) {
      d.pValue = value;
    } else if (nested) {
      d.pValue = convertTemplate(static_cast<FAttribute*>(value), units, access, depth + 1);
    } else {
      d.pValue = values = ulongs(value, units, write);
    }
    if (!write) readBack(s, d, from, to, values);
  }

  // Room for an attribute's CK_ULONG array, filled from the caller's bytes
  // when the caller gives the value.
  TUL* ulongs(void* value, unsigned long long units, bool write) {
    TUL* t;
    if (!make(t, units) || !write) return t;
    Narrow n;
    for (unsigned long long i = 0; i < units; ++i) {
      FUL v;
      std::memcpy(&v, static_cast<unsigned char*>(value) + i * sizeof v, sizeof v);
      t[i] = n(v);
    }
    if (n.failed()) fail(CKR_ATTRIBUTE_VALUE_INVALID);
    return t;
  }

  // After the callee has filled a value of `to`-byte units: its length in
  // the caller's `from`-byte units and, for CK_ULONG arrays, the values.
  void readBack(FAttribute& s, TAttribute& d, size_t from, size_t to, const TUL* values) {
    FAttribute* sp = &s;
    TAttribute* dp = &d;
    void* const value = s.pValue;
    const unsigned long long capacity = d.ulValueLen / to;  // what the callee was told
    after([this, sp, dp, from, to, values, value, capacity](TRV rv) {
      if (!filled(rv)) return;
      const TUL len = dp->ulValueLen;
      if (len == std::numeric_limits<TUL>::max()) {
        sp->ulValueLen = std::numeric_limits<FUL>::max();
        return;
      }
      const unsigned long long units = len / to;
      if (len % to != 0 || (value != nullptr && units > capacity)) {
        return fail(CKR_GENERAL_ERROR);
      }
      FUL v;
      for (unsigned long long i = 0; values != nullptr && i < units; ++i) {
        if (back(values[i], v)) {
          std::memcpy(static_cast<unsigned char*>(value) + i * sizeof v, &v, sizeof v);
        }
      }
      if (back(units * from, v)) sp->ulValueLen = v;
    });
  }
};

}  // namespace qor::abi
