// The in-memory token behind the entry points, and the helpers every group
// of functions shares. Everything here is used with gMutex held.
#ifndef QOR_TESTMODULE_TOKEN_H
#define QOR_TESTMODULE_TOKEN_H

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <vector>

#include "qorpkcs11/pkcs11.h"
#include "record.h"

namespace qor::tm {

extern std::mutex gMutex;
std::condition_variable& slotEvent();
// The lock of the entry point running on this thread; a blocking wait
// releases it.
std::unique_lock<std::mutex>*& heldLock();

constexpr CK_SLOT_ID kTokenSlot = 1;
constexpr CK_SLOT_ID kEmptySlot = 2;
constexpr CK_ULONG kMaxSessions = 16;
constexpr CK_ULONG kMinPin = 4;
constexpr CK_ULONG kMaxPin = 32;
constexpr CK_OBJECT_HANDLE kFirstNewObject = 100;
constexpr size_t kFoldSize = 32;  // digest length

enum OpKind { kEncrypt, kDecrypt, kDigest, kSign, kVerify, kSignRecover, kVerifyRecover, kOpCount };

struct Operation {
  bool active = false;
  CK_MECHANISM_TYPE mechanism = 0;
  CK_BYTE keyByte = 0;
  CK_ULONG signatureLen = 0;
  CK_ULONG total = 0;  // bytes taken in so far
  CK_BYTE fold[kFoldSize] = {};
};

struct Session {
  CK_SLOT_ID slot = kTokenSlot;
  CK_FLAGS flags = 0;
  Operation ops[kOpCount];
  bool finding = false;
  std::vector<CK_OBJECT_HANDLE> found;
  size_t nextFound = 0;
};

using Attributes = std::map<CK_ATTRIBUTE_TYPE, Bytes>;

struct Object {
  Attributes attrs;
  CK_SESSION_HANDLE owner = 0;  // 0 for token objects
  const Bytes* find(CK_ATTRIBUTE_TYPE t) const;
  CK_ULONG ulong(CK_ATTRIBUTE_TYPE t, CK_ULONG otherwise) const;
  bool flag(CK_ATTRIBUTE_TYPE t, bool otherwise) const;
};

enum class Login { None, User, SO };

struct Token {
  bool initialized = false;
  CK_UTF8CHAR label[32] = {};
  Bytes soPin, userPin;
  bool userPinSet = true;
  Login login = Login::None;
  std::map<CK_SESSION_HANDLE, Session> sessions;
  CK_SESSION_HANDLE nextSession = 1;
  std::map<CK_OBJECT_HANDLE, Object> objects;
  CK_OBJECT_HANDLE nextObject = kFirstNewObject;
  CK_BYTE randomCounter = 0;
  std::deque<CK_SLOT_ID> events;
  uint64_t epoch = 0;  // changes on reset and C_Finalize, ending blocked waits
};

Token& token();
void resetToken(bool initialized);

struct MechanismInfo {
  CK_MECHANISM_TYPE type;
  CK_ULONG minKey, maxKey;
  CK_FLAGS flags;
  CK_KEY_TYPE keyType;  // kAnyKey: no check
};
constexpr CK_KEY_TYPE kAnyKey = 0xFFFFFFFFu;
const std::vector<MechanismInfo>& mechanisms();
const MechanismInfo* findMechanism(CK_MECHANISM_TYPE type);

// Lookups with the standard error codes.
CK_RV checkInit();
CK_RV checkSlot(CK_SLOT_ID slot, bool needToken);
CK_RV findSession(CK_SESSION_HANDLE h, Session*& s);
CK_RV findObject(CK_OBJECT_HANDLE h, Object*& o);
bool visible(const Object& o);
// A key for a mechanism: exists, is visible, fits the mechanism and has `use`
// (CKA_SIGN, ...) set to CK_TRUE.
CK_RV findKey(CK_OBJECT_HANDLE h, const MechanismInfo& m, CK_ATTRIBUTE_TYPE use, CK_RV invalid, Object*& key);
void closeSession(CK_SESSION_HANDLE h);

// Output conventions: a null buffer asks for the length, a short one gets
// CKR_BUFFER_TOO_SMALL with the length needed.
CK_RV putBytes(const Bytes& out, CK_BYTE_PTR p, CK_ULONG_PTR pul);
CK_RV putUlongs(const std::vector<CK_ULONG>& out, CK_ULONG_PTR p, CK_ULONG_PTR pul);

// Template in: checks pointers and the sizes of CK_ULONG and CK_BBOOL values.
CK_RV readTemplate(const CK_ATTRIBUTE* tpl, CK_ULONG count, Attributes& out, bool checkValues = true);
// A new object from attributes: defaults, session and login rules.
CK_RV addObject(CK_SESSION_HANDLE h, Attributes attrs, CK_OBJECT_HANDLE_PTR out);

Bytes ulongBytes(CK_ULONG v);
Bytes pattern(size_t n, CK_BYTE seed);  // seed, seed+1, ...
// The XOR key of the stand-in ciphers: 0x5A ^ the XOR of all bytes of the
// key's CKA_MODULUS, else CKA_EC_POINT, else CKA_VALUE, so the two halves of
// a key pair agree; 0x5A ^ the handle's low byte for a key with none of them.
CK_BYTE keyByte(const Object& key, CK_OBJECT_HANDLE h);
Bytes xorWith(const CK_BYTE* p, size_t n, CK_BYTE k);

}  // namespace qor::tm

#endif  // QOR_TESTMODULE_TOKEN_H
