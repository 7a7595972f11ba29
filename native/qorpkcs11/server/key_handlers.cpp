// Key management and random numbers.
#include "qorpkcs11/protocol/calls.h"
#include "qorpkcs11/server/extensions.h"
#include "qorpkcs11/server/handler.h"
#include "qorpkcs11/server/module_memory.h"

using namespace qor::server;
namespace answered = qor::protocol::answered;
using pkcs11::Operation;
using pkcs11::OperationResult;

namespace {

// The parameter's outputs (a PBE IV, SSL3/TLS key material) come back in
// the responses of the calls whose mechanisms write them.
void return_parameter(const Mechanism& m, pkcs11::C_GenerateKey_Response* r) {
  m.answer(r->mutable_qor_parameter_out());
}
void return_parameter(const Mechanism& m, pkcs11::C_DeriveKey_Response* r) {
  m.answer(r->mutable_qor_parameter_out());
}
void return_parameter(const Mechanism&, pkcs11::C_UnwrapKey_Response*) {}

// C_GenerateKey, C_UnwrapKey and C_DeriveKey: a mechanism and a template in,
// one key handle out. `logName` is the function name their log lines use.
template <typename Response, typename Module>
CK_RV make_key(Call& call, const char* logName, const pkcs11::CK_MECHANISM& mechanismMessage,
               const Attributes& messages, int32_t count, Response* (OperationResult::*response)(),
               Module module) {
  Mechanism mechanism;
  if (const CK_RV bad = mechanism.build(mechanismMessage)) return call.decline(bad);
  QOR_LOGD(kTag, "Generate_Operation_Result ulcnt = %u", ul(count));
  Template attributes;
  if (const CK_RV bad = attributes.build(messages, ul(count), TemplateUse::kValues, "obj_attr"))
    return call.decline(bad);
  CK_OBJECT_HANDLE key = 0;
  const CK_RV value = module(mechanism.get(), attributes, &key);
  (call.result().*response)()->set_phkey(wire(key));
  return_parameter(mechanism, (call.result().*response)());
  QOR_LOGD(kTag, "Generate_Operation_Result %s phkey = %u", logName, key);
  QOR_LOGD(kTag, "Generate_Operation_Result %s rv = %u", logName, value);
  return value;
}

const ReplyOutput<pkcs11::C_WrapKey_Response> kWrapped{
    &OperationResult::mutable_c_wrapkey_response, &pkcs11::C_WrapKey_Response::mutable_pwrappedkey,
    &pkcs11::C_WrapKey_Response::set_pulwrappedkeylen, "wrappedkeylen"};
const ReplyOutput<pkcs11::C_SeedRandom_Response> kSeed{
    &OperationResult::mutable_c_seedrandom_response, &pkcs11::C_SeedRandom_Response::mutable_pseed,
    &pkcs11::C_SeedRandom_Response::set_ulseedlen, "seedlen"};
const ReplyOutput<pkcs11::C_GenerateRandom_Response> kRandom{
    &OperationResult::mutable_c_generaterandom_response,
    &pkcs11::C_GenerateRandom_Response::mutable_randomdata,
    &pkcs11::C_GenerateRandom_Response::set_ulrandomlen, "randomlen"};

}  // namespace

std::string C_GenerateKey_Server(const std::string& request) {
  return serve(request, answered::C_GenerateKey, &Operation::c_generatekey, RvLine::kOwn,
               [](const pkcs11::C_GenerateKey& req, Call& call) {
                 return make_key(
                     call, "C_GenerateKey", req.pmechanism(), req.ptemplate(), req.ulcount(),
                     &OperationResult::mutable_c_generatekey_response,
                     [&](CK_MECHANISM_PTR mechanism, Template& attributes, CK_OBJECT_HANDLE* key) {
                       return call.invoke(QOR_MEMBER(C_GenerateKey), ul(req.hsession()), mechanism,
                                          attributes.records(), attributes.count(), key);
                     });
               });
}

std::string C_UnWrapKey_Server(const std::string& request) {
  return serve(request, answered::C_UnwrapKey, &Operation::c_unwrapkey, RvLine::kOwn,
               [](const pkcs11::C_UnwrapKey& req, Call& call) {
                 const CK_ULONG wrappedLength = ul(req.ulwrappedkeylen());
                 const Input wrapped(req.pwrappedkey(), wrappedLength);
                 if (const CK_RV bad = wrapped.status()) return call.decline(bad);
                 return make_key(
                     call, "C_UnWrapKey", req.pmechanism(), req.ptemplate(), req.ulattributecount(),
                     &OperationResult::mutable_c_unwrapkey_response,
                     [&](CK_MECHANISM_PTR mechanism, Template& attributes, CK_OBJECT_HANDLE* key) {
                       return call.invoke(QOR_MEMBER(C_UnwrapKey), ul(req.hsession()), mechanism,
                                          ul(req.hunwrappingkey()), wrapped.data(), wrappedLength,
                                          attributes.records(), attributes.count(), key);
                     });
               });
}

// Answers under the name "C_UnDeriveKey": deployed peers expect exactly that.
std::string C_DeriveKey_Server(const std::string& request) {
  return serve(request, answered::C_DeriveKey, &Operation::c_derivekey, RvLine::kOwn,
               [](const pkcs11::C_DeriveKey& req, Call& call) {
                 return make_key(
                     call, "C_DeriveKey", req.pmechanism(), req.ptemplate(), req.ulattributecount(),
                     &OperationResult::mutable_c_derivekey_response,
                     [&](CK_MECHANISM_PTR mechanism, Template& attributes, CK_OBJECT_HANDLE* key) {
                       return call.invoke(QOR_MEMBER(C_DeriveKey), ul(req.hsession()), mechanism,
                                          ul(req.hbasekey()), attributes.records(),
                                          attributes.count(), key);
                     });
               });
}

std::string C_GenerateKeyPair_Server(const std::string& request) {
  return serve(
      request, answered::C_GenerateKeyPair, &Operation::c_generatekeypair, RvLine::kGenerateResult,
      [](const pkcs11::C_GenerateKeyPair& req, Call& call) {
        Mechanism mechanism;
        if (const CK_RV bad = mechanism.build(req.pmechanism())) return call.decline(bad);
        const CK_ULONG publicCount = ul(req.ulpublickeyattributecount());
        const CK_ULONG privateCount = ul(req.ulprivatekeyattributecount());
        QOR_LOGD(kTag, "Generate_Operation_Result ulpubcnt = %u", publicCount);
        Template publicTemplate;
        if (const CK_RV bad = publicTemplate.build(req.ppublickeytemplate(), publicCount,
                                                   TemplateUse::kValues, "obj_attr_pub"))
          return call.decline(bad);
        QOR_LOGD(kTag, "Generate_Operation_Result ulprivcnt = %u", privateCount);
        Template privateTemplate;
        if (const CK_RV bad = privateTemplate.build(req.pprivatekeytemplate(), privateCount,
                                                    TemplateUse::kValues, "obj_attr_priv"))
          return call.decline(bad);
        CK_OBJECT_HANDLE publicKey = 0;
        CK_OBJECT_HANDLE privateKey = 0;
        const CK_RV value =
            call.invoke(QOR_MEMBER(C_GenerateKeyPair), ul(req.hsession()), mechanism.get(),
                        publicTemplate.records(), publicTemplate.count(), privateTemplate.records(),
                        privateTemplate.count(), &publicKey, &privateKey);
        pkcs11::C_GenerateKeyPair_Response* out =
            call.result().mutable_c_generatekeypair_response();
        out->set_phpublickey(wire(publicKey));
        out->set_phprivatekey(wire(privateKey));
        QOR_LOGD(kTag, "Generate_Operation_Result C_GenerateKeyPair phpubkey = %u", publicKey);
        QOR_LOGD(kTag, "Generate_Operation_Result C_GenerateKeyPair phrivkey = %u", privateKey);
        return value;
      });
}

// The output buffer starts as the bytes the caller sent in it.
std::string C_WrapKey_Server(const std::string& request) {
  return serve(request, answered::C_WrapKey, &Operation::c_wrapkey, RvLine::kGenerateResult,
               [](const pkcs11::C_WrapKey& req, Call& call) {
                 Mechanism mechanism;
                 if (const CK_RV bad = mechanism.build(req.pmechanism())) return call.decline(bad);
                 Buffer wrapped(ul(req.pulwrappedkeylen()));
                 if (!wrapped.ok()) return call.out_of_memory();
                 wrapped.fill(req.pwrappedkey());
                 return produce(call, kWrapped, wrapped, [&](CK_BYTE_PTR out, CK_ULONG_PTR length) {
                   return call.invoke(QOR_MEMBER(C_WrapKey), ul(req.hsession()), mechanism.get(),
                                      ul(req.hwrappingkey()), ul(req.hkey()), out, length);
                 });
               });
}

// The seed is echoed back although C_SeedRandom has no outputs.
std::string C_SeedRandom_Server(const std::string& request) {
  return serve(request, answered::C_SeedRandom, &Operation::c_seedrandom, RvLine::kGenerateResult,
               [](const pkcs11::C_SeedRandom& req, Call& call) {
                 const CK_ULONG length = ul(req.ulseedlen());
                 const Input seed(req.pseed(), length);
                 if (const CK_RV bad = seed.status()) return call.decline(bad);
                 QOR_LOGD(kTag, "pseed = %.*s", shown(length), seed.data());
                 const CK_RV value =
                     call.invoke(QOR_MEMBER(C_SeedRandom), ul(req.hsession()), seed.data(), length);
                 answer(call, kSeed, seed, length);
                 return value;
               });
}

// The output buffer starts as the bytes the caller sent in it.
std::string C_GenerateRandom_Server(const std::string& request) {
  return serve(request, answered::C_GenerateRandom, &Operation::c_generaterandom, RvLine::kGenerateResult,
               [](const pkcs11::C_GenerateRandom& req, Call& call) {
                 Buffer random(ul(req.ulrandomlen()));
                 if (!random.ok()) return call.out_of_memory();
                 random.fill(req.randomdata());
                 QOR_LOGD(kTag, "randomdata = %.*s", shown(random.size()), random.data());
                 const CK_RV value = call.invoke(QOR_MEMBER(C_GenerateRandom), ul(req.hsession()),
                                                 random.data(), random.size());
                 answer(call, kRandom, random, random.size());
                 return value;
               });
}
