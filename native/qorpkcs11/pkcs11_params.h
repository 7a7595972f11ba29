/*
 * Mechanism parameter structures, packed like the rest of the interface.
 * A module only reads these correctly if it was built with the same 1-byte
 * packing: several sizes (the 1-byte CK_BBOOL/CK_BYTE members followed
 * by a CK_ULONG or pointer) exist only under it.
 *
 * Include pkcs11.h; it pulls this file in.
 */
#ifndef QORPKCS11_PKCS11_PARAMS_H
#define QORPKCS11_PKCS11_PARAMS_H

#include "pkcs11.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------
 * Parameter enumerations and their values
 * --------------------------------------------------------------------- */

typedef CK_ULONG CK_RSA_PKCS_MGF_TYPE;
typedef CK_ULONG CK_RSA_PKCS_OAEP_SOURCE_TYPE;
typedef CK_ULONG CK_EC_KDF_TYPE;
typedef CK_ULONG CK_X9_42_DH_KDF_TYPE;
typedef CK_ULONG CK_PKCS5_PBKDF2_SALT_SOURCE_TYPE;
typedef CK_ULONG CK_PKCS5_PBKD2_PSEUDO_RANDOM_FUNCTION_TYPE;
typedef CK_ULONG CK_RC2_PARAMS;
typedef CK_ULONG CK_MAC_GENERAL_PARAMS;
typedef CK_ULONG CK_EXTRACT_PARAMS;

typedef CK_RSA_PKCS_MGF_TYPE *CK_RSA_PKCS_MGF_TYPE_PTR;
typedef CK_RSA_PKCS_OAEP_SOURCE_TYPE *CK_RSA_PKCS_OAEP_SOURCE_TYPE_PTR;
typedef CK_EC_KDF_TYPE *CK_EC_KDF_TYPE_PTR;
typedef CK_X9_42_DH_KDF_TYPE *CK_X9_42_DH_KDF_TYPE_PTR;
typedef CK_PKCS5_PBKDF2_SALT_SOURCE_TYPE *CK_PKCS5_PBKDF2_SALT_SOURCE_TYPE_PTR;
typedef CK_PKCS5_PBKD2_PSEUDO_RANDOM_FUNCTION_TYPE
    *CK_PKCS5_PBKD2_PSEUDO_RANDOM_FUNCTION_TYPE_PTR;
typedef CK_RC2_PARAMS *CK_RC2_PARAMS_PTR;
typedef CK_MAC_GENERAL_PARAMS *CK_MAC_GENERAL_PARAMS_PTR;
typedef CK_EXTRACT_PARAMS *CK_EXTRACT_PARAMS_PTR;

#define CKG_MGF1_SHA1 0x00000001u
#define CKG_MGF1_SHA256 0x00000002u
#define CKG_MGF1_SHA384 0x00000003u
#define CKG_MGF1_SHA512 0x00000004u
#define CKG_MGF1_SHA224 0x00000005u

#define CKZ_DATA_SPECIFIED 0x00000001u

#define CKD_NULL 0x00000001u
#define CKD_SHA1_KDF 0x00000002u
#define CKD_SHA1_KDF_ASN1 0x00000003u
#define CKD_SHA1_KDF_CONCATENATE 0x00000004u

#define CKZ_SALT_SPECIFIED 0x00000001u

#define CKP_PKCS5_PBKD2_HMAC_SHA1 0x00000001u

/* ------------------------------------------------------------------------
 * Structures
 * --------------------------------------------------------------------- */

#pragma pack(push, 1)

typedef struct CK_RSA_PKCS_OAEP_PARAMS {
    CK_MECHANISM_TYPE hashAlg;
    CK_RSA_PKCS_MGF_TYPE mgf;
    CK_RSA_PKCS_OAEP_SOURCE_TYPE source;
    CK_VOID_PTR pSourceData;
    CK_ULONG ulSourceDataLen;
} CK_RSA_PKCS_OAEP_PARAMS;

typedef struct CK_RSA_PKCS_PSS_PARAMS {
    CK_MECHANISM_TYPE hashAlg;
    CK_RSA_PKCS_MGF_TYPE mgf;
    CK_ULONG sLen;
} CK_RSA_PKCS_PSS_PARAMS;

typedef struct CK_ECDH1_DERIVE_PARAMS {
    CK_EC_KDF_TYPE kdf;
    CK_ULONG ulSharedDataLen;
    CK_BYTE_PTR pSharedData;
    CK_ULONG ulPublicDataLen;
    CK_BYTE_PTR pPublicData;
} CK_ECDH1_DERIVE_PARAMS;

typedef struct CK_ECDH2_DERIVE_PARAMS {
    CK_EC_KDF_TYPE kdf;
    CK_ULONG ulSharedDataLen;
    CK_BYTE_PTR pSharedData;
    CK_ULONG ulPublicDataLen;
    CK_BYTE_PTR pPublicData;
    CK_ULONG ulPrivateDataLen;
    CK_OBJECT_HANDLE hPrivateData;
    CK_ULONG ulPublicDataLen2;
    CK_BYTE_PTR pPublicData2;
} CK_ECDH2_DERIVE_PARAMS;

typedef struct CK_ECMQV_DERIVE_PARAMS {
    CK_EC_KDF_TYPE kdf;
    CK_ULONG ulSharedDataLen;
    CK_BYTE_PTR pSharedData;
    CK_ULONG ulPublicDataLen;
    CK_BYTE_PTR pPublicData;
    CK_ULONG ulPrivateDataLen;
    CK_OBJECT_HANDLE hPrivateData;
    CK_ULONG ulPublicDataLen2;
    CK_BYTE_PTR pPublicData2;
    CK_OBJECT_HANDLE publicKey;
} CK_ECMQV_DERIVE_PARAMS;

typedef struct CK_X9_42_DH1_DERIVE_PARAMS {
    CK_X9_42_DH_KDF_TYPE kdf;
    CK_ULONG ulOtherInfoLen;
    CK_BYTE_PTR pOtherInfo;
    CK_ULONG ulPublicDataLen;
    CK_BYTE_PTR pPublicData;
} CK_X9_42_DH1_DERIVE_PARAMS;

typedef struct CK_X9_42_DH2_DERIVE_PARAMS {
    CK_X9_42_DH_KDF_TYPE kdf;
    CK_ULONG ulOtherInfoLen;
    CK_BYTE_PTR pOtherInfo;
    CK_ULONG ulPublicDataLen;
    CK_BYTE_PTR pPublicData;
    CK_ULONG ulPrivateDataLen;
    CK_OBJECT_HANDLE hPrivateData;
    CK_ULONG ulPublicDataLen2;
    CK_BYTE_PTR pPublicData2;
} CK_X9_42_DH2_DERIVE_PARAMS;

typedef struct CK_X9_42_MQV_DERIVE_PARAMS {
    CK_X9_42_DH_KDF_TYPE kdf;
    CK_ULONG ulOtherInfoLen;
    CK_BYTE_PTR pOtherInfo;
    CK_ULONG ulPublicDataLen;
    CK_BYTE_PTR pPublicData;
    CK_ULONG ulPrivateDataLen;
    CK_OBJECT_HANDLE hPrivateData;
    CK_ULONG ulPublicDataLen2;
    CK_BYTE_PTR pPublicData2;
    CK_OBJECT_HANDLE publicKey;
} CK_X9_42_MQV_DERIVE_PARAMS;

typedef struct CK_KEA_DERIVE_PARAMS {
    CK_BBOOL isSender;
    CK_ULONG ulRandomLen;
    CK_BYTE_PTR pRandomA;
    CK_BYTE_PTR pRandomB;
    CK_ULONG ulPublicDataLen;
    CK_BYTE_PTR pPublicData;
} CK_KEA_DERIVE_PARAMS;

typedef struct CK_RC2_CBC_PARAMS {
    CK_ULONG ulEffectiveBits;
    CK_BYTE iv[8];
} CK_RC2_CBC_PARAMS;

typedef struct CK_RC2_MAC_GENERAL_PARAMS {
    CK_ULONG ulEffectiveBits;
    CK_ULONG ulMacLength;
} CK_RC2_MAC_GENERAL_PARAMS;

typedef struct CK_RC5_PARAMS {
    CK_ULONG ulWordsize;
    CK_ULONG ulRounds;
} CK_RC5_PARAMS;

typedef struct CK_RC5_CBC_PARAMS {
    CK_ULONG ulWordsize;
    CK_ULONG ulRounds;
    CK_BYTE_PTR pIv;
    CK_ULONG ulIvLen;
} CK_RC5_CBC_PARAMS;

typedef struct CK_RC5_MAC_GENERAL_PARAMS {
    CK_ULONG ulWordsize;
    CK_ULONG ulRounds;
    CK_ULONG ulMacLength;
} CK_RC5_MAC_GENERAL_PARAMS;

typedef struct CK_DES_CBC_ENCRYPT_DATA_PARAMS {
    CK_BYTE iv[8];
    CK_BYTE_PTR pData;
    CK_ULONG length;
} CK_DES_CBC_ENCRYPT_DATA_PARAMS;

typedef struct CK_AES_CBC_ENCRYPT_DATA_PARAMS {
    CK_BYTE iv[16];
    CK_BYTE_PTR pData;
    CK_ULONG length;
} CK_AES_CBC_ENCRYPT_DATA_PARAMS;

typedef struct CK_AES_CTR_PARAMS {
    CK_ULONG ulCounterBits;
    CK_BYTE cb[16];
} CK_AES_CTR_PARAMS;

typedef struct CK_AES_GCM_PARAMS {
    CK_BYTE_PTR pIv;
    CK_ULONG ulIvLen;
    CK_ULONG ulIvBits;
    CK_BYTE_PTR pAAD;
    CK_ULONG ulAADLen;
    CK_ULONG ulTagBits;
} CK_AES_GCM_PARAMS;

typedef struct CK_SKIPJACK_PRIVATE_WRAP_PARAMS {
    CK_ULONG ulPasswordLen;
    CK_BYTE_PTR pPassword;
    CK_ULONG ulPublicDataLen;
    CK_BYTE_PTR pPublicData;
    CK_ULONG ulPAndGLen;
    CK_ULONG ulQLen;
    CK_ULONG ulRandomLen;
    CK_BYTE_PTR pRandomA;
    CK_BYTE_PTR pPrimeP;
    CK_BYTE_PTR pBaseG;
    CK_BYTE_PTR pSubprimeQ;
} CK_SKIPJACK_PRIVATE_WRAP_PARAMS;

typedef struct CK_SKIPJACK_RELAYX_PARAMS {
    CK_ULONG ulOldWrappedXLen;
    CK_BYTE_PTR pOldWrappedX;
    CK_ULONG ulOldPasswordLen;
    CK_BYTE_PTR pOldPassword;
    CK_ULONG ulOldPublicDataLen;
    CK_BYTE_PTR pOldPublicData;
    CK_ULONG ulOldRandomLen;
    CK_BYTE_PTR pOldRandomA;
    CK_ULONG ulNewPasswordLen;
    CK_BYTE_PTR pNewPassword;
    CK_ULONG ulNewPublicDataLen;
    CK_BYTE_PTR pNewPublicData;
    CK_ULONG ulNewRandomLen;
    CK_BYTE_PTR pNewRandomA;
} CK_SKIPJACK_RELAYX_PARAMS;

typedef struct CK_PBE_PARAMS {
    CK_BYTE_PTR pInitVector;
    CK_UTF8CHAR_PTR pPassword;
    CK_ULONG ulPasswordLen;
    CK_BYTE_PTR pSalt;
    CK_ULONG ulSaltLen;
    CK_ULONG ulIteration;
} CK_PBE_PARAMS;

/* ulPasswordLen really is a pointer in this version of the interface. */
typedef struct CK_PKCS5_PBKD2_PARAMS {
    CK_PKCS5_PBKDF2_SALT_SOURCE_TYPE saltSource;
    CK_VOID_PTR pSaltSourceData;
    CK_ULONG ulSaltSourceDataLen;
    CK_ULONG iterations;
    CK_PKCS5_PBKD2_PSEUDO_RANDOM_FUNCTION_TYPE prf;
    CK_VOID_PTR pPrfData;
    CK_ULONG ulPrfDataLen;
    CK_UTF8CHAR_PTR pPassword;
    CK_ULONG_PTR ulPasswordLen;
} CK_PKCS5_PBKD2_PARAMS;

typedef struct CK_KEY_DERIVATION_STRING_DATA {
    CK_BYTE_PTR pData;
    CK_ULONG ulLen;
} CK_KEY_DERIVATION_STRING_DATA;

typedef struct CK_KEY_WRAP_SET_OAEP_PARAMS {
    CK_BYTE bBC;
    CK_BYTE_PTR pX;
    CK_ULONG ulXLen;
} CK_KEY_WRAP_SET_OAEP_PARAMS;

typedef struct CK_SSL3_RANDOM_DATA {
    CK_BYTE_PTR pClientRandom;
    CK_ULONG ulClientRandomLen;
    CK_BYTE_PTR pServerRandom;
    CK_ULONG ulServerRandomLen;
} CK_SSL3_RANDOM_DATA;

typedef struct CK_SSL3_MASTER_KEY_DERIVE_PARAMS {
    CK_SSL3_RANDOM_DATA RandomInfo;
    CK_VERSION_PTR pVersion;
} CK_SSL3_MASTER_KEY_DERIVE_PARAMS;

typedef struct CK_SSL3_KEY_MAT_OUT {
    CK_OBJECT_HANDLE hClientMacSecret;
    CK_OBJECT_HANDLE hServerMacSecret;
    CK_OBJECT_HANDLE hClientKey;
    CK_OBJECT_HANDLE hServerKey;
    CK_BYTE_PTR pIVClient;
    CK_BYTE_PTR pIVServer;
} CK_SSL3_KEY_MAT_OUT;

typedef struct CK_SSL3_KEY_MAT_PARAMS {
    CK_ULONG ulMacSizeInBits;
    CK_ULONG ulKeySizeInBits;
    CK_ULONG ulIVSizeInBits;
    CK_BBOOL bIsExport;
    CK_SSL3_RANDOM_DATA RandomInfo;
    CK_SSL3_KEY_MAT_OUT *pReturnedKeyMaterial;
} CK_SSL3_KEY_MAT_PARAMS;

typedef struct CK_TLS_PRF_PARAMS {
    CK_BYTE_PTR pSeed;
    CK_ULONG ulSeedLen;
    CK_BYTE_PTR pLabel;
    CK_ULONG ulLabelLen;
    CK_BYTE_PTR pOutput;
    CK_ULONG_PTR pulOutputLen;
} CK_TLS_PRF_PARAMS;

typedef struct CK_WTLS_RANDOM_DATA {
    CK_BYTE_PTR pClientRandom;
    CK_ULONG ulClientRandomLen;
    CK_BYTE_PTR pServerRandom;
    CK_ULONG ulServerRandomLen;
} CK_WTLS_RANDOM_DATA;

typedef struct CK_WTLS_MASTER_KEY_DERIVE_PARAMS {
    CK_MECHANISM_TYPE DigestMechanism;
    CK_WTLS_RANDOM_DATA RandomInfo;
    CK_BYTE_PTR pVersion;
} CK_WTLS_MASTER_KEY_DERIVE_PARAMS;

typedef struct CK_WTLS_PRF_PARAMS {
    CK_MECHANISM_TYPE DigestMechanism;
    CK_BYTE_PTR pSeed;
    CK_ULONG ulSeedLen;
    CK_BYTE_PTR pLabel;
    CK_ULONG ulLabelLen;
    CK_BYTE_PTR pOutput;
    CK_ULONG_PTR pulOutputLen;
} CK_WTLS_PRF_PARAMS;

typedef struct CK_WTLS_KEY_MAT_OUT {
    CK_OBJECT_HANDLE hMacSecret;
    CK_OBJECT_HANDLE hKey;
    CK_BYTE_PTR pIV;
} CK_WTLS_KEY_MAT_OUT;

typedef struct CK_WTLS_KEY_MAT_PARAMS {
    CK_MECHANISM_TYPE DigestMechanism;
    CK_ULONG ulMacSizeInBits;
    CK_ULONG ulKeySizeInBits;
    CK_ULONG ulIVSizeInBits;
    CK_ULONG ulSequenceNumber;
    CK_BBOOL bIsExport;
    CK_WTLS_RANDOM_DATA RandomInfo;
    CK_WTLS_KEY_MAT_OUT *pReturnedKeyMaterial;
} CK_WTLS_KEY_MAT_PARAMS;

typedef struct CK_CMS_SIG_PARAMS {
    CK_OBJECT_HANDLE certificateHandle;
    CK_MECHANISM_PTR pSigningMechanism;
    CK_MECHANISM_PTR pDigestMechanism;
    CK_UTF8CHAR_PTR pContentType;
    CK_BYTE_PTR pRequestedAttributes;
    CK_ULONG ulRequestedAttributesLen;
    CK_BYTE_PTR pRequiredAttributes;
    CK_ULONG ulRequiredAttributesLen;
} CK_CMS_SIG_PARAMS;

#pragma pack(pop)

typedef CK_RSA_PKCS_OAEP_PARAMS *CK_RSA_PKCS_OAEP_PARAMS_PTR;
typedef CK_RSA_PKCS_PSS_PARAMS *CK_RSA_PKCS_PSS_PARAMS_PTR;
typedef CK_ECDH1_DERIVE_PARAMS *CK_ECDH1_DERIVE_PARAMS_PTR;
typedef CK_ECDH2_DERIVE_PARAMS *CK_ECDH2_DERIVE_PARAMS_PTR;
typedef CK_ECMQV_DERIVE_PARAMS *CK_ECMQV_DERIVE_PARAMS_PTR;
typedef CK_X9_42_DH1_DERIVE_PARAMS *CK_X9_42_DH1_DERIVE_PARAMS_PTR;
typedef CK_X9_42_DH2_DERIVE_PARAMS *CK_X9_42_DH2_DERIVE_PARAMS_PTR;
typedef CK_X9_42_MQV_DERIVE_PARAMS *CK_X9_42_MQV_DERIVE_PARAMS_PTR;
typedef CK_KEA_DERIVE_PARAMS *CK_KEA_DERIVE_PARAMS_PTR;
typedef CK_RC2_CBC_PARAMS *CK_RC2_CBC_PARAMS_PTR;
typedef CK_RC2_MAC_GENERAL_PARAMS *CK_RC2_MAC_GENERAL_PARAMS_PTR;
typedef CK_RC5_PARAMS *CK_RC5_PARAMS_PTR;
typedef CK_RC5_CBC_PARAMS *CK_RC5_CBC_PARAMS_PTR;
typedef CK_RC5_MAC_GENERAL_PARAMS *CK_RC5_MAC_GENERAL_PARAMS_PTR;
typedef CK_DES_CBC_ENCRYPT_DATA_PARAMS *CK_DES_CBC_ENCRYPT_DATA_PARAMS_PTR;
typedef CK_AES_CBC_ENCRYPT_DATA_PARAMS *CK_AES_CBC_ENCRYPT_DATA_PARAMS_PTR;
typedef CK_AES_CTR_PARAMS *CK_AES_CTR_PARAMS_PTR;
typedef CK_AES_GCM_PARAMS *CK_AES_GCM_PARAMS_PTR;
typedef CK_SKIPJACK_PRIVATE_WRAP_PARAMS *CK_SKIPJACK_PRIVATE_WRAP_PARAMS_PTR;
typedef CK_SKIPJACK_RELAYX_PARAMS *CK_SKIPJACK_RELAYX_PARAMS_PTR;
typedef CK_PBE_PARAMS *CK_PBE_PARAMS_PTR;
typedef CK_PKCS5_PBKD2_PARAMS *CK_PKCS5_PBKD2_PARAMS_PTR;
typedef CK_KEY_DERIVATION_STRING_DATA *CK_KEY_DERIVATION_STRING_DATA_PTR;
typedef CK_KEY_WRAP_SET_OAEP_PARAMS *CK_KEY_WRAP_SET_OAEP_PARAMS_PTR;
typedef CK_SSL3_RANDOM_DATA *CK_SSL3_RANDOM_DATA_PTR;
typedef CK_SSL3_MASTER_KEY_DERIVE_PARAMS *CK_SSL3_MASTER_KEY_DERIVE_PARAMS_PTR;
typedef CK_SSL3_KEY_MAT_OUT *CK_SSL3_KEY_MAT_OUT_PTR;
typedef CK_SSL3_KEY_MAT_PARAMS *CK_SSL3_KEY_MAT_PARAMS_PTR;
typedef CK_TLS_PRF_PARAMS *CK_TLS_PRF_PARAMS_PTR;
typedef CK_WTLS_RANDOM_DATA *CK_WTLS_RANDOM_DATA_PTR;
typedef CK_WTLS_MASTER_KEY_DERIVE_PARAMS *CK_WTLS_MASTER_KEY_DERIVE_PARAMS_PTR;
typedef CK_WTLS_PRF_PARAMS *CK_WTLS_PRF_PARAMS_PTR;
typedef CK_WTLS_KEY_MAT_OUT *CK_WTLS_KEY_MAT_OUT_PTR;
typedef CK_WTLS_KEY_MAT_PARAMS *CK_WTLS_KEY_MAT_PARAMS_PTR;
typedef CK_CMS_SIG_PARAMS *CK_CMS_SIG_PARAMS_PTR;

/* ------------------------------------------------------------------------
 * Layout checks. These are the byte counts the Java bridge allocates and
 * passes as ulParameterLen, and the offsets it frees nested buffers at;
 * with P == 4 they are the sizes deployed modules expect.
 * --------------------------------------------------------------------- */

#define QOR_P QOR_PKCS11_P
QOR_PKCS11_CHECK_SIZE(CK_RSA_PKCS_OAEP_PARAMS, 16 + QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_KEA_DERIVE_PARAMS, 9 + 3 * QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_RC2_CBC_PARAMS, 12);
QOR_PKCS11_CHECK_SIZE(CK_RC2_MAC_GENERAL_PARAMS, 8);
QOR_PKCS11_CHECK_SIZE(CK_RC5_PARAMS, 8);
QOR_PKCS11_CHECK_SIZE(CK_RC5_CBC_PARAMS, 12 + QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_RC5_MAC_GENERAL_PARAMS, 12);
QOR_PKCS11_CHECK_SIZE(CK_SKIPJACK_PRIVATE_WRAP_PARAMS, 20 + 6 * QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_SKIPJACK_RELAYX_PARAMS, 28 + 7 * QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_PBE_PARAMS, 12 + 3 * QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_PKCS5_PBKD2_PARAMS, 20 + 4 * QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_KEY_DERIVATION_STRING_DATA, 4 + QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_KEY_WRAP_SET_OAEP_PARAMS, 5 + QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_SSL3_MASTER_KEY_DERIVE_PARAMS, 8 + 3 * QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_SSL3_KEY_MAT_PARAMS, 21 + 3 * QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_RSA_PKCS_PSS_PARAMS, 12);
QOR_PKCS11_CHECK_SIZE(CK_ECDH1_DERIVE_PARAMS, 12 + 2 * QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_ECDH2_DERIVE_PARAMS, 24 + 3 * QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_X9_42_DH1_DERIVE_PARAMS, 12 + 2 * QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_X9_42_DH2_DERIVE_PARAMS, 24 + 3 * QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_DES_CBC_ENCRYPT_DATA_PARAMS, 12 + QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_AES_CBC_ENCRYPT_DATA_PARAMS, 20 + QOR_P);

QOR_PKCS11_CHECK_SIZE(CK_SSL3_RANDOM_DATA, 8 + 2 * QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_SSL3_KEY_MAT_OUT, 16 + 2 * QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_AES_CTR_PARAMS, 20);
QOR_PKCS11_CHECK_SIZE(CK_AES_GCM_PARAMS, 16 + 2 * QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_ECMQV_DERIVE_PARAMS, 28 + 3 * QOR_P);
QOR_PKCS11_CHECK_SIZE(CK_X9_42_MQV_DERIVE_PARAMS, 28 + 3 * QOR_P);

QOR_PKCS11_CHECK_OFFSET(CK_KEA_DERIVE_PARAMS, pRandomA, 5);
QOR_PKCS11_CHECK_OFFSET(CK_KEA_DERIVE_PARAMS, pRandomB, 5 + QOR_P);
QOR_PKCS11_CHECK_OFFSET(CK_KEA_DERIVE_PARAMS, pPublicData, 9 + 2 * QOR_P);
QOR_PKCS11_CHECK_OFFSET(CK_KEY_WRAP_SET_OAEP_PARAMS, pX, 1);
QOR_PKCS11_CHECK_OFFSET(CK_KEY_WRAP_SET_OAEP_PARAMS, ulXLen, 1 + QOR_P);
QOR_PKCS11_CHECK_OFFSET(CK_SSL3_KEY_MAT_PARAMS, RandomInfo, 13);
QOR_PKCS11_CHECK_OFFSET(CK_SSL3_KEY_MAT_PARAMS, RandomInfo.pServerRandom,
                        17 + QOR_P);
QOR_PKCS11_CHECK_OFFSET(CK_SSL3_KEY_MAT_PARAMS, pReturnedKeyMaterial,
                        21 + 2 * QOR_P);
QOR_PKCS11_CHECK_OFFSET(CK_SSL3_KEY_MAT_OUT, pIVClient, 16);
QOR_PKCS11_CHECK_OFFSET(CK_SSL3_KEY_MAT_OUT, pIVServer, 16 + QOR_P);
QOR_PKCS11_CHECK_OFFSET(CK_SSL3_MASTER_KEY_DERIVE_PARAMS, pVersion,
                        8 + 2 * QOR_P);
QOR_PKCS11_CHECK_OFFSET(CK_PKCS5_PBKD2_PARAMS, pPrfData, 16 + QOR_P);
QOR_PKCS11_CHECK_OFFSET(CK_PKCS5_PBKD2_PARAMS, ulPasswordLen, 20 + 3 * QOR_P);
QOR_PKCS11_CHECK_OFFSET(CK_ECDH2_DERIVE_PARAMS, pPublicData2, 24 + 2 * QOR_P);
QOR_PKCS11_CHECK_OFFSET(CK_X9_42_DH2_DERIVE_PARAMS, pPublicData2,
                        24 + 2 * QOR_P);
QOR_PKCS11_CHECK_OFFSET(CK_DES_CBC_ENCRYPT_DATA_PARAMS, pData, 8);
QOR_PKCS11_CHECK_OFFSET(CK_AES_CBC_ENCRYPT_DATA_PARAMS, pData, 16);
#undef QOR_P

#ifdef __cplusplus
}
#endif

#endif /* QORPKCS11_PKCS11_PARAMS_H */
