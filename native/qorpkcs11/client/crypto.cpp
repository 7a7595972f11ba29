// The cryptographic functions that fit no family of the protocol table.
#include "qorpkcs11/client/call_frame.h"
#include "qorpkcs11/client/caller_memory.h"
#include "qorpkcs11/client/extensions.h"
#include "qorpkcs11/client/parameters.h"
#include "qorpkcs11/protocol/calls.h"

using namespace qor::client;
namespace sent = qor::protocol::sent;

namespace {

constexpr Frame kDigestInit = Frame{sent::C_DigestInit}.rv("C_DigestInit rv = %u");
constexpr Frame kDigestKey = Frame{sent::C_DigestKey}.logsEntry().rv("C_DigestKey rv = %u");
constexpr Frame kVerify = Frame{sent::C_Verify}.rvWithResponse("C_Verify rv = %u");

}  // namespace

CK_RV C_DigestInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism) {
  if (!readableMechanism(pMechanism)) return CKR_ARGUMENTS_BAD;
  if (const CK_RV rv = sendableParameter(*pMechanism)) return rv;
  return call(kDigestInit, [&](Op& op) {
    pkcs11::C_DigestInit* m = op.mutable_c_digestinit();
    m->set_hsession(wire(hSession));
    putMechanism(m->mutable_pmechanism(), *pMechanism);
  });
}

CK_RV C_DigestKey(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hKey) {
  return call(kDigestKey, [&](Op& op) {
    pkcs11::C_DigestKey* m = op.mutable_c_digestkey();
    m->set_hsession(wire(hSession));
    m->set_hkey(wire(hKey));
  });
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
        putCallerBytes(m->mutable_psignature(), pSignature, ulSignatureLen);
        m->set_ulsignaturelen(wire(ulSignatureLen));
      },
      reply(&Result::has_c_verify_response, &Result::c_verify_response),
      [&](const pkcs11::C_Verify_Response& r, CK_RV&) {
        copyBounded(pSignature, ulSignatureLen, r.psignature(), ul(r.ulsignaturelen()));
      });
}
