// The token's behaviour: the output-buffer convention, the stand-in crypto,
// attribute and find rules, sessions and login, and robustness on bad input.
#include <cstring>
#include <functional>
#include <type_traits>

#include "module_fixture.h"
#include "qorpkcs11/pkcs11_params.h"

namespace qor::test {
namespace {

Bytes text(const char* s) { return Bytes(s, s + std::strlen(s)); }

// The documented digest: byte i starts as i, data byte j is XORed into j % 32.
Bytes fold(const Bytes& data) {
  Bytes d(32);
  for (size_t i = 0; i < d.size(); ++i) d[i] = static_cast<CK_BYTE>(i);
  for (size_t j = 0; j < data.size(); ++j) d[j % 32] ^= data[j];
  return d;
}

CK_MECHANISM mech(CK_MECHANISM_TYPE type) { return {type, nullptr, 0}; }

using OutputCall = std::function<CK_RV(CK_FUNCTION_LIST*, CK_BYTE_PTR, CK_ULONG_PTR)>;

enum class Start { nothing, rsaSign, ecSign, aesEncrypt, aesDecrypt, digest };

struct OutputCase {
  const char* name;
  Start start;
  OutputCall call;
  CK_ULONG needed;
  bool endsOperation;
};

void start(CK_FUNCTION_LIST* f, Start what) {
  CK_MECHANISM rsa = mech(CKM_RSA_PKCS), ec = mech(CKM_ECDSA), aes = mech(CKM_AES_CBC), sha = mech(CKM_SHA256);
  switch (what) {
    case Start::nothing: return;
    case Start::rsaSign: ASSERT_EQ(CKR_OK, f->C_SignInit(1, &rsa, 4)); return;
    case Start::ecSign: ASSERT_EQ(CKR_OK, f->C_SignInit(1, &ec, 7)); return;
    case Start::aesEncrypt: ASSERT_EQ(CKR_OK, f->C_EncryptInit(1, &aes, 5)); return;
    case Start::aesDecrypt: ASSERT_EQ(CKR_OK, f->C_DecryptInit(1, &aes, 5)); return;
    case Start::digest: ASSERT_EQ(CKR_OK, f->C_DigestInit(1, &sha)); return;
  }
}

TEST_F(ModuleTest, NullBufferAsksTheLengthAndShortBufferKeepsTheOperation) {
  static Bytes data = text("abcde");
  const OutputCase cases[] = {
      {"rsa sign", Start::rsaSign, [](auto* f, auto* p, auto* n) { return f->C_Sign(1, data.data(), 5, p, n); },
       256, true},
      {"ec sign", Start::ecSign, [](auto* f, auto* p, auto* n) { return f->C_Sign(1, data.data(), 5, p, n); }, 64,
       true},
      {"encrypt", Start::aesEncrypt,
       [](auto* f, auto* p, auto* n) { return f->C_Encrypt(1, data.data(), 5, p, n); }, 5, true},
      {"update", Start::aesDecrypt,
       [](auto* f, auto* p, auto* n) { return f->C_DecryptUpdate(1, data.data(), 5, p, n); }, 5, false},
      {"sign final", Start::rsaSign, [](auto* f, auto* p, auto* n) { return f->C_SignFinal(1, p, n); }, 256, true},
      {"digest", Start::digest, [](auto* f, auto* p, auto* n) { return f->C_Digest(1, data.data(), 5, p, n); }, 32,
       true},
      {"operation state", Start::nothing, [](auto* f, auto* p, auto* n) { return f->C_GetOperationState(1, p, n); },
       326, false},
      {"wrap", Start::nothing,
       [](auto* f, auto* p, auto* n) {
         CK_MECHANISM m = mech(CKM_AES_CBC);
         return f->C_WrapKey(1, &m, 5, 8, p, n);
       },
       48, false},
  };
  for (const OutputCase& c : cases) {
    SCOPED_TRACE(c.name);
    tm_.resetReady();
    ASSERT_EQ(1u, open());
    ASSERT_EQ(CKR_OK, login(1, CKU_USER, "1234"));
    start(f_, c.start);

    CK_ULONG len = 7;
    EXPECT_EQ(CKR_OK, c.call(f_, nullptr, &len));
    EXPECT_EQ(c.needed, len);
    Bytes out(c.needed + 1, 0xEE);
    len = c.needed - 1;
    EXPECT_EQ(CKR_BUFFER_TOO_SMALL, c.call(f_, out.data(), &len));
    EXPECT_EQ(c.needed, len);
    EXPECT_EQ(Bytes(c.needed + 1, 0xEE), out);
    len = c.needed + 1;
    EXPECT_EQ(CKR_OK, c.call(f_, out.data(), &len));
    EXPECT_EQ(c.needed, len);
    EXPECT_EQ(0xEE, out[c.needed]);
    if (c.endsOperation) {
      EXPECT_EQ(CKR_OPERATION_NOT_INITIALIZED, c.call(f_, out.data(), &len));
      start(f_, c.start);
    }
    // A missing length pointer is an argument error, and ends an operation.
    EXPECT_EQ(CKR_ARGUMENTS_BAD, c.call(f_, out.data(), nullptr));
    if (c.start != Start::nothing) {
      EXPECT_EQ(CKR_OPERATION_NOT_INITIALIZED, c.call(f_, nullptr, &len));
    }
  }

  CK_SLOT_ID slots[2] = {0, 0};
  CK_ULONG count = 0;
  EXPECT_EQ(CKR_OK, f_->C_GetSlotList(CK_FALSE, nullptr, &count));
  EXPECT_EQ(2u, count);
  count = 1;
  EXPECT_EQ(CKR_BUFFER_TOO_SMALL, f_->C_GetSlotList(CK_FALSE, slots, &count));
  EXPECT_EQ(2u, count);
  EXPECT_EQ(CKR_OK, f_->C_GetSlotList(CK_TRUE, slots, &count));
  EXPECT_EQ(1u, count);
  EXPECT_EQ(1u, slots[0]);
}

TEST_F(ModuleTest, StandInCryptoIsDeterministicAndConsistent) {
  open();
  ASSERT_EQ(CKR_OK, login(1, CKU_USER, "1234"));
  Bytes data = text("hello world");
  CK_MECHANISM sha = mech(CKM_SHA256), rsa = mech(CKM_RSA_PKCS), aes = mech(CKM_AES_CBC);

  Bytes digest(32);
  CK_ULONG len = 32;
  ASSERT_EQ(CKR_OK, f_->C_DigestInit(1, &sha));
  ASSERT_EQ(CKR_OK, f_->C_Digest(1, data.data(), 11, digest.data(), &len));
  EXPECT_EQ(fold(data), digest);

  // Multi-part equals single-part, and a saved state resumes in a new session.
  ASSERT_EQ(CKR_OK, f_->C_DigestInit(1, &sha));
  ASSERT_EQ(CKR_OK, f_->C_DigestUpdate(1, data.data(), 4));
  Bytes state(400);
  len = 400;
  ASSERT_EQ(CKR_OK, f_->C_GetOperationState(1, state.data(), &len));
  const CK_SESSION_HANDLE other = open();
  ASSERT_EQ(CKR_OK, f_->C_SetOperationState(other, state.data(), len, 0, 0));
  ASSERT_EQ(CKR_OK, f_->C_DigestUpdate(other, data.data() + 4, 7));
  CK_ULONG digestLen = 32;
  ASSERT_EQ(CKR_OK, f_->C_DigestFinal(other, digest.data(), &digestLen));
  EXPECT_EQ(fold(data), digest);
  EXPECT_EQ(CKR_SAVED_STATE_INVALID, f_->C_SetOperationState(other, state.data(), len - 1, 0, 0));

  // The fixed RSA pair signs and verifies with key byte 0x5A.
  Bytes sig(256);
  len = 256;
  ASSERT_EQ(CKR_OK, f_->C_SignInit(1, &rsa, 4));
  ASSERT_EQ(CKR_OK, f_->C_Sign(1, data.data(), 11, sig.data(), &len));
  for (size_t i = 0; i < sig.size(); i += 37) EXPECT_EQ(fold(data)[i % 32] ^ 0x5A ^ (i / 32), sig[i]) << i;
  ASSERT_EQ(CKR_OK, f_->C_VerifyInit(1, &rsa, 3));
  EXPECT_EQ(CKR_OK, f_->C_Verify(1, data.data(), 11, sig.data(), 256));
  ASSERT_EQ(CKR_OK, f_->C_VerifyInit(1, &rsa, 3));
  ASSERT_EQ(CKR_OK, f_->C_VerifyUpdate(1, data.data(), 11));
  EXPECT_EQ(CKR_SIGNATURE_LEN_RANGE, f_->C_VerifyFinal(1, sig.data(), 255));
  sig[3] ^= 1;
  ASSERT_EQ(CKR_OK, f_->C_VerifyInit(1, &rsa, 3));
  EXPECT_EQ(CKR_SIGNATURE_INVALID, f_->C_Verify(1, data.data(), 11, sig.data(), 256));

  Bytes enc(11), dec(11);
  len = 11;
  ASSERT_EQ(CKR_OK, f_->C_EncryptInit(1, &aes, 5));
  ASSERT_EQ(CKR_OK, f_->C_Encrypt(1, data.data(), 11, enc.data(), &len));
  EXPECT_EQ(data[0] ^ 0x5A, enc[0]);
  ASSERT_EQ(CKR_OK, f_->C_DecryptInit(1, &aes, 5));
  ASSERT_EQ(CKR_OK, f_->C_Decrypt(1, enc.data(), 11, dec.data(), &len));
  EXPECT_EQ(data, dec);

  // Key checks at init.
  EXPECT_EQ(CKR_KEY_TYPE_INCONSISTENT, f_->C_EncryptInit(1, &rsa, 5));
  EXPECT_EQ(CKR_KEY_FUNCTION_NOT_PERMITTED, f_->C_SignInit(1, &rsa, 3));
  EXPECT_EQ(CKR_MECHANISM_INVALID, f_->C_SignInit(1, &sha, 4));
  EXPECT_EQ(CKR_KEY_HANDLE_INVALID, f_->C_SignInit(1, &rsa, 99));
}

TEST_F(ModuleTest, KeyMechanismsFillTheirOutputParameters) {
  open();
  ASSERT_EQ(CKR_OK, login(1, CKU_USER, "1234"));
  CK_VERSION version = {0, 0};
  CK_SSL3_MASTER_KEY_DERIVE_PARAMS master = {{nullptr, 0, nullptr, 0}, &version};
  CK_MECHANISM m = {CKM_SSL3_MASTER_KEY_DERIVE, &master, sizeof master};
  CK_OBJECT_HANDLE key = 0;
  ASSERT_EQ(CKR_OK, f_->C_DeriveKey(1, &m, 8, nullptr, 0, &key));
  EXPECT_EQ(100u, key);
  EXPECT_EQ(3, version.major);
  EXPECT_EQ(0, version.minor);

  Bytes ivClient(8, 0), ivServer(8, 0);
  CK_SSL3_KEY_MAT_OUT out = {0, 0, 0, 0, ivClient.data(), ivServer.data()};
  CK_SSL3_KEY_MAT_PARAMS keyMat = {160, 128, 64, CK_FALSE, {nullptr, 0, nullptr, 0}, &out};
  m = {CKM_SSL3_KEY_AND_MAC_DERIVE, &keyMat, sizeof keyMat};
  ASSERT_EQ(CKR_OK, f_->C_DeriveKey(1, &m, 8, nullptr, 0, &key));
  EXPECT_EQ(CK_INVALID_HANDLE, key);
  EXPECT_EQ(101u, out.hClientMacSecret);
  EXPECT_EQ(104u, out.hServerKey);
  EXPECT_EQ(0xC0, ivClient[0]);
  EXPECT_EQ(0xD7, ivServer[7]);

  Bytes iv(8, 0);
  CK_PBE_PARAMS pbe = {iv.data(), nullptr, 0, nullptr, 0, 1};
  m = {CKM_PBE_SHA1_DES3_EDE_CBC, &pbe, sizeof pbe};
  ASSERT_EQ(CKR_OK, f_->C_GenerateKey(1, &m, nullptr, 0, &key));
  EXPECT_EQ(0xB0, iv[0]);

  // A parameter of the wrong size is not interpreted.
  m = {CKM_SSL3_KEY_AND_MAC_DERIVE, &keyMat, sizeof keyMat - 1};
  EXPECT_EQ(CKR_MECHANISM_PARAM_INVALID, f_->C_DeriveKey(1, &m, 8, nullptr, 0, &key));
}

TEST_F(ModuleTest, GetAttributeValueAnswersEveryAttribute) {
  open();
  CK_ULONG bits = 0;
  CK_BYTE exponent[300], label[1];
  CK_ATTRIBUTE tpl[] = {
      {CKA_MODULUS_BITS, &bits, sizeof bits},       {CKA_PRIVATE_EXPONENT, exponent, sizeof exponent},
      {CKA_VALUE_BITS, exponent, sizeof exponent},  {CKA_LABEL, label, sizeof label},
      {CKA_MODULUS, nullptr, 0},
  };
  EXPECT_EQ(CKR_USER_NOT_LOGGED_IN, f_->C_GetAttributeValue(1, 4, tpl, 5));
  ASSERT_EQ(CKR_OK, login(1, CKU_USER, "1234"));
  EXPECT_EQ(CKR_ATTRIBUTE_SENSITIVE, f_->C_GetAttributeValue(1, 4, tpl, 5));
  EXPECT_EQ(2048u, bits);
  const CK_ULONG lens[] = {4, CK_UNAVAILABLE_INFORMATION, CK_UNAVAILABLE_INFORMATION, CK_UNAVAILABLE_INFORMATION,
                           256};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(lens[i], tpl[i].ulValueLen) << i;
  tpl[3].ulValueLen = sizeof label;
  EXPECT_EQ(CKR_ATTRIBUTE_TYPE_INVALID, f_->C_GetAttributeValue(1, 4, tpl + 2, 2));
  EXPECT_EQ(CK_UNAVAILABLE_INFORMATION, tpl[3].ulValueLen);
  EXPECT_EQ(CKR_OK, f_->C_GetAttributeValue(1, 4, tpl, 0));
  EXPECT_EQ(CKR_ARGUMENTS_BAD, f_->C_GetAttributeValue(1, 4, nullptr, 1));

  // Creation and changes check value sizes and read-only attributes.
  CK_OBJECT_CLASS data = CKO_DATA, key = CKO_SECRET_KEY;
  CK_BBOOL yes = CK_TRUE;
  CK_ULONG wide = 1;
  CK_OBJECT_HANDLE h = 0;
  CK_ATTRIBUTE create[] = {{CKA_CLASS, &data, sizeof data}, {CKA_TOKEN, &yes, 1}, {CKA_LABEL, label, 1}};
  EXPECT_EQ(CKR_TEMPLATE_INCOMPLETE, f_->C_CreateObject(1, create + 1, 2, &h));
  CK_ATTRIBUTE badBool[] = {{CKA_CLASS, &data, sizeof data}, {CKA_TOKEN, &wide, sizeof wide}};
  EXPECT_EQ(CKR_ATTRIBUTE_VALUE_INVALID, f_->C_CreateObject(1, badBool, 2, &h));
  ASSERT_EQ(CKR_OK, f_->C_CreateObject(1, create, 3, &h));
  CK_ATTRIBUTE change[] = {{CKA_CLASS, &key, sizeof key}};
  EXPECT_EQ(CKR_ATTRIBUTE_READ_ONLY, f_->C_SetAttributeValue(1, h, change, 1));
  CK_ULONG size = 0;
  EXPECT_EQ(CKR_OK, f_->C_GetObjectSize(1, h, &size));
  EXPECT_EQ(4u + 1 + 1 + 1 + 1, size);  // class, token, label, private, modifiable
}

TEST_F(ModuleTest, FindMatchesTemplatesAndHidesPrivateObjectsUntilLogin) {
  open();
  auto find = [this](CK_ATTRIBUTE* tpl, CK_ULONG n, CK_ULONG max) {
    std::vector<CK_OBJECT_HANDLE> all;
    EXPECT_EQ(CKR_OK, f_->C_FindObjectsInit(1, tpl, n));
    EXPECT_EQ(CKR_OPERATION_ACTIVE, f_->C_FindObjectsInit(1, tpl, n));
    CK_OBJECT_HANDLE chunk[8];
    CK_ULONG got = 0;
    do {
      EXPECT_EQ(CKR_OK, f_->C_FindObjects(1, chunk, max, &got));
      all.insert(all.end(), chunk, chunk + got);
    } while (got == max && got != 0);
    EXPECT_EQ(CKR_OK, f_->C_FindObjectsFinal(1));
    return all;
  };
  char rsa[] = "rsa";
  CK_OBJECT_CLASS priv = CKO_PRIVATE_KEY;
  CK_ATTRIBUTE byLabel[] = {{CKA_LABEL, rsa, 3}}, privateKeys[] = {{CKA_CLASS, &priv, sizeof priv}};
  using Handles = std::vector<CK_OBJECT_HANDLE>;
  EXPECT_EQ((Handles{2, 3}), find(byLabel, 1, 1));
  EXPECT_EQ((Handles{1, 2, 3, 5, 6, 8}), find(nullptr, 0, 4));
  ASSERT_EQ(CKR_OK, login(1, CKU_USER, "1234"));
  EXPECT_EQ((Handles{2, 3, 4}), find(byLabel, 1, 8));
  EXPECT_EQ((Handles{4, 7}), find(privateKeys, 1, 8));
  EXPECT_EQ(CKR_OPERATION_NOT_INITIALIZED, f_->C_FindObjects(1, nullptr, 0, nullptr));
}

TEST_F(ModuleTest, SessionsFollowTheLoginState) {
  CK_SESSION_INFO info;
  CK_SESSION_HANDLE unused;
  const CK_SESSION_HANDLE ro = open(CKF_SERIAL_SESSION), rw = open();
  EXPECT_EQ(CKR_SESSION_PARALLEL_NOT_SUPPORTED, f_->C_OpenSession(1, 0, nullptr, nullptr, &unused));
  EXPECT_EQ(CKR_TOKEN_NOT_PRESENT, f_->C_OpenSession(2, CKF_SERIAL_SESSION, nullptr, nullptr, &unused));
  EXPECT_EQ(CKR_PIN_INCORRECT, login(ro, CKU_USER, "0000"));
  EXPECT_EQ(CKR_SESSION_READ_ONLY_EXISTS, login(rw, CKU_SO, "5678"));
  ASSERT_EQ(CKR_OK, login(ro, CKU_USER, "1234"));
  EXPECT_EQ(CKR_USER_ALREADY_LOGGED_IN, login(rw, CKU_USER, "1234"));
  EXPECT_EQ(CKR_USER_ANOTHER_ALREADY_LOGGED_IN, login(rw, CKU_SO, "5678"));
  ASSERT_EQ(CKR_OK, f_->C_GetSessionInfo(ro, &info));
  EXPECT_EQ(CKS_RO_USER_FUNCTIONS, info.state);
  ASSERT_EQ(CKR_OK, f_->C_GetSessionInfo(rw, &info));
  EXPECT_EQ(CKS_RW_USER_FUNCTIONS, info.state);
  EXPECT_EQ(CKR_SESSION_READ_ONLY, f_->C_SetPIN(ro, pinBytes("1234"), 4, pinBytes("4321"), 4));
  EXPECT_EQ(CKR_OK, f_->C_SetPIN(rw, pinBytes("1234"), 4, pinBytes("4321"), 4));
  ASSERT_EQ(CKR_OK, f_->C_CloseAllSessions(1));  // closing the last session logs out
  EXPECT_EQ(CKR_SESSION_HANDLE_INVALID, f_->C_GetSessionInfo(rw, &info));

  // A re-initialised token has no objects and no user PIN until the SO sets one.
  std::string label(32, ' ');
  EXPECT_EQ(CKR_PIN_INCORRECT, f_->C_InitToken(1, pinBytes("1234"), 4, pinBytes(label)));
  ASSERT_EQ(CKR_OK, f_->C_InitToken(1, pinBytes("5678"), 4, pinBytes(label)));
  const CK_SESSION_HANDLE s = open();
  EXPECT_EQ(CKR_USER_PIN_NOT_INITIALIZED, login(s, CKU_USER, "4321"));
  ASSERT_EQ(CKR_OK, login(s, CKU_SO, "5678"));
  ASSERT_EQ(CKR_OK, f_->C_GetSessionInfo(s, &info));
  EXPECT_EQ(CKS_RW_SO_FUNCTIONS, info.state);
  EXPECT_EQ(CKR_PIN_LEN_RANGE, f_->C_InitPIN(s, pinBytes("12"), 2));
  ASSERT_EQ(CKR_OK, f_->C_InitPIN(s, pinBytes("2468"), 4));
  ASSERT_EQ(CKR_OK, f_->C_Logout(s));
  EXPECT_EQ(CKR_OK, login(s, CKU_USER, "2468"));
  CK_OBJECT_HANDLE h;
  CK_ULONG n = 1;
  ASSERT_EQ(CKR_OK, f_->C_FindObjectsInit(s, nullptr, 0));
  ASSERT_EQ(CKR_OK, f_->C_FindObjects(s, &h, 1, &n));
  EXPECT_EQ(0u, n);
}

// Every entry point, called with 0 or 1 for each integer and null for each
// pointer, with and without a session and login, answers without crashing.
template <class T>
T filler(CK_ULONG v) {
  if constexpr (std::is_pointer_v<T>) return nullptr;
  else return static_cast<T>(v);
}
template <class... A>
CK_RV callWith(CK_RV (*fn)(A...), CK_ULONG v) {
  return fn(filler<A>(v)...);
}

TEST_F(ModuleTest, EveryEntryPointAnswersNullArguments) {
  for (CK_ULONG v : {0u, 1u}) {
    for (bool ready : {false, true}) {
      int index = 0;
#define QOR_CALL_ONE(name, params, args)                                           \
  {                                                                                \
    SCOPED_TRACE(#name);                                                           \
    if (ready) {                                                                   \
      tm_.resetReady();                                                            \
      open();                                                                      \
      login(1, CKU_USER, "1234");                                                  \
    } else {                                                                       \
      tm_.reset();                                                                 \
    }                                                                              \
    tm_.clearCalls();                                                              \
    const CK_RV rv = callWith(f_->name, v);                                        \
    ASSERT_EQ(1, tm_.count());                                                     \
    EXPECT_EQ(static_cast<int64_t>(rv), tm_.rv(0));                                \
    if (!ready && std::strcmp(#name, "C_GetFunctionList") != 0 &&                  \
        std::strcmp(#name, "C_Initialize") != 0) {                                 \
      EXPECT_EQ(CKR_CRYPTOKI_NOT_INITIALIZED, rv);                                 \
    }                                                                              \
    ++index;                                                                       \
  }
      QOR_PKCS11_FUNCTIONS(QOR_CALL_ONE)
#undef QOR_CALL_ONE
      EXPECT_EQ(68, index);
    }
  }
}

}  // namespace
}  // namespace qor::test
