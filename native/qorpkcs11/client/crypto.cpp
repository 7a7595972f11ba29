// Encryption, decryption, digest, signature and verification functions, the
// dual-function updates and the parallel-function calls.
#include <string>

#include "qorpkcs11/client/call_frame.h"
#include "qorpkcs11/client/marshal.h"
#include "qorpkcs11/common/log.h"

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

// Spells the member pointers of a Transform from the message and field names.
#define QOR_OUTPUT_FIELDS(Msg, field, out, outLen)                                       \
  &pkcs11::Msg::mutable_##out, &pkcs11::Msg::set_##outLen,                              \
      Reply<pkcs11::Msg##_Response>{&Result::has_##field##_response,                    \
                                    &Result::field##_response},                         \
      &pkcs11::Msg##_Response::out, &pkcs11::Msg##_Response::outLen
#define QOR_FIELDS(Msg, field, in, inLen, out, outLen)                                   \
  &Op::mutable_##field, &pkcs11::Msg::mutable_##in, &pkcs11::Msg::set_##inLen,          \
      QOR_OUTPUT_FIELDS(Msg, field, out, outLen)
#define QOR_FINAL_FIELDS(Msg, field, out, outLen) \
  &Op::mutable_##field, nullptr, nullptr, QOR_OUTPUT_FIELDS(Msg, field, out, outLen)

template <class Req, class Resp>
CK_RV transform(const Transform<Req, Resp>& t, CK_SESSION_HANDLE hSession, const CK_BYTE* in,
                CK_ULONG inLen, CK_BYTE_PTR out, CK_ULONG_PTR outLen) {
  const Output output(out, outLen);
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
        output.put((m->*t.output)());
        (m->*t.outputLen)(wire(output.capacity()));
      },
      t.where,
      [&](const Resp& r, CK_RV& rv) {
        output.take((r.*t.replyBytes)(), (r.*t.replyLen)(), rv);
        QOR_LOGD(kClient, t.lengthLine, *outLen);
      });
}

template <class Req>
CK_RV initWithKey(const Frame& frame, Req* (Op::*request)(), CK_SESSION_HANDLE hSession,
                  CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey) {
  if (!readableMechanism(pMechanism)) return CKR_ARGUMENTS_BAD;
  return call(frame, [&](Op& op) {
    Req* m = (op.*request)();
    m->set_hsession(wire(hSession));
    putMechanism(m->mutable_pmechanism(), *pMechanism);
    m->set_hkey(wire(hKey));
  });
}

template <class Req>
CK_RV update(const Frame& frame, Req* (Op::*request)(), CK_SESSION_HANDLE hSession,
             CK_BYTE_PTR pPart, CK_ULONG ulPartLen) {
  if (!readable(pPart, ulPartLen)) return CKR_ARGUMENTS_BAD;
  return call(frame, [&](Op& op) {
    Req* m = (op.*request)();
    m->set_hsession(wire(hSession));
    putBytes(m->mutable_ppart(), pPart, ulPartLen);
    m->set_ulpartlen(wire(ulPartLen));
  });
}

constexpr Frame kEncryptInit = Frame{"C_EncryptInit"}.rv("C_EncryptInit rv = %u");
constexpr Frame kDecryptInit = Frame{"C_DecryptInit"}.rv("Decrypt rv = %u");
constexpr Frame kDigestInit = Frame{"C_DigestInit"}.rv("C_DigestInit rv = %u");
constexpr Frame kSignInit = Frame{"C_SignInit"}
                                .logsEntry()
                                .aroundSend("C_SignInit before serialize", nullptr)
                                .rv("C_SignInit rv = %u");
constexpr Frame kSignRecoverInit =
    Frame{"C_SignRecoverInit"}.logsEntry().rv("SignRecoverInit rv = %u");
constexpr Frame kVerifyInit = Frame{"C_VerifyInit"}.rv("VerifyInit rv = %u");
constexpr Frame kVerifyRecoverInit = Frame{"C_VerifyRecoverInit"}.rv("VerifyRecoverInit rv = %u");

constexpr Frame kDigestUpdate = Frame{"C_DigestUpdate"}.logsEntry().rv("C_DigestUpdate rv = %u");
constexpr Frame kSignUpdate = Frame{"C_SignUpdate"}.logsEntry().rv("C_SignUpdate rv = %u");
constexpr Frame kVerifyUpdate = Frame{"C_VerifyUpdate"}.logsEntry().rv("C_VerifyUpdate rv = %u");
constexpr Frame kVerifyFinal = Frame{"C_VerifyFinal"}.logsEntry().rv("C_VerifyFinal rv = %u");
constexpr Frame kDigestKey = Frame{"C_DigestKey"}.logsEntry().rv("C_DigestKey rv = %u");
constexpr Frame kVerify = Frame{"C_Verify"}.rvWithResponse("C_Verify rv = %u");
constexpr Frame kGetFunctionStatus =
    Frame{"C_GetFunctionStatus"}.logsEntry().rv("C_GetFunctionStatus return value = %u");
constexpr Frame kCancelFunction =
    Frame{"C_CancelFunction"}.logsEntry().rv("C_CancelFunction return value = %u");

constexpr Transform<pkcs11::C_Encrypt, pkcs11::C_Encrypt_Response> kEncrypt{
    Frame{"C_Encrypt"}.rvWithResponse("C_Encrypt rv = %u"), "C_Encrypt datalen = %u",
    QOR_FIELDS(C_Encrypt, c_encrypt, pdata, uldatalen, pencrypteddata, pulencrypteddatalen)};
constexpr Transform<pkcs11::C_Decrypt, pkcs11::C_Decrypt_Response> kDecrypt{
    Frame{"C_Decrypt"}.rvWithResponse("C_Decrypt rv = %u"), "C_Decrypt datalen = %u",
    QOR_FIELDS(C_Decrypt, c_decrypt, pencrypteddata, ulencrypteddatalen, pdata, puldatalen)};
constexpr Transform<pkcs11::C_Digest, pkcs11::C_Digest_Response> kDigest{
    Frame{"C_Digest"}.rvWithResponse("C_Digest rv = %u"), "C_Digest datalen = %u",
    QOR_FIELDS(C_Digest, c_digest, pdata, uldatalen, pdigest, puldigestlen)};
constexpr Transform<pkcs11::C_Sign, pkcs11::C_Sign_Response> kSign{
    Frame{"C_Sign"}.logsEntry().rvWithResponse("C_Sign rv = %u"), "C_Sign datalen = %u",
    QOR_FIELDS(C_Sign, c_sign, pdata, uldatalen, psignature, pulsignaturelen)};
constexpr Transform<pkcs11::C_SignRecover, pkcs11::C_SignRecover_Response> kSignRecover{
    Frame{"C_SignRecover"}.logsEntry().rvWithResponse("C_SignRecover rv = %u"),
    "C_SignRecover datalen = %u",
    QOR_FIELDS(C_SignRecover, c_signrecover, pdata, uldatalen, psignature, pulsignaturelen)};
constexpr Transform<pkcs11::C_VerifyRecover, pkcs11::C_VerifyRecover_Response> kVerifyRecover{
    Frame{"C_VerifyRecover"}.logsEntry().rvWithResponse("C_VerifyRecover rv = %u"),
    "C_VerifyRecover datalen = %u",
    QOR_FIELDS(C_VerifyRecover, c_verifyrecover, psignature, ulsignaturelen, pdata, puldatalen)};
constexpr Transform<pkcs11::C_EncryptUpdate, pkcs11::C_EncryptUpdate_Response> kEncryptUpdate{
    Frame{"C_EncryptUpdate"}.logsEntry().rvWithResponse("C_EncryptUpdate rv = %u"),
    "C_EncryptUpdate partlen = %u",
    QOR_FIELDS(C_EncryptUpdate, c_encryptupdate, ppart, ulpartlen, pencryptedpart,
               pulencryptedpartlen)};
constexpr Transform<pkcs11::C_DecryptUpdate, pkcs11::C_DecryptUpdate_Response> kDecryptUpdate{
    Frame{"C_DecryptUpdate"}.logsEntry().rvWithResponse("C_DecryptUpdate rv = %u"),
    "C_DecryptUpdate partlen = %u",
    QOR_FIELDS(C_DecryptUpdate, c_decryptupdate, pencryptedpart, ulencryptedpartlen, ppart,
               pulpartlen)};
constexpr Transform<pkcs11::C_DigestEncryptUpdate, pkcs11::C_DigestEncryptUpdate_Response>
    kDigestEncryptUpdate{
        Frame{"C_DigestEncryptUpdate"}.logsEntry().rvWithResponse("C_DigestEncryptUpdate rv = %u"),
        "C_DigestEncryptUpdate datalen = %u",
        QOR_FIELDS(C_DigestEncryptUpdate, c_digestencryptupdate, ppart, ulpartlen, pencryptedpart,
                   pulencryptedpartlen)};
constexpr Transform<pkcs11::C_DecryptDigestUpdate, pkcs11::C_DecryptDigestUpdate_Response>
    kDecryptDigestUpdate{
        Frame{"C_DecryptDigestUpdate"}.logsEntry().rvWithResponse("C_DecryptDigestUpdate rv = %u"),
        "C_DecryptDigestUpdate datalen = %u",
        QOR_FIELDS(C_DecryptDigestUpdate, c_decryptdigestupdate, pencryptedpart,
                   ulencryptedpartlen, ppart, pulpartlen)};
constexpr Transform<pkcs11::C_SignEncryptUpdate, pkcs11::C_SignEncryptUpdate_Response>
    kSignEncryptUpdate{
        Frame{"C_SignEncryptUpdate"}.logsEntry().rvWithResponse("C_SignEncryptUpdate rv = %u"),
        "C_SignEncryptUpdate datalen = %u",
        QOR_FIELDS(C_SignEncryptUpdate, c_signencryptupdate, ppart, ulpartlen, pencryptedpart,
                   pulencryptedpartlen)};
constexpr Transform<pkcs11::C_DecryptVerifyUpdate, pkcs11::C_DecryptVerifyUpdate_Response>
    kDecryptVerifyUpdate{
        Frame{"C_DecryptVerifyUpdate"}.logsEntry().rvWithResponse("C_DecryptVerifyUpdate rv = %u"),
        "C_DecryptVerifyUpdate datalen = %u",
        QOR_FIELDS(C_DecryptVerifyUpdate, c_decryptverifyupdate, pencryptedpart,
                   ulencryptedpartlen, ppart, pulpartlen)};
constexpr Transform<pkcs11::C_EncryptFinal, pkcs11::C_EncryptFinal_Response> kEncryptFinal{
    Frame{"C_EncryptFinal"}.logsEntry().rvWithResponse("C_EncryptFinal rv = %u"),
    "C_EncryptFinal lastpartlen = %u",
    QOR_FINAL_FIELDS(C_EncryptFinal, c_encryptfinal, plastencryptedpart, pullastencryptedpartlen)};
constexpr Transform<pkcs11::C_DecryptFinal, pkcs11::C_DecryptFinal_Response> kDecryptFinal{
    Frame{"C_DecryptFinal"}.logsEntry().rvWithResponse("C_DecryptFinal rv = %u"),
    "C_DecryptFinal lastpartlen = %u",
    QOR_FINAL_FIELDS(C_DecryptFinal, c_decryptfinal, plastpart, pullastpartlen)};
constexpr Transform<pkcs11::C_DigestFinal, pkcs11::C_DigestFinal_Response> kDigestFinal{
    Frame{"C_DigestFinal"}.logsEntry().rvWithResponse("C_DigestFinal rv = %u"),
    "C_DigestFinal datalen = %u",
    QOR_FINAL_FIELDS(C_DigestFinal, c_digestfinal, pdigest, puldigestlen)};
constexpr Transform<pkcs11::C_SignFinal, pkcs11::C_SignFinal_Response> kSignFinal{
    Frame{"C_SignFinal"}.logsEntry().rvWithResponse("C_SignFinal rv = %u"),
    "C_SignFinal datalen = %u",
    QOR_FINAL_FIELDS(C_SignFinal, c_signfinal, psignature, pulsignaturelen)};

#undef QOR_FINAL_FIELDS
#undef QOR_FIELDS
#undef QOR_OUTPUT_FIELDS

}  // namespace

CK_RV C_EncryptInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey) {
  return initWithKey(kEncryptInit, &Op::mutable_c_encryptinit, hSession, pMechanism, hKey);
}

CK_RV C_Encrypt(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                CK_BYTE_PTR pEncryptedData, CK_ULONG_PTR pulEncryptedDataLen) {
  return transform(kEncrypt, hSession, pData, ulDataLen, pEncryptedData, pulEncryptedDataLen);
}

CK_RV C_EncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                      CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen) {
  return transform(kEncryptUpdate, hSession, pPart, ulPartLen, pEncryptedPart, pulEncryptedPartLen);
}

CK_RV C_EncryptFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastEncryptedPart,
                     CK_ULONG_PTR pulLastEncryptedPartLen) {
  return transform(kEncryptFinal, hSession, nullptr, 0, pLastEncryptedPart, pulLastEncryptedPartLen);
}

CK_RV C_DecryptInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey) {
  return initWithKey(kDecryptInit, &Op::mutable_c_decryptinit, hSession, pMechanism, hKey);
}

CK_RV C_Decrypt(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedData, CK_ULONG ulEncryptedDataLen,
                CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen) {
  return transform(kDecrypt, hSession, pEncryptedData, ulEncryptedDataLen, pData, pulDataLen);
}

CK_RV C_DecryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                      CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen) {
  return transform(kDecryptUpdate, hSession, pEncryptedPart, ulEncryptedPartLen, pPart, pulPartLen);
}

CK_RV C_DecryptFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastPart, CK_ULONG_PTR pulLastPartLen) {
  return transform(kDecryptFinal, hSession, nullptr, 0, pLastPart, pulLastPartLen);
}

CK_RV C_DigestInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism) {
  if (!readableMechanism(pMechanism)) return CKR_ARGUMENTS_BAD;
  return call(kDigestInit, [&](Op& op) {
    pkcs11::C_DigestInit* m = op.mutable_c_digestinit();
    m->set_hsession(wire(hSession));
    putMechanism(m->mutable_pmechanism(), *pMechanism);
  });
}

CK_RV C_Digest(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen, CK_BYTE_PTR pDigest,
               CK_ULONG_PTR pulDigestLen) {
  return transform(kDigest, hSession, pData, ulDataLen, pDigest, pulDigestLen);
}

CK_RV C_DigestUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen) {
  return update(kDigestUpdate, &Op::mutable_c_digestupdate, hSession, pPart, ulPartLen);
}

CK_RV C_DigestKey(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hKey) {
  return call(kDigestKey, [&](Op& op) {
    pkcs11::C_DigestKey* m = op.mutable_c_digestkey();
    m->set_hsession(wire(hSession));
    m->set_hkey(wire(hKey));
  });
}

CK_RV C_DigestFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen) {
  return transform(kDigestFinal, hSession, nullptr, 0, pDigest, pulDigestLen);
}

CK_RV C_SignInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey) {
  return initWithKey(kSignInit, &Op::mutable_c_signinit, hSession, pMechanism, hKey);
}

CK_RV C_Sign(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
             CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen) {
  return transform(kSign, hSession, pData, ulDataLen, pSignature, pulSignatureLen);
}

CK_RV C_SignUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen) {
  return update(kSignUpdate, &Op::mutable_c_signupdate, hSession, pPart, ulPartLen);
}

CK_RV C_SignFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen) {
  return transform(kSignFinal, hSession, nullptr, 0, pSignature, pulSignatureLen);
}

CK_RV C_SignRecoverInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                        CK_OBJECT_HANDLE hKey) {
  return initWithKey(kSignRecoverInit, &Op::mutable_c_signrecoverinit, hSession, pMechanism, hKey);
}

CK_RV C_SignRecover(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                    CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen) {
  return transform(kSignRecover, hSession, pData, ulDataLen, pSignature, pulSignatureLen);
}

CK_RV C_VerifyInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey) {
  return initWithKey(kVerifyInit, &Op::mutable_c_verifyinit, hSession, pMechanism, hKey);
}

// Deployed servers take the signature as text and echo it back; both halves
// are kept, unlike C_VerifyFinal, which sends it whole.
CK_RV C_Verify(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
               CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen) {
  if (!readable(pData, ulDataLen) || !readable(pSignature, ulSignatureLen)) return CKR_ARGUMENTS_BAD;
  return call(
      kVerify,
      [&](Op& op) {
        pkcs11::C_Verify* m = op.mutable_c_verify();
        m->set_hsession(wire(hSession));
        putBytes(m->mutable_pdata(), pData, ulDataLen);
        m->set_uldatalen(wire(ulDataLen));
        putText(m->mutable_psignature(), pSignature, ulSignatureLen);
        m->set_ulsignaturelen(wire(ulSignatureLen));
      },
      reply(&Result::has_c_verify_response, &Result::c_verify_response),
      [&](const pkcs11::C_Verify_Response& r, CK_RV&) {
        copyBounded(pSignature, ulSignatureLen, r.psignature(), ck(r.ulsignaturelen()));
      });
}

CK_RV C_VerifyUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen) {
  return update(kVerifyUpdate, &Op::mutable_c_verifyupdate, hSession, pPart, ulPartLen);
}

CK_RV C_VerifyFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen) {
  if (!readable(pSignature, ulSignatureLen)) return CKR_ARGUMENTS_BAD;
  return call(kVerifyFinal, [&](Op& op) {
    pkcs11::C_VerifyFinal* m = op.mutable_c_verifyfinal();
    m->set_hsession(wire(hSession));
    putBytes(m->mutable_psignature(), pSignature, ulSignatureLen);
    m->set_ulsignaturelen(wire(ulSignatureLen));
  });
}

CK_RV C_VerifyRecoverInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                          CK_OBJECT_HANDLE hKey) {
  return initWithKey(kVerifyRecoverInit, &Op::mutable_c_verifyrecoverinit, hSession, pMechanism,
                     hKey);
}

CK_RV C_VerifyRecover(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen,
                      CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen) {
  return transform(kVerifyRecover, hSession, pSignature, ulSignatureLen, pData, pulDataLen);
}

CK_RV C_DigestEncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                            CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen) {
  return transform(kDigestEncryptUpdate, hSession, pPart, ulPartLen, pEncryptedPart,
                   pulEncryptedPartLen);
}

CK_RV C_DecryptDigestUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                            CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen) {
  return transform(kDecryptDigestUpdate, hSession, pEncryptedPart, ulEncryptedPartLen, pPart,
                   pulPartLen);
}

CK_RV C_SignEncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                          CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen) {
  return transform(kSignEncryptUpdate, hSession, pPart, ulPartLen, pEncryptedPart,
                   pulEncryptedPartLen);
}

CK_RV C_DecryptVerifyUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                            CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen) {
  return transform(kDecryptVerifyUpdate, hSession, pEncryptedPart, ulEncryptedPartLen, pPart,
                   pulPartLen);
}

CK_RV C_GetFunctionStatus(CK_SESSION_HANDLE hSession) {
  return sessionOnly(kGetFunctionStatus, &Op::mutable_c_getfunctionstatus, hSession);
}

CK_RV C_CancelFunction(CK_SESSION_HANDLE hSession) {
  return sessionOnly(kCancelFunction, &Op::mutable_c_cancelfunction, hSession);
}
