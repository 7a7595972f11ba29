// General, slot, token, session, random and slot-event functions.
#include <algorithm>
#include <cstring>

#include "impl.h"
#include "token.h"

namespace qor::tm::impl {
namespace {

void pad(CK_UTF8CHAR* dst, size_t n, const char* text) {
  std::memset(dst, ' ', n);
  std::memcpy(dst, text, std::min(n, std::strlen(text)));
}

bool equalPin(const Bytes& want, const CK_UTF8CHAR* pin, CK_ULONG len) {
  return want.size() == len && std::memcmp(want.data(), pin, len) == 0;
}

CK_STATE sessionState(const Session& s) {
  const bool rw = (s.flags & CKF_RW_SESSION) != 0;
  switch (token().login) {
    case Login::SO: return CKS_RW_SO_FUNCTIONS;
    case Login::User: return rw ? CKS_RW_USER_FUNCTIONS : CKS_RO_USER_FUNCTIONS;
    case Login::None: break;
  }
  return rw ? CKS_RW_PUBLIC_SESSION : CKS_RO_PUBLIC_SESSION;
}

}  // namespace

CK_RV C_Initialize(CK_VOID_PTR pInitArgs) {
  Token& t = token();
  if (t.initialized) return CKR_CRYPTOKI_ALREADY_INITIALIZED;
  if (pInitArgs != nullptr) {
    CK_C_INITIALIZE_ARGS a;
    std::memcpy(&a, pInitArgs, sizeof a);
    const int callbacks = (a.CreateMutex != nullptr) + (a.DestroyMutex != nullptr) + (a.LockMutex != nullptr) +
                          (a.UnlockMutex != nullptr);
    if (a.pReserved != nullptr || (callbacks != 0 && callbacks != 4)) return CKR_ARGUMENTS_BAD;
  }
  t.initialized = true;
  return CKR_OK;
}

CK_RV C_Finalize(CK_VOID_PTR pReserved) {
  if (pReserved != nullptr) return CKR_ARGUMENTS_BAD;
  if (CK_RV rv = checkInit()) return rv;
  Token& t = token();
  while (!t.sessions.empty()) closeSession(t.sessions.begin()->first);
  t.initialized = false;
  ++t.epoch;
  slotEvent().notify_all();
  return CKR_OK;
}

CK_RV C_GetInfo(CK_INFO_PTR pInfo) {
  if (CK_RV rv = checkInit()) return rv;
  if (pInfo == nullptr) return CKR_ARGUMENTS_BAD;
  std::memset(pInfo, 0, sizeof *pInfo);
  pInfo->cryptokiVersion = {2, 20};
  pad(pInfo->manufacturerID, sizeof pInfo->manufacturerID, "Qor Test");
  pad(pInfo->libraryDescription, sizeof pInfo->libraryDescription, "Qor Test Module");
  pInfo->libraryVersion = {1, 0};
  return CKR_OK;
}

CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR ppFunctionList) {
  if (ppFunctionList == nullptr) return CKR_ARGUMENTS_BAD;
  *ppFunctionList = functionList();
  return CKR_OK;
}

CK_RV C_GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR pSlotList, CK_ULONG_PTR pulCount) {
  if (CK_RV rv = checkInit()) return rv;
  if (tokenPresent != CK_FALSE) return putUlongs({kTokenSlot}, pSlotList, pulCount);
  return putUlongs({kTokenSlot, kEmptySlot}, pSlotList, pulCount);
}

CK_RV C_GetSlotInfo(CK_SLOT_ID slotID, CK_SLOT_INFO_PTR pInfo) {
  if (CK_RV rv = checkSlot(slotID, false)) return rv;
  if (pInfo == nullptr) return CKR_ARGUMENTS_BAD;
  std::memset(pInfo, 0, sizeof *pInfo);
  pad(pInfo->slotDescription, sizeof pInfo->slotDescription,
      slotID == kTokenSlot ? "Qor Test Slot 1" : "Qor Test Slot 2 (empty)");
  pad(pInfo->manufacturerID, sizeof pInfo->manufacturerID, "Qor Test");
  pInfo->flags = CKF_REMOVABLE_DEVICE | CKF_HW_SLOT | (slotID == kTokenSlot ? CKF_TOKEN_PRESENT : 0);
  pInfo->hardwareVersion = {1, 0};
  pInfo->firmwareVersion = {1, 0};
  return CKR_OK;
}

CK_RV C_GetTokenInfo(CK_SLOT_ID slotID, CK_TOKEN_INFO_PTR pInfo) {
  if (CK_RV rv = checkSlot(slotID, true)) return rv;
  if (pInfo == nullptr) return CKR_ARGUMENTS_BAD;
  const Token& t = token();
  CK_ULONG rw = 0;
  for (const auto& s : t.sessions) rw += (s.second.flags & CKF_RW_SESSION) != 0;
  std::memset(pInfo, 0, sizeof *pInfo);
  std::memcpy(pInfo->label, t.label, sizeof pInfo->label);
  pad(pInfo->manufacturerID, sizeof pInfo->manufacturerID, "Qor Test");
  pad(pInfo->model, sizeof pInfo->model, "TM-1");
  pad(pInfo->serialNumber, sizeof pInfo->serialNumber, "0000000000000001");
  pInfo->flags = CKF_RNG | CKF_LOGIN_REQUIRED | CKF_TOKEN_INITIALIZED | CKF_DUAL_CRYPTO_OPERATIONS |
                 (t.userPinSet ? CKF_USER_PIN_INITIALIZED : 0);
  pInfo->ulMaxSessionCount = kMaxSessions;
  pInfo->ulSessionCount = static_cast<CK_ULONG>(t.sessions.size());
  pInfo->ulMaxRwSessionCount = kMaxSessions;
  pInfo->ulRwSessionCount = rw;
  pInfo->ulMaxPinLen = kMaxPin;
  pInfo->ulMinPinLen = kMinPin;
  pInfo->ulTotalPublicMemory = 65536;
  pInfo->ulFreePublicMemory = 32768;
  pInfo->ulTotalPrivateMemory = 65536;
  pInfo->ulFreePrivateMemory = 32768;
  pInfo->hardwareVersion = {1, 0};
  pInfo->firmwareVersion = {1, 0};
  pad(pInfo->utcTime, sizeof pInfo->utcTime, "2024010100000000");
  return CKR_OK;
}

CK_RV C_GetMechanismList(CK_SLOT_ID slotID, CK_MECHANISM_TYPE_PTR pMechanismList, CK_ULONG_PTR pulCount) {
  if (CK_RV rv = checkSlot(slotID, true)) return rv;
  std::vector<CK_ULONG> types;
  for (const MechanismInfo& m : mechanisms()) types.push_back(m.type);
  return putUlongs(types, pMechanismList, pulCount);
}

CK_RV C_GetMechanismInfo(CK_SLOT_ID slotID, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO_PTR pInfo) {
  if (CK_RV rv = checkSlot(slotID, true)) return rv;
  if (pInfo == nullptr) return CKR_ARGUMENTS_BAD;
  const MechanismInfo* m = findMechanism(type);
  if (m == nullptr) return CKR_MECHANISM_INVALID;
  pInfo->ulMinKeySize = m->minKey;
  pInfo->ulMaxKeySize = m->maxKey;
  pInfo->flags = m->flags;
  return CKR_OK;
}

CK_RV C_InitToken(CK_SLOT_ID slotID, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen, CK_UTF8CHAR_PTR pLabel) {
  if (CK_RV rv = checkSlot(slotID, true)) return rv;
  Token& t = token();
  if (pPin == nullptr || pLabel == nullptr) return CKR_ARGUMENTS_BAD;
  if (!t.sessions.empty()) return CKR_SESSION_EXISTS;
  if (!equalPin(t.soPin, pPin, ulPinLen)) return CKR_PIN_INCORRECT;
  // A fresh token: no objects and no user PIN until C_InitPIN.
  t.objects.clear();
  t.userPin.clear();
  t.userPinSet = false;
  std::memcpy(t.label, pLabel, sizeof t.label);
  return CKR_OK;
}

CK_RV C_InitPIN(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen) {
  Session* s;
  if (CK_RV rv = findSession(hSession, s)) return rv;
  Token& t = token();
  if (t.login != Login::SO) return CKR_USER_NOT_LOGGED_IN;
  if (pPin == nullptr) return CKR_ARGUMENTS_BAD;
  if (ulPinLen < kMinPin || ulPinLen > kMaxPin) return CKR_PIN_LEN_RANGE;
  t.userPin.assign(pPin, pPin + ulPinLen);
  t.userPinSet = true;
  return CKR_OK;
}

CK_RV C_SetPIN(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pOldPin, CK_ULONG ulOldLen, CK_UTF8CHAR_PTR pNewPin,
               CK_ULONG ulNewLen) {
  Session* s;
  if (CK_RV rv = findSession(hSession, s)) return rv;
  Token& t = token();
  if ((s->flags & CKF_RW_SESSION) == 0) return CKR_SESSION_READ_ONLY;
  if (pOldPin == nullptr || pNewPin == nullptr) return CKR_ARGUMENTS_BAD;
  const bool so = t.login == Login::SO;
  if (!so && !t.userPinSet) return CKR_USER_PIN_NOT_INITIALIZED;
  Bytes& pin = so ? t.soPin : t.userPin;
  if (!equalPin(pin, pOldPin, ulOldLen)) return CKR_PIN_INCORRECT;
  if (ulNewLen < kMinPin || ulNewLen > kMaxPin) return CKR_PIN_LEN_RANGE;
  pin.assign(pNewPin, pNewPin + ulNewLen);
  return CKR_OK;
}

CK_RV C_OpenSession(CK_SLOT_ID slotID, CK_FLAGS flags, CK_VOID_PTR, CK_NOTIFY, CK_SESSION_HANDLE_PTR phSession) {
  if (CK_RV rv = checkSlot(slotID, true)) return rv;
  Token& t = token();
  if (phSession == nullptr) return CKR_ARGUMENTS_BAD;
  if ((flags & CKF_SERIAL_SESSION) == 0) return CKR_SESSION_PARALLEL_NOT_SUPPORTED;
  if (t.sessions.size() >= kMaxSessions) return CKR_SESSION_COUNT;
  if (t.login == Login::SO && (flags & CKF_RW_SESSION) == 0) return CKR_SESSION_READ_WRITE_SO_EXISTS;
  const CK_SESSION_HANDLE h = t.nextSession++;
  Session& s = t.sessions[h];
  s.slot = slotID;
  s.flags = flags & (CKF_RW_SESSION | CKF_SERIAL_SESSION);
  *phSession = h;
  return CKR_OK;
}

CK_RV C_CloseSession(CK_SESSION_HANDLE hSession) {
  Session* s;
  if (CK_RV rv = findSession(hSession, s)) return rv;
  closeSession(hSession);
  return CKR_OK;
}

CK_RV C_CloseAllSessions(CK_SLOT_ID slotID) {
  if (CK_RV rv = checkSlot(slotID, true)) return rv;
  Token& t = token();
  while (!t.sessions.empty()) closeSession(t.sessions.begin()->first);
  return CKR_OK;
}

CK_RV C_GetSessionInfo(CK_SESSION_HANDLE hSession, CK_SESSION_INFO_PTR pInfo) {
  Session* s;
  if (CK_RV rv = findSession(hSession, s)) return rv;
  if (pInfo == nullptr) return CKR_ARGUMENTS_BAD;
  pInfo->slotID = s->slot;
  pInfo->state = sessionState(*s);
  pInfo->flags = s->flags;
  pInfo->ulDeviceError = 0;
  return CKR_OK;
}

CK_RV C_Login(CK_SESSION_HANDLE hSession, CK_USER_TYPE userType, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen) {
  Session* s;
  if (CK_RV rv = findSession(hSession, s)) return rv;
  Token& t = token();
  if (userType > CKU_CONTEXT_SPECIFIC) return CKR_USER_TYPE_INVALID;
  if (pPin == nullptr) return CKR_ARGUMENTS_BAD;
  if (userType == CKU_CONTEXT_SPECIFIC) {
    if (t.login != Login::User) return CKR_USER_NOT_LOGGED_IN;
    return equalPin(t.userPin, pPin, ulPinLen) ? CKR_OK : CKR_PIN_INCORRECT;
  }
  const Login wanted = userType == CKU_SO ? Login::SO : Login::User;
  if (t.login != Login::None) return t.login == wanted ? CKR_USER_ALREADY_LOGGED_IN : CKR_USER_ANOTHER_ALREADY_LOGGED_IN;
  if (wanted == Login::SO) {
    for (const auto& other : t.sessions)
      if ((other.second.flags & CKF_RW_SESSION) == 0) return CKR_SESSION_READ_ONLY_EXISTS;
  } else if (!t.userPinSet) {
    return CKR_USER_PIN_NOT_INITIALIZED;
  }
  if (!equalPin(wanted == Login::SO ? t.soPin : t.userPin, pPin, ulPinLen)) return CKR_PIN_INCORRECT;
  t.login = wanted;
  return CKR_OK;
}

CK_RV C_Logout(CK_SESSION_HANDLE hSession) {
  Session* s;
  if (CK_RV rv = findSession(hSession, s)) return rv;
  if (token().login == Login::None) return CKR_USER_NOT_LOGGED_IN;
  token().login = Login::None;
  return CKR_OK;
}

CK_RV C_SeedRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSeed, CK_ULONG ulSeedLen) {
  Session* s;
  if (CK_RV rv = findSession(hSession, s)) return rv;
  return pSeed == nullptr && ulSeedLen != 0 ? CKR_ARGUMENTS_BAD : CKR_OK;
}

CK_RV C_GenerateRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR RandomData, CK_ULONG ulRandomLen) {
  Session* s;
  if (CK_RV rv = findSession(hSession, s)) return rv;
  if (RandomData == nullptr && ulRandomLen != 0) return CKR_ARGUMENTS_BAD;
  for (CK_ULONG i = 0; i < ulRandomLen; ++i) RandomData[i] = token().randomCounter++;
  return CKR_OK;
}

CK_RV C_GetFunctionStatus(CK_SESSION_HANDLE) {
  if (CK_RV rv = checkInit()) return rv;
  return CKR_FUNCTION_NOT_PARALLEL;
}

CK_RV C_CancelFunction(CK_SESSION_HANDLE) {
  if (CK_RV rv = checkInit()) return rv;
  return CKR_FUNCTION_NOT_PARALLEL;
}

CK_RV C_WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID_PTR pSlot, CK_VOID_PTR pReserved) {
  if (CK_RV rv = checkInit()) return rv;
  if (pSlot == nullptr || pReserved != nullptr) return CKR_ARGUMENTS_BAD;
  Token& t = token();
  const uint64_t epoch = t.epoch;
  while (t.events.empty()) {
    if ((flags & CKF_DONT_BLOCK) != 0) return CKR_NO_EVENT;
    slotEvent().wait(*heldLock());
    // C_Finalize or a reset while blocked ends the wait.
    if (t.epoch != epoch || !t.initialized) return CKR_CRYPTOKI_NOT_INITIALIZED;
  }
  *pSlot = t.events.front();
  t.events.pop_front();
  return CKR_OK;
}

}  // namespace qor::tm::impl
