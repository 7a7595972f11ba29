// Key management and random-number functions.
#include "qorpkcs11/client/call_frame.h"
#include "qorpkcs11/client/caller_memory.h"
#include "qorpkcs11/client/extensions.h"
#include "qorpkcs11/client/parameters.h"
#include "qorpkcs11/common/log.h"
#include "qorpkcs11/protocol/calls.h"

using namespace qor::client;
namespace sent = qor::protocol::sent;
using qor::log::kClient;

namespace {

constexpr Frame kGenerateKey = Frame{sent::C_GenerateKey}.logsEntry().rv("C_GenerateKey rv = %u");
constexpr Frame kGenerateKeyPair =
    Frame{sent::C_GenerateKeyPair}.logsEntry().rv("C_GenerateKeyPair rv = %u");
constexpr Frame kWrapKey = Frame{sent::C_WrapKey}.logsEntry().rvWithResponse("C_WrapKey rv = %u");
// Deployed servers dispatch on this spelling.
constexpr Frame kUnwrapKey = Frame{sent::C_UnwrapKey}.logsEntry().rv("C_UnWrapKey rv = %u");
constexpr Frame kDeriveKey = Frame{sent::C_DeriveKey}.logsEntry().rv("C_DeriveKey rv = %u");
constexpr Frame kSeedRandom = Frame{sent::C_SeedRandom}.rv("C_SeedRandom rv = %u");
constexpr Frame kGenerateRandom = Frame{sent::C_GenerateRandom}.rv("C_GenerateRandom rv = %u");

bool readableKeyTemplate(const CK_ATTRIBUTE* t, CK_ULONG count) {
  return readableTemplate(t, count, TemplateUse::kValues);
}

void putKeyTemplate(WireTemplate* out, const CK_ATTRIBUTE* t, CK_ULONG count, const char* countLine) {
  QOR_LOGD(kClient, countLine, count);
  putTemplate(out, t, count, TemplateUse::kValues);
}

}  // namespace

CK_RV C_GenerateKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                    CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phKey) {
  if (!phKey || !readableMechanism(pMechanism) || !readableKeyTemplate(pTemplate, ulCount))
    return CKR_ARGUMENTS_BAD;
  if (const CK_RV rv = sendableParameter(*pMechanism)) return rv;
  return call(
      kGenerateKey,
      [&](Op& op) {
        pkcs11::C_GenerateKey* m = op.mutable_c_generatekey();
        m->set_hsession(wire(hSession));
        putMechanism(m->mutable_pmechanism(), *pMechanism);
        m->set_ulcount(wire(ulCount));
        putKeyTemplate(m->mutable_ptemplate(), pTemplate, ulCount, "ulcount start C_GenerateKey = %u");
      },
      reply(&Result::has_c_generatekey_response, &Result::c_generatekey_response),
      [&](const pkcs11::C_GenerateKey_Response& r, CK_RV&) {
        *phKey = ul(r.phkey());
        takeParameterOutputs(*pMechanism, r.qor_parameter_out());
      });
}

CK_RV C_GenerateKeyPair(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                        CK_ATTRIBUTE_PTR pPublicKeyTemplate, CK_ULONG ulPublicKeyAttributeCount,
                        CK_ATTRIBUTE_PTR pPrivateKeyTemplate, CK_ULONG ulPrivateKeyAttributeCount,
                        CK_OBJECT_HANDLE_PTR phPublicKey, CK_OBJECT_HANDLE_PTR phPrivateKey) {
  if (!phPublicKey || !phPrivateKey || !readableMechanism(pMechanism) ||
      !readableKeyTemplate(pPublicKeyTemplate, ulPublicKeyAttributeCount) ||
      !readableKeyTemplate(pPrivateKeyTemplate, ulPrivateKeyAttributeCount))
    return CKR_ARGUMENTS_BAD;
  if (const CK_RV rv = sendableParameter(*pMechanism)) return rv;
  // Deployed log readers know both counts by the public line.
  static constexpr char kCountLine[] = "public ulcount start C_GenerateKeyPair = %u";
  return call(
      kGenerateKeyPair,
      [&](Op& op) {
        pkcs11::C_GenerateKeyPair* m = op.mutable_c_generatekeypair();
        m->set_hsession(wire(hSession));
        putMechanism(m->mutable_pmechanism(), *pMechanism);
        m->set_ulpublickeyattributecount(wire(ulPublicKeyAttributeCount));
        putKeyTemplate(m->mutable_ppublickeytemplate(), pPublicKeyTemplate,
                       ulPublicKeyAttributeCount, kCountLine);
        m->set_ulprivatekeyattributecount(wire(ulPrivateKeyAttributeCount));
        putKeyTemplate(m->mutable_pprivatekeytemplate(), pPrivateKeyTemplate,
                       ulPrivateKeyAttributeCount, kCountLine);
      },
      reply(&Result::has_c_generatekeypair_response, &Result::c_generatekeypair_response),
      [&](const pkcs11::C_GenerateKeyPair_Response& r, CK_RV&) {
        *phPublicKey = ul(r.phpublickey());
        *phPrivateKey = ul(r.phprivatekey());
      });
}

CK_RV C_WrapKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                CK_OBJECT_HANDLE hWrappingKey, CK_OBJECT_HANDLE hKey, CK_BYTE_PTR pWrappedKey,
                CK_ULONG_PTR pulWrappedKeyLen) {
  const CallerOutput wrapped(pWrappedKey, pulWrappedKeyLen);
  if (!wrapped.usable() || !readableMechanism(pMechanism)) return CKR_ARGUMENTS_BAD;
  if (const CK_RV rv = sendableParameter(*pMechanism)) return rv;
  return call(
      kWrapKey,
      [&](Op& op) {
        pkcs11::C_WrapKey* m = op.mutable_c_wrapkey();
        m->set_hsession(wire(hSession));
        m->set_hwrappingkey(wire(hWrappingKey));
        m->set_hkey(wire(hKey));
        wrapped.put(op, m->mutable_pwrappedkey());
        m->set_pulwrappedkeylen(wire(wrapped.capacity()));
        putMechanism(m->mutable_pmechanism(), *pMechanism);
      },
      reply(&Result::has_c_wrapkey_response, &Result::c_wrapkey_response),
      [&](const pkcs11::C_WrapKey_Response& r, CK_RV& rv) {
        wrapped.take(r.pwrappedkey(), r.pulwrappedkeylen(), rv);
      });
}

CK_RV C_UnwrapKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                  CK_OBJECT_HANDLE hUnwrappingKey, CK_BYTE_PTR pWrappedKey, CK_ULONG ulWrappedKeyLen,
                  CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey) {
  if (!phKey || !readableMechanism(pMechanism) || !readable(pWrappedKey, ulWrappedKeyLen) ||
      !readableKeyTemplate(pTemplate, ulAttributeCount))
    return CKR_ARGUMENTS_BAD;
  if (const CK_RV rv = sendableParameter(*pMechanism)) return rv;
  return call(
      kUnwrapKey,
      [&](Op& op) {
        pkcs11::C_UnwrapKey* m = op.mutable_c_unwrapkey();
        m->set_hsession(wire(hSession));
        m->set_hunwrappingkey(wire(hUnwrappingKey));
        putBytes(m->mutable_pwrappedkey(), pWrappedKey, ulWrappedKeyLen);
        m->set_ulwrappedkeylen(wire(ulWrappedKeyLen));
        putMechanism(m->mutable_pmechanism(), *pMechanism);
        m->set_ulattributecount(wire(ulAttributeCount));
        putKeyTemplate(m->mutable_ptemplate(), pTemplate, ulAttributeCount,
                       "ulcount start C_UnWrapKey = %u");
      },
      reply(&Result::has_c_unwrapkey_response, &Result::c_unwrapkey_response),
      [&](const pkcs11::C_UnwrapKey_Response& r, CK_RV&) { *phKey = ul(r.phkey()); });
}

CK_RV C_DeriveKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hBaseKey,
                  CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey) {
  if (!phKey || !readableMechanism(pMechanism) || !readableKeyTemplate(pTemplate, ulAttributeCount))
    return CKR_ARGUMENTS_BAD;
  if (const CK_RV rv = sendableParameter(*pMechanism)) return rv;
  return call(
      kDeriveKey,
      [&](Op& op) {
        pkcs11::C_DeriveKey* m = op.mutable_c_derivekey();
        m->set_hsession(wire(hSession));
        m->set_hbasekey(wire(hBaseKey));
        putMechanism(m->mutable_pmechanism(), *pMechanism);
        m->set_ulattributecount(wire(ulAttributeCount));
        putKeyTemplate(m->mutable_ptemplate(), pTemplate, ulAttributeCount,
                       "ulcount start C_DeriveKey = %u");
      },
      reply(&Result::has_c_derivekey_response, &Result::c_derivekey_response),
      [&](const pkcs11::C_DeriveKey_Response& r, CK_RV&) {
        *phKey = ul(r.phkey());
        takeParameterOutputs(*pMechanism, r.qor_parameter_out());
      });
}

// Deployed servers take the seed as text and echo it; the echo is copied
// back into the seed buffer, within its length.
CK_RV C_SeedRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSeed, CK_ULONG ulSeedLen) {
  if (!readable(pSeed, ulSeedLen)) return CKR_ARGUMENTS_BAD;
  return call(
      kSeedRandom,
      [&](Op& op) {
        pkcs11::C_SeedRandom* m = op.mutable_c_seedrandom();
        m->set_hsession(wire(hSession));
        putCallerBytes(m->mutable_pseed(), pSeed, ulSeedLen);
        m->set_ulseedlen(wire(ulSeedLen));
      },
      reply(&Result::has_c_seedrandom_response, &Result::c_seedrandom_response),
      [&](const pkcs11::C_SeedRandom_Response& r, CK_RV&) {
        copyBounded(pSeed, ulSeedLen, r.pseed(), ul(r.ulseedlen()));
      });
}

CK_RV C_GenerateRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR RandomData, CK_ULONG ulRandomLen) {
  if (!readable(RandomData, ulRandomLen)) return CKR_ARGUMENTS_BAD;
  return call(
      kGenerateRandom,
      [&](Op& op) {
        pkcs11::C_GenerateRandom* m = op.mutable_c_generaterandom();
        m->set_hsession(wire(hSession));
        putCallerOutput(m->mutable_randomdata(), RandomData, ulRandomLen);
        m->set_ulrandomlen(wire(ulRandomLen));
      },
      reply(&Result::has_c_generaterandom_response, &Result::c_generaterandom_response),
      [&](const pkcs11::C_GenerateRandom_Response& r, CK_RV&) {
        copyBounded(RandomData, ulRandomLen, r.randomdata(), ul(r.ulrandomlen()));
      });
}
