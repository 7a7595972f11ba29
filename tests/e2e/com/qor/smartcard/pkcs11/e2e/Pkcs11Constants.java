package com.qor.smartcard.pkcs11.e2e;

/** The PKCS#11 constants the end-to-end tests use, with the standard's values. */
interface Pkcs11Constants {
  long CKF_TOKEN_PRESENT = 0x1;
  long CKF_TOKEN_INITIALIZED = 0x400;
  long CKF_RW_SESSION = 0x2;
  long CKF_SERIAL_SESSION = 0x4;
  long CKF_SIGN = 0x800;
  long CKF_DONT_BLOCK = 0x1;
  long CKU_USER = 1;

  long CKO_DATA = 0;
  long CKO_SECRET_KEY = 4;
  long CKK_GENERIC_SECRET = 0x10;
  long CKK_AES = 0x1F;

  long CKA_CLASS = 0x0;
  long CKA_TOKEN = 0x1;
  long CKA_PRIVATE = 0x2;
  long CKA_LABEL = 0x3;
  long CKA_VALUE = 0x11;
  long CKA_KEY_TYPE = 0x100;
  long CKA_SENSITIVE = 0x103;
  long CKA_ENCRYPT = 0x104;
  long CKA_DECRYPT = 0x105;
  long CKA_WRAP = 0x106;
  long CKA_UNWRAP = 0x107;
  long CKA_SIGN = 0x108;
  long CKA_VERIFY = 0x10A;
  long CKA_DERIVE = 0x10C;
  long CKA_MODULUS = 0x120;
  long CKA_MODULUS_BITS = 0x121;
  long CKA_PUBLIC_EXPONENT = 0x122;
  long CKA_VALUE_LEN = 0x161;
  long CKA_EXTRACTABLE = 0x162;
  long CKA_EC_PARAMS = 0x180;
  long CKA_EC_POINT = 0x181;

  long CKM_RSA_PKCS_KEY_PAIR_GEN = 0x0;
  long CKM_RSA_PKCS = 0x1;
  long CKM_RSA_PKCS_OAEP = 0x9;
  long CKM_SHA256_RSA_PKCS = 0x40;
  long CKM_SHA256_RSA_PKCS_PSS = 0x43;
  long CKM_SHA_1 = 0x220;
  long CKM_SHA256 = 0x250;
  long CKM_EC_KEY_PAIR_GEN = 0x1040;
  long CKM_ECDSA = 0x1041;
  long CKM_ECDH1_DERIVE = 0x1050;
  long CKM_AES_KEY_GEN = 0x1080;
  long CKM_AES_CBC = 0x1082;
  long CKM_AES_CBC_PAD = 0x1085;
  long CKM_AES_KEY_WRAP = 0x2109;

  long CKG_MGF1_SHA1 = 0x1;
  long CKG_MGF1_SHA256 = 0x2;
  long CKZ_DATA_SPECIFIED = 0x1;
  long CKD_NULL = 0x1;

  long CKR_SLOT_ID_INVALID = 0x3;
  long CKR_GENERAL_ERROR = 0x5;
  long CKR_ARGUMENTS_BAD = 0x7;
  long CKR_NO_EVENT = 0x8;
  long CKR_MECHANISM_INVALID = 0x70;
  long CKR_OBJECT_HANDLE_INVALID = 0x82;
  long CKR_PIN_INCORRECT = 0xA0;
  long CKR_SESSION_HANDLE_INVALID = 0xB3;
  long CKR_SIGNATURE_INVALID = 0xC0;
  long CKR_BUFFER_TOO_SMALL = 0x150;
  long CKR_USER_ALREADY_LOGGED_IN = 0x100;
  long CKR_USER_NOT_LOGGED_IN = 0x101;

  /** DER of the OID of the NIST P-256 curve. */
  byte[] P256_OID = {0x06, 0x08, 0x2a, (byte) 0x86, 0x48, (byte) 0xce, 0x3d, 0x03, 0x01, 0x07};
  /** DER prefix of a SHA-256 DigestInfo. */
  byte[] SHA256_DIGEST_INFO = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, (byte) 0x86, 0x48, 0x01, 0x65,
      0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
}
