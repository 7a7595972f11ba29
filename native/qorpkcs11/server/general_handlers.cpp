// General-purpose, slot, token and session functions.
#include <memory>

#include "qorpkcs11/protocol/calls.h"
#include "qorpkcs11/server/extensions.h"
#include "qorpkcs11/server/handler.h"
#include "qorpkcs11/server/module_memory.h"

using namespace qor::server;
namespace answered = qor::protocol::answered;
using pkcs11::Operation;
using pkcs11::OperationResult;

namespace {

// Slot and mechanism lists share one count protocol; only these differ.
template <typename Response>
struct ListKind {
  Response* (OperationResult::*response)();
  void (Response::*add)(int32_t);
  const char* noList;
  const char* created;
  const char* item;
  const char* nullList;
};
const ListKind<pkcs11::C_GetSlotList_Response> kSlots{
    &OperationResult::mutable_c_getslotlist_response,
    &pkcs11::C_GetSlotList_Response::add_pslotlist,
    "slotidlist is 0",
    "slotlist res created",
    "slot id list",
    "Slot list ptr NULL"};
const ListKind<pkcs11::C_GetMechanismList_Response> kMechanisms{
    &OperationResult::mutable_c_getmechanismlist_response,
    &pkcs11::C_GetMechanismList_Response::add_pmechanismlist,
    "mechanismlist is 0",
    "mechanismlist res created",
    "mech type list",
    "Mechanism list ptr NULL"};

// A request that sends at least one entry gets a buffer of `pulcount`
// entries; one without entries asks the module for the count alone.
template <typename Request, typename Response, typename Module>
CK_RV serve_list(const ListKind<Response>& kind, bool present, const Request& request,
                 int sentEntries, Call& call, Module module) {
  QOR_LOGD(kTag, "ckpFunctions not null");
  if (present) QOR_LOGD(kTag, "Already present");
  CK_ULONG count = ul(request.pulcount());
  std::unique_ptr<Ulongs> list;
  if (sentEntries > 0) {
    QOR_LOGD(kTag, "pulcount = %u", count);
    list = std::make_unique<Ulongs>(count);
  } else {
    QOR_LOGD(kTag, "%s", kind.noList);
  }
  // Without memory for the list the call becomes a count query.
  CK_ULONG* entries = list != nullptr && list->ok() ? list->data() : nullptr;
  const CK_RV value = module(entries, &count);
  QOR_LOGD(kTag, "rv = %u", value);
  QOR_LOGD(kTag, "Generate_Operation_Result pul count = %u", count);

  QOR_LOGD(kTag, "reached here");
  Response* out = (call.result().*kind.response)();
  QOR_LOGD(kTag, "%s", kind.created);
  out->set_pulcount(wire(count));
  QOR_LOGD(kTag, "reached here1 %d", static_cast<int>(count));
  if (entries != nullptr) {
    // A module answering CKR_BUFFER_TOO_SMALL may report more than fits.
    const CK_ULONG copied = count < list->size() ? count : list->size();
    for (CK_ULONG i = 0; i < copied; ++i) {
      QOR_LOGD(kTag, "inside for");
      QOR_LOGD(kTag, "%s = %d", kind.item, static_cast<int>(entries[i]));
      (out->*kind.add)(wire(entries[i]));
    }
  } else {
    QOR_LOGD(kTag, "%s", kind.nullList);
  }
  return value;
}

}  // namespace

std::string C_Initialize_Server(const std::string& request) {
  return serve(Parse::kNo, request, answered::C_Initialize, RvLine::kReturnValue,
               [](Call& call) { return call.invoke(QOR_MEMBER(C_Initialize), CK_VOID_PTR{}); });
}

std::string C_Finalize_Server(const std::string& request) {
  return serve(Parse::kNo, request, answered::C_Finalize, RvLine::kReturnValue,
               [](Call& call) { return call.invoke(QOR_MEMBER(C_Finalize), CK_VOID_PTR{}); });
}

std::string C_GetInfo_Server(const std::string& request) {
  return serve(Parse::kYes, request, answered::C_GetInfo, RvLine::kReturnValue, [](Call& call) {
    CK_INFO info{};
    const CK_RV value = call.invoke(QOR_MEMBER(C_GetInfo), &info);
    QOR_LOGD(kTag, "C_GetInfo reached here");
    QOR_LOGD(kTag, "major = %d", info.cryptokiVersion.major);
    QOR_LOGD(kTag, "C_GetInfo set major");
    QOR_LOGD(kTag, "C_GetInfo set minor");
    put(info, call.result().mutable_c_getinfo_response()->mutable_pinfo());
    return value;
  });
}

std::string C_GetSlotList_Server(const std::string& request) {
  return serve(request, answered::C_GetSlotList, &Operation::c_getslotlist, RvLine::kOwn,
               [](const pkcs11::C_GetSlotList& req, Call& call) {
                 return serve_list(
                     kSlots, operation.has_c_getslotlist(), req, req.pslotlist_size(), call,
                     [&](CK_SLOT_ID_PTR list, CK_ULONG_PTR count) {
                       const CK_BBOOL present = req.tokenpresent() ? CK_TRUE : CK_FALSE;
                       return call.invoke(QOR_MEMBER(C_GetSlotList), present, list, count);
                     });
               });
}

std::string C_GetMechanismList_Server(const std::string& request) {
  return serve(request, answered::C_GetMechanismList, &Operation::c_getmechanismlist, RvLine::kOwn,
               [](const pkcs11::C_GetMechanismList& req, Call& call) {
                 return serve_list(kMechanisms, operation.has_c_getmechanismlist(), req,
                                   req.pmechanismlist_size(), call,
                                   [&](CK_MECHANISM_TYPE_PTR list, CK_ULONG_PTR count) {
                                     return call.invoke(QOR_MEMBER(C_GetMechanismList),
                                                        ul(req.slotid()), list, count);
                                   });
               });
}

std::string C_GetSlotInfo_Server(const std::string& request) {
  return serve(
      request, answered::C_GetSlotInfo, &Operation::c_getslotinfo, RvLine::kOwn,
      [](const pkcs11::C_GetSlotInfo& req, Call& call) {
        CK_SLOT_INFO info{};
        const CK_RV value = call.invoke(QOR_MEMBER(C_GetSlotInfo), ul(req.slotid()), &info);
        QOR_LOGD(kTag, "C_GetSlotInfo rv = %u", value);
        put(info, call.result().mutable_c_getslotinfo_response()->mutable_pinfo());
        return value;
      });
}

std::string C_GetTokenInfo_Server(const std::string& request) {
  return serve(request, answered::C_GetTokenInfo, &Operation::c_gettokeninfo, RvLine::kReturnValue,
               [](const pkcs11::C_GetTokenInfo& req, Call& call) {
                 CK_TOKEN_INFO info{};
                 const CK_RV value =
                     call.invoke(QOR_MEMBER(C_GetTokenInfo), ul(req.slotid()), &info);
                 put(info, call.result().mutable_c_gettokeninfo_response()->mutable_pinfo());
                 return value;
               });
}

std::string C_GetMechanismInfo_Server(const std::string& request) {
  return serve(request, answered::C_GetMechanismInfo, &Operation::c_getmechanisminfo, RvLine::kReturnValue,
               [](const pkcs11::C_GetMechanismInfo& req, Call& call) {
                 CK_MECHANISM_INFO info{};
                 const CK_RV value = call.invoke(QOR_MEMBER(C_GetMechanismInfo), ul(req.slotid()),
                                                 ul(req.type()), &info);
                 put(info, call.result().mutable_c_getmechanisminfo_response()->mutable_pinfo());
                 return value;
               });
}

std::string C_InitToken_Server(const std::string& request) {
  return serve(request, answered::C_InitToken, &Operation::c_inittoken, RvLine::kReturnValue,
               [](const pkcs11::C_InitToken& req, Call& call) {
                 const Input pin(req.ppin(), ul(req.ulpinlen()));
                 if (const CK_RV bad = pin.status()) return call.decline(bad);
                 // The module reads a 32-byte label; a shorter one is followed
                 // by zeros (its terminator first), never by foreign memory.
                 constexpr size_t kLabelSize = 32;
                 const size_t size = req.plabel().size() + 1;
                 Buffer label(static_cast<CK_ULONG>(size > kLabelSize ? size : kLabelSize));
                 if (!label.ok()) return call.out_of_memory();
                 label.fill(req.plabel());
                 return call.invoke(QOR_MEMBER(C_InitToken), ul(req.slotid()), pin.data(),
                                    ul(req.ulpinlen()), label.data());
               });
}

std::string C_InitPin_Server(const std::string& request) {
  return serve(request, answered::C_InitPIN, &Operation::c_initpin, RvLine::kReturnValue,
               [](const pkcs11::C_InitPin& req, Call& call) {
                 const Input pin(req.ppin(), ul(req.ulpinlen()));
                 if (const CK_RV bad = pin.status()) return call.decline(bad);
                 return call.invoke(QOR_MEMBER(C_InitPIN), ul(req.hsession()), pin.data(),
                                    ul(req.ulpinlen()));
               });
}

std::string C_SetPin_Server(const std::string& request) {
  return serve(request, answered::C_SetPIN, &Operation::c_setpin, RvLine::kReturnValue,
               [](const pkcs11::C_SetPin& req, Call& call) {
                 const Input oldPin(req.poldpin(), ul(req.uloldlen()));
                 if (const CK_RV bad = oldPin.status()) return call.decline(bad);
                 const Input newPin(req.pnewpin(), ul(req.ulnewlen()));
                 if (const CK_RV bad = newPin.status()) return call.decline(bad);
                 return call.invoke(QOR_MEMBER(C_SetPIN), ul(req.hsession()), oldPin.data(),
                                    ul(req.uloldlen()), newPin.data(), ul(req.ulnewlen()));
               });
}

std::string C_Login_Server(const std::string& request) {
  return serve(request, answered::C_Login, &Operation::c_login, RvLine::kReturnValue,
               [](const pkcs11::C_Login& req, Call& call) {
                 const Input pin(req.ppin(), ul(req.ulpinlen()));
                 if (const CK_RV bad = pin.status()) return call.decline(bad);
                 return call.invoke(QOR_MEMBER(C_Login), ul(req.hsession()), ul(req.usertype()),
                                    pin.data(), ul(req.ulpinlen()));
               });
}

std::string C_OpenSession_Server(const std::string& request) {
  return serve(request, answered::C_OpenSession, &Operation::c_opensession, RvLine::kOwn,
               [](const pkcs11::C_OpenSession& req, Call& call) {
                 QOR_LOGD(kTag, "ckpFunctions not null");
                 if (operation.has_c_opensession()) QOR_LOGD(kTag, "Opensession instance present");
                 QOR_LOGD(kTag, "Slot id  passed= %d", req.slotid());
                 // No application pointer or callback: notifications cannot
                 // cross the process boundary.
                 CK_SESSION_HANDLE session = 0;
                 const CK_RV value =
                     call.invoke(QOR_MEMBER(C_OpenSession), ul(req.slotid()), ul(req.flags()),
                                 CK_VOID_PTR{}, CK_NOTIFY{}, &session);
                 QOR_LOGD(kTag, "return value = %u", value);
                 if (session == 0) QOR_LOGD(kTag, "session from open session null");
                 QOR_LOGD(kTag, "session = %u", session);
                 call.result().mutable_c_opensession_response()->set_phsession(wire(session));
                 return value;
               });
}

std::string C_GetSessionInfo_Server(const std::string& request) {
  return serve(request, answered::C_GetSessionInfo, &Operation::c_getsessioninfo, RvLine::kReturnValue,
               [](const pkcs11::C_GetSessionInfo& req, Call& call) {
                 CK_SESSION_INFO info{};
                 const CK_RV value =
                     call.invoke(QOR_MEMBER(C_GetSessionInfo), ul(req.hsession()), &info);
                 put(info, call.result().mutable_c_getsessioninfo_response()->mutable_pinfo());
                 return value;
               });
}

std::string C_GetOperationState_Server(const std::string& request) {
  return serve(
      request, answered::C_GetOperationState, &Operation::c_getoperationstate, RvLine::kGenerateResult,
      [](const pkcs11::C_GetOperationState& req, Call& call) {
        Buffer state(ul(req.puloperationstatelen()));
        if (!state.ok()) return call.out_of_memory();
        return produce(call,
                       ReplyOutput<pkcs11::C_GetOperationState_Response>{
                           &OperationResult::mutable_c_getoperationstate_response,
                           &pkcs11::C_GetOperationState_Response::mutable_poperationstate,
                           &pkcs11::C_GetOperationState_Response::set_puloperationstatelen, "operstatelen"},
                       state, [&](CK_BYTE_PTR out, CK_ULONG_PTR length) {
                         return call.invoke(QOR_MEMBER(C_GetOperationState), ul(req.hsession()), out, length);
                       });
      });
}

std::string C_SetOperationState_Server(const std::string& request) {
  return serve(request, answered::C_SetOperationState, &Operation::c_setoperationstate,
               RvLine::kGenerateResult, [](const pkcs11::C_SetOperationState& req, Call& call) {
                 const CK_ULONG length = ul(req.uloperationstatelen());
                 const Input state(req.poperationstate(), length);
                 if (const CK_RV bad = state.status()) return call.decline(bad);
                 return call.invoke(QOR_MEMBER(C_SetOperationState), ul(req.hsession()),
                                    state.data(), length, ul(req.hencryptionkey()),
                                    ul(req.hauthenticationkey()));
               });
}

std::string C_WaitForSlotEvent_Server(const std::string& request) {
  return serve(request, answered::C_WaitForSlotEvent, &Operation::c_waitforslotevent, RvLine::kReturnValue,
               [](const pkcs11::C_WaitForSlotEvent& req, Call& call) {
                 // The slot is not put in the reply: deployed peers get name
                 // and rv only and read the slot as 0. Extended requests get it.
                 CK_SLOT_ID slot = 0;
                 const CK_RV value = call.invoke(QOR_MEMBER(C_WaitForSlotEvent), ul(req.flags()),
                                                 &slot, CK_VOID_PTR{});
                 if (!keeps<Kept::kSlotEventNotAnswered>())
                   call.result().mutable_c_waitforslotevent_response()->set_pslot(wire(slot));
                 return value;
               });
}

QOR_SERVE_HANDLES(C_CloseAllSessions, c_closeallsessions, kReturnValue, ul(req.slotid()))

#define QOR_SERVE_SESSION(name, field) QOR_SERVE_HANDLES(C_##name, field, kReturnValue, ul(req.hsession()))
QOR_SESSION_CALLS(QOR_SERVE_SESSION)
#undef QOR_SERVE_SESSION
