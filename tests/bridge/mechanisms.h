// Mechanisms with the parameter blocks the tests use, built in either ABI.
#pragma once

#include "token.h"

namespace qor::test {

enum class Param { kNone, kIv, kGcm, kCtr, kOaep, kPss };

// Parameter data behind the blocks' pointers; it must outlive the calls.
inline unsigned char gIv[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
inline unsigned char gAad[5] = {'h', 'e', 'l', 'l', 'o'};

template <class A>
Mechanism<A> mechanismOf(unsigned long type, Param p) {
  switch (p) {
    case Param::kNone:
      break;
    case Param::kIv:
      return Mechanism<A>(type, Bytes(gIv, gIv + 16));
    case Param::kGcm: {
      typename A::CK_AES_GCM_PARAMS g{};
      g.pIv = gIv;
      g.ulIvLen = 12;
      g.ulIvBits = 96;
      g.pAAD = gAad;
      g.ulAADLen = sizeof gAad;
      g.ulTagBits = 128;
      return Mechanism<A>(type, g);
    }
    case Param::kCtr: {
      typename A::CK_AES_CTR_PARAMS c{};
      c.ulCounterBits = 32;
      std::memcpy(c.cb, gIv, sizeof c.cb);
      return Mechanism<A>(type, c);
    }
    case Param::kOaep: {
      typename A::CK_RSA_PKCS_OAEP_PARAMS o{};
      o.hashAlg = CKM_SHA_1;  // all SoftHSM2 takes
      o.mgf = CKG_MGF1_SHA1;
      o.source = CKZ_DATA_SPECIFIED;  // with no label
      return Mechanism<A>(type, o);
    }
    case Param::kPss: {
      typename A::CK_RSA_PKCS_PSS_PARAMS s{};
      s.hashAlg = CKM_SHA256;
      s.mgf = CKG_MGF1_SHA256;
      s.sLen = 32;
      return Mechanism<A>(type, s);
    }
  }
  return Mechanism<A>(type);
}

}  // namespace qor::test
