// The two ABIs a translation module stands between, as type sets with the
// standard's names, and the one rule for moving a CK_ULONG from one to the
// other.
#pragma once

#include <limits>
#include <type_traits>

#include "host_pkcs11.h"
#include "qorpkcs11/pkcs11.h"

// Every PKCS#11 name the translation code uses, function signatures included.
#define QOR_ABI_TYPES(X)                                                              \
  X(CK_BYTE) X(CK_BYTE_PTR) X(CK_UTF8CHAR_PTR) X(CK_BBOOL) X(CK_ULONG) X(CK_ULONG_PTR)  \
  X(CK_RV) X(CK_FLAGS) X(CK_VOID_PTR) X(CK_SLOT_ID) X(CK_SLOT_ID_PTR)                   \
  X(CK_SESSION_HANDLE) X(CK_SESSION_HANDLE_PTR) X(CK_OBJECT_HANDLE)                    \
  X(CK_OBJECT_HANDLE_PTR) X(CK_USER_TYPE) X(CK_MECHANISM_TYPE) X(CK_MECHANISM_TYPE_PTR) \
  X(CK_NOTIFY) X(CK_VERSION) X(CK_INFO) X(CK_INFO_PTR) X(CK_SLOT_INFO)                  \
  X(CK_SLOT_INFO_PTR) X(CK_TOKEN_INFO) X(CK_TOKEN_INFO_PTR) X(CK_SESSION_INFO)          \
  X(CK_SESSION_INFO_PTR) X(CK_ATTRIBUTE) X(CK_ATTRIBUTE_PTR) X(CK_MECHANISM)            \
  X(CK_MECHANISM_PTR) X(CK_MECHANISM_INFO) X(CK_MECHANISM_INFO_PTR)                     \
  X(CK_C_INITIALIZE_ARGS) X(CK_FUNCTION_LIST) X(CK_FUNCTION_LIST_PTR_PTR)               \
  X(CK_C_GetFunctionList) X(CK_RSA_PKCS_OAEP_PARAMS) X(CK_RSA_PKCS_PSS_PARAMS)          \
  X(CK_ECDH1_DERIVE_PARAMS) X(CK_AES_GCM_PARAMS) X(CK_AES_CTR_PARAMS)                   \
  X(CK_AES_CBC_ENCRYPT_DATA_PARAMS) X(CK_DES_CBC_ENCRYPT_DATA_PARAMS)                   \
  X(CK_KEY_DERIVATION_STRING_DATA)

namespace qor::abi {

// The project's own ABI: 32-bit CK_ULONG, 1-byte packed structures.
struct Target {
#define QOR_ABI_TARGET_NAME(n) using n = ::n;
  QOR_ABI_TYPES(QOR_ABI_TARGET_NAME)
#undef QOR_ABI_TARGET_NAME
};

// The platform's standard ABI.
struct Host {
#define QOR_ABI_HOST_NAME(n) using n = ::host::n;
  QOR_ABI_TYPES(QOR_ABI_HOST_NAME)
#undef QOR_ABI_HOST_NAME
};

// Moves CK_ULONG values between the ABIs. All ones is
// CK_UNAVAILABLE_INFORMATION (or "as much as there is") on either side and
// stays all ones; any other value keeps its number when it fits. One that
// does not fit either fails the conversion or, for a Narrow built with
// `kSaturate`, becomes all ones: "more than can be told".
class Narrow {
 public:
  enum Overflow { kFail, kSaturate };
  explicit Narrow(Overflow overflow = kFail) : overflow_(overflow) {}

  template <class S>
  struct Value {
    S v;
    Narrow* n;
    template <class D, class = std::enable_if_t<std::is_unsigned_v<D>>>
    operator D() const {  // NOLINT: converts to whatever the destination is
      return n->to<D>(v);
    }
  };

  // `dst = n(src)` converts to the type of `dst`, packed members included.
  template <class S>
  Value<S> operator()(S v) {
    return {v, this};
  }

  template <class D, class S>
  D to(S v) {
    static_assert(std::is_unsigned_v<S> && std::is_unsigned_v<D>, "CK_ULONG values only");
    using Wide = std::common_type_t<S, D>;
    constexpr D kAllOnes = std::numeric_limits<D>::max();
    if (v == std::numeric_limits<S>::max()) return kAllOnes;
    // All ones of the destination is kept for all ones of the source.
    if (static_cast<Wide>(v) < static_cast<Wide>(kAllOnes)) return static_cast<D>(v);
    if (overflow_ == kFail) failed_ = true;
    return kAllOnes;
  }

  bool failed() const { return failed_; }

 private:
  Overflow overflow_;
  bool failed_ = false;
};

}  // namespace qor::abi
