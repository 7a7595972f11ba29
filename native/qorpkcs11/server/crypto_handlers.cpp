// Encryption, decryption, digest, signature and verification functions. The
// families share one shape each; a row gives what differs.
#include <algorithm>
#include <optional>

#include "qorpkcs11/protocol/calls.h"
#include "qorpkcs11/server/extensions.h"
#include "qorpkcs11/server/handler.h"
#include "qorpkcs11/server/module_memory.h"

using namespace qor::server;
namespace answered = qor::protocol::answered;
using pkcs11::Operation;
using pkcs11::OperationResult;

namespace {

// Accessors of a generated message, as member pointers.
template <typename M>
using Bytes = const std::string& (M::*)() const;
template <typename M>
using Length = int32_t (M::*)() const;

// A zeroed output buffer of the requested length for `module(out, &length)`.
template <typename Response, typename Module>
CK_RV produce(Call& call, const ReplyOutput<Response>& output, CK_ULONG capacity, Module module) {
  Buffer out(capacity);
  if (!out.ok()) return call.out_of_memory();
  return qor::server::produce(call, output, out, module);
}

// How the input buffer is sized.
enum class Sizing {
  kOwn,     // its own length
  kOutput,  // the output's length, as for the multi-part and recover
            // functions: filled from the input up to that length
};

// The handler's own log lines before the module call, given the request and
// the input buffer.
template <typename Request>
using Notes = void (*)(const Request&, const void* input);

using InOutFn = CK_RV (*)(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR);
using FinalFn = CK_RV (*)(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG_PTR);

// What a function that produces bytes is served by: its request, its
// output's length field and where the output goes in the reply.
template <typename Request, typename Response, typename Fn>
struct Producer {
  const char* name;
  RequestField<Request> request;
  Member<Fn> member;
  Length<Request> outputLength;
  ReplyOutput<Response> output;
  Notes<Request> notes;
};

// Output bytes only.
template <typename Request, typename Response>
struct Final : Producer<Request, Response, FinalFn> {};

// Input bytes in, output bytes out.
template <typename Request, typename Response>
struct InOut : Producer<Request, Response, InOutFn> {
  Bytes<Request> input;
  Length<Request> inputLength;
  Sizing sizing;
};

template <typename Request, typename Response>
std::string serve_row(const std::string& bytes, const InOut<Request, Response>& row) {
  return serve(
      bytes, row.name, row.request, RvLine::kGenerateResult,
      [&row](const Request& req, Call& call) {
        const std::string& input = (req.*row.input)();
        const CK_ULONG inputLength = ul((req.*row.inputLength)());
        const CK_ULONG outputLength = ul((req.*row.outputLength)());
        // Single-part: the module reads the request's bytes (padded when
        // the field is short). With shared sizing it gets a buffer of the
        // output's length filled from the input, and still reads inputLength
        // bytes: past the output's length it finds zeros.
        std::optional<Input> own;
        std::optional<Buffer> shared;
        CK_BYTE* in = nullptr;
        // Extended requests give every input its own length.
        if (row.sizing == Sizing::kOwn || !keeps<Kept::kInputsSizedByOutput>()) {
          own.emplace(input, inputLength);
          if (const CK_RV bad = own->status()) return call.decline(bad);
          in = own->data();
        } else {
          if (beyond_any_frame(inputLength)) return call.refuse();
          shared.emplace(std::max(inputLength, outputLength));
          if (!shared->ok()) return call.out_of_memory();
          shared->fill(input, outputLength);
          in = shared->data();
        }
        return produce(call, row.output, outputLength, [&](CK_BYTE_PTR out, CK_ULONG_PTR length) {
          if (row.notes != nullptr) row.notes(req, in);
          return call.invoke(row.member, ul(req.hsession()), in, inputLength, out, length);
        });
      });
}

template <typename Request, typename Response>
std::string serve_row(const std::string& bytes, const Final<Request, Response>& row) {
  return serve(bytes, row.name, row.request, RvLine::kGenerateResult,
               [&row](const Request& req, Call& call) {
                 return produce(call, row.output, ul((req.*row.outputLength)()),
                                [&](CK_BYTE_PTR out, CK_ULONG_PTR length) {
                                  if (row.notes != nullptr) row.notes(req, nullptr);
                                  return call.invoke(row.member, ul(req.hsession()), out, length);
                                });
               });
}

using InputFn = CK_RV (*)(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG);

// Input bytes only: the updates without output and C_VerifyFinal.
template <typename Request>
std::string serve_input(const std::string& bytes, const char* name, RequestField<Request> field,
                        Member<InputFn> member, Bytes<Request> input, Length<Request> inputLength,
                        const char* inputName, bool checkedLine) {
  return serve(bytes, name, field, RvLine::kGenerateResult, [&](const Request& req, Call& call) {
    const std::string& data = (req.*input)();
    const CK_ULONG length = ul((req.*inputLength)());
    const Input in(data, length);
    if (const CK_RV bad = in.status()) return call.decline(bad);
    if (checkedLine) QOR_LOGD(kTag, "ckpFunctions not NULL");
    QOR_LOGD(kTag, "%s set  = %u", inputName, address(in.data()));
    return call.invoke(member, ul(req.hsession()), in.data(), length);
  });
}

using InitFn = CK_RV (*)(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE);

template <typename Request>
std::string serve_init(const std::string& bytes, const char* name, RequestField<Request> field,
                       Member<InitFn> member) {
  return serve(bytes, name, field, RvLine::kGenerateResult,
               [member](const Request& req, Call& call) {
                 Mechanism mechanism;
                 if (const CK_RV bad = mechanism.build(req.pmechanism())) return call.decline(bad);
                 return call.invoke(member, ul(req.hsession()), mechanism.get(), ul(req.hkey()));
               });
}

void checked() { QOR_LOGD(kTag, "ckpFunctions not NULL"); }
void allocated() { QOR_LOGD(kTag, "sigdata memory allocated"); }
void length_set(const char* what, int32_t length) {
  QOR_LOGD(kTag, "%s set  = %u", what, ul(length));
}
void address_set(const char* what, const void* p) {
  QOR_LOGD(kTag, "%s set  = %u", what, address(p));
}

// The lines some handlers log before calling the module.
void decrypt_notes(const pkcs11::C_Decrypt& r, const void* in) {
  length_set("decripted datalen", r.puldatalen());
  length_set("encripted datalen", r.ulencrypteddatalen());
  address_set("pdata", in);
}
void digest_notes(const pkcs11::C_Digest&, const void* in) { address_set("pdata", in); }
void sign_notes(const pkcs11::C_Sign& r, const void*) {
  checked();
  length_set("datalen", r.uldatalen());
  allocated();
}
void decrypt_update_notes(const pkcs11::C_DecryptUpdate& r, const void*) {
  length_set("partlen", r.pulpartlen());
  allocated();
}
void sign_recover_notes(const pkcs11::C_SignRecover& r, const void* in) {
  checked();
  length_set("datalen", r.uldatalen());
  allocated();
  address_set("pdata", in);
}
void verify_recover_notes(const pkcs11::C_VerifyRecover& r, const void* in) {
  checked();
  length_set("datalen", r.puldatalen());
  allocated();
  address_set("psignature", in);
}
void decrypt_final_notes(const pkcs11::C_DecryptFinal& r, const void*) {
  length_set("lastpartlen", r.pullastpartlen());
}
void sign_final_notes(const pkcs11::C_SignFinal& r, const void*) {
  checked();
  length_set("datalen", r.pulsignaturelen());
  allocated();
}

// Each function's own log lines, named after it; what the module is handed
// comes from the protocol table's rows.
template <typename Request>
struct Lines {
  const char* word;  // names the output's length in the log; null: not logged
  Notes<Request> notes;
};

namespace lines {
constexpr Lines<pkcs11::C_Encrypt> C_Encrypt{"datalen", nullptr};
constexpr Lines<pkcs11::C_Decrypt> C_Decrypt{"datalen", decrypt_notes};
constexpr Lines<pkcs11::C_Digest> C_Digest{nullptr, digest_notes};
constexpr Lines<pkcs11::C_Sign> C_Sign{"datalen", sign_notes};
constexpr Lines<pkcs11::C_SignRecover> C_SignRecover{"datalen", sign_recover_notes};
constexpr Lines<pkcs11::C_VerifyRecover> C_VerifyRecover{"datalen", verify_recover_notes};
constexpr Lines<pkcs11::C_EncryptUpdate> C_EncryptUpdate{"partlen", nullptr};
constexpr Lines<pkcs11::C_DecryptUpdate> C_DecryptUpdate{"partlen", decrypt_update_notes};
constexpr Lines<pkcs11::C_DigestEncryptUpdate> C_DigestEncryptUpdate{"datalen", nullptr};
constexpr Lines<pkcs11::C_DecryptDigestUpdate> C_DecryptDigestUpdate{"partlen", nullptr};
constexpr Lines<pkcs11::C_SignEncryptUpdate> C_SignEncryptUpdate{"datalen", nullptr};
constexpr Lines<pkcs11::C_DecryptVerifyUpdate> C_DecryptVerifyUpdate{"partlen", nullptr};

constexpr Lines<pkcs11::C_EncryptFinal> C_EncryptFinal{"lastpartlen", nullptr};
constexpr Lines<pkcs11::C_DecryptFinal> C_DecryptFinal{"lastpartlen", decrypt_final_notes};
constexpr Lines<pkcs11::C_DigestFinal> C_DigestFinal{nullptr, nullptr};
constexpr Lines<pkcs11::C_SignFinal> C_SignFinal{"datalen", sign_final_notes};

// Whether the handler logs that a module is there.
constexpr bool C_DigestUpdate = false;
constexpr bool C_SignUpdate = true;
constexpr bool C_VerifyUpdate = true;
constexpr bool C_VerifyFinal = true;
}  // namespace lines

}  // namespace

// A producer's row from the protocol table's columns and its own lines.
#define QOR_PRODUCER(name, field, out, outLength)                                                \
  {"C_" #name, &Operation::field, QOR_MEMBER(C_##name), &Request::outLength,                    \
   {&OperationResult::mutable_##field##_response, &Response::mutable_##out,                     \
    &Response::set_##outLength, lines::C_##name.word},                                          \
   lines::C_##name.notes}
#define QOR_SERVE_PRODUCER(name, Kind, ...)                     \
  std::string C_##name##_Server(const std::string& request) {   \
    QOR_ROUTED_AS_ITSELF(C_##name);                             \
    using Request = pkcs11::C_##name;                           \
    using Response = pkcs11::C_##name##_Response;               \
    static const Kind<Request, Response> row{__VA_ARGS__};      \
    return serve_row(request, row);                             \
  }

#define QOR_SERVE_IN_OUT(name, field, in, inLength, out, outLength, sizing)                   \
  QOR_SERVE_PRODUCER(name, InOut, QOR_PRODUCER(name, field, out, outLength), &Request::in,    \
                     &Request::inLength, Sizing::sizing)
QOR_IN_OUT_CALLS(QOR_SERVE_IN_OUT)
#undef QOR_SERVE_IN_OUT

#define QOR_SERVE_FINAL(name, field, out, outLength) \
  QOR_SERVE_PRODUCER(name, Final, QOR_PRODUCER(name, field, out, outLength))
QOR_FINAL_CALLS(QOR_SERVE_FINAL)
#undef QOR_SERVE_FINAL
#undef QOR_SERVE_PRODUCER
#undef QOR_PRODUCER

#define QOR_SERVE_INPUT(name, field, in, inLength)                                                \
  std::string C_##name##_Server(const std::string& request) {                                     \
    QOR_ROUTED_AS_ITSELF(C_##name);                                                               \
    return serve_input(request, "C_" #name, &Operation::field, QOR_MEMBER(C_##name),              \
                       &pkcs11::C_##name::in, &pkcs11::C_##name::inLength, #in, lines::C_##name); \
  }
QOR_INPUT_CALLS(QOR_SERVE_INPUT)
#undef QOR_SERVE_INPUT

#define QOR_SERVE_INIT(name, field)                                                  \
  std::string C_##name##_Server(const std::string& request) {                        \
    QOR_ROUTED_AS_ITSELF(C_##name);                                                  \
    return serve_init(request, "C_" #name, &Operation::field, QOR_MEMBER(C_##name)); \
  }
QOR_INIT_CALLS(QOR_SERVE_INIT)
#undef QOR_SERVE_INIT

std::string C_DigestInit_Server(const std::string& request) {
  return serve(request, answered::C_DigestInit, &Operation::c_digestinit, RvLine::kGenerateResult,
               [](const pkcs11::C_DigestInit& req, Call& call) {
                 Mechanism mechanism;
                 if (const CK_RV bad = mechanism.build(req.pmechanism())) return call.decline(bad);
                 return call.invoke(QOR_MEMBER(C_DigestInit), ul(req.hsession()), mechanism.get());
               });
}

QOR_SERVE_HANDLES(C_DigestKey, c_digestkey, kGenerateResult, ul(req.hsession()), ul(req.hkey()))

// The module checks the data against a zeroed buffer of the signature's
// length, not the signature sent: deployed peers are served exactly so.
// Extended requests get the signature they sent.
std::string C_Verify_Server(const std::string& request) {
  return serve(request, answered::C_Verify, &Operation::c_verify, RvLine::kGenerateResult,
               [](const pkcs11::C_Verify& req, Call& call) {
                 const CK_ULONG dataLength = ul(req.uldatalen());
                 const Input data(req.pdata(), dataLength);
                 if (const CK_RV bad = data.status()) return call.decline(bad);
                 Buffer signature(ul(req.ulsignaturelen()));
                 if (!signature.ok()) return call.out_of_memory();
                 if (!keeps<Kept::kVerifyAgainstZeros>()) signature.fill(req.psignature());
                 const CK_RV value =
                     call.invoke(QOR_MEMBER(C_Verify), ul(req.hsession()), data.data(), dataLength,
                                 signature.data(), signature.size());
                 answer(call,
                        ReplyOutput<pkcs11::C_Verify_Response>{
                            &OperationResult::mutable_c_verify_response,
                            &pkcs11::C_Verify_Response::mutable_psignature,
                            &pkcs11::C_Verify_Response::set_ulsignaturelen, "siglen"},
                        signature, signature.size());
                 return value;
               });
}
