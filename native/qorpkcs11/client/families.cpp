// The proxies of the families in the protocol table, generated from its rows:
// what goes on the wire comes from the row, each function adds its log lines.
#include <string>

#include "qorpkcs11/client/call_frame.h"
#include "qorpkcs11/client/caller_memory.h"
#include "qorpkcs11/client/parameters.h"
#include "qorpkcs11/common/log.h"
#include "qorpkcs11/protocol/calls.h"

using namespace qor::client;
using qor::log::kClient;

namespace {

// A data-producing call: where its input, its output buffer and the reply's
// output pair sit in the messages. Calls without input leave `input` null.
template <class Req, class Resp>
struct Transform {
  Frame frame;
  const char* lengthLine;
  Req* (Op::*request)();
  std::string* (Req::*input)();
  void (Req::*inputLen)(int32_t);
  std::string* (Req::*output)();
  void (Req::*outputLen)(int32_t);
  Reply<Resp> where;
  const std::string& (Resp::*replyBytes)() const;
  int32_t (Resp::*replyLen)() const;
};

template <class Req, class Resp>
CK_RV transform(const Transform<Req, Resp>& t, CK_SESSION_HANDLE hSession, const CK_BYTE* in,
                CK_ULONG inLen, CK_BYTE_PTR out, CK_ULONG_PTR outLen) {
  const CallerOutput output(out, outLen);
  if (!output.usable() || !readable(in, inLen)) return CKR_ARGUMENTS_BAD;
  return call(
      t.frame,
      [&](Op& op) {
        Req* m = (op.*t.request)();
        m->set_hsession(wire(hSession));
        if (t.input) {
          putBytes((m->*t.input)(), in, inLen);
          (m->*t.inputLen)(wire(inLen));
        }
        output.put(op, (m->*t.output)());
        (m->*t.outputLen)(wire(output.capacity()));
      },
      t.where,
      [&](const Resp& r, CK_RV& rv) {
        output.take((r.*t.replyBytes)(), (r.*t.replyLen)(), rv);
        QOR_LOGD(kClient, t.lengthLine, *outLen);
      });
}

template <class Req>
CK_RV input(const Frame& frame, Req* (Op::*request)(), std::string* (Req::*bytes)(),
            void (Req::*length)(int32_t), CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart,
            CK_ULONG ulPartLen) {
  if (!readable(pPart, ulPartLen)) return CKR_ARGUMENTS_BAD;
  return call(frame, [&](Op& op) {
    Req* m = (op.*request)();
    m->set_hsession(wire(hSession));
    putBytes((m->*bytes)(), pPart, ulPartLen);
    (m->*length)(wire(ulPartLen));
  });
}

template <class Req>
CK_RV initWithKey(const Frame& frame, Req* (Op::*request)(), CK_SESSION_HANDLE hSession,
                  CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey) {
  if (!readableMechanism(pMechanism)) return CKR_ARGUMENTS_BAD;
  if (const CK_RV rv = sendableParameter(*pMechanism)) return rv;
  return call(frame, [&](Op& op) {
    Req* m = (op.*request)();
    m->set_hsession(wire(hSession));
    putMechanism(m->mutable_pmechanism(), *pMechanism);
    m->set_hkey(wire(hKey));
  });
}

// The log lines of a data-producing call: its frame and the line that
// reports the output's length.
struct TransformLines {
  Frame frame;
  const char* length;
};

// Each function's own lines, named after it; the frame's name is the
// operation name from the table.
namespace lines {
constexpr Frame C_EncryptInit = Frame{}.rv("C_EncryptInit rv = %u");
constexpr Frame C_DecryptInit = Frame{}.rv("Decrypt rv = %u");
constexpr Frame C_SignInit = Frame{}.logsEntry().aroundSend("C_SignInit before serialize", nullptr).rv("C_SignInit rv = %u");
constexpr Frame C_SignRecoverInit = Frame{}.logsEntry().rv("SignRecoverInit rv = %u");
constexpr Frame C_VerifyInit = Frame{}.rv("VerifyInit rv = %u");
constexpr Frame C_VerifyRecoverInit = Frame{}.rv("VerifyRecoverInit rv = %u");

constexpr Frame C_DigestUpdate = Frame{}.logsEntry().rv("C_DigestUpdate rv = %u");
constexpr Frame C_SignUpdate = Frame{}.logsEntry().rv("C_SignUpdate rv = %u");
constexpr Frame C_VerifyUpdate = Frame{}.logsEntry().rv("C_VerifyUpdate rv = %u");
constexpr Frame C_VerifyFinal = Frame{}.logsEntry().rv("C_VerifyFinal rv = %u");

constexpr Frame C_CloseSession{};
constexpr Frame C_Logout{};
constexpr Frame C_GetFunctionStatus = Frame{}.logsEntry().rv("C_GetFunctionStatus return value = %u");
constexpr Frame C_CancelFunction = Frame{}.logsEntry().rv("C_CancelFunction return value = %u");

constexpr TransformLines C_Encrypt{Frame{}.rvWithResponse("C_Encrypt rv = %u"), "C_Encrypt datalen = %u"};
constexpr TransformLines C_Decrypt{Frame{}.rvWithResponse("C_Decrypt rv = %u"), "C_Decrypt datalen = %u"};
constexpr TransformLines C_Digest{Frame{}.rvWithResponse("C_Digest rv = %u"), "C_Digest datalen = %u"};
constexpr TransformLines C_Sign{Frame{}.logsEntry().rvWithResponse("C_Sign rv = %u"), "C_Sign datalen = %u"};
constexpr TransformLines C_SignRecover{Frame{}.logsEntry().rvWithResponse("C_SignRecover rv = %u"),
                                       "C_SignRecover datalen = %u"};
constexpr TransformLines C_VerifyRecover{Frame{}.logsEntry().rvWithResponse("C_VerifyRecover rv = %u"),
                                         "C_VerifyRecover datalen = %u"};
constexpr TransformLines C_EncryptUpdate{Frame{}.logsEntry().rvWithResponse("C_EncryptUpdate rv = %u"),
                                         "C_EncryptUpdate partlen = %u"};
constexpr TransformLines C_DecryptUpdate{Frame{}.logsEntry().rvWithResponse("C_DecryptUpdate rv = %u"),
                                         "C_DecryptUpdate partlen = %u"};
constexpr TransformLines C_DigestEncryptUpdate{
    Frame{}.logsEntry().rvWithResponse("C_DigestEncryptUpdate rv = %u"), "C_DigestEncryptUpdate datalen = %u"};
constexpr TransformLines C_DecryptDigestUpdate{
    Frame{}.logsEntry().rvWithResponse("C_DecryptDigestUpdate rv = %u"), "C_DecryptDigestUpdate datalen = %u"};
constexpr TransformLines C_SignEncryptUpdate{
    Frame{}.logsEntry().rvWithResponse("C_SignEncryptUpdate rv = %u"), "C_SignEncryptUpdate datalen = %u"};
constexpr TransformLines C_DecryptVerifyUpdate{
    Frame{}.logsEntry().rvWithResponse("C_DecryptVerifyUpdate rv = %u"), "C_DecryptVerifyUpdate datalen = %u"};
constexpr TransformLines C_EncryptFinal{Frame{}.logsEntry().rvWithResponse("C_EncryptFinal rv = %u"),
                                        "C_EncryptFinal lastpartlen = %u"};
constexpr TransformLines C_DecryptFinal{Frame{}.logsEntry().rvWithResponse("C_DecryptFinal rv = %u"),
                                        "C_DecryptFinal lastpartlen = %u"};
constexpr TransformLines C_DigestFinal{Frame{}.logsEntry().rvWithResponse("C_DigestFinal rv = %u"),
                                       "C_DigestFinal datalen = %u"};
constexpr TransformLines C_SignFinal{Frame{}.logsEntry().rvWithResponse("C_SignFinal rv = %u"),
                                     "C_SignFinal datalen = %u"};
}  // namespace lines

namespace sent = qor::protocol::sent;

// The member pointers of a Transform, spelled from the message and field names.
#define QOR_OUTPUT_FIELDS(fn, field, out, outLen)                                               \
  &pkcs11::fn::mutable_##out, &pkcs11::fn::set_##outLen,                                        \
      Reply<pkcs11::fn##_Response>{&Result::has_##field##_response, &Result::field##_response}, \
      &pkcs11::fn##_Response::out, &pkcs11::fn##_Response::outLen

}  // namespace

#define QOR_PROXY_IN_OUT(name, field, in, inLen, out, outLen, sizing)                             \
  CK_RV C_##name(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pIn, CK_ULONG ulInLen, CK_BYTE_PTR pOut, \
                 CK_ULONG_PTR pulOutLen) {                                                        \
    static constexpr Transform<pkcs11::C_##name, pkcs11::C_##name##_Response> kRow{               \
        lines::C_##name.frame.named(sent::C_##name),                                              \
        lines::C_##name.length,                                                                   \
        &Op::mutable_##field,                                                                     \
        &pkcs11::C_##name::mutable_##in,                                                          \
        &pkcs11::C_##name::set_##inLen,                                                           \
        QOR_OUTPUT_FIELDS(C_##name, field, out, outLen)};                                         \
    return transform(kRow, hSession, pIn, ulInLen, pOut, pulOutLen);                              \
  }
QOR_IN_OUT_CALLS(QOR_PROXY_IN_OUT)
#undef QOR_PROXY_IN_OUT

#define QOR_PROXY_FINAL(name, field, out, outLen)                                        \
  CK_RV C_##name(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOut, CK_ULONG_PTR pulOutLen) { \
    static constexpr Transform<pkcs11::C_##name, pkcs11::C_##name##_Response> kRow{      \
        lines::C_##name.frame.named(sent::C_##name),                                     \
        lines::C_##name.length,                                                          \
        &Op::mutable_##field,                                                            \
        nullptr,                                                                         \
        nullptr,                                                                         \
        QOR_OUTPUT_FIELDS(C_##name, field, out, outLen)};                                \
    return transform(kRow, hSession, nullptr, 0, pOut, pulOutLen);                       \
  }
QOR_FINAL_CALLS(QOR_PROXY_FINAL)
#undef QOR_PROXY_FINAL
#undef QOR_OUTPUT_FIELDS

#define QOR_PROXY_INPUT(name, field, in, inLen)                                   \
  CK_RV C_##name(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pIn, CK_ULONG ulInLen) { \
    static constexpr Frame kFrame = lines::C_##name.named(sent::C_##name);        \
    return input(kFrame, &Op::mutable_##field, &pkcs11::C_##name::mutable_##in,   \
                 &pkcs11::C_##name::set_##inLen, hSession, pIn, ulInLen);         \
  }
QOR_INPUT_CALLS(QOR_PROXY_INPUT)
#undef QOR_PROXY_INPUT

#define QOR_PROXY_INIT(name, field)                                                                \
  CK_RV C_##name(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey) { \
    static constexpr Frame kFrame = lines::C_##name.named(sent::C_##name);                         \
    return initWithKey(kFrame, &Op::mutable_##field, hSession, pMechanism, hKey);                  \
  }
QOR_INIT_CALLS(QOR_PROXY_INIT)
#undef QOR_PROXY_INIT

#define QOR_PROXY_SESSION(name, field)                                     \
  CK_RV C_##name(CK_SESSION_HANDLE hSession) {                             \
    static constexpr Frame kFrame = lines::C_##name.named(sent::C_##name); \
    return sessionOnly(kFrame, &Op::mutable_##field, hSession);            \
  }
QOR_SESSION_CALLS(QOR_PROXY_SESSION)
#undef QOR_PROXY_SESSION
