// What one forwarded call owns: the memory of its converted arguments, the
// write-backs that run once the callee has returned, and the first failure,
// which decides the call's return value.
#pragma once

#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

#include "abi.h"

namespace qor::abi {

template <class F, class T>
class Arena {
 public:
  using FUL = typename F::CK_ULONG;
  using TUL = typename T::CK_ULONG;
  using FRV = typename F::CK_RV;
  using TRV = typename T::CK_RV;

  Arena() = default;
  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;

 protected:
  FRV status() const { return status_; }

  // Runs the write-backs and returns the caller's view of `rv`.
  FRV finish(TRV rv) {
    for (auto& writeBack : after_) writeBack(rv);
    FRV out = CKR_GENERAL_ERROR;
    back(rv, out);
    return status_ != CKR_OK ? status_ : out;
  }

  void fail(FRV rv) {
    if (status_ == CKR_OK) status_ = rv;
  }

  // Points `out` at zeroed room for n objects of U (at least one), owned by
  // the call; false, with `out` null, when there is no memory.
  template <class U>
  bool make(U*& out, size_t n) {
    out = static_cast<U*>(std::calloc(n ? n : 1, sizeof(U)));
    if (out == nullptr) {
      fail(CKR_HOST_MEMORY);
      return false;
    }
    try {
      owned_.emplace_back(out);
    } catch (...) {
      std::free(out);
      out = nullptr;
      fail(CKR_HOST_MEMORY);
      return false;
    }
    return true;
  }

  template <class Fn>
  void after(Fn fn) {
    try {
      after_.emplace_back(std::move(fn));
    } catch (...) {
      fail(CKR_HOST_MEMORY);
    }
  }

  // A value the callee returns, in `out`; one the caller's ABI cannot hold
  // is the callee's fault and leaves `out` alone.
  template <class V>
  bool back(V v, FUL& out) {
    Narrow n;
    const FUL f = n(v);
    if (n.failed()) {
      fail(CKR_GENERAL_ERROR);
      return false;
    }
    out = f;
    return true;
  }
  template <class V>
  void put(FUL* p, V v) {
    FUL f;
    if (back(v, f)) *p = f;
  }

  // Room in a caller's buffer: more than the callee's ABI can tell is as
  // good as the most it can.
  static TUL room(FUL v) {
    Narrow n(Narrow::kSaturate);
    return n(v);
  }

  // Whether the callee reports attribute values (some may be unavailable).
  static bool filled(TRV rv) {
    return rv == CKR_OK || rv == CKR_ATTRIBUTE_SENSITIVE || rv == CKR_ATTRIBUTE_TYPE_INVALID ||
           rv == CKR_BUFFER_TOO_SMALL;
  }

 private:
  struct Free {
    void operator()(void* p) const { std::free(p); }
  };

  FRV status_ = CKR_OK;
  std::vector<std::unique_ptr<void, Free>> owned_;
  std::vector<std::function<void(TRV)>> after_;
};

}  // namespace qor::abi
