// Text form of mechanisms. A parameter whose mechanism names a known
// structure, and whose length is that structure's size, is shown member by
// member with the buffers it points to, so the text holds no addresses.
#include <cstring>
#include <sstream>

#include "record.h"

namespace qor::tm {
namespace {

// Members in order: U CK_ULONG, B one byte, F<n> n inline bytes,
// P pointer to bytes whose length is the named member (or a number),
// Q pointer shown as null/nonnull only.
constexpr const char* kOaep = "U:hashAlg U:mgf U:source P:pSourceData:ulSourceDataLen U:ulSourceDataLen";
constexpr const char* kPss = "U:hashAlg U:mgf U:sLen";
// Key agreement: kdf, one named data buffer and the public data; the "2"
// forms add a private key and a second public value.
#define QORTM_KDF(data)                                                                          \
  "U:kdf U:ul" data "Len P:p" data ":ul" data "Len U:ulPublicDataLen P:pPublicData:ulPublicDataLen"
#define QORTM_KDF2 " U:ulPrivateDataLen U:hPrivateData U:ulPublicDataLen2 P:pPublicData2:ulPublicDataLen2"
constexpr const char* kEcdh1 = QORTM_KDF("SharedData");
constexpr const char* kEcdh2 = QORTM_KDF("SharedData") QORTM_KDF2;
constexpr const char* kDh1 = QORTM_KDF("OtherInfo");
constexpr const char* kDh2 = QORTM_KDF("OtherInfo") QORTM_KDF2;
constexpr const char* kKea =
    "B:isSender U:ulRandomLen P:pRandomA:ulRandomLen P:pRandomB:ulRandomLen U:ulPublicDataLen "
    "P:pPublicData:ulPublicDataLen";
constexpr const char* kRc2Cbc = "U:ulEffectiveBits F8:iv";
constexpr const char* kRc2Mac = "U:ulEffectiveBits U:ulMacLength";
constexpr const char* kRc5 = "U:ulWordsize U:ulRounds";
constexpr const char* kRc5Cbc = "U:ulWordsize U:ulRounds P:pIv:ulIvLen U:ulIvLen";
constexpr const char* kRc5Mac = "U:ulWordsize U:ulRounds U:ulMacLength";
constexpr const char* kSkipjackWrap =
    "U:ulPasswordLen P:pPassword:ulPasswordLen U:ulPublicDataLen P:pPublicData:ulPublicDataLen U:ulPAndGLen "
    "U:ulQLen U:ulRandomLen P:pRandomA:ulRandomLen P:pPrimeP:ulPAndGLen P:pBaseG:ulPAndGLen P:pSubprimeQ:ulQLen";
constexpr const char* kRelayx =
    "U:ulOldWrappedXLen P:pOldWrappedX:ulOldWrappedXLen U:ulOldPasswordLen P:pOldPassword:ulOldPasswordLen "
    "U:ulOldPublicDataLen P:pOldPublicData:ulOldPublicDataLen U:ulOldRandomLen P:pOldRandomA:ulOldRandomLen "
    "U:ulNewPasswordLen P:pNewPassword:ulNewPasswordLen U:ulNewPublicDataLen P:pNewPublicData:ulNewPublicDataLen "
    "U:ulNewRandomLen P:pNewRandomA:ulNewRandomLen";
constexpr const char* kPbe =
    "Q:pInitVector P:pPassword:ulPasswordLen U:ulPasswordLen P:pSalt:ulSaltLen U:ulSaltLen U:ulIteration";
constexpr const char* kPbkd2 =
    "U:saltSource P:pSaltSourceData:ulSaltSourceDataLen U:ulSaltSourceDataLen U:iterations U:prf "
    "P:pPrfData:ulPrfDataLen U:ulPrfDataLen Q:pPassword Q:ulPasswordLen";
constexpr const char* kString = "P:pData:ulLen U:ulLen";
constexpr const char* kSetOaep = "B:bBC P:pX:ulXLen U:ulXLen";
constexpr const char* kSsl3Master =
    "P:pClientRandom:ulClientRandomLen U:ulClientRandomLen P:pServerRandom:ulServerRandomLen "
    "U:ulServerRandomLen P:pVersion:2";
constexpr const char* kSsl3KeyMat =
    "U:ulMacSizeInBits U:ulKeySizeInBits U:ulIVSizeInBits B:bIsExport P:pClientRandom:ulClientRandomLen "
    "U:ulClientRandomLen P:pServerRandom:ulServerRandomLen U:ulServerRandomLen Q:pReturnedKeyMaterial";
constexpr const char* kDesCbcData = "F8:iv P:pData:length U:length";
constexpr const char* kAesCbcData = "F16:iv P:pData:length U:length";

struct Layout {
  CK_MECHANISM_TYPE first, last;
  const char* members;
};
constexpr Layout kLayouts[] = {
    {CKM_RSA_PKCS_OAEP, CKM_RSA_PKCS_OAEP, kOaep},
    {CKM_RSA_PKCS_PSS, CKM_SHA1_RSA_PKCS_PSS, kPss},
    {CKM_SHA256_RSA_PKCS_PSS, CKM_SHA512_RSA_PKCS_PSS, kPss},
    {CKM_SHA224_RSA_PKCS_PSS, CKM_SHA224_RSA_PKCS_PSS, kPss},
    {CKM_X9_42_DH_DERIVE, CKM_X9_42_DH_DERIVE, kDh1},
    {CKM_X9_42_DH_HYBRID_DERIVE, CKM_X9_42_MQV_DERIVE, kDh2},
    {CKM_RC2_CBC, CKM_RC2_CBC, kRc2Cbc},
    {CKM_RC2_CBC_PAD, CKM_RC2_CBC_PAD, kRc2Cbc},
    {CKM_RC2_MAC_GENERAL, CKM_RC2_MAC_GENERAL, kRc2Mac},
    {CKM_RC5_ECB, CKM_RC5_ECB, kRc5},
    {CKM_RC5_MAC, CKM_RC5_MAC, kRc5},
    {CKM_RC5_CBC, CKM_RC5_CBC, kRc5Cbc},
    {CKM_RC5_CBC_PAD, CKM_RC5_CBC_PAD, kRc5Cbc},
    {CKM_RC5_MAC_GENERAL, CKM_RC5_MAC_GENERAL, kRc5Mac},
    {CKM_CONCATENATE_BASE_AND_DATA, CKM_CONCATENATE_DATA_AND_BASE, kString},
    {CKM_XOR_BASE_AND_DATA, CKM_XOR_BASE_AND_DATA, kString},
    {CKM_DES_ECB_ENCRYPT_DATA, CKM_DES_ECB_ENCRYPT_DATA, kString},
    {CKM_DES3_ECB_ENCRYPT_DATA, CKM_DES3_ECB_ENCRYPT_DATA, kString},
    {CKM_AES_ECB_ENCRYPT_DATA, CKM_AES_ECB_ENCRYPT_DATA, kString},
    {CKM_DES_CBC_ENCRYPT_DATA, CKM_DES_CBC_ENCRYPT_DATA, kDesCbcData},
    {CKM_DES3_CBC_ENCRYPT_DATA, CKM_DES3_CBC_ENCRYPT_DATA, kDesCbcData},
    {CKM_AES_CBC_ENCRYPT_DATA, CKM_AES_CBC_ENCRYPT_DATA, kAesCbcData},
    {CKM_SSL3_MASTER_KEY_DERIVE, CKM_SSL3_MASTER_KEY_DERIVE, kSsl3Master},
    {CKM_SSL3_MASTER_KEY_DERIVE_DH, CKM_SSL3_MASTER_KEY_DERIVE_DH, kSsl3Master},
    {CKM_TLS_MASTER_KEY_DERIVE, CKM_TLS_MASTER_KEY_DERIVE, kSsl3Master},
    {CKM_TLS_MASTER_KEY_DERIVE_DH, CKM_TLS_MASTER_KEY_DERIVE_DH, kSsl3Master},
    {CKM_SSL3_KEY_AND_MAC_DERIVE, CKM_SSL3_KEY_AND_MAC_DERIVE, kSsl3KeyMat},
    {CKM_TLS_KEY_AND_MAC_DERIVE, CKM_TLS_KEY_AND_MAC_DERIVE, kSsl3KeyMat},
    {CKM_PBE_MD2_DES_CBC, CKM_PBE_SHA1_RC2_40_CBC, kPbe},
    {CKM_PBA_SHA1_WITH_SHA1_HMAC, CKM_PBA_SHA1_WITH_SHA1_HMAC, kPbe},
    {CKM_PKCS5_PBKD2, CKM_PKCS5_PBKD2, kPbkd2},
    {CKM_KEY_WRAP_SET_OAEP, CKM_KEY_WRAP_SET_OAEP, kSetOaep},
    {CKM_SKIPJACK_PRIVATE_WRAP, CKM_SKIPJACK_PRIVATE_WRAP, kSkipjackWrap},
    {CKM_SKIPJACK_RELAYX, CKM_SKIPJACK_RELAYX, kRelayx},
    {CKM_KEA_KEY_DERIVE, CKM_KEA_KEY_DERIVE, kKea},
    {CKM_ECDH1_DERIVE, CKM_ECDH1_COFACTOR_DERIVE, kEcdh1},
    {CKM_ECMQV_DERIVE, CKM_ECMQV_DERIVE, kEcdh2},
};

struct Member {
  char kind;
  std::string name, length;  // length: P's length member or a number
  size_t offset, size;
};

std::vector<Member> parse(const char* members) {
  std::vector<Member> out;
  std::istringstream in(members);
  std::string token;
  size_t offset = 0;
  while (in >> token) {
    Member m{token[0], "", "", offset, 0};
    const size_t colon = token.find(':');
    const size_t second = token.find(':', colon + 1);
    m.name = token.substr(colon + 1, second == std::string::npos ? std::string::npos : second - colon - 1);
    if (second != std::string::npos) m.length = token.substr(second + 1);
    switch (m.kind) {
      case 'U': m.size = sizeof(CK_ULONG); break;
      case 'B': m.size = 1; break;
      case 'F': m.size = std::stoul(token.substr(1, colon - 1)); break;
      default: m.size = sizeof(void*); break;
    }
    offset += m.size;
    out.push_back(m);
  }
  return out;
}

bool isTypeMember(const std::string& name) {
  return name == "hashAlg" || name == "mgf" || name == "source" || name == "kdf" || name == "prf" ||
         name == "saltSource";
}

// The member-by-member text, or "" when the size does not match.
std::string structureText(const char* members, const CK_MECHANISM& m) {
  const std::vector<Member> layout = parse(members);
  const size_t size = layout.back().offset + layout.back().size;
  Bytes raw(size);
  if (m.ulParameterLen != size || !peek(m.pParameter, raw.data(), size)) return "";
  auto ulongAt = [&raw](size_t offset) {
    CK_ULONG v;
    std::memcpy(&v, raw.data() + offset, sizeof v);
    return v;
  };
  auto pointerAt = [&raw](size_t offset) {
    const void* p;
    std::memcpy(&p, raw.data() + offset, sizeof p);
    return p;
  };
  auto lengthOf = [&](const std::string& ref) -> size_t {
    if (!ref.empty() && ref[0] >= '0' && ref[0] <= '9') return std::stoul(ref);
    for (const Member& other : layout)
      if (other.kind == 'U' && other.name == ref) return ulongAt(other.offset);
    return 0;
  };
  std::string s = "{";
  for (const Member& f : layout) {
    if (s.size() > 1) s += ", ";
    s += f.name + "=";
    switch (f.kind) {
      case 'U': s += numberText(ulongAt(f.offset), isTypeMember(f.name)); break;
      case 'B': s += numberText(raw[f.offset], false); break;
      case 'F': s += bytesText(raw.data() + f.offset, f.size); break;
      case 'P': s += bytesText(pointerAt(f.offset), lengthOf(f.length)); break;
      default: s += pointerText(pointerAt(f.offset)); break;
    }
  }
  return s + "}";
}

std::string parameterText(const CK_MECHANISM& m) {
  if (m.pParameter == nullptr) return "null";
  for (const Layout& l : kLayouts) {
    if (m.mechanism < l.first || m.mechanism > l.last) continue;
    std::string s = structureText(l.members, m);
    if (!s.empty()) return s;
    break;
  }
  return bytesText(m.pParameter, m.ulParameterLen);
}

}  // namespace

std::string mechanismText(const CK_MECHANISM* p) {
  if (p == nullptr) return "null";
  CK_MECHANISM m;
  if (!peek(p, &m, sizeof m)) return "<unreadable>";
  return "{mechanism=" + numberText(m.mechanism, true) + ", pParameter=" + parameterText(m) +
         ", ulParameterLen=" + numberText(m.ulParameterLen, false) + "}";
}

}  // namespace qor::tm
