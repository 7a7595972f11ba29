// One forwarded call: converts the caller's arguments from ABI F into ABI T,
// calls the callee, and writes the results back in F. The memory, the
// write-backs and the failure rule are the Arena's; templates have a class
// of their own.
#pragma once

#include <cstring>

#include "fields.h"
#include "templates.h"

namespace qor::abi {

// Picks one entry point out of a function list; `c(QOR_CALLEE(C_Sign), ...)`.
#define QOR_CALLEE(name) [](const auto& list) { return list.name; }

template <class F, class T>
class Call : public Templates<F, T> {
 public:
  using Base = Arena<F, T>;
  using typename Base::FRV;
  using typename Base::FUL;
  using typename Base::TRV;
  using typename Base::TUL;
  using TList = typename T::CK_FUNCTION_LIST;

  // Slot, mechanism and object lists are capped at this many entries per
  // call; more than any token has slots or mechanisms, and C_FindObjects
  // may always return fewer than asked for.
  static constexpr FUL kMaxListEntries = 65536;

  explicit Call(const TList* callee) : callee_(callee) {}

  // Calls the callee's entry point chosen by `pick` with converted arguments.
  template <class Pick, class... A>
  FRV operator()(Pick pick, A... args) {
    if (callee_ == nullptr) return CKR_CRYPTOKI_NOT_INITIALIZED;
    if (this->status() != CKR_OK) return this->status();
    const auto fn = pick(*callee_);
    if (fn == nullptr) return CKR_FUNCTION_NOT_SUPPORTED;
    return this->finish(fn(args...));
  }

  // A value the caller passes: slot id, handle, length, flags, type.
  TUL in(FUL v) {
    Narrow n;
    const TUL t = n(v);
    if (n.failed()) fail(CKR_ARGUMENTS_BAD);
    return t;
  }

  // A single result (new handle, object size, slot of an event), written
  // back on success only.
  TUL* out(FUL* p) {
    if (p == nullptr) return nullptr;
    TUL* t;
    if (make(t, 1)) after([this, p, t](TRV rv) {
      if (rv == CKR_OK) put(p, *t);
    });
    return t;
  }

  // An output buffer's length: the room the caller has, and what the callee
  // needs or wrote (written back on success and CKR_BUFFER_TOO_SMALL).
  TUL* length(FUL* p) {
    if (p == nullptr) return nullptr;
    TUL* t;
    if (!make(t, 1)) return nullptr;
    *t = room(*p);
    after([this, p, t](TRV rv) {
      if (rv == CKR_OK || rv == CKR_BUFFER_TOO_SMALL) put(p, *t);
    });
    return t;
  }

  // Information structures the callee fills.
  typename T::CK_INFO* out(typename F::CK_INFO* p) {
    return outStruct<typename T::CK_INFO>(p, fields::info, Narrow::kSaturate);
  }
  typename T::CK_SLOT_INFO* out(typename F::CK_SLOT_INFO* p) {
    return outStruct<typename T::CK_SLOT_INFO>(p, fields::slotInfo, Narrow::kSaturate);
  }
  typename T::CK_TOKEN_INFO* out(typename F::CK_TOKEN_INFO* p) {
    return outStruct<typename T::CK_TOKEN_INFO>(p, fields::tokenInfo, Narrow::kSaturate);
  }
  typename T::CK_MECHANISM_INFO* out(typename F::CK_MECHANISM_INFO* p) {
    return outStruct<typename T::CK_MECHANISM_INFO>(p, fields::mechanismInfo, Narrow::kSaturate);
  }
  // A session's slot id is a handle: it must arrive whole.
  typename T::CK_SESSION_INFO* out(typename F::CK_SESSION_INFO* p) {
    return outStruct<typename T::CK_SESSION_INFO>(p, fields::sessionInfo, Narrow::kFail);
  }

  struct List {
    TUL* items;
    TUL capacity;
    TUL* count;
  };

  // A list counted in place: *count is the room in `items` on the way in and
  // the number of entries (or needed) on the way out. Slot and mechanism lists.
  List list(FUL* items, FUL* count) {
    List l = listOf(items, count ? *count : 0, count);
    if (l.count) *l.count = l.capacity;
    return l;
  }

  // A list with its room given by value: C_FindObjects.
  List list(FUL* items, FUL max, FUL* count) { return listOf(items, max, count); }

  typename T::CK_MECHANISM* mechanism(const typename F::CK_MECHANISM* m) {
    if (m == nullptr) return nullptr;
    typename T::CK_MECHANISM* d;
    if (!make(d, 1)) return nullptr;
    const FUL type = m->mechanism;
    void* const p = m->pParameter;
    const FUL len = m->ulParameterLen;
    Narrow n;
    d->mechanism = n(type);
    if (n.failed()) fail(CKR_MECHANISM_INVALID);
    using P = ParameterKind;
    switch (p ? parameterKind(type) : P::kBytes) {
      case P::kBytes:
        d->pParameter = p;
        d->ulParameterLen = n(len);
        if (n.failed()) fail(CKR_MECHANISM_PARAM_INVALID);
        break;
      case P::kUntranslated:
        fail(CKR_MECHANISM_PARAM_INVALID);
        break;
      case P::kUlong:
        parameter<FUL, TUL>(*d, p, len, fields::ulong);
        break;
#define QOR_PARAMETER(kind, Struct, copy)                                       \
  case P::kind:                                                               \
    parameter<typename F::Struct, typename T::Struct>(*d, p, len, fields::copy); \
    break;
        QOR_PARAMETER(kOaep, CK_RSA_PKCS_OAEP_PARAMS, oaep)
        QOR_PARAMETER(kPss, CK_RSA_PKCS_PSS_PARAMS, pss)
        QOR_PARAMETER(kEcdh1, CK_ECDH1_DERIVE_PARAMS, ecdh1)
        QOR_PARAMETER(kGcm, CK_AES_GCM_PARAMS, gcm)
        QOR_PARAMETER(kCtr, CK_AES_CTR_PARAMS, ctr)
        QOR_PARAMETER(kAesCbcData, CK_AES_CBC_ENCRYPT_DATA_PARAMS, cbcData)
        QOR_PARAMETER(kDesCbcData, CK_DES_CBC_ENCRYPT_DATA_PARAMS, cbcData)
        QOR_PARAMETER(kStringData, CK_KEY_DERIVATION_STRING_DATA, stringData)
#undef QOR_PARAMETER
    }
    return d;
  }

  // C_Initialize's arguments. The callee always gets OS locking and no
  // mutex callbacks: the caller's callbacks have the caller's ABI.
  typename T::CK_C_INITIALIZE_ARGS* initArgs(void* p) {
    if (p == nullptr) return nullptr;
    const auto& a = *static_cast<const typename F::CK_C_INITIALIZE_ARGS*>(p);
    const int given = (a.CreateMutex != nullptr) + (a.DestroyMutex != nullptr) +
                      (a.LockMutex != nullptr) + (a.UnlockMutex != nullptr);
    if ((given != 0 && given != 4) || a.pReserved != nullptr) {
      fail(CKR_ARGUMENTS_BAD);
      return nullptr;
    }
    typename T::CK_C_INITIALIZE_ARGS* t;
    if (make(t, 1)) t->flags = static_cast<TUL>(in(a.flags) | CKF_OS_LOCKING_OK);
    return t;
  }

 private:
  using Base::after;
  using Base::back;
  using Base::fail;
  using Base::make;
  using Base::put;
  using Base::room;

  template <class D, class S, class Copy>
  D* outStruct(S* p, Copy copy, Narrow::Overflow overflow) {
    if (p == nullptr) return nullptr;
    D* t;
    if (make(t, 1)) after([this, p, t, copy, overflow](TRV rv) {
      if (rv != CKR_OK) return;
      Narrow n(overflow);
      S s{};
      copy(*t, s, n);
      if (n.failed()) return fail(CKR_GENERAL_ERROR);
      *p = s;
    });
    return t;
  }

  template <class S, class D, class Copy>
  void parameter(typename T::CK_MECHANISM& m, const void* p, FUL len, Copy copy) {
    if (len != sizeof(S)) return fail(CKR_MECHANISM_PARAM_INVALID);
    S s;
    std::memcpy(&s, p, sizeof s);  // the caller's block may sit anywhere
    D* d;
    if (!make(d, 1)) return;
    Narrow n;
    copy(s, *d, n);
    if (n.failed()) return fail(CKR_MECHANISM_PARAM_INVALID);
    m.pParameter = d;
    m.ulParameterLen = sizeof(D);
  }

  List listOf(FUL* items, FUL capacity, FUL* count) {
    List l{nullptr, room(capacity), nullptr};
    if (l.capacity > kMaxListEntries) l.capacity = kMaxListEntries;
    if (items != nullptr && !make(l.items, l.capacity)) return l;
    if (count == nullptr) return l;
    if (!make(l.count, 1)) return l;
    after([this, items, count, l](TRV rv) {
      if (rv != CKR_OK && rv != CKR_BUFFER_TOO_SMALL) return;
      const TUL n = *l.count;
      if (rv == CKR_OK && items != nullptr) {
        if (n > l.capacity) return fail(CKR_GENERAL_ERROR);
        for (TUL i = 0; i < n; ++i) put(items + i, l.items[i]);
      }
      put(count, n);
    });
    return l;
  }

  const TList* callee_;
};

}  // namespace qor::abi
