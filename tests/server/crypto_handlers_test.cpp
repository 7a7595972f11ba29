// Cryptographic, key and random handlers. The requests of one family share
// their field numbers (1 session, then input bytes and length, then output
// bytes and length), and so do all replies with an output (1 bytes, 2
// length), so one encoder and one decoder serve each family.
#include "server_fixture.h"

namespace qor::test {
namespace {

using pkcs11::Operation;
using pkcs11::OperationResult;
using Check = std::function<void(const OperationResult&)>;

std::string varint(uint64_t v) {
  std::string out;
  for (; v >= 0x80; v >>= 7) out.push_back(static_cast<char>(v | 0x80));
  out.push_back(static_cast<char>(v));
  return out;
}
std::string field(int number, int32_t value) {
  return varint(static_cast<uint64_t>(number) << 3) +
         varint(static_cast<uint64_t>(static_cast<int64_t>(value)));
}
std::string field(int number, const std::string& bytes) {
  return varint(static_cast<uint64_t>(number) << 3 | 2) + varint(bytes.size()) + bytes;
}

template <typename M>
using Mutable = M* (Operation::*)();

template <typename M>
Fill encoded(Mutable<M> request, std::string fields) {
  return [=](Operation& o) { ASSERT_TRUE((o.*request)()->ParseFromString(fields)); };
}
// Session 7, input bytes and length, output length.
template <typename M>
Fill in_out(Mutable<M> request, const std::string& in, int32_t inLength, int32_t outLength) {
  return encoded(request, field(1, 7) + field(2, in) + field(3, inLength) + field(5, outLength));
}
template <typename M>
Fill out_only(Mutable<M> request, int32_t outLength) {
  return encoded(request, field(1, 7) + field(2, std::string("zz")) + field(3, outLength));
}
template <typename M>
Fill in_only(Mutable<M> request, const std::string& in, int32_t inLength) {
  return encoded(request, field(1, 7) + field(2, in) + field(3, inLength));
}
// A vendor mechanism, so that the module shows its parameter as bytes.
const std::string kMechanism = field(1, static_cast<int32_t>(0x80000001u)) +
                               field(2, std::string("\x01\x02\x03")) + field(3, 3);
const std::string kMechanismShown = "{mechanism=0x80000001, pParameter=[010203], ulParameterLen=3}";

template <typename R>
std::pair<std::string, int32_t> output_of(const R& response) {
  pkcs11::C_Encrypt_Response same;
  EXPECT_TRUE(same.ParseFromString(response.SerializeAsString()));
  return {same.pencrypteddata(), same.pulencrypteddatalen()};
}
template <typename R>
Check output_is(const R& (OperationResult::*response)() const, std::string bytes, int32_t length) {
  return [=](const OperationResult& r) {
    EXPECT_EQ(std::make_pair(bytes, length), output_of((r.*response)()));
  };
}
template <typename R>
std::function<std::pair<std::string, int32_t>(const OperationResult&)> output(
    const R& (OperationResult::*response)() const) {
  return [=](const OperationResult& r) { return output_of((r.*response)()); };
}

void add(google::protobuf::RepeatedPtrField<pkcs11::CK_ATTRIBUTE>* t, uint32_t type,
         std::string value) {
  pkcs11::CK_ATTRIBUTE* a = t->Add();
  a->set_type(type);
  a->set_pvalue(value);
  a->set_ulvaluelen(static_cast<uint32_t>(value.size()));
}
void set_mechanism(pkcs11::CK_MECHANISM* m) { ASSERT_TRUE(m->ParseFromString(kMechanism)); }
const std::string kKeyType = "[{type=0x100, pValue=[1f000000], ulValueLen=4}]";

// "ab" in, two bytes asked for and "cd" answered.
template <typename M, typename R>
HandlerCase in_out_case(const char* fn, Mutable<M> request,
                        const R& (OperationResult::*response)() const, const char* arguments) {
  return {fn + 2,
          fn,
          in_out(request, "ab", 2, 2),
          {CKR_OK, "cd", 2},
          std::string(fn) + "(hSession=7, " + arguments + ")",
          output_is(response, "cd", 2)};
}
// "abc" sent, the first two bytes given.
template <typename M>
HandlerCase in_only_case(const char* fn, Mutable<M> request, const char* bytesName,
                         const char* lengthName) {
  return {fn + 2,
          fn,
          in_only(request, "abc", 2),
          {},
          std::string(fn) + "(hSession=7, " + bytesName + "=[6162], " + lengthName + "=2)"};
}

// Session 7, the mechanism above, key 5.
template <typename M>
HandlerCase init_case(const char* fn, Mutable<M> request) {
  return {fn + 2,
          fn,
          encoded(request, field(1, 7) + field(2, kMechanism) + field(3, 5)),
          {},
          std::string(fn) + "(hSession=7, pMechanism=" + kMechanismShown + ", hKey=5)"};
}

const HandlerCase kCases[] = {
    init_case("C_EncryptInit", &Operation::mutable_c_encryptinit),
    init_case("C_DecryptInit", &Operation::mutable_c_decryptinit),
    init_case("C_SignInit", &Operation::mutable_c_signinit),
    init_case("C_VerifyInit", &Operation::mutable_c_verifyinit),
    init_case("C_SignRecoverInit", &Operation::mutable_c_signrecoverinit),
    init_case("C_VerifyRecoverInit", &Operation::mutable_c_verifyrecoverinit),
    // A parameter of no bytes still comes as a buffer.
    {"DigestInit", "C_DigestInit",
     encoded(&Operation::mutable_c_digestinit, field(1, 7) + field(2, field(1, 0x250))),
     {CKR_OK},
     "C_DigestInit(hSession=7, pMechanism={mechanism=0x250, pParameter=[], ulParameterLen=0})"},

    {"Encrypt", "C_Encrypt", in_out(&Operation::mutable_c_encrypt, "abc", 3, 8),
     {CKR_OK, "XYZ", 3},
     "C_Encrypt(hSession=7, pData=[616263], ulDataLen=3, pEncryptedData=" + shown(zeros(8)) +
         ", *pulEncryptedDataLen=8)",
     output_is(&OperationResult::c_encrypt_response, "XYZ", 3)},
    {"Decrypt", "C_Decrypt", in_out(&Operation::mutable_c_decrypt, "abcd", 4, 2),
     {CKR_OK, "pt", 2},
     "C_Decrypt(hSession=7, pEncryptedData=[61626364], ulEncryptedDataLen=4, pData=[0000], *pulDataLen=2)",
     output_is(&OperationResult::c_decrypt_response, "pt", 2)},
    {"Digest", "C_Digest", in_out(&Operation::mutable_c_digest, "abc", 3, 4), {CKR_OK, "dgst", 4},
     "C_Digest(hSession=7, pData=[616263], ulDataLen=3, pDigest=[00000000], *pulDigestLen=4)",
     output_is(&OperationResult::c_digest_response, "dgst", 4)},
    // A zero-length output still comes as a buffer; the needed length comes back.
    {"SignLengthQuery", "C_Sign", in_out(&Operation::mutable_c_sign, "abc", 3, 0),
     {CKR_BUFFER_TOO_SMALL, "", 128},
     "C_Sign(hSession=7, pData=[616263], ulDataLen=3, pSignature=[], *pulSignatureLen=0)",
     output_is(&OperationResult::c_sign_response, "", 128)},
    // Both buffers take the output's length; the input is copied up to it.
    {"SignRecover", "C_SignRecover", in_out(&Operation::mutable_c_signrecover, "abcd", 4, 6),
     {CKR_OK, "sig", 3},
     "C_SignRecover(hSession=7, pData=[61626364], ulDataLen=4, pSignature=" + shown(zeros(6)) +
         ", *pulSignatureLen=6)",
     output_is(&OperationResult::c_signrecover_response, "sig", 3)},
    {"VerifyRecoverShortOutput", "C_VerifyRecover", in_out(&Operation::mutable_c_verifyrecover, "ABCDEFGH", 8, 4),
     {CKR_OK},
     "C_VerifyRecover(hSession=7, pSignature=[4142434400000000], ulSignatureLen=8, pData=[00000000], "
     "*pulDataLen=4)"},
    {"EncryptUpdateShortOutput", "C_EncryptUpdate", in_out(&Operation::mutable_c_encryptupdate, "ABCDEFGH", 8, 4),
     {CKR_OK, "WXYZ", 4},
     "C_EncryptUpdate(hSession=7, pPart=[4142434400000000], ulPartLen=8, pEncryptedPart=" + shown(zeros(4)) +
         ", *pulEncryptedPartLen=4)",
     output_is(&OperationResult::c_encryptupdate_response, "WXYZ", 4)},
    in_out_case("C_DecryptUpdate", &Operation::mutable_c_decryptupdate,
                &OperationResult::c_decryptupdate_response,
                "pEncryptedPart=[6162], ulEncryptedPartLen=2, pPart=[0000], *pulPartLen=2"),
    in_out_case("C_DigestEncryptUpdate", &Operation::mutable_c_digestencryptupdate,
                &OperationResult::c_digestencryptupdate_response,
                "pPart=[6162], ulPartLen=2, pEncryptedPart=[0000], *pulEncryptedPartLen=2"),
    in_out_case("C_DecryptDigestUpdate", &Operation::mutable_c_decryptdigestupdate,
                &OperationResult::c_decryptdigestupdate_response,
                "pEncryptedPart=[6162], ulEncryptedPartLen=2, pPart=[0000], *pulPartLen=2"),
    in_out_case("C_SignEncryptUpdate", &Operation::mutable_c_signencryptupdate,
                &OperationResult::c_signencryptupdate_response,
                "pPart=[6162], ulPartLen=2, pEncryptedPart=[0000], *pulEncryptedPartLen=2"),
    in_out_case("C_DecryptVerifyUpdate", &Operation::mutable_c_decryptverifyupdate,
                &OperationResult::c_decryptverifyupdate_response,
                "pEncryptedPart=[6162], ulEncryptedPartLen=2, pPart=[0000], *pulPartLen=2"),

    // What the peer sent in an output buffer is not handed on.
    {"EncryptFinal", "C_EncryptFinal", out_only(&Operation::mutable_c_encryptfinal, 3),
     {CKR_OK, "end", 3},
     "C_EncryptFinal(hSession=7, pLastEncryptedPart=[000000], *pulLastEncryptedPartLen=3)",
     output_is(&OperationResult::c_encryptfinal_response, "end", 3)},
    {"DecryptFinal", "C_DecryptFinal", out_only(&Operation::mutable_c_decryptfinal, 3),
     {CKR_OK, "", 0}, "C_DecryptFinal(hSession=7, pLastPart=[000000], *pulLastPartLen=3)",
     output_is(&OperationResult::c_decryptfinal_response, "", 0)},
    {"DigestFinal", "C_DigestFinal", out_only(&Operation::mutable_c_digestfinal, 2),
     {CKR_OK, "dg", 2}, "C_DigestFinal(hSession=7, pDigest=[0000], *pulDigestLen=2)",
     output_is(&OperationResult::c_digestfinal_response, "dg", 2)},
    {"SignFinal", "C_SignFinal", out_only(&Operation::mutable_c_signfinal, 4), {CKR_OK, "sg", 2},
     "C_SignFinal(hSession=7, pSignature=[00000000], *pulSignatureLen=4)",
     output_is(&OperationResult::c_signfinal_response, "sg", 2)},

    in_only_case("C_DigestUpdate", &Operation::mutable_c_digestupdate, "pPart", "ulPartLen"),
    in_only_case("C_SignUpdate", &Operation::mutable_c_signupdate, "pPart", "ulPartLen"),
    in_only_case("C_VerifyUpdate", &Operation::mutable_c_verifyupdate, "pPart", "ulPartLen"),
    {"VerifyFinal", "C_VerifyFinal", in_only(&Operation::mutable_c_verifyfinal, bytes({0, 1}), 2),
     {CKR_SIGNATURE_INVALID}, "C_VerifyFinal(hSession=7, pSignature=[0001], ulSignatureLen=2)"},
    {"DigestKey", "C_DigestKey", encoded(&Operation::mutable_c_digestkey, field(1, 7) + field(2, 5)),
     {CKR_OK}, "C_DigestKey(hSession=7, hKey=5)"},
    // The signature sent never reaches the module: it checks a zeroed buffer
    // of the signature's length, which the reply echoes.
    {"Verify", "C_Verify",
     encoded(&Operation::mutable_c_verify,
             field(1, 7) + field(2, std::string("abc")) + field(3, 3) + field(4, std::string("sig!")) + field(5, 4)),
     {CKR_SIGNATURE_INVALID},
     "C_Verify(hSession=7, pData=[616263], ulDataLen=3, pSignature=[00000000], ulSignatureLen=4)",
     output_is(&OperationResult::c_verify_response, zeros(4), 4)},

    {"GenerateKey", "C_GenerateKey",
     [](Operation& o) {
       auto* r = o.mutable_c_generatekey();
       r->set_hsession(7);
       set_mechanism(r->mutable_pmechanism());
       add(r->mutable_ptemplate(), 0x100, le32(0x1f));
       r->set_ulcount(1);
     },
     {CKR_OK, "", -1, -1, {21}},
     "C_GenerateKey(hSession=7, pMechanism=" + kMechanismShown + ", pTemplate=" + kKeyType +
         ", ulCount=1, phKey=nonnull)",
     [](const OperationResult& r) { EXPECT_EQ(21, r.c_generatekey_response().phkey()); }},
    {"GenerateKeyPair", "C_GenerateKeyPair",
     [](Operation& o) {
       auto* r = o.mutable_c_generatekeypair();
       r->set_hsession(7);
       set_mechanism(r->mutable_pmechanism());
       add(r->mutable_pprivatekeytemplate(), 0x100, le32(0x1f));
       r->set_ulprivatekeyattributecount(1);
     },
     {CKR_OK, "", -1, -1, {31, 32}},
     "C_GenerateKeyPair(hSession=7, pMechanism=" + kMechanismShown +
         ", pPublicKeyTemplate=[], ulPublicKeyAttributeCount=0, pPrivateKeyTemplate=" + kKeyType +
         ", ulPrivateKeyAttributeCount=1, phPublicKey=nonnull, phPrivateKey=nonnull)",
     [](const OperationResult& r) {
       EXPECT_EQ(31, r.c_generatekeypair_response().phpublickey());
       EXPECT_EQ(32, r.c_generatekeypair_response().phprivatekey());
     }},
    // The output buffer starts as what the peer sent in it.
    {"WrapKey", "C_WrapKey",
     [](Operation& o) {
       auto* r = o.mutable_c_wrapkey();
       r->set_hsession(7);
       set_mechanism(r->mutable_pmechanism());
       r->set_hwrappingkey(5);
       r->set_hkey(6);
       r->set_pwrappedkey("ab");
       r->set_pulwrappedkeylen(4);
     },
     {CKR_OK, "WXYZ", 4},
     "C_WrapKey(hSession=7, pMechanism=" + kMechanismShown +
         ", hWrappingKey=5, hKey=6, pWrappedKey=[61620000], *pulWrappedKeyLen=4)",
     output_is(&OperationResult::c_wrapkey_response, "WXYZ", 4)},
    {"UnWrapKey", "C_UnWrapKey",
     [](Operation& o) {
       auto* r = o.mutable_c_unwrapkey();
       r->set_hsession(7);
       set_mechanism(r->mutable_pmechanism());
       r->set_hunwrappingkey(5);
       r->set_pwrappedkey("wrapped");
       r->set_ulwrappedkeylen(6);
     },
     {CKR_OK, "", -1, -1, {41}},
     "C_UnwrapKey(hSession=7, pMechanism=" + kMechanismShown +
         ", hUnwrappingKey=5, pWrappedKey=[777261707065], ulWrappedKeyLen=6, pTemplate=[], ulAttributeCount=0, "
         "phKey=nonnull)",
     [](const OperationResult& r) { EXPECT_EQ(41, r.c_unwrapkey_response().phkey()); }},
    {"DeriveKey", "C_DeriveKey",
     [](Operation& o) {
       auto* r = o.mutable_c_derivekey();
       r->set_hsession(7);
       set_mechanism(r->mutable_pmechanism());
       r->set_hbasekey(5);
       add(r->mutable_ptemplate(), 0x100, le32(0x1f));
       r->set_ulattributecount(1);
     },
     {CKR_OK, "", -1, -1, {51}},
     "C_DeriveKey(hSession=7, pMechanism=" + kMechanismShown + ", hBaseKey=5, pTemplate=" + kKeyType +
         ", ulAttributeCount=1, phKey=nonnull)",
     [](const OperationResult& r) { EXPECT_EQ(51, r.c_derivekey_response().phkey()); }, "C_UnDeriveKey"},
    {"SeedRandom", "C_SeedRandom", in_only(&Operation::mutable_c_seedrandom, "seed", 4),
     {CKR_RANDOM_SEED_NOT_SUPPORTED}, "C_SeedRandom(hSession=7, pSeed=[73656564], ulSeedLen=4)",
     output_is(&OperationResult::c_seedrandom_response, "seed", 4)},
    {"GenerateRandom", "C_GenerateRandom", in_only(&Operation::mutable_c_generaterandom, "ab", 4),
     {CKR_OK, bytes({1, 2, 3, 4})},
     "C_GenerateRandom(hSession=7, RandomData=[61620000], ulRandomLen=4)",
     output_is(&OperationResult::c_generaterandom_response, bytes({1, 2, 3, 4}), 4)},
};

INSTANTIATE_TEST_SUITE_P(Crypto, HandlerTest, ::testing::ValuesIn(kCases), label<HandlerCase>);

const std::string kShortMechanism = field(1, 1) + field(2, std::string("ab")) + field(3, 3);

// Inputs shorter than their stated length (a signature or seed sent as
// text stops at its first zero byte) reach the module padded with zeros.
const HandlerCase kShortInputs[] = {
    {"EncryptInitParameter", "C_EncryptInit",
     encoded(&Operation::mutable_c_encryptinit, field(2, kShortMechanism)), {CKR_OK},
     "C_EncryptInit(hSession=0, pMechanism={mechanism=0x1, pParameter=[616200], "
     "ulParameterLen=3}, hKey=0)"},
    {"Encrypt", "C_Encrypt", in_out(&Operation::mutable_c_encrypt, "ab", 3, 8), {CKR_OK},
     "C_Encrypt(hSession=7, pData=[616200], ulDataLen=3, pEncryptedData=" + shown(zeros(8)) +
         ", *pulEncryptedDataLen=8)"},
    {"DigestUpdate", "C_DigestUpdate", in_only(&Operation::mutable_c_digestupdate, "ab", 3),
     {CKR_OK}, "C_DigestUpdate(hSession=7, pPart=[616200], ulPartLen=3)"},
    {"VerifyFinal", "C_VerifyFinal", in_only(&Operation::mutable_c_verifyfinal, "", 1),
     {CKR_SIGNATURE_INVALID}, "C_VerifyFinal(hSession=7, pSignature=[00], ulSignatureLen=1)"},
    {"VerifyData", "C_Verify", encoded(&Operation::mutable_c_verify, field(3, 1)),
     {CKR_SIGNATURE_INVALID},
     "C_Verify(hSession=0, pData=[00], ulDataLen=1, pSignature=[], ulSignatureLen=0)"},
    {"SeedRandom", "C_SeedRandom", in_only(&Operation::mutable_c_seedrandom, "s", 4), {CKR_OK},
     "C_SeedRandom(hSession=7, pSeed=[73000000], ulSeedLen=4)",
     output_is(&OperationResult::c_seedrandom_response, std::string("s\0\0\0", 4), 4)},
    {"UnWrapKeyWrappedKey", "C_UnWrapKey",
     [](Operation& o) { o.mutable_c_unwrapkey()->set_ulwrappedkeylen(1); }, {CKR_OK},
     "C_UnwrapKey(hSession=0, pMechanism={mechanism=0x0, pParameter=[], ulParameterLen=0}, "
     "hUnwrappingKey=0, pWrappedKey=[00], ulWrappedKeyLen=1, pTemplate=[], ulAttributeCount=0, "
     "phKey=nonnull)"},
};

INSTANTIATE_TEST_SUITE_P(CryptoShortInputs, HandlerTest, ::testing::ValuesIn(kShortInputs),
                         label<HandlerCase>);

// Lengths no frame could carry, and counts above the messages sent.
const std::string kHugeMechanism = field(1, 1) + field(2, std::string("ab")) + field(3, -3);

const Refusal kRefusals[] = {
    {"EncryptInitParameter", "C_EncryptInit",
     encoded(&Operation::mutable_c_encryptinit, field(2, kHugeMechanism))},
    {"DigestInitParameter", "C_DigestInit",
     encoded(&Operation::mutable_c_digestinit, field(2, kHugeMechanism))},
    {"DecryptNegative", "C_Decrypt", in_out(&Operation::mutable_c_decrypt, "ab", -1, 8)},
    {"EncryptUpdateNegative", "C_EncryptUpdate",
     in_out(&Operation::mutable_c_encryptupdate, "ab", -3, 8)},
    {"VerifyFinalNegative", "C_VerifyFinal", in_only(&Operation::mutable_c_verifyfinal, "", -1)},
    {"GenerateKeyCount", "C_GenerateKey",
     [](Operation& o) { o.mutable_c_generatekey()->set_ulcount(1); }},
    {"GenerateKeyPairPrivateCount", "C_GenerateKeyPair",
     [](Operation& o) { o.mutable_c_generatekeypair()->set_ulprivatekeyattributecount(2); }},
    {"WrapKeyMechanism", "C_WrapKey",
     [](Operation& o) {
       ASSERT_TRUE(o.mutable_c_wrapkey()->mutable_pmechanism()->ParseFromString(kHugeMechanism));
     }},
    {"UnWrapKeyWrappedKeyNegative", "C_UnWrapKey",
     [](Operation& o) { o.mutable_c_unwrapkey()->set_ulwrappedkeylen(-1); }},
    {"DeriveKeyMechanism", "C_DeriveKey",
     [](Operation& o) {
       ASSERT_TRUE(o.mutable_c_derivekey()->mutable_pmechanism()->ParseFromString(kHugeMechanism));
     },
     "C_UnDeriveKey"},
};

INSTANTIATE_TEST_SUITE_P(Crypto, RefusalTest, ::testing::ValuesIn(kRefusals), label<Refusal>);

// An output asked for with kCapacity bytes; the label is the name less "C_".
template <typename R>
Unwritten unwritten(const char* fn, Fill fill, const R& (OperationResult::*response)() const,
                    int32_t length = kCapacity + 100) {
  return {fn + 2, fn, fn, std::move(fill), output(response), length};
}
template <typename M, typename R>
Unwritten unwritten_in_out(const char* fn, Mutable<M> request,
                           const R& (OperationResult::*response)() const) {
  return unwritten(fn, in_out(request, "", 0, kCapacity), response);
}
template <typename M, typename R>
Unwritten unwritten_final(const char* fn, Mutable<M> request,
                          const R& (OperationResult::*response)() const) {
  return unwritten(fn, out_only(request, kCapacity), response);
}

const Unwritten kUnwritten[] = {
    unwritten_in_out("C_Encrypt", &Operation::mutable_c_encrypt,
                     &OperationResult::c_encrypt_response),
    unwritten_in_out("C_Decrypt", &Operation::mutable_c_decrypt,
                     &OperationResult::c_decrypt_response),
    unwritten_in_out("C_Digest", &Operation::mutable_c_digest, &OperationResult::c_digest_response),
    unwritten_in_out("C_Sign", &Operation::mutable_c_sign, &OperationResult::c_sign_response),
    unwritten_in_out("C_SignRecover", &Operation::mutable_c_signrecover,
                     &OperationResult::c_signrecover_response),
    unwritten_in_out("C_VerifyRecover", &Operation::mutable_c_verifyrecover,
                     &OperationResult::c_verifyrecover_response),
    unwritten_in_out("C_EncryptUpdate", &Operation::mutable_c_encryptupdate,
                     &OperationResult::c_encryptupdate_response),
    unwritten_in_out("C_DecryptUpdate", &Operation::mutable_c_decryptupdate,
                     &OperationResult::c_decryptupdate_response),
    unwritten_in_out("C_DigestEncryptUpdate", &Operation::mutable_c_digestencryptupdate,
                     &OperationResult::c_digestencryptupdate_response),
    unwritten_in_out("C_DecryptDigestUpdate", &Operation::mutable_c_decryptdigestupdate,
                     &OperationResult::c_decryptdigestupdate_response),
    unwritten_in_out("C_SignEncryptUpdate", &Operation::mutable_c_signencryptupdate,
                     &OperationResult::c_signencryptupdate_response),
    unwritten_in_out("C_DecryptVerifyUpdate", &Operation::mutable_c_decryptverifyupdate,
                     &OperationResult::c_decryptverifyupdate_response),
    unwritten_final("C_EncryptFinal", &Operation::mutable_c_encryptfinal,
                    &OperationResult::c_encryptfinal_response),
    unwritten_final("C_DecryptFinal", &Operation::mutable_c_decryptfinal,
                    &OperationResult::c_decryptfinal_response),
    unwritten_final("C_DigestFinal", &Operation::mutable_c_digestfinal,
                    &OperationResult::c_digestfinal_response),
    unwritten_final("C_SignFinal", &Operation::mutable_c_signfinal,
                    &OperationResult::c_signfinal_response),
    unwritten("C_WrapKey", encoded(&Operation::mutable_c_wrapkey, field(6, kCapacity)),
              &OperationResult::c_wrapkey_response),
    // No length comes back from these two: the reply states the buffer's.
    unwritten("C_GenerateRandom", in_only(&Operation::mutable_c_generaterandom, "", kCapacity),
              &OperationResult::c_generaterandom_response, kCapacity),
    unwritten("C_Verify", encoded(&Operation::mutable_c_verify, field(5, kCapacity)),
              &OperationResult::c_verify_response, kCapacity),
};

INSTANTIATE_TEST_SUITE_P(Crypto, UnwrittenTest, ::testing::ValuesIn(kUnwritten), label<Unwritten>);

}  // namespace
}  // namespace qor::test
