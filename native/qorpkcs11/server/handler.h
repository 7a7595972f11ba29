// The one shape every handler has: parse the request afresh, give up quietly
// without a module, take the request submessage, let the handler's own part
// call the module, then answer with the name, rv and whatever it added.
#pragma once

#include <string>

#include "qorpkcs11/common/log.h"
#include "qorpkcs11/server/extensions.h"
#include "qorpkcs11/server/module_memory.h"
#include "qorpkcs11/server/server.h"

namespace qor::server {

inline constexpr const char* kTag = log::kServer;

// The line a handler closes with.
enum class RvLine {
  kReturnValue,     // "return value = %u"
  kGenerateResult,  // "Generate_Operation_Result <name> rv = %u"
  kOwn,             // the handler logs its own
};

// Reads one entry of a module's function list. The list is packed, so its
// entries are read by name, where the compiler knows they may be unaligned;
// a pointer to member would forget that.
template <typename Fn>
using Member = Fn (*)(const CK_FUNCTION_LIST&);
#define QOR_MEMBER(op) \
  ::qor::server::Member<CK_##op>([](const CK_FUNCTION_LIST& list) { return list.op; })

// One module call being served: the reply under construction and the ways
// a handler ends.
class Call {
 public:
  explicit Call(const char* name) : name_(name) {}

  const char* name() const { return name_; }
  pkcs11::OperationResult& result() { return result_; }

  // Calls the module's member; the result also becomes the global rv. A
  // module that leaves the entry empty gets CKR_FUNCTION_NOT_SUPPORTED
  // instead of a jump through null.
  template <typename Fn, typename... Args>
  CK_RV invoke(Member<Fn> member, Args... args) {
    const Fn fn = member(*ckpFunctions);
    rv = fn != nullptr ? fn(args...) : CKR_FUNCTION_NOT_SUPPORTED;
    return rv;
  }

  // The request declares more bytes or entries than it carries: the module
  // would read past them, so it is not called.
  CK_RV refuse() const;
  // A buffer for the module could not be allocated.
  CK_RV out_of_memory() const;
  // Either of the two, by the code that preparing the call ended with.
  CK_RV decline(CK_RV reason) const {
    return reason == CKR_HOST_MEMORY ? out_of_memory() : refuse();
  }

  std::string conclude(CK_RV value, RvLine line);

 private:
  const char* name_;
  pkcs11::OperationResult result_;
};

// Where the transport's reply goes when the processor serves a request: the
// reply is serialized once, straight into the malloc'd buffer the transport
// sends and frees, instead of into a string the processor would copy. A
// handler called directly (tests, tools) still returns its reply's bytes.
class ReplySink {
 public:
  ReplySink();
  ~ReplySink();
  ReplySink(const ReplySink&) = delete;
  ReplySink& operator=(const ReplySink&) = delete;

  // The reply once a handler concluded into it; null before, or when its
  // buffer could not be had.
  void* release(uint32_t* size);

  // For Call::conclude: true when it took the reply.
  static bool take(const pkcs11::OperationResult& result);

 private:
  void* bytes_ = nullptr;
  uint32_t size_ = 0;
  bool taken_ = false;
};

// Parses into the global operation; a failure is logged and otherwise
// ignored, so whatever did parse is served.
void parse_request(const std::string& bytes);
void parse_request(const void* bytes, size_t size);

// What the processor hands a handler after parsing the request into the
// global operation itself: the handler's own parse of the same bytes would
// only repeat that work, a full pass (and a copy) of every byte field.
const std::string& already_parsed();

enum class Parse { kYes, kNo };

// body(Call&) returns the rv for the reply. Only C_Initialize and
// C_Finalize skip the parse: nothing in their request reaches the module.
template <typename Body>
std::string serve(Parse parse, const std::string& bytes, const char* name, RvLine line,
                  Body&& body) {
  if (parse == Parse::kYes && &bytes != &already_parsed()) parse_request(bytes);
  if (ckpFunctions == nullptr) return {};
  Call call(name);
  const CK_RV value = body(call);
  return call.conclude(value, line);
}

// A request submessage of the Operation, e.g. &pkcs11::Operation::c_login.
template <typename Request>
using RequestField = const Request& (pkcs11::Operation::*)() const;

// body(const Request&, Call&) gets the handler's own submessage (the default
// instance when absent, so every field reads as 0 or empty). A reference, not
// a copy: nothing re-parses the operation while a handler runs, and a copy
// would cost a full pass over a large payload.
template <typename Request, typename Body>
std::string serve(const std::string& bytes, const char* name, RequestField<Request> field,
                  RvLine line, Body&& body) {
  return serve(Parse::kYes, bytes, name, line, [&](Call& call) {
    const Request& request = (operation.*field)();
    return body(request, call);
  });
}

// Where a byte output goes in the reply: its bytes and its length field.
// `lengthWord` names the length in the log line; null: not logged.
template <typename Response>
struct ReplyOutput {
  Response* (pkcs11::OperationResult::*response)();
  std::string* (Response::*bytes)();
  void (Response::*setLength)(int32_t);
  const char* lengthWord;
};

// As many bytes as the module reported, never more than its buffer holds,
// and the length as reported.
template <typename Response, typename Source>
void answer(Call& call, const ReplyOutput<Response>& output, const Source& buffer, CK_ULONG length) {
  Response* out = (call.result().*output.response)();
  *(out->*output.bytes)() = buffer.head(length);
  (out->*output.setLength)(wire(length));
  if (output.lengthWord != nullptr)
    QOR_LOGD(kTag, "Generate_Operation_Result %s %s = %u", call.name(), output.lengthWord, length);
}

// `module(out, &length)` with the buffer and its size, then the output into
// the reply. An extended length query hands the module a null buffer
// instead, so it reports the length without doing the work.
template <typename Response, typename Module>
CK_RV produce(Call& call, const ReplyOutput<Response>& output, const Buffer& buffer, Module module) {
  const bool query = extended() && operation.qor_output_absent();
  CK_ULONG length = buffer.size();
  const CK_RV value = module(query ? nullptr : buffer.data(), &length);
  if (query)
    answer(call, output, NoBytes{}, length);
  else
    answer(call, output, buffer, length);
  return value;
}

}  // namespace qor::server

// A handler that hands the module handles only and answers with name and rv.
#define QOR_SERVE_HANDLES(op, field, line, ...)                                        \
  std::string op##_Server(const std::string& request) {                                \
    return ::qor::server::serve(request, #op, &pkcs11::Operation::field,               \
                                ::qor::server::RvLine::line,                           \
                                [](const pkcs11::op& req, ::qor::server::Call& call) { \
                                  return call.invoke(QOR_MEMBER(op), __VA_ARGS__);     \
                                });                                                    \
  }
