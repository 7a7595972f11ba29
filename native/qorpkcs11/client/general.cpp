// General-purpose, slot and token functions.
#include <algorithm>

#include "qorpkcs11/client/call_frame.h"
#include "qorpkcs11/client/caller_memory.h"
#include "qorpkcs11/client/extensions.h"
#include "qorpkcs11/common/log.h"
#include "qorpkcs11/protocol/calls.h"

using namespace qor::client;
namespace sent = qor::protocol::sent;
using qor::log::kClient;

namespace {

constexpr Frame kInitialize = Frame{sent::C_Initialize}
                                  .logsEntry()
                                  .serializedSize("C_Initialize serialized buffer size = %d")
                                  .aroundSend("C_Initialize serialized before server call ",
                                              "C_Initialize after server call ")
                                  .successLine("C_initialize Success")
                                  .rv("C_Initialize return result ");
constexpr Frame kFinalize = Frame{sent::C_Finalize}.successLine("C_Finalize success").rv("C_Finalize rv = %u");
constexpr Frame kGetInfo{sent::C_GetInfo};
constexpr Frame kGetSlotList = Frame{sent::C_GetSlotList}
                                   .entryLine("inside get slot list")
                                   .aroundSend(nullptr, "serialize done and server called")
                                   .rv("rv = %u");
constexpr Frame kGetMechanismList = Frame{sent::C_GetMechanismList}
                                        .entryLine("inside get mechanism list")
                                        .aroundSend(nullptr, "serialize done and server called")
                                        .rv("rv = %u");
constexpr Frame kGetSlotInfo = Frame{sent::C_GetSlotInfo}.rv("rv = %u");
constexpr Frame kGetTokenInfo = Frame{sent::C_GetTokenInfo}.rv("rv = %u");
constexpr Frame kGetMechanismInfo{sent::C_GetMechanismInfo};
constexpr Frame kInitToken =
    Frame{sent::C_InitToken}.entryLine("Inside InitToken").rv("C_InitToken return value = %u");
constexpr Frame kInitPin = Frame{sent::C_InitPIN}
                               .replyAs(qor::protocol::routed::C_InitPIN)
                               .entryLine("Inside InitPin")
                               .rv("C_InitPin return value = %u");
constexpr Frame kSetPin = Frame{sent::C_SetPIN}
                              .replyAs(qor::protocol::routed::C_SetPIN)
                              .entryLine("Inside SetPin")
                              .rv("C_SetPin return value = %u");
constexpr Frame kWaitForSlotEvent =
    Frame{sent::C_WaitForSlotEvent}.logsEntry().rvWithResponse("C_WaitForSlotEvent return value = %u");

// The two list functions differ only in names.
struct ListLines {
  const char* nullList;
  const char* present;
  const char* item;
};
constexpr ListLines kSlotLines{"inside pSlotList null", "Slot list res present", "slot id = %u"};
constexpr ListLines kMechanismLines{"inside pMechanismList null", "Mechanism list res present",
                                    "mechanism type = %u"};

// A null list asks for the count only; otherwise the caller's current entries
// go out as the sign that a buffer is there.
void putList(WireList* out, const CK_ULONG* list, CK_ULONG count, const ListLines& lines) {
  QOR_LOGD(kClient, "Instance created");
  QOR_LOGD(kClient, "here");
  QOR_LOGD(kClient, "here1");
  if (!list) {
    QOR_LOGD(kClient, "%s", lines.nullList);
  } else if (wire(count) > 0) {
    out->Reserve(static_cast<int>(count));
    for (CK_ULONG i = 0; i < count; ++i) out->Add(wire(list[i]));
  }
  QOR_LOGD(kClient, "here2");
}

// The count is reported as the server states it; entries only as far as both
// the reply and the caller's array go.
void takeList(const WireList& in, int32_t stated, CK_ULONG* list, CK_ULONG capacity,
              CK_ULONG_PTR pulCount, const ListLines& lines) {
  QOR_LOGD(kClient, "%s", lines.present);
  *pulCount = ul(stated);
  QOR_LOGD(kClient, "pul count = %u", *pulCount);
  if (!list || in.empty() || stated < 1) return;
  const CK_ULONG n = std::min<CK_ULONG>({ul(stated), capacity, static_cast<CK_ULONG>(in.size())});
  for (CK_ULONG i = 0; i < n; ++i) {
    list[i] = ul(in.Get(static_cast<int>(i)));
    QOR_LOGD(kClient, lines.item, list[i]);
  }
}

}  // namespace

// Initialisation arguments stay on this side: locking is the transport's
// business, and the server initialises its module with none.
CK_RV C_Initialize(CK_VOID_PTR) {
  return call(kInitialize, [](Op&) {});
}

CK_RV C_Finalize(CK_VOID_PTR) {
  return call(kFinalize, [](Op&) {});
}

CK_RV C_GetInfo(CK_INFO_PTR pInfo) {
  if (!pInfo) return CKR_ARGUMENTS_BAD;
  return call(kGetInfo, [](Op&) {}, reply(&Result::has_c_getinfo_response, &Result::c_getinfo_response),
              [&](const pkcs11::C_GetInfo_Response& r, CK_RV&) {
                take(r.pinfo(), pInfo);
              });
}

CK_RV C_GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR pSlotList, CK_ULONG_PTR pulCount) {
  if (!pulCount) return CKR_ARGUMENTS_BAD;
  const CK_ULONG capacity = *pulCount;
  return call(
      kGetSlotList,
      [&](Op& op) {
        pkcs11::C_GetSlotList* m = op.mutable_c_getslotlist();
        m->set_tokenpresent(tokenPresent != 0);
        m->set_pulcount(wire(capacity));
        putList(m->mutable_pslotlist(), pSlotList, capacity, kSlotLines);
      },
      reply(&Result::has_c_getslotlist_response, &Result::c_getslotlist_response),
      [&](const pkcs11::C_GetSlotList_Response& r, CK_RV&) {
        takeList(r.pslotlist(), r.pulcount(), pSlotList, capacity, pulCount, kSlotLines);
      });
}

CK_RV C_GetMechanismList(CK_SLOT_ID slotID, CK_MECHANISM_TYPE_PTR pMechanismList,
                         CK_ULONG_PTR pulCount) {
  if (!pulCount) return CKR_ARGUMENTS_BAD;
  const CK_ULONG capacity = *pulCount;
  return call(
      kGetMechanismList,
      [&](Op& op) {
        pkcs11::C_GetMechanismList* m = op.mutable_c_getmechanismlist();
        m->set_slotid(int64_t{slotID});  // int64 in this message
        m->set_pulcount(wire(capacity));
        putList(m->mutable_pmechanismlist(), pMechanismList, capacity, kMechanismLines);
      },
      reply(&Result::has_c_getmechanismlist_response, &Result::c_getmechanismlist_response),
      [&](const pkcs11::C_GetMechanismList_Response& r, CK_RV&) {
        takeList(r.pmechanismlist(), r.pulcount(), pMechanismList, capacity, pulCount,
                 kMechanismLines);
      });
}

CK_RV C_GetSlotInfo(CK_SLOT_ID slotID, CK_SLOT_INFO_PTR pInfo) {
  if (!pInfo) return CKR_ARGUMENTS_BAD;
  return call(
      kGetSlotInfo,
      [&](Op& op) { op.mutable_c_getslotinfo()->set_slotid(int64_t{slotID}); },  // int64 in this message
      reply(&Result::has_c_getslotinfo_response, &Result::c_getslotinfo_response),
      [&](const pkcs11::C_GetSlotInfo_Response& r, CK_RV&) {
        take(r.pinfo(), pInfo);
      });
}

CK_RV C_GetTokenInfo(CK_SLOT_ID slotID, CK_TOKEN_INFO_PTR pInfo) {
  if (!pInfo) return CKR_ARGUMENTS_BAD;
  return call(
      kGetTokenInfo, [&](Op& op) { op.mutable_c_gettokeninfo()->set_slotid(wire(slotID)); },
      reply(&Result::has_c_gettokeninfo_response, &Result::c_gettokeninfo_response),
      [&](const pkcs11::C_GetTokenInfo_Response& r, CK_RV&) {
        take(r.pinfo(), pInfo);
        const CK_TOKEN_INFO& t = *pInfo;
        QOR_LOGD(kClient, "C_GetTokenInfo hardware version major = %c", t.hardwareVersion.major);
        QOR_LOGD(kClient, "C_GetTokenInfo hardware version minor = %c", t.hardwareVersion.minor);
      });
}

CK_RV C_GetMechanismInfo(CK_SLOT_ID slotID, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO_PTR pInfo) {
  if (!pInfo) return CKR_ARGUMENTS_BAD;
  return call(
      kGetMechanismInfo,
      [&](Op& op) {
        pkcs11::C_GetMechanismInfo* m = op.mutable_c_getmechanisminfo();
        m->set_slotid(wire(slotID));
        m->set_type(wire(type));
      },
      reply(&Result::has_c_getmechanisminfo_response, &Result::c_getmechanisminfo_response),
      [&](const pkcs11::C_GetMechanismInfo_Response& r, CK_RV&) {
        take(r.pinfo(), pInfo);
      });
}

// PINs go out as text within their stated length; a null PIN (protected
// authentication path) sends no PIN field at all.
CK_RV C_InitToken(CK_SLOT_ID slotID, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen, CK_UTF8CHAR_PTR pLabel) {
  if (!pLabel) return CKR_ARGUMENTS_BAD;
  return call(kInitToken, [&](Op& op) {
    pkcs11::C_InitToken* m = op.mutable_c_inittoken();
    m->set_slotid(wire(slotID));
    if (pPin) putCallerBytes(m->mutable_ppin(), pPin, ulPinLen);
    m->set_ulpinlen(wire(ulPinLen));
    putCallerBytes(m->mutable_plabel(), pLabel, 32);  // the label is a 32-byte padded field
  });
}

CK_RV C_InitPIN(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen) {
  return call(kInitPin, [&](Op& op) {
    pkcs11::C_InitPin* m = op.mutable_c_initpin();
    m->set_hsession(wire(hSession));
    if (pPin) putCallerBytes(m->mutable_ppin(), pPin, ulPinLen);
    m->set_ulpinlen(wire(ulPinLen));
  });
}

CK_RV C_SetPIN(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pOldPin, CK_ULONG ulOldLen,
               CK_UTF8CHAR_PTR pNewPin, CK_ULONG ulNewLen) {
  return call(kSetPin, [&](Op& op) {
    pkcs11::C_SetPin* m = op.mutable_c_setpin();
    m->set_hsession(wire(hSession));
    if (pOldPin) putCallerBytes(m->mutable_poldpin(), pOldPin, ulOldLen);
    m->set_uloldlen(wire(ulOldLen));
    if (pNewPin) putCallerBytes(m->mutable_pnewpin(), pNewPin, ulNewLen);
    m->set_ulnewlen(wire(ulNewLen));
  });
}

CK_RV C_WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID_PTR pSlot, CK_VOID_PTR) {
  if (!pSlot) return CKR_ARGUMENTS_BAD;
  return call(
      kWaitForSlotEvent, [&](Op& op) { op.mutable_c_waitforslotevent()->set_flags(wire(flags)); },
      reply(&Result::has_c_waitforslotevent_response, &Result::c_waitforslotevent_response),
      [&](const pkcs11::C_WaitForSlotEvent_Response& r, CK_RV&) { *pSlot = ul(r.pslot()); });
}
