// The one exchange every forwarding function makes: build an Operation, send
// it through the transport client, parse the OperationResult, copy the
// outputs back. Each function supplies only its names, its request builder
// and its reply handler.
#pragma once

#include <memory>
#include <type_traits>
#include <utility>

#include "qorpkcs11/pkcs11.h"
#include "qorpkcs11/proto/pkcs11command.pb.h"

namespace qor::client {

using Op = pkcs11::Operation;
using Result = pkcs11::OperationResult;

// What a proxy returns when the exchange itself failed; not a CKR_ code, and
// deployed callers test for exactly this value.
inline constexpr CK_RV kTransportFailed = 0xFFFFFFFFu;

// Names and log lines of one function. Only `name` is required; the rest
// defaults to the common pattern or to silence.
struct Frame {
  const char* name;                  // operation name on the wire
  const char* replyName = nullptr;   // name in the reply lines, if not `name`
  const char* entry = nullptr;       // logged on entry
  bool logsOwnName = false;          // `name` logged on entry
  const char* rvLine = nullptr;      // "%u" format for rv, or no rv line
  bool rvOnlyWithResponse = false;   // rv line only when outputs came back
  const char* success = nullptr;     // replaces "<name> Success"
  const char* sizeLine = nullptr;    // "%d" format for the serialized size
  const char* beforeSend = nullptr;
  const char* afterSend = nullptr;   // logged once the reply is in

  constexpr Frame named(const char* s) const { Frame f = *this; f.name = s; return f; }
  constexpr Frame logsEntry() const { Frame f = *this; f.logsOwnName = true; return f; }
  constexpr Frame entryLine(const char* s) const { Frame f = *this; f.entry = s; return f; }
  constexpr Frame rv(const char* fmt) const { Frame f = *this; f.rvLine = fmt; return f; }
  constexpr Frame rvWithResponse(const char* fmt) const {
    Frame f = rv(fmt);
    f.rvOnlyWithResponse = true;
    return f;
  }
  constexpr Frame replyAs(const char* s) const { Frame f = *this; f.replyName = s; return f; }
  constexpr Frame successLine(const char* s) const { Frame f = *this; f.success = s; return f; }
  constexpr Frame serializedSize(const char* fmt) const { Frame f = *this; f.sizeLine = fmt; return f; }
  constexpr Frame aroundSend(const char* before, const char* after) const {
    Frame f = *this;
    f.beforeSend = before;
    f.afterSend = after;
    return f;
  }
};

// Non-owning view of a callable; lets the frame stay a plain function while
// each proxy passes lambdas.
template <class Sig>
class FunctionRef;

template <class R, class... A>
class FunctionRef<R(A...)> {
 public:
  template <class F, class = std::enable_if_t<!std::is_same_v<std::decay_t<F>, FunctionRef>>>
  FunctionRef(F&& f)  // NOLINT: implicit by design
      : object_(const_cast<void*>(static_cast<const void*>(std::addressof(f)))),
        invoke_([](void* o, A... a) -> R {
          return (*static_cast<std::remove_reference_t<F>*>(o))(std::forward<A>(a)...);
        }) {}
  R operator()(A... a) const { return invoke_(object_, std::forward<A>(a)...); }

 private:
  void* object_;
  R (*invoke_)(void*, A...);
};

using BuildFn = FunctionRef<void(pkcs11::Operation&)>;
using PresentFn = FunctionRef<bool(const pkcs11::OperationResult&)>;
using CopyFn = FunctionRef<void(const pkcs11::OperationResult&, CK_RV&)>;

// Runs the exchange; `copy` runs only when `present` says the function's
// response submessage came back, whatever rv says, and may adjust rv.
// Never throws: allocation failure becomes CKR_HOST_MEMORY.
CK_RV run(const Frame& frame, BuildFn build, PresentFn present, CopyFn copy) noexcept;

// Where a function's response submessage sits in the OperationResult.
template <class Resp>
struct Reply {
  bool (pkcs11::OperationResult::*has)() const;
  const Resp& (pkcs11::OperationResult::*get)() const;
};

template <class Resp>
constexpr Reply<Resp> reply(bool (pkcs11::OperationResult::*has)() const,
                            const Resp& (pkcs11::OperationResult::*get)() const) {
  return {has, get};
}

// A function without outputs.
template <class Build>
CK_RV call(const Frame& frame, Build&& build) {
  return run(
      frame, build, [](const pkcs11::OperationResult&) { return false; },
      [](const pkcs11::OperationResult&, CK_RV&) {});
}

// A function with outputs: `copy(response, rv)` gets the typed submessage.
template <class Resp, class Build, class Copy>
CK_RV call(const Frame& frame, Build&& build, Reply<Resp> where, Copy&& copy) {
  return run(
      frame, build, [&](const pkcs11::OperationResult& r) { return (r.*where.has)(); },
      [&](const pkcs11::OperationResult& r, CK_RV& rv) { copy((r.*where.get)(), rv); });
}

// The many requests that carry a session handle alone.
template <class Req>
CK_RV sessionOnly(const Frame& frame, Req* (pkcs11::Operation::*request)(),
                  CK_SESSION_HANDLE hSession) {
  return call(frame, [&](pkcs11::Operation& op) {
    (op.*request)()->set_hsession(static_cast<int32_t>(hSession));
  });
}

}  // namespace qor::client
