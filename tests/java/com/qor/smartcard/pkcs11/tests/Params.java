package com.qor.smartcard.pkcs11.tests;

import com.qor.smartcard.pkcs11.CK_AES_CBC_ENCRYPT_DATA_PARAMS;
import com.qor.smartcard.pkcs11.CK_DES_CBC_ENCRYPT_DATA_PARAMS;
import com.qor.smartcard.pkcs11.CK_ECDH1_DERIVE_PARAMS;
import com.qor.smartcard.pkcs11.CK_ECDH2_DERIVE_PARAMS;
import com.qor.smartcard.pkcs11.CK_KEA_DERIVE_PARAMS;
import com.qor.smartcard.pkcs11.CK_KEY_DERIVATION_STRING_DATA;
import com.qor.smartcard.pkcs11.CK_KEY_WRAP_SET_OAEP_PARAMS;
import com.qor.smartcard.pkcs11.CK_PBE_PARAMS;
import com.qor.smartcard.pkcs11.CK_PKCS5_PBKD2_PARAMS;
import com.qor.smartcard.pkcs11.CK_RC2_CBC_PARAMS;
import com.qor.smartcard.pkcs11.CK_RC2_MAC_GENERAL_PARAMS;
import com.qor.smartcard.pkcs11.CK_RC5_CBC_PARAMS;
import com.qor.smartcard.pkcs11.CK_RC5_MAC_GENERAL_PARAMS;
import com.qor.smartcard.pkcs11.CK_RC5_PARAMS;
import com.qor.smartcard.pkcs11.CK_RSA_PKCS_OAEP_PARAMS;
import com.qor.smartcard.pkcs11.CK_RSA_PKCS_PSS_PARAMS;
import com.qor.smartcard.pkcs11.CK_SKIPJACK_PRIVATE_WRAP_PARAMS;
import com.qor.smartcard.pkcs11.CK_SKIPJACK_RELAYX_PARAMS;
import com.qor.smartcard.pkcs11.CK_SSL3_KEY_MAT_OUT;
import com.qor.smartcard.pkcs11.CK_SSL3_KEY_MAT_PARAMS;
import com.qor.smartcard.pkcs11.CK_SSL3_MASTER_KEY_DERIVE_PARAMS;
import com.qor.smartcard.pkcs11.CK_SSL3_RANDOM_DATA;
import com.qor.smartcard.pkcs11.CK_VERSION;
import com.qor.smartcard.pkcs11.CK_X9_42_DH1_DERIVE_PARAMS;
import com.qor.smartcard.pkcs11.CK_X9_42_DH2_DERIVE_PARAMS;

/** One filled object of every mechanism parameter class, for the tests. */
final class Params {
  private Params() {}

  static byte[] b(int... v) {
    byte[] out = new byte[v.length];
    for (int i = 0; i < v.length; i++) {
      out[i] = (byte) v[i];
    }
    return out;
  }

  static CK_RSA_PKCS_OAEP_PARAMS oaep() {
    CK_RSA_PKCS_OAEP_PARAMS p = new CK_RSA_PKCS_OAEP_PARAMS();
    p.hashAlg = 0x250;
    p.mgf = 2;
    p.source = 1;
    p.pSourceData = b(0xaa, 0xbb);
    return p;
  }

  static CK_KEA_DERIVE_PARAMS kea() {
    CK_KEA_DERIVE_PARAMS p = new CK_KEA_DERIVE_PARAMS();
    p.isSender = true;
    p.pRandomA = b(1, 2);
    p.pRandomB = b(3, 4);
    p.pPublicData = b(5);
    return p;
  }

  static CK_RC2_CBC_PARAMS rc2Cbc() {
    CK_RC2_CBC_PARAMS p = new CK_RC2_CBC_PARAMS();
    p.ulEffectiveBits = 64;
    p.iv = b(1, 2, 3);  // padded to 8
    return p;
  }

  static CK_RC2_MAC_GENERAL_PARAMS rc2MacGeneral() {
    CK_RC2_MAC_GENERAL_PARAMS p = new CK_RC2_MAC_GENERAL_PARAMS();
    p.ulEffectiveBits = 64;
    p.ulMacLength = 4;
    return p;
  }

  static CK_RC5_PARAMS rc5() {
    CK_RC5_PARAMS p = new CK_RC5_PARAMS();
    p.ulWordsize = 4;
    p.ulRounds = 12;
    return p;
  }

  static CK_RC5_CBC_PARAMS rc5Cbc() {
    CK_RC5_CBC_PARAMS p = new CK_RC5_CBC_PARAMS();
    p.ulWordsize = 4;
    p.ulRounds = 12;
    p.pIv = b(9, 8, 7);
    return p;
  }

  static CK_RC5_MAC_GENERAL_PARAMS rc5MacGeneral() {
    CK_RC5_MAC_GENERAL_PARAMS p = new CK_RC5_MAC_GENERAL_PARAMS();
    p.ulWordsize = 4;
    p.ulRounds = 12;
    p.ulMacLength = 8;
    return p;
  }

  static CK_SKIPJACK_PRIVATE_WRAP_PARAMS skipjackPrivateWrap() {
    CK_SKIPJACK_PRIVATE_WRAP_PARAMS p = new CK_SKIPJACK_PRIVATE_WRAP_PARAMS();
    p.pPassword = b(1);
    p.pPublicData = b(2, 2);
    p.pRandomA = b(3, 3, 3);
    p.pPrimeP = b(4, 4, 4, 4);
    p.pBaseG = b(5, 5, 5, 5);
    p.pSubprimeQ = b(6);
    return p;
  }

  static CK_SKIPJACK_RELAYX_PARAMS skipjackRelayx() {
    CK_SKIPJACK_RELAYX_PARAMS p = new CK_SKIPJACK_RELAYX_PARAMS();
    p.pOldWrappedX = b(1);
    p.pOldPassword = b(2);
    p.pOldPublicData = b(3);
    p.pOldRandomA = b(4);
    p.pNewPassword = b(5);
    p.pNewPublicData = b(6);
    p.pNewRandomA = b(7);
    return p;
  }

  static CK_PBE_PARAMS pbe() {
    CK_PBE_PARAMS p = new CK_PBE_PARAMS();
    p.pInitVector = new char[8];
    p.pPassword = "pw".toCharArray();
    p.pSalt = "salt".toCharArray();
    p.ulIteration = 1000;
    p.pInitVektor = new char[8];
    return p;
  }

  static CK_PKCS5_PBKD2_PARAMS pkcs5Pbkd2() {
    CK_PKCS5_PBKD2_PARAMS p = new CK_PKCS5_PBKD2_PARAMS();
    p.saltSource = 1;
    p.pSaltSourceData = b(0x5a, 0x17);
    p.iterations = 2048;
    p.prf = 1;
    p.pPrfData = b(0x33);
    return p;
  }

  static CK_KEY_DERIVATION_STRING_DATA stringData() {
    CK_KEY_DERIVATION_STRING_DATA p = new CK_KEY_DERIVATION_STRING_DATA();
    p.pData = b(1, 2, 3);
    return p;
  }

  static CK_KEY_WRAP_SET_OAEP_PARAMS setOaep() {
    CK_KEY_WRAP_SET_OAEP_PARAMS p = new CK_KEY_WRAP_SET_OAEP_PARAMS();
    p.bBC = 0x11;
    p.pX = new byte[8];
    return p;
  }

  static CK_SSL3_RANDOM_DATA random() {
    CK_SSL3_RANDOM_DATA r = new CK_SSL3_RANDOM_DATA();
    r.pClientRandom = b(0xc1, 0xc2);
    r.pServerRandom = b(0x51);
    return r;
  }

  static CK_SSL3_MASTER_KEY_DERIVE_PARAMS ssl3Master() {
    CK_SSL3_MASTER_KEY_DERIVE_PARAMS p = new CK_SSL3_MASTER_KEY_DERIVE_PARAMS();
    p.RandomInfo = random();
    p.pVersion = new CK_VERSION(0, 0);
    return p;
  }

  static CK_SSL3_KEY_MAT_PARAMS ssl3KeyMat() {
    CK_SSL3_KEY_MAT_PARAMS p = new CK_SSL3_KEY_MAT_PARAMS();
    p.ulMacSizeInBits = 160;
    p.ulKeySizeInBits = 128;
    p.ulIVSizeInBits = 64;
    p.bIsExport = true;
    p.RandomInfo = random();
    p.pReturnedKeyMaterial = new CK_SSL3_KEY_MAT_OUT();
    return p;
  }

  static CK_RSA_PKCS_PSS_PARAMS pss() {
    CK_RSA_PKCS_PSS_PARAMS p = new CK_RSA_PKCS_PSS_PARAMS();
    p.hashAlg = 0x250;
    p.mgf = 2;
    p.sLen = 32;
    return p;
  }

  static CK_ECDH1_DERIVE_PARAMS ecdh1() {
    CK_ECDH1_DERIVE_PARAMS p = new CK_ECDH1_DERIVE_PARAMS();
    p.kdf = 1;
    p.pSharedData = b(0xee);
    p.pPublicData = b(4, 1, 2);
    return p;
  }

  static CK_ECDH2_DERIVE_PARAMS ecdh2() {
    CK_ECDH2_DERIVE_PARAMS p = new CK_ECDH2_DERIVE_PARAMS();
    p.kdf = 1;
    p.pSharedData = b(0xee);
    p.pPublicData = b(4, 1);
    p.ulPrivateDataLen = 32;
    p.hPrivateData = 77;
    p.pPublicData2 = b(4, 2, 2);
    return p;
  }

  static CK_X9_42_DH1_DERIVE_PARAMS dh1() {
    CK_X9_42_DH1_DERIVE_PARAMS p = new CK_X9_42_DH1_DERIVE_PARAMS();
    p.kdf = 1;
    p.pOtherInfo = b(0x0f);
    p.pPublicData = b(1, 2);
    return p;
  }

  static CK_X9_42_DH2_DERIVE_PARAMS dh2() {
    CK_X9_42_DH2_DERIVE_PARAMS p = new CK_X9_42_DH2_DERIVE_PARAMS();
    p.kdf = 1;
    p.pOtherInfo = b(0x0f);
    p.pPublicData = b(1, 2);
    p.ulPrivateDataLen = 16;
    p.hPrivateData = 78;
    p.pPublicData2 = b(3);
    return p;
  }

  static CK_DES_CBC_ENCRYPT_DATA_PARAMS desCbcData() {
    CK_DES_CBC_ENCRYPT_DATA_PARAMS p = new CK_DES_CBC_ENCRYPT_DATA_PARAMS();
    p.iv = b(1, 2, 3, 4, 5, 6, 7, 8, 9);  // cut to 8
    p.pData = b(0xda, 0x7a);
    return p;
  }

  static CK_AES_CBC_ENCRYPT_DATA_PARAMS aesCbcData() {
    CK_AES_CBC_ENCRYPT_DATA_PARAMS p = new CK_AES_CBC_ENCRYPT_DATA_PARAMS();
    p.iv = b(1, 2);
    p.pData = b(0xda, 0x7a, 0x00);
    return p;
  }
}
