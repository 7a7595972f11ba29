// The call frame of a translation module from ABI F to ABI T, bound to the
// callee that `Side` loads, with the call shapes that many entry points
// share.
//
// Side provides: `static const T::CK_FUNCTION_LIST* callee()` (null until
// loaded), `static bool load()` (on each C_Initialize; false fails it),
// `static bool connect()` (then, before the callee's C_Initialize) and
// `static void disconnect()` (after the callee's C_Finalize). LoadsLibrary
// (module.h) provides the usual ones.
#pragma once

#include "call.h"
#include "module.h"

// The caller's names, inside a class template with the caller's ABI `F`:
// entry points declared with the standard's parameter types then take F's.
#define QOR_ABI_CALLER_NAME(n) using n = typename F::n;
#define QOR_ABI_CALLER_TYPES QOR_ABI_TYPES(QOR_ABI_CALLER_NAME)

namespace qor::abi {

template <class F, class T, class Side>
class Frame : public Call<F, T> {
 public:
  QOR_ABI_CALLER_TYPES
  using Base = Call<F, T>;
  using Access = typename Base::Access;

  Frame() : Base(Side::callee()) {}

  // (handle)
  template <class Pick>
  static CK_RV handle(Pick pick, CK_ULONG h) {
    Frame c;
    return c(pick, c.in(h));
  }

  // (session, data, length)
  template <class Pick>
  static CK_RV input(Pick pick, CK_SESSION_HANDLE h, CK_BYTE_PTR data, CK_ULONG len) {
    Frame c;
    return c(pick, c.in(h), data, c.in(len));
  }

  // (session, buffer, length in and out)
  template <class Pick>
  static CK_RV output(Pick pick, CK_SESSION_HANDLE h, CK_BYTE_PTR out, CK_ULONG_PTR outLen) {
    Frame c;
    return c(pick, c.in(h), out, c.length(outLen));
  }

  // (session, data, length, buffer, length in and out)
  template <class Pick>
  static CK_RV transform(Pick pick, CK_SESSION_HANDLE h, CK_BYTE_PTR in, CK_ULONG inLen,
                         CK_BYTE_PTR out, CK_ULONG_PTR outLen) {
    Frame c;
    return c(pick, c.in(h), in, c.in(inLen), out, c.length(outLen));
  }

  // (session, mechanism, key)
  template <class Pick>
  static CK_RV start(Pick pick, CK_SESSION_HANDLE h, CK_MECHANISM_PTR m, CK_OBJECT_HANDLE key) {
    Frame c;
    return c(pick, c.in(h), c.mechanism(m), c.in(key));
  }
};

}  // namespace qor::abi
