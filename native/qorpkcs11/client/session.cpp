// Session management functions.
#include "qorpkcs11/client/call_frame.h"
#include "qorpkcs11/client/caller_memory.h"
#include "qorpkcs11/client/extensions.h"
#include "qorpkcs11/common/log.h"
#include "qorpkcs11/protocol/calls.h"

using namespace qor::client;
namespace sent = qor::protocol::sent;
using qor::log::kClient;

namespace {

constexpr Frame kOpenSession = Frame{sent::C_OpenSession}
                                   .entryLine("Inside Open Session")
                                   .aroundSend("Open Session - before call to server",
                                               "Open Session - after call to server");
constexpr Frame kCloseAllSessions = Frame{sent::C_CloseAllSessions}.logsEntry();
constexpr Frame kGetSessionInfo{sent::C_GetSessionInfo};
constexpr Frame kGetOperationState =
    Frame{sent::C_GetOperationState}.logsEntry().rv("C_GetOperationState rv = %u");
constexpr Frame kSetOperationState =
    Frame{sent::C_SetOperationState}.logsEntry().rv("C_SetOperationState rv = %u");
constexpr Frame kLogin = Frame{sent::C_Login}.rv("C_LOGIN return value = %u");

}  // namespace

// The application pointer and the callback stay here: the server opens its
// sessions without notifications.
CK_RV C_OpenSession(CK_SLOT_ID slotID, CK_FLAGS flags, CK_VOID_PTR, CK_NOTIFY,
                    CK_SESSION_HANDLE_PTR phSession) {
  return call(
      kOpenSession,
      [&](Op& op) {
        QOR_LOGD(kClient, "Instance created");
        pkcs11::C_OpenSession* m = op.mutable_c_opensession();
        m->set_slotid(wire(slotID));
        QOR_LOGD(kClient, "Slot id  = %u", slotID);
        m->set_flags(wire(flags));
      },
      reply(&Result::has_c_opensession_response, &Result::c_opensession_response),
      [&](const pkcs11::C_OpenSession_Response& r, CK_RV&) {
        if (!phSession) {
          QOR_LOGD(kClient, "phSession NULL");
          return;
        }
        if (r.phsession() == 0) QOR_LOGD(kClient, "response session NULL");
        *phSession = ul(r.phsession());
      });
}

CK_RV C_CloseAllSessions(CK_SLOT_ID slotID) {
  return call(kCloseAllSessions,
              [&](Op& op) { op.mutable_c_closeallsessions()->set_slotid(wire(slotID)); });
}

// Deployed servers answer this request without its submessage, for their
// default reading of the handle (0); an extended server gets the handle.
CK_RV C_GetSessionInfo(CK_SESSION_HANDLE hSession, CK_SESSION_INFO_PTR pInfo) {
  if (!pInfo) return CKR_ARGUMENTS_BAD;
  return call(
      kGetSessionInfo,
      [&](Op& op) {
        if (!keeps<Kept::kSessionInfoWithoutHandle>())
          op.mutable_c_getsessioninfo()->set_hsession(wire(hSession));
      },
      reply(&Result::has_c_getsessioninfo_response, &Result::c_getsessioninfo_response),
      [&](const pkcs11::C_GetSessionInfo_Response& r, CK_RV&) {
        take(r.pinfo(), pInfo);
      });
}

CK_RV C_GetOperationState(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState,
                          CK_ULONG_PTR pulOperationStateLen) {
  const CallerOutput state(pOperationState, pulOperationStateLen);
  if (!state.usable()) return CKR_ARGUMENTS_BAD;
  return call(
      kGetOperationState,
      [&](Op& op) {
        pkcs11::C_GetOperationState* m = op.mutable_c_getoperationstate();
        m->set_hsession(wire(hSession));
        state.put(op, m->mutable_poperationstate());
        m->set_puloperationstatelen(wire(state.capacity()));
      },
      reply(&Result::has_c_getoperationstate_response, &Result::c_getoperationstate_response),
      [&](const pkcs11::C_GetOperationState_Response& r, CK_RV& rv) {
        state.take(r.poperationstate(), r.puloperationstatelen(), rv);
        QOR_LOGD(kClient, "C_GetOperationState operationstatelen = %u", *pulOperationStateLen);
      });
}

CK_RV C_SetOperationState(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState,
                          CK_ULONG ulOperationStateLen, CK_OBJECT_HANDLE hEncryptionKey,
                          CK_OBJECT_HANDLE hAuthenticationKey) {
  if (!readable(pOperationState, ulOperationStateLen)) return CKR_ARGUMENTS_BAD;
  return call(kSetOperationState, [&](Op& op) {
    pkcs11::C_SetOperationState* m = op.mutable_c_setoperationstate();
    m->set_hsession(wire(hSession));
    putBytes(m->mutable_poperationstate(), pOperationState, ulOperationStateLen);
    m->set_uloperationstatelen(wire(ulOperationStateLen));
    m->set_hencryptionkey(wire(hEncryptionKey));
    m->set_hauthenticationkey(wire(hAuthenticationKey));
  });
}

// As with the other PINs: text within the stated length, none when null.
CK_RV C_Login(CK_SESSION_HANDLE hSession, CK_USER_TYPE userType, CK_UTF8CHAR_PTR pPin,
              CK_ULONG ulPinLen) {
  return call(kLogin, [&](Op& op) {
    pkcs11::C_Login* m = op.mutable_c_login();
    m->set_hsession(wire(hSession));
    m->set_usertype(wire(userType));
    if (pPin) putCallerBytes(m->mutable_ppin(), pPin, ulPinLen);
    m->set_ulpinlen(wire(ulPinLen));
  });
}

