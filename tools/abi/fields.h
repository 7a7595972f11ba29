// Member-by-member copies of the structures whose layout differs between the
// ABIs. The member names are the standard's on both sides, so each copy is
// written once and serves either direction: `s` and `d` are the same
// structure in the two ABIs. CK_ULONG members go through the Narrow `n`.
// Each copy is an object, so that it can be handed to the code that owns
// the memory.
#pragma once

#include <cstring>

#include "abi.h"

namespace qor::abi::fields {

template <class D, class S>
void bytes(D& d, const S& s) {
  static_assert(sizeof(D) == sizeof(S), "byte arrays are the same size in both ABIs");
  std::memcpy(d, s, sizeof(D));
}

template <class S, class D>
void version(const S& s, D& d) {
  d.major = s.major;
  d.minor = s.minor;
}

inline constexpr auto info = [](const auto& s, auto& d, Narrow& n) {
  version(s.cryptokiVersion, d.cryptokiVersion);
  bytes(d.manufacturerID, s.manufacturerID);
  d.flags = n(s.flags);
  bytes(d.libraryDescription, s.libraryDescription);
  version(s.libraryVersion, d.libraryVersion);
};

inline constexpr auto slotInfo = [](const auto& s, auto& d, Narrow& n) {
  bytes(d.slotDescription, s.slotDescription);
  bytes(d.manufacturerID, s.manufacturerID);
  d.flags = n(s.flags);
  version(s.hardwareVersion, d.hardwareVersion);
  version(s.firmwareVersion, d.firmwareVersion);
};

inline constexpr auto tokenInfo = [](const auto& s, auto& d, Narrow& n) {
  bytes(d.label, s.label);
  bytes(d.manufacturerID, s.manufacturerID);
  bytes(d.model, s.model);
  bytes(d.serialNumber, s.serialNumber);
  d.flags = n(s.flags);
  d.ulMaxSessionCount = n(s.ulMaxSessionCount);
  d.ulSessionCount = n(s.ulSessionCount);
  d.ulMaxRwSessionCount = n(s.ulMaxRwSessionCount);
  d.ulRwSessionCount = n(s.ulRwSessionCount);
  d.ulMaxPinLen = n(s.ulMaxPinLen);
  d.ulMinPinLen = n(s.ulMinPinLen);
  d.ulTotalPublicMemory = n(s.ulTotalPublicMemory);
  d.ulFreePublicMemory = n(s.ulFreePublicMemory);
  d.ulTotalPrivateMemory = n(s.ulTotalPrivateMemory);
  d.ulFreePrivateMemory = n(s.ulFreePrivateMemory);
  version(s.hardwareVersion, d.hardwareVersion);
  version(s.firmwareVersion, d.firmwareVersion);
  bytes(d.utcTime, s.utcTime);
};

inline constexpr auto sessionInfo = [](const auto& s, auto& d, Narrow& n) {
  d.slotID = n(s.slotID);
  d.state = n(s.state);
  d.flags = n(s.flags);
  d.ulDeviceError = n(s.ulDeviceError);
};

inline constexpr auto mechanismInfo = [](const auto& s, auto& d, Narrow& n) {
  d.ulMinKeySize = n(s.ulMinKeySize);
  d.ulMaxKeySize = n(s.ulMaxKeySize);
  d.flags = n(s.flags);
};

// Mechanism parameters.

inline constexpr auto ulong = [](const auto& s, auto& d, Narrow& n) {
  d = n(s);
};

inline constexpr auto oaep = [](const auto& s, auto& d, Narrow& n) {
  d.hashAlg = n(s.hashAlg);
  d.mgf = n(s.mgf);
  d.source = n(s.source);
  d.pSourceData = s.pSourceData;
  d.ulSourceDataLen = n(s.ulSourceDataLen);
};

inline constexpr auto pss = [](const auto& s, auto& d, Narrow& n) {
  d.hashAlg = n(s.hashAlg);
  d.mgf = n(s.mgf);
  d.sLen = n(s.sLen);
};

inline constexpr auto ecdh1 = [](const auto& s, auto& d, Narrow& n) {
  d.kdf = n(s.kdf);
  d.ulSharedDataLen = n(s.ulSharedDataLen);
  d.pSharedData = s.pSharedData;
  d.ulPublicDataLen = n(s.ulPublicDataLen);
  d.pPublicData = s.pPublicData;
};

inline constexpr auto gcm = [](const auto& s, auto& d, Narrow& n) {
  d.pIv = s.pIv;
  d.ulIvLen = n(s.ulIvLen);
  d.ulIvBits = n(s.ulIvBits);
  d.pAAD = s.pAAD;
  d.ulAADLen = n(s.ulAADLen);
  d.ulTagBits = n(s.ulTagBits);
};

inline constexpr auto ctr = [](const auto& s, auto& d, Narrow& n) {
  d.ulCounterBits = n(s.ulCounterBits);
  bytes(d.cb, s.cb);
};

// CK_AES_ and CK_DES_CBC_ENCRYPT_DATA_PARAMS differ only in the IV size.
inline constexpr auto cbcData = [](const auto& s, auto& d, Narrow& n) {
  bytes(d.iv, s.iv);
  d.pData = s.pData;
  d.length = n(s.length);
};

inline constexpr auto stringData = [](const auto& s, auto& d, Narrow& n) {
  d.pData = s.pData;
  d.ulLen = n(s.ulLen);
};

}  // namespace qor::abi::fields
