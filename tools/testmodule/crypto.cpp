// Encryption, decryption, digest, signature and verification stand-ins and
// the operation state. Ciphers XOR every byte with the key byte; the digest
// is a 32-byte fold (byte i starts as i, data byte j is XORed into byte
// j % 32); a signature of length L is byte i = fold[i % 32] ^ keyByte ^ (i / 32).
#include <algorithm>
#include <cstring>

#include "impl.h"
#include "token.h"

namespace qor::tm::impl {
namespace {

struct OpRule {
  CK_FLAGS mechanismFlag;
  CK_ATTRIBUTE_TYPE keyUse;  // 0: no key
};
constexpr OpRule kRules[kOpCount] = {
    {CKF_ENCRYPT, CKA_ENCRYPT}, {CKF_DECRYPT, CKA_DECRYPT}, {CKF_DIGEST, 0},
    {CKF_SIGN, CKA_SIGN},       {CKF_VERIFY, CKA_VERIFY},   {CKF_SIGN_RECOVER, CKA_SIGN_RECOVER},
    {CKF_VERIFY_RECOVER, CKA_VERIFY_RECOVER}};

constexpr CK_ULONG kMaxSignature = 8192;

// RSA keys sign with their modulus length, EC keys with 64 bytes, others 32.
CK_ULONG signatureLength(const Object& key) {
  const CK_ULONG bits = key.ulong(CKA_MODULUS_BITS, 0);
  if (bits != 0) return std::min<CK_ULONG>(std::max<CK_ULONG>((bits + 7) / 8, 1), kMaxSignature);
  return key.ulong(CKA_KEY_TYPE, kAnyKey) == CKK_EC ? 64 : 32;
}

void foldIn(Operation& op, const CK_BYTE* p, CK_ULONG n) {
  for (CK_ULONG j = 0; j < n; ++j) op.fold[(op.total + j) % kFoldSize] ^= p[j];
  op.total += n;
}

Bytes signatureOf(const Operation& op) {
  Bytes s(op.signatureLen);
  for (size_t i = 0; i < s.size(); ++i) s[i] = op.fold[i % kFoldSize] ^ op.keyByte ^ static_cast<CK_BYTE>(i / kFoldSize);
  return s;
}

CK_RV activeOp(CK_SESSION_HANDLE h, OpKind kind, Operation*& op) {
  Session* s;
  if (CK_RV rv = findSession(h, s)) return rv;
  op = &s->ops[kind];
  return op->active ? CKR_OK : CKR_OPERATION_NOT_INITIALIZED;
}

// A call ends its operation unless it only asked for the output length.
CK_RV endUnlessQuery(Operation& op, CK_RV rv, const void* out) {
  if (rv != CKR_BUFFER_TOO_SMALL && !(rv == CKR_OK && out == nullptr)) op.active = false;
  return rv;
}

CK_RV init(CK_SESSION_HANDLE h, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey, OpKind kind) {
  Session* s;
  if (CK_RV rv = findSession(h, s)) return rv;
  if (pMechanism == nullptr) return CKR_ARGUMENTS_BAD;
  Operation& op = s->ops[kind];
  if (op.active) return CKR_OPERATION_ACTIVE;
  const MechanismInfo* m = findMechanism(pMechanism->mechanism);
  if (m == nullptr || (m->flags & kRules[kind].mechanismFlag) == 0) return CKR_MECHANISM_INVALID;
  Operation fresh;
  fresh.mechanism = m->type;
  if (kRules[kind].keyUse != 0) {
    Object* key;
    if (CK_RV rv = findKey(hKey, *m, kRules[kind].keyUse, CKR_KEY_HANDLE_INVALID, key)) return rv;
    fresh.keyByte = keyByte(*key, hKey);
    fresh.signatureLen = signatureLength(*key);
  }
  for (size_t i = 0; i < kFoldSize; ++i) fresh.fold[i] = static_cast<CK_BYTE>(i);
  fresh.active = true;
  op = fresh;
  return CKR_OK;
}

// What a single-part call or a final produces from the operation so far.
Bytes result(OpKind kind, const Operation& op) {
  switch (kind) {
    case kDigest: return Bytes(op.fold, op.fold + kFoldSize);
    case kSign: return signatureOf(op);
    default: return {};
  }
}

CK_RV single(CK_SESSION_HANDLE h, CK_BYTE_PTR in, CK_ULONG inLen, CK_BYTE_PTR out, CK_ULONG_PTR pulOut,
             OpKind kind) {
  Operation* op;
  if (CK_RV rv = activeOp(h, kind, op)) return rv;
  if ((in == nullptr && inLen != 0) || pulOut == nullptr) return endUnlessQuery(*op, CKR_ARGUMENTS_BAD, out);
  Bytes produced;
  if (kind == kDigest || kind == kSign) {
    Operation after = *op;
    foldIn(after, in, inLen);
    produced = result(kind, after);
  } else {
    produced = xorWith(in, inLen, op->keyByte);
  }
  return endUnlessQuery(*op, putBytes(produced, out, pulOut), out);
}

// Update with output: the stand-in ciphers turn each part into as many bytes.
CK_RV updateOut(CK_SESSION_HANDLE h, CK_BYTE_PTR in, CK_ULONG inLen, CK_BYTE_PTR out, CK_ULONG_PTR pulOut,
                OpKind kind) {
  Operation* op;
  if (CK_RV rv = activeOp(h, kind, op)) return rv;
  if ((in == nullptr && inLen != 0) || pulOut == nullptr) return endUnlessQuery(*op, CKR_ARGUMENTS_BAD, out);
  const CK_RV rv = putBytes(xorWith(in, inLen, op->keyByte), out, pulOut);
  if (rv == CKR_OK && out != nullptr) op->total += inLen;
  if (rv != CKR_OK && rv != CKR_BUFFER_TOO_SMALL) op->active = false;
  return rv;
}

CK_RV updateIn(CK_SESSION_HANDLE h, CK_BYTE_PTR in, CK_ULONG inLen, OpKind kind) {
  Operation* op;
  if (CK_RV rv = activeOp(h, kind, op)) return rv;
  if (in == nullptr && inLen != 0) {
    op->active = false;
    return CKR_ARGUMENTS_BAD;
  }
  foldIn(*op, in, inLen);
  return CKR_OK;
}

CK_RV finish(CK_SESSION_HANDLE h, CK_BYTE_PTR out, CK_ULONG_PTR pulOut, OpKind kind) {
  Operation* op;
  if (CK_RV rv = activeOp(h, kind, op)) return rv;
  return endUnlessQuery(*op, putBytes(result(kind, *op), out, pulOut), out);
}

CK_RV verify(Operation& op, CK_BYTE_PTR sig, CK_ULONG sigLen) {
  op.active = false;
  if (sig == nullptr && sigLen != 0) return CKR_ARGUMENTS_BAD;
  const Bytes want = signatureOf(op);
  if (sigLen != want.size()) return CKR_SIGNATURE_LEN_RANGE;
  return sigLen == 0 || std::memcmp(sig, want.data(), sigLen) == 0 ? CKR_OK : CKR_SIGNATURE_INVALID;
}

// Dual functions: the cipher runs as in updateOut, and the plaintext (the
// input when encrypting, the output when decrypting) feeds the other operation.
CK_RV dual(CK_SESSION_HANDLE h, CK_BYTE_PTR in, CK_ULONG inLen, CK_BYTE_PTR out, CK_ULONG_PTR pulOut, OpKind cipher,
           OpKind other) {
  Operation *c, *o;
  if (CK_RV rv = activeOp(h, cipher, c)) return rv;
  if (CK_RV rv = activeOp(h, other, o)) return rv;
  if ((in == nullptr && inLen != 0) || pulOut == nullptr) return CKR_ARGUMENTS_BAD;
  const Bytes produced = xorWith(in, inLen, c->keyByte);
  const CK_RV rv = putBytes(produced, out, pulOut);
  if (rv == CKR_OK && out != nullptr) {
    c->total += inLen;
    foldIn(*o, cipher == kEncrypt ? in : produced.data(), inLen);
  }
  return rv;
}

// Operation state: "QTMS", then per operation: active (1), mechanism (4),
// keyByte (1), signatureLen (4), total (4), fold (32); integers little-endian.
constexpr char kStateMagic[4] = {'Q', 'T', 'M', 'S'};
constexpr size_t kOpStateSize = 1 + 4 + 1 + 4 + 4 + kFoldSize;
constexpr size_t kStateSize = sizeof kStateMagic + kOpCount * kOpStateSize;

void putLe(Bytes& b, CK_ULONG v) {
  for (int i = 0; i < 4; ++i) b.push_back(static_cast<CK_BYTE>(v >> (8 * i)));
}

CK_ULONG getLe(const CK_BYTE* p) {
  return p[0] | (CK_ULONG{p[1]} << 8) | (CK_ULONG{p[2]} << 16) | (CK_ULONG{p[3]} << 24);
}

}  // namespace

// The entry points that only pick an operation: (name, helper, operations).
#define QORTM_INIT(name, kind)                                                                  \
  CK_RV name(CK_SESSION_HANDLE h, CK_MECHANISM_PTR m, CK_OBJECT_HANDLE key) { return init(h, m, key, kind); }
#define QORTM_IN_OUT(name, helper, ...)                                                         \
  CK_RV name(CK_SESSION_HANDLE h, CK_BYTE_PTR in, CK_ULONG inLen, CK_BYTE_PTR out, CK_ULONG_PTR pulOut) { \
    return helper(h, in, inLen, out, pulOut, __VA_ARGS__);                                       \
  }
#define QORTM_PART(name, kind) \
  CK_RV name(CK_SESSION_HANDLE h, CK_BYTE_PTR in, CK_ULONG inLen) { return updateIn(h, in, inLen, kind); }
#define QORTM_FINAL(name, kind) \
  CK_RV name(CK_SESSION_HANDLE h, CK_BYTE_PTR out, CK_ULONG_PTR pulOut) { return finish(h, out, pulOut, kind); }

QORTM_INIT(C_EncryptInit, kEncrypt)
QORTM_INIT(C_DecryptInit, kDecrypt)
QORTM_INIT(C_SignInit, kSign)
QORTM_INIT(C_SignRecoverInit, kSignRecover)
QORTM_INIT(C_VerifyInit, kVerify)
QORTM_INIT(C_VerifyRecoverInit, kVerifyRecover)
QORTM_IN_OUT(C_Encrypt, single, kEncrypt)
QORTM_IN_OUT(C_Decrypt, single, kDecrypt)
QORTM_IN_OUT(C_Digest, single, kDigest)
QORTM_IN_OUT(C_Sign, single, kSign)
QORTM_IN_OUT(C_SignRecover, single, kSignRecover)
QORTM_IN_OUT(C_VerifyRecover, single, kVerifyRecover)
QORTM_IN_OUT(C_EncryptUpdate, updateOut, kEncrypt)
QORTM_IN_OUT(C_DecryptUpdate, updateOut, kDecrypt)
QORTM_IN_OUT(C_DigestEncryptUpdate, dual, kEncrypt, kDigest)
QORTM_IN_OUT(C_DecryptDigestUpdate, dual, kDecrypt, kDigest)
QORTM_IN_OUT(C_SignEncryptUpdate, dual, kEncrypt, kSign)
QORTM_IN_OUT(C_DecryptVerifyUpdate, dual, kDecrypt, kVerify)
QORTM_PART(C_DigestUpdate, kDigest)
QORTM_PART(C_SignUpdate, kSign)
QORTM_PART(C_VerifyUpdate, kVerify)
QORTM_FINAL(C_EncryptFinal, kEncrypt)
QORTM_FINAL(C_DecryptFinal, kDecrypt)
QORTM_FINAL(C_DigestFinal, kDigest)
QORTM_FINAL(C_SignFinal, kSign)

CK_RV C_DigestInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism) {
  return init(hSession, pMechanism, CK_INVALID_HANDLE, kDigest);
}

// The key's value is digested as data; keys without one digest their handle.
CK_RV C_DigestKey(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hKey) {
  Operation* op;
  Object* key;
  if (CK_RV rv = activeOp(hSession, kDigest, op)) return rv;
  if (findObject(hKey, key) != CKR_OK) return CKR_KEY_HANDLE_INVALID;
  const Bytes* v = key->find(CKA_VALUE);
  if (v != nullptr && (key->flag(CKA_SENSITIVE, false) || !key->flag(CKA_EXTRACTABLE, true)))
    return CKR_KEY_INDIGESTIBLE;
  const Bytes data = v != nullptr ? *v : ulongBytes(hKey);
  foldIn(*op, data.data(), static_cast<CK_ULONG>(data.size()));
  return CKR_OK;
}

CK_RV C_Verify(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen, CK_BYTE_PTR pSignature,
               CK_ULONG ulSignatureLen) {
  Operation* op;
  if (CK_RV rv = activeOp(hSession, kVerify, op)) return rv;
  if (pData == nullptr && ulDataLen != 0) {
    op->active = false;
    return CKR_ARGUMENTS_BAD;
  }
  foldIn(*op, pData, ulDataLen);
  return verify(*op, pSignature, ulSignatureLen);
}

CK_RV C_VerifyFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen) {
  Operation* op;
  if (CK_RV rv = activeOp(hSession, kVerify, op)) return rv;
  return verify(*op, pSignature, ulSignatureLen);
}

CK_RV C_GetOperationState(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState,
                          CK_ULONG_PTR pulOperationStateLen) {
  Session* s;
  if (CK_RV rv = findSession(hSession, s)) return rv;
  Bytes state(kStateMagic, kStateMagic + sizeof kStateMagic);
  for (const Operation& op : s->ops) {
    state.push_back(op.active ? 1 : 0);
    putLe(state, op.mechanism);
    state.push_back(op.keyByte);
    putLe(state, op.signatureLen);
    putLe(state, op.total);
    state.insert(state.end(), op.fold, op.fold + kFoldSize);
  }
  return putBytes(state, pOperationState, pulOperationStateLen);
}

CK_RV C_SetOperationState(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState, CK_ULONG ulOperationStateLen,
                          CK_OBJECT_HANDLE, CK_OBJECT_HANDLE) {
  Session* s;
  if (CK_RV rv = findSession(hSession, s)) return rv;
  if (pOperationState == nullptr) return CKR_ARGUMENTS_BAD;
  if (ulOperationStateLen != kStateSize || std::memcmp(pOperationState, kStateMagic, sizeof kStateMagic) != 0)
    return CKR_SAVED_STATE_INVALID;
  const CK_BYTE* p = pOperationState + sizeof kStateMagic;
  for (Operation& op : s->ops) {
    op.active = p[0] != 0;
    op.mechanism = getLe(p + 1);
    op.keyByte = p[5];
    op.signatureLen = std::min(getLe(p + 6), kMaxSignature);
    op.total = getLe(p + 10);
    std::memcpy(op.fold, p + 14, kFoldSize);
    p += kOpStateSize;
  }
  return CKR_OK;
}

}  // namespace qor::tm::impl
