// The translation on its own, against scripted callees that record what
// reaches them: values that do not fit, CK_UNAVAILABLE_INFORMATION, the
// layouts of mechanism parameters and nested templates, and refusals that
// must stop a call before the callee.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "forward.h"

namespace qor::test {
namespace {

using abi::Host;
using abi::Target;
using HUL = host::CK_ULONG;

constexpr HUL kHostNone = ~0UL;
constexpr CK_ULONG kTargetNone = 0xFFFFFFFFu;

// What the scripted callees were given, and what they hand back.
struct Script {
  int calls = 0;
  HUL handle = 0;  // returned by C_OpenSession / C_CreateObject
  std::vector<HUL> found;
  HUL foundCount = 0;
  host::CK_C_INITIALIZE_ARGS init{};
  bool initNull = false;
  host::CK_MECHANISM mechanism{};
  std::vector<unsigned char> parameter;
  std::vector<host::CK_ATTRIBUTE> attributes;
  std::vector<host::CK_ATTRIBUTE> nested;
  HUL nestedClass = 0;
  HUL givenLength = 0;
};
Script gHost;

host::CK_RV hostInitialize(void* args) {
  ++gHost.calls;
  gHost.initNull = args == nullptr;
  if (args) gHost.init = *static_cast<host::CK_C_INITIALIZE_ARGS*>(args);
  return CKR_OK;
}
host::CK_RV hostOpenSession(HUL, HUL, void*, host::CK_NOTIFY notify, HUL* h) {
  ++gHost.calls;
  EXPECT_EQ(nullptr, notify);
  *h = gHost.handle;
  return CKR_OK;
}
host::CK_RV hostFindObjects(HUL, HUL* h, HUL max, HUL* n) {
  ++gHost.calls;
  for (HUL i = 0; i < gHost.found.size() && i < max; ++i) h[i] = gHost.found[i];
  *n = gHost.foundCount;
  return CKR_OK;
}
host::CK_RV hostGetTokenInfo(HUL, host::CK_TOKEN_INFO* info) {
  ++gHost.calls;
  std::memset(info, 0, sizeof *info);
  std::memcpy(info->label, "fake", 4);
  info->ulMaxSessionCount = kHostNone;
  info->ulFreePublicMemory = 1UL << 40;  // more than 32 bits can tell
  info->ulMinPinLen = 4;
  return CKR_OK;
}
host::CK_RV hostEncryptInit(HUL, host::CK_MECHANISM* m, HUL) {
  ++gHost.calls;
  gHost.mechanism = *m;
  const auto* p = static_cast<const unsigned char*>(m->pParameter);
  gHost.parameter.assign(p, p + (p ? m->ulParameterLen : 0));
  return CKR_OK;
}
host::CK_RV hostCreateObject(HUL, host::CK_ATTRIBUTE* t, HUL n, HUL* h) {
  ++gHost.calls;
  gHost.attributes.assign(t, t + n);
  for (HUL i = 0; i < n; ++i) {
    if (t[i].type != CKA_WRAP_TEMPLATE) continue;
    auto* inner = static_cast<host::CK_ATTRIBUTE*>(t[i].pValue);
    gHost.nested.assign(inner, inner + t[i].ulValueLen / sizeof(host::CK_ATTRIBUTE));
    gHost.nestedClass = *static_cast<HUL*>(gHost.nested.at(0).pValue);
  }
  *h = gHost.handle;
  return CKR_OK;
}
// Fills CKA_CLASS with a vendor class, marks everything else unavailable.
host::CK_RV hostGetAttributeValue(HUL, HUL, host::CK_ATTRIBUTE* t, HUL n) {
  ++gHost.calls;
  for (HUL i = 0; i < n; ++i) {
    gHost.givenLength = t[i].ulValueLen;
    if (t[i].type == CKA_CLASS) {
      if (t[i].pValue) *static_cast<HUL*>(t[i].pValue) = CKO_VENDOR_DEFINED + 1;
      t[i].ulValueLen = sizeof(HUL);
    } else {
      t[i].ulValueLen = kHostNone;
    }
  }
  return CKR_ATTRIBUTE_TYPE_INVALID;
}

host::CK_FUNCTION_LIST& hostList() {
  static host::CK_FUNCTION_LIST list = [] {
    host::CK_FUNCTION_LIST l{};
    l.C_Initialize = hostInitialize;
    l.C_OpenSession = hostOpenSession;
    l.C_FindObjects = hostFindObjects;
    l.C_GetTokenInfo = hostGetTokenInfo;
    l.C_EncryptInit = hostEncryptInit;
    l.C_CreateObject = hostCreateObject;
    l.C_GetAttributeValue = hostGetAttributeValue;
    return l;
  }();
  return list;
}

struct ScriptedHost {
  static const host::CK_FUNCTION_LIST* callee() { return &hostList(); }
  static bool load() { return true; }
  static bool connect() { return true; }
  static void disconnect() {}
};
using Bridge = abi::Forward<Target, Host, ScriptedHost>;

class ToHost : public ::testing::Test {
 protected:
  void SetUp() override {
    gHost = Script{};
    ASSERT_EQ(CKR_OK, Bridge::C_GetFunctionList(&f_));
  }
  CK_FUNCTION_LIST* f_ = nullptr;
};

TEST_F(ToHost, HandlesTheTargetCannotHoldFailTheCall) {
  struct {
    HUL host;
    CK_RV rv;
    CK_ULONG target;
  } const cases[] = {
      {5, CKR_OK, 5},
      {0xFFFFFFFEUL, CKR_OK, 0xFFFFFFFEu},
      {0xFFFFFFFFUL, CKR_GENERAL_ERROR, 0},  // would read as "unavailable"
      {1UL << 32, CKR_GENERAL_ERROR, 0},
      {(1UL << 32) + 7, CKR_GENERAL_ERROR, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.host);
    gHost.handle = c.host;
    CK_SESSION_HANDLE h = 0;
    EXPECT_EQ(c.rv, f_->C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &h));
    EXPECT_EQ(c.target, h);
  }
}

TEST_F(ToHost, FoundObjectsAreCheckedAgainstTheRoomGiven) {
  CK_OBJECT_HANDLE found[3] = {0, 0, 0xAB};
  CK_ULONG n = 0;
  gHost.found = {11, 12};
  gHost.foundCount = 2;
  ASSERT_EQ(CKR_OK, f_->C_FindObjects(1, found, 2, &n));
  EXPECT_EQ(2u, n);
  EXPECT_EQ(11u, found[0]);
  EXPECT_EQ(12u, found[1]);
  EXPECT_EQ(0xABu, found[2]);

  gHost.foundCount = 3;  // claims more than it was given room for
  EXPECT_EQ(CKR_GENERAL_ERROR, f_->C_FindObjects(1, found, 2, &n));
  gHost.found = {1UL << 33};
  gHost.foundCount = 1;
  EXPECT_EQ(CKR_GENERAL_ERROR, f_->C_FindObjects(1, found, 2, &n));
}

TEST_F(ToHost, InfoFieldsKeepUnavailableAndSaturate) {
  CK_TOKEN_INFO info;
  std::memset(&info, 0x55, sizeof info);
  ASSERT_EQ(CKR_OK, f_->C_GetTokenInfo(1, &info));
  EXPECT_EQ(0, std::memcmp(info.label, "fake", 4));
  EXPECT_EQ(kTargetNone, +info.ulMaxSessionCount);
  EXPECT_EQ(kTargetNone, +info.ulFreePublicMemory);
  EXPECT_EQ(4u, +info.ulMinPinLen);
  EXPECT_EQ(0u, +info.flags);
}

TEST_F(ToHost, InitializeGivesOsLockingAndNoCallbacks) {
  ASSERT_EQ(CKR_OK, f_->C_Initialize(nullptr));
  EXPECT_TRUE(gHost.initNull);

  CK_C_INITIALIZE_ARGS args{};
  args.CreateMutex = [](void**) -> CK_RV { return CKR_OK; };
  args.DestroyMutex = [](void*) -> CK_RV { return CKR_OK; };
  args.LockMutex = args.DestroyMutex;
  args.UnlockMutex = args.DestroyMutex;
  args.flags = CKF_LIBRARY_CANT_CREATE_OS_THREADS;
  ASSERT_EQ(CKR_OK, f_->C_Initialize(&args));
  EXPECT_FALSE(gHost.initNull);
  EXPECT_EQ(nullptr, gHost.init.CreateMutex);
  EXPECT_EQ(nullptr, gHost.init.UnlockMutex);
  EXPECT_EQ(CKF_LIBRARY_CANT_CREATE_OS_THREADS | CKF_OS_LOCKING_OK, gHost.init.flags);
}

TEST_F(ToHost, OaepParametersArriveInHostLayout) {
  unsigned char label[3] = {'l', 'b', 'l'};
  CK_RSA_PKCS_OAEP_PARAMS p{CKM_SHA256, CKG_MGF1_SHA256, CKZ_DATA_SPECIFIED, label, 3};
  CK_MECHANISM m{CKM_RSA_PKCS_OAEP, &p, sizeof p};
  ASSERT_EQ(CKR_OK, f_->C_EncryptInit(1, &m, 2));
  EXPECT_EQ(CKM_RSA_PKCS_OAEP, gHost.mechanism.mechanism);
  ASSERT_EQ(sizeof(host::CK_RSA_PKCS_OAEP_PARAMS), gHost.parameter.size());
  host::CK_RSA_PKCS_OAEP_PARAMS h;
  std::memcpy(&h, gHost.parameter.data(), sizeof h);
  EXPECT_EQ(CKM_SHA256, h.hashAlg);
  EXPECT_EQ(CKG_MGF1_SHA256, h.mgf);
  EXPECT_EQ(CKZ_DATA_SPECIFIED, h.source);
  EXPECT_EQ(static_cast<void*>(label), h.pSourceData);
  EXPECT_EQ(3u, h.ulSourceDataLen);
}

TEST_F(ToHost, GcmCtrPssEcdhAndUlongParametersChangeSize) {
  unsigned char iv[16] = {}, point[65] = {};
  CK_AES_GCM_PARAMS gcm{iv, 12, 96, nullptr, 0, 128};
  CK_AES_CTR_PARAMS ctr{64, {9, 8, 7}};
  CK_RSA_PKCS_PSS_PARAMS pss{CKM_SHA256, CKG_MGF1_SHA256, 32};
  CK_ECDH1_DERIVE_PARAMS ecdh{CKD_NULL, 0, nullptr, sizeof point, point};
  CK_ULONG macLength = 16;
  const struct {
    CK_MECHANISM m;
    size_t hostSize;
  } cases[] = {
      {{CKM_AES_GCM, &gcm, sizeof gcm}, sizeof(host::CK_AES_GCM_PARAMS)},
      {{CKM_AES_CTR, &ctr, sizeof ctr}, sizeof(host::CK_AES_CTR_PARAMS)},
      {{CKM_SHA256_RSA_PKCS_PSS, &pss, sizeof pss}, sizeof(host::CK_RSA_PKCS_PSS_PARAMS)},
      {{CKM_ECDH1_DERIVE, &ecdh, sizeof ecdh}, sizeof(host::CK_ECDH1_DERIVE_PARAMS)},
      {{CKM_SHA256_HMAC_GENERAL, &macLength, sizeof macLength}, sizeof(HUL)},
      {{CKM_AES_CBC, iv, sizeof iv}, sizeof iv},  // plain bytes
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.m.mechanism);
    CK_MECHANISM m = c.m;
    ASSERT_EQ(CKR_OK, f_->C_EncryptInit(1, &m, 2));
    EXPECT_EQ(c.hostSize, gHost.parameter.size());
  }
  host::CK_AES_GCM_PARAMS g;
  ASSERT_EQ(CKR_OK, f_->C_EncryptInit(1, &const_cast<CK_MECHANISM&>(cases[0].m), 2));
  std::memcpy(&g, gHost.parameter.data(), sizeof g);
  EXPECT_EQ(iv, g.pIv);
  EXPECT_EQ(12u, g.ulIvLen);
  EXPECT_EQ(96u, g.ulIvBits);
  EXPECT_EQ(128u, g.ulTagBits);
  host::CK_AES_CTR_PARAMS c;
  ASSERT_EQ(CKR_OK, f_->C_EncryptInit(1, &const_cast<CK_MECHANISM&>(cases[1].m), 2));
  std::memcpy(&c, gHost.parameter.data(), sizeof c);
  EXPECT_EQ(64u, c.ulCounterBits);
  EXPECT_EQ(7, c.cb[2]);
}

TEST_F(ToHost, ParametersThatCannotBeTranslatedNeverReachTheModule) {
  CK_RSA_PKCS_OAEP_PARAMS oaep{};
  unsigned char prf[40] = {};
  const CK_MECHANISM cases[] = {
      {CKM_RSA_PKCS_OAEP, &oaep, sizeof oaep - 1},  // not the target's size
      {CKM_RSA_PKCS_OAEP, &oaep, sizeof(host::CK_RSA_PKCS_OAEP_PARAMS)},
      {CKM_TLS_PRF, prf, sizeof prf},  // a layout not translated
      {CKM_PKCS5_PBKD2, prf, sizeof prf},
  };
  for (const CK_MECHANISM& c : cases) {
    SCOPED_TRACE(c.mechanism);
    CK_MECHANISM m = c;
    EXPECT_EQ(CKR_MECHANISM_PARAM_INVALID, f_->C_EncryptInit(1, &m, 2));
  }
  EXPECT_EQ(0, gHost.calls);
}

TEST_F(ToHost, NestedTemplatesAreTranslatedAndBounded) {
  CK_ULONG cls = CKO_SECRET_KEY;
  CK_ATTRIBUTE inner[] = {{CKA_CLASS, &cls, sizeof cls}};
  CK_ATTRIBUTE outer[] = {{CKA_CLASS, &cls, sizeof cls},
                          {CKA_WRAP_TEMPLATE, inner, sizeof inner}};
  gHost.handle = 3;
  CK_OBJECT_HANDLE h = 0;
  ASSERT_EQ(CKR_OK, f_->C_CreateObject(1, outer, 2, &h));
  EXPECT_EQ(3u, h);
  ASSERT_EQ(2u, gHost.attributes.size());
  EXPECT_EQ(sizeof(HUL), gHost.attributes[0].ulValueLen);
  EXPECT_EQ(sizeof(host::CK_ATTRIBUTE), gHost.attributes[1].ulValueLen);
  ASSERT_EQ(1u, gHost.nested.size());
  EXPECT_EQ(CKO_SECRET_KEY, gHost.nestedClass);

  // A template that holds itself would never end.
  CK_ATTRIBUTE loop[1];
  loop[0] = {CKA_UNWRAP_TEMPLATE, loop, sizeof loop};
  gHost.calls = 0;
  EXPECT_EQ(CKR_ATTRIBUTE_VALUE_INVALID, f_->C_CreateObject(1, loop, 1, &h));
  EXPECT_EQ(0, gHost.calls);
}

TEST_F(ToHost, AttributeLengthsComeBackInTargetUnits) {
  CK_ULONG cls = 0;
  unsigned char label[8];
  CK_ATTRIBUTE t[] = {{CKA_CLASS, &cls, sizeof cls}, {CKA_LABEL, label, sizeof label},
                      {CKA_CLASS, nullptr, 0}};
  EXPECT_EQ(CKR_ATTRIBUTE_TYPE_INVALID, f_->C_GetAttributeValue(1, 2, t, 3));
  EXPECT_EQ(4u, +t[0].ulValueLen);
  EXPECT_EQ(CKO_VENDOR_DEFINED + 1, cls);
  EXPECT_EQ(kTargetNone, +t[1].ulValueLen);
  EXPECT_EQ(4u, +t[2].ulValueLen) << "size query in target units";
}

TEST_F(ToHost, EntryPointsTheModuleLacksAreNotSupported) {
  EXPECT_EQ(CKR_FUNCTION_NOT_SUPPORTED, f_->C_DigestKey(1, 2));
  EXPECT_EQ(CKR_FUNCTION_NOT_SUPPORTED, f_->C_Finalize(nullptr));
}

// The other direction: a platform caller in front of a scripted callee of
// the project's ABI.
struct TargetScript {
  int calls = 0;
  CK_ULONG length = 0;
};
TargetScript gTarget;

CK_RV targetSign(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR len) {
  ++gTarget.calls;
  gTarget.length = *len;
  *len = 256;
  return CKR_BUFFER_TOO_SMALL;
}
CK_RV targetGetAttributeValue(CK_SESSION_HANDLE, CK_OBJECT_HANDLE, CK_ATTRIBUTE_PTR t, CK_ULONG n) {
  ++gTarget.calls;
  for (CK_ULONG i = 0; i < n; ++i) t[i].ulValueLen = kTargetNone;
  return CKR_ATTRIBUTE_SENSITIVE;
}

struct ScriptedTarget {
  static const CK_FUNCTION_LIST* callee() {
    static CK_FUNCTION_LIST list = [] {
      CK_FUNCTION_LIST l{};
      l.C_Sign = targetSign;
      l.C_GetAttributeValue = targetGetAttributeValue;
      return l;
    }();
    return &list;
  }
  static bool load() { return true; }
  static bool connect() { return true; }
  static void disconnect() {}
};
using Front = abi::Forward<Host, Target, ScriptedTarget>;

TEST(ToTarget, HostValuesTheTargetCannotHoldAreRefused) {
  gTarget = TargetScript{};
  host::CK_FUNCTION_LIST* f = nullptr;
  ASSERT_EQ(CKR_OK, Front::C_GetFunctionList(&f));
  unsigned char data[4] = {}, sig[8];
  HUL len = sizeof sig;
  EXPECT_EQ(CKR_ARGUMENTS_BAD, f->C_Sign(1UL << 32, data, 4, sig, &len));
  EXPECT_EQ(CKR_ARGUMENTS_BAD, f->C_Sign(1, data, 1UL << 33, sig, &len));
  host::CK_ATTRIBUTE t[] = {{1UL << 40, nullptr, 0}};
  EXPECT_EQ(CKR_ATTRIBUTE_TYPE_INVALID, f->C_GetAttributeValue(1, 2, t, 1));
  EXPECT_EQ(0, gTarget.calls);
}

TEST(ToTarget, RoomBeyond32BitsSaturatesAndUnavailableWidens) {
  gTarget = TargetScript{};
  host::CK_FUNCTION_LIST* f = nullptr;
  ASSERT_EQ(CKR_OK, Front::C_GetFunctionList(&f));
  unsigned char data[4] = {};
  HUL len = 1UL << 36;  // a size query may leave anything here
  EXPECT_EQ(CKR_BUFFER_TOO_SMALL, f->C_Sign(1, data, 4, nullptr, &len));
  EXPECT_EQ(kTargetNone, gTarget.length);
  EXPECT_EQ(256u, len);

  HUL value = 0;
  host::CK_ATTRIBUTE t[] = {{CKA_VALUE, &value, sizeof value}, {CKA_CLASS, &value, sizeof value}};
  EXPECT_EQ(CKR_ATTRIBUTE_SENSITIVE, f->C_GetAttributeValue(1, 2, t, 2));
  EXPECT_EQ(kHostNone, +t[0].ulValueLen);
  EXPECT_EQ(kHostNone, +t[1].ulValueLen);
}

TEST(Kinds, TablesClassifyByType) {
  using abi::AttributeKind;
  using abi::ParameterKind;
  EXPECT_EQ(AttributeKind::kUlongs, abi::attributeKind(CKA_MODULUS_BITS));
  EXPECT_EQ(AttributeKind::kUlongs, abi::attributeKind(CKA_ALLOWED_MECHANISMS));
  EXPECT_EQ(AttributeKind::kTemplate, abi::attributeKind(CKA_UNWRAP_TEMPLATE));
  EXPECT_EQ(AttributeKind::kBytes, abi::attributeKind(CKA_LABEL));
  EXPECT_EQ(ParameterKind::kPss, abi::parameterKind(CKM_SHA224_RSA_PKCS_PSS));
  EXPECT_EQ(ParameterKind::kStringData, abi::parameterKind(CKM_XOR_BASE_AND_DATA));
  EXPECT_EQ(ParameterKind::kUntranslated, abi::parameterKind(CKM_PBE_SHA1_RC2_40_CBC));
  EXPECT_EQ(ParameterKind::kBytes, abi::parameterKind(CKM_AES_CBC_PAD));
  EXPECT_EQ(ParameterKind::kBytes, abi::parameterKind(CKM_VENDOR_DEFINED));
}

}  // namespace
}  // namespace qor::test
