/*
 * Cryptoki (PKCS#11 v2.x) interface of libKorvanePkcs11Wrapper.
 *
 * The peers we talk to on the device (callers and vendor modules) are built
 * for 32-bit ARM with a 32-bit CK_ULONG and 1-byte structure packing, so this
 * header pins both: every integer type is uint32_t whatever the host, and
 * every structure is packed. Pointers stay native, which keeps the 64-bit
 * host build usable for tests; the layout checks at the end hold for both.
 *
 * Mechanism parameter structures live in pkcs11_params.h (included below).
 */
#ifndef QORPKCS11_PKCS11_H
#define QORPKCS11_PKCS11_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------
 * Build helpers
 * --------------------------------------------------------------------- */

#if defined(__GNUC__) || defined(__clang__)
#define QOR_PKCS11_API __attribute__((visibility("default")))
#else
#define QOR_PKCS11_API
#endif

/* Works whether a C or a C++ unit includes us. */
#if defined(__cplusplus)
#define QOR_PKCS11_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define QOR_PKCS11_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#else
#define QOR_PKCS11_STATIC_ASSERT_JOIN2(a, b) a##b
#define QOR_PKCS11_STATIC_ASSERT_JOIN(a, b) QOR_PKCS11_STATIC_ASSERT_JOIN2(a, b)
#define QOR_PKCS11_STATIC_ASSERT(cond, msg)                                   \
    typedef char QOR_PKCS11_STATIC_ASSERT_JOIN(qor_pkcs11_assert_, __LINE__)   \
        [(cond) ? 1 : -1]
#endif

/* Pointer width: 4 on the device, 8 on the test host. Layouts are written
 * as formulas of it so one set of checks covers both builds. */
#define QOR_PKCS11_P sizeof(void *)

#define QOR_PKCS11_CHECK_SIZE(type, size)                                      \
    QOR_PKCS11_STATIC_ASSERT(sizeof(type) == (size), "size of " #type)
#define QOR_PKCS11_CHECK_OFFSET(type, member, off)                             \
    QOR_PKCS11_STATIC_ASSERT(offsetof(type, member) == (off),                  \
                             "offset of " #type "." #member)

/* ------------------------------------------------------------------------
 * Basic types
 * --------------------------------------------------------------------- */

typedef uint8_t CK_BYTE;
typedef CK_BYTE CK_CHAR;
typedef CK_BYTE CK_UTF8CHAR;
typedef CK_BYTE CK_BBOOL;
typedef uint32_t CK_ULONG;
typedef int32_t CK_LONG;
typedef CK_ULONG CK_FLAGS;

typedef CK_BYTE *CK_BYTE_PTR;
typedef CK_CHAR *CK_CHAR_PTR;
typedef CK_UTF8CHAR *CK_UTF8CHAR_PTR;
typedef CK_BBOOL *CK_BBOOL_PTR;
typedef CK_ULONG *CK_ULONG_PTR;
typedef CK_LONG *CK_LONG_PTR;
typedef CK_FLAGS *CK_FLAGS_PTR;
typedef void *CK_VOID_PTR;
typedef CK_VOID_PTR *CK_VOID_PTR_PTR;

#ifndef NULL_PTR
#ifdef __cplusplus
#define NULL_PTR nullptr
#else
#define NULL_PTR ((void *)0)
#endif
#endif

#define CK_FALSE 0u
#define CK_TRUE 1u

#define CK_UNAVAILABLE_INFORMATION 0xFFFFFFFFu
#define CK_EFFECTIVELY_INFINITE 0u
#define CK_INVALID_HANDLE 0u

typedef CK_ULONG CK_RV;
typedef CK_ULONG CK_NOTIFICATION;
typedef CK_ULONG CK_SLOT_ID;
typedef CK_ULONG CK_SESSION_HANDLE;
typedef CK_ULONG CK_USER_TYPE;
typedef CK_ULONG CK_STATE;
typedef CK_ULONG CK_OBJECT_HANDLE;
typedef CK_ULONG CK_OBJECT_CLASS;
typedef CK_ULONG CK_HW_FEATURE_TYPE;
typedef CK_ULONG CK_KEY_TYPE;
typedef CK_ULONG CK_CERTIFICATE_TYPE;
typedef CK_ULONG CK_ATTRIBUTE_TYPE;
typedef CK_ULONG CK_MECHANISM_TYPE;

typedef CK_SLOT_ID *CK_SLOT_ID_PTR;
typedef CK_SESSION_HANDLE *CK_SESSION_HANDLE_PTR;
typedef CK_OBJECT_HANDLE *CK_OBJECT_HANDLE_PTR;
typedef CK_OBJECT_CLASS *CK_OBJECT_CLASS_PTR;
typedef CK_MECHANISM_TYPE *CK_MECHANISM_TYPE_PTR;

/* ------------------------------------------------------------------------
 * Core structures
 * --------------------------------------------------------------------- */

#pragma pack(push, 1)

typedef struct CK_VERSION {
    CK_BYTE major;
    CK_BYTE minor;
} CK_VERSION;

typedef struct CK_INFO {
    CK_VERSION cryptokiVersion;
    CK_UTF8CHAR manufacturerID[32];
    CK_FLAGS flags;
    CK_UTF8CHAR libraryDescription[32];
    CK_VERSION libraryVersion;
} CK_INFO;

typedef struct CK_SLOT_INFO {
    CK_UTF8CHAR slotDescription[64];
    CK_UTF8CHAR manufacturerID[32];
    CK_FLAGS flags;
    CK_VERSION hardwareVersion;
    CK_VERSION firmwareVersion;
} CK_SLOT_INFO;

typedef struct CK_TOKEN_INFO {
    CK_UTF8CHAR label[32];
    CK_UTF8CHAR manufacturerID[32];
    CK_UTF8CHAR model[16];
    CK_CHAR serialNumber[16];
    CK_FLAGS flags;
    CK_ULONG ulMaxSessionCount;
    CK_ULONG ulSessionCount;
    CK_ULONG ulMaxRwSessionCount;
    CK_ULONG ulRwSessionCount;
    CK_ULONG ulMaxPinLen;
    CK_ULONG ulMinPinLen;
    CK_ULONG ulTotalPublicMemory;
    CK_ULONG ulFreePublicMemory;
    CK_ULONG ulTotalPrivateMemory;
    CK_ULONG ulFreePrivateMemory;
    CK_VERSION hardwareVersion;
    CK_VERSION firmwareVersion;
    CK_CHAR utcTime[16];
} CK_TOKEN_INFO;

typedef struct CK_SESSION_INFO {
    CK_SLOT_ID slotID;
    CK_STATE state;
    CK_FLAGS flags;
    CK_ULONG ulDeviceError;
} CK_SESSION_INFO;

typedef struct CK_ATTRIBUTE {
    CK_ATTRIBUTE_TYPE type;
    CK_VOID_PTR pValue;
    CK_ULONG ulValueLen;
} CK_ATTRIBUTE;

typedef struct CK_DATE {
    CK_CHAR year[4];
    CK_CHAR month[2];
    CK_CHAR day[2];
} CK_DATE;

typedef struct CK_MECHANISM {
    CK_MECHANISM_TYPE mechanism;
    CK_VOID_PTR pParameter;
    CK_ULONG ulParameterLen;
} CK_MECHANISM;

typedef struct CK_MECHANISM_INFO {
    CK_ULONG ulMinKeySize;
    CK_ULONG ulMaxKeySize;
    CK_FLAGS flags;
} CK_MECHANISM_INFO;

typedef CK_RV (*CK_NOTIFY)(CK_SESSION_HANDLE hSession, CK_NOTIFICATION event,
                           CK_VOID_PTR pApplication);
typedef CK_RV (*CK_CREATEMUTEX)(CK_VOID_PTR_PTR ppMutex);
typedef CK_RV (*CK_DESTROYMUTEX)(CK_VOID_PTR pMutex);
typedef CK_RV (*CK_LOCKMUTEX)(CK_VOID_PTR pMutex);
typedef CK_RV (*CK_UNLOCKMUTEX)(CK_VOID_PTR pMutex);

typedef struct CK_C_INITIALIZE_ARGS {
    CK_CREATEMUTEX CreateMutex;
    CK_DESTROYMUTEX DestroyMutex;
    CK_LOCKMUTEX LockMutex;
    CK_UNLOCKMUTEX UnlockMutex;
    CK_FLAGS flags;
    CK_VOID_PTR pReserved;
} CK_C_INITIALIZE_ARGS;

#pragma pack(pop)

typedef CK_VERSION *CK_VERSION_PTR;
typedef CK_INFO *CK_INFO_PTR;
typedef CK_SLOT_INFO *CK_SLOT_INFO_PTR;
typedef CK_TOKEN_INFO *CK_TOKEN_INFO_PTR;
typedef CK_SESSION_INFO *CK_SESSION_INFO_PTR;
typedef CK_ATTRIBUTE *CK_ATTRIBUTE_PTR;
typedef CK_DATE *CK_DATE_PTR;
typedef CK_MECHANISM *CK_MECHANISM_PTR;
typedef CK_MECHANISM_INFO *CK_MECHANISM_INFO_PTR;
typedef CK_C_INITIALIZE_ARGS *CK_C_INITIALIZE_ARGS_PTR;

/* ------------------------------------------------------------------------
 * Functions
 *
 * One table drives the function-pointer typedefs, the CK_FUNCTION_LIST
 * members and the exported declarations, so they cannot drift apart.
 * X(name, (parameter declarations), (argument names)), in function-list
 * order; the third column lets a user forward a call without retyping it.
 * --------------------------------------------------------------------- */

typedef struct CK_FUNCTION_LIST CK_FUNCTION_LIST;
typedef CK_FUNCTION_LIST *CK_FUNCTION_LIST_PTR;
typedef CK_FUNCTION_LIST_PTR *CK_FUNCTION_LIST_PTR_PTR;

#define QOR_PKCS11_FUNCTIONS(X)                                                \
    X(C_Initialize, (CK_VOID_PTR pInitArgs), (pInitArgs))                      \
    X(C_Finalize, (CK_VOID_PTR pReserved), (pReserved))                        \
    X(C_GetInfo, (CK_INFO_PTR pInfo), (pInfo))                                 \
    X(C_GetFunctionList, (CK_FUNCTION_LIST_PTR_PTR ppFunctionList),            \
      (ppFunctionList))                                                        \
    X(C_GetSlotList,                                                           \
      (CK_BBOOL tokenPresent, CK_SLOT_ID_PTR pSlotList, CK_ULONG_PTR pulCount), \
      (tokenPresent, pSlotList, pulCount))                                     \
    X(C_GetSlotInfo, (CK_SLOT_ID slotID, CK_SLOT_INFO_PTR pInfo),              \
      (slotID, pInfo))                                                         \
    X(C_GetTokenInfo, (CK_SLOT_ID slotID, CK_TOKEN_INFO_PTR pInfo),            \
      (slotID, pInfo))                                                         \
    X(C_GetMechanismList,                                                      \
      (CK_SLOT_ID slotID, CK_MECHANISM_TYPE_PTR pMechanismList,                \
       CK_ULONG_PTR pulCount),                                                 \
      (slotID, pMechanismList, pulCount))                                      \
    X(C_GetMechanismInfo,                                                      \
      (CK_SLOT_ID slotID, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO_PTR pInfo), \
      (slotID, type, pInfo))                                                   \
    X(C_InitToken,                                                             \
      (CK_SLOT_ID slotID, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen,             \
       CK_UTF8CHAR_PTR pLabel),                                                \
      (slotID, pPin, ulPinLen, pLabel))                                        \
    X(C_InitPIN,                                                               \
      (CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen),   \
      (hSession, pPin, ulPinLen))                                              \
    X(C_SetPIN,                                                                \
      (CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pOldPin, CK_ULONG ulOldLen, \
       CK_UTF8CHAR_PTR pNewPin, CK_ULONG ulNewLen),                            \
      (hSession, pOldPin, ulOldLen, pNewPin, ulNewLen))                        \
    X(C_OpenSession,                                                           \
      (CK_SLOT_ID slotID, CK_FLAGS flags, CK_VOID_PTR pApplication,            \
       CK_NOTIFY Notify, CK_SESSION_HANDLE_PTR phSession),                     \
      (slotID, flags, pApplication, Notify, phSession))                        \
    X(C_CloseSession, (CK_SESSION_HANDLE hSession), (hSession))                \
    X(C_CloseAllSessions, (CK_SLOT_ID slotID), (slotID))                       \
    X(C_GetSessionInfo,                                                        \
      (CK_SESSION_HANDLE hSession, CK_SESSION_INFO_PTR pInfo),                 \
      (hSession, pInfo))                                                       \
    X(C_GetOperationState,                                                     \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState,                \
       CK_ULONG_PTR pulOperationStateLen),                                     \
      (hSession, pOperationState, pulOperationStateLen))                       \
    X(C_SetOperationState,                                                     \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState,                \
       CK_ULONG ulOperationStateLen, CK_OBJECT_HANDLE hEncryptionKey,          \
       CK_OBJECT_HANDLE hAuthenticationKey),                                   \
      (hSession, pOperationState, ulOperationStateLen, hEncryptionKey,         \
       hAuthenticationKey))                                                    \
    X(C_Login,                                                                 \
      (CK_SESSION_HANDLE hSession, CK_USER_TYPE userType, CK_UTF8CHAR_PTR pPin, \
       CK_ULONG ulPinLen),                                                     \
      (hSession, userType, pPin, ulPinLen))                                    \
    X(C_Logout, (CK_SESSION_HANDLE hSession), (hSession))                      \
    X(C_CreateObject,                                                          \
      (CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate,                 \
       CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phObject),                       \
      (hSession, pTemplate, ulCount, phObject))                                \
    X(C_CopyObject,                                                            \
      (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,                   \
       CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount,                           \
       CK_OBJECT_HANDLE_PTR phNewObject),                                      \
      (hSession, hObject, pTemplate, ulCount, phNewObject))                    \
    X(C_DestroyObject, (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject), \
      (hSession, hObject))                                                     \
    X(C_GetObjectSize,                                                         \
      (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,                   \
       CK_ULONG_PTR pulSize),                                                  \
      (hSession, hObject, pulSize))                                            \
    X(C_GetAttributeValue,                                                     \
      (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,                   \
       CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount),                          \
      (hSession, hObject, pTemplate, ulCount))                                 \
    X(C_SetAttributeValue,                                                     \
      (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,                   \
       CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount),                          \
      (hSession, hObject, pTemplate, ulCount))                                 \
    X(C_FindObjectsInit,                                                       \
      (CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate,                 \
       CK_ULONG ulCount),                                                      \
      (hSession, pTemplate, ulCount))                                          \
    X(C_FindObjects,                                                           \
      (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE_PTR phObject,              \
       CK_ULONG ulMaxObjectCount, CK_ULONG_PTR pulObjectCount),                \
      (hSession, phObject, ulMaxObjectCount, pulObjectCount))                  \
    X(C_FindObjectsFinal, (CK_SESSION_HANDLE hSession), (hSession))            \
    X(C_EncryptInit,                                                           \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,                \
       CK_OBJECT_HANDLE hKey),                                                 \
      (hSession, pMechanism, hKey))                                            \
    X(C_Encrypt,                                                               \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,      \
       CK_BYTE_PTR pEncryptedData, CK_ULONG_PTR pulEncryptedDataLen),          \
      (hSession, pData, ulDataLen, pEncryptedData, pulEncryptedDataLen))       \
    X(C_EncryptUpdate,                                                         \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,      \
       CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen),          \
      (hSession, pPart, ulPartLen, pEncryptedPart, pulEncryptedPartLen))       \
    X(C_EncryptFinal,                                                          \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastEncryptedPart,             \
       CK_ULONG_PTR pulLastEncryptedPartLen),                                  \
      (hSession, pLastEncryptedPart, pulLastEncryptedPartLen))                 \
    X(C_DecryptInit,                                                           \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,                \
       CK_OBJECT_HANDLE hKey),                                                 \
      (hSession, pMechanism, hKey))                                            \
    X(C_Decrypt,                                                               \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedData,                 \
       CK_ULONG ulEncryptedDataLen, CK_BYTE_PTR pData,                         \
       CK_ULONG_PTR pulDataLen),                                               \
      (hSession, pEncryptedData, ulEncryptedDataLen, pData, pulDataLen))       \
    X(C_DecryptUpdate,                                                         \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,                 \
       CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart,                         \
       CK_ULONG_PTR pulPartLen),                                               \
      (hSession, pEncryptedPart, ulEncryptedPartLen, pPart, pulPartLen))       \
    X(C_DecryptFinal,                                                          \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastPart,                      \
       CK_ULONG_PTR pulLastPartLen),                                           \
      (hSession, pLastPart, pulLastPartLen))                                   \
    X(C_DigestInit,                                                            \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism),               \
      (hSession, pMechanism))                                                  \
    X(C_Digest,                                                                \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,      \
       CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen),                        \
      (hSession, pData, ulDataLen, pDigest, pulDigestLen))                     \
    X(C_DigestUpdate,                                                          \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen),     \
      (hSession, pPart, ulPartLen))                                            \
    X(C_DigestKey, (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hKey),        \
      (hSession, hKey))                                                        \
    X(C_DigestFinal,                                                           \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pDigest,                        \
       CK_ULONG_PTR pulDigestLen),                                             \
      (hSession, pDigest, pulDigestLen))                                       \
    X(C_SignInit,                                                              \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,                \
       CK_OBJECT_HANDLE hKey),                                                 \
      (hSession, pMechanism, hKey))                                            \
    X(C_Sign,                                                                  \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,      \
       CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen),                  \
      (hSession, pData, ulDataLen, pSignature, pulSignatureLen))               \
    X(C_SignUpdate,                                                            \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen),     \
      (hSession, pPart, ulPartLen))                                            \
    X(C_SignFinal,                                                             \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature,                     \
       CK_ULONG_PTR pulSignatureLen),                                          \
      (hSession, pSignature, pulSignatureLen))                                 \
    X(C_SignRecoverInit,                                                       \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,                \
       CK_OBJECT_HANDLE hKey),                                                 \
      (hSession, pMechanism, hKey))                                            \
    X(C_SignRecover,                                                           \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,      \
       CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen),                  \
      (hSession, pData, ulDataLen, pSignature, pulSignatureLen))               \
    X(C_VerifyInit,                                                            \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,                \
       CK_OBJECT_HANDLE hKey),                                                 \
      (hSession, pMechanism, hKey))                                            \
    X(C_Verify,                                                                \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,      \
       CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen),                       \
      (hSession, pData, ulDataLen, pSignature, ulSignatureLen))                \
    X(C_VerifyUpdate,                                                          \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen),     \
      (hSession, pPart, ulPartLen))                                            \
    X(C_VerifyFinal,                                                           \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature,                     \
       CK_ULONG ulSignatureLen),                                               \
      (hSession, pSignature, ulSignatureLen))                                  \
    X(C_VerifyRecoverInit,                                                     \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,                \
       CK_OBJECT_HANDLE hKey),                                                 \
      (hSession, pMechanism, hKey))                                            \
    X(C_VerifyRecover,                                                         \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature,                     \
       CK_ULONG ulSignatureLen, CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen),   \
      (hSession, pSignature, ulSignatureLen, pData, pulDataLen))               \
    X(C_DigestEncryptUpdate,                                                   \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,      \
       CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen),          \
      (hSession, pPart, ulPartLen, pEncryptedPart, pulEncryptedPartLen))       \
    X(C_DecryptDigestUpdate,                                                   \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,                 \
       CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart,                         \
       CK_ULONG_PTR pulPartLen),                                               \
      (hSession, pEncryptedPart, ulEncryptedPartLen, pPart, pulPartLen))       \
    X(C_SignEncryptUpdate,                                                     \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,      \
       CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen),          \
      (hSession, pPart, ulPartLen, pEncryptedPart, pulEncryptedPartLen))       \
    X(C_DecryptVerifyUpdate,                                                   \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,                 \
       CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart,                         \
       CK_ULONG_PTR pulPartLen),                                               \
      (hSession, pEncryptedPart, ulEncryptedPartLen, pPart, pulPartLen))       \
    X(C_GenerateKey,                                                           \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,                \
       CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount,                           \
       CK_OBJECT_HANDLE_PTR phKey),                                            \
      (hSession, pMechanism, pTemplate, ulCount, phKey))                       \
    X(C_GenerateKeyPair,                                                       \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,                \
       CK_ATTRIBUTE_PTR pPublicKeyTemplate,                                    \
       CK_ULONG ulPublicKeyAttributeCount,                                     \
       CK_ATTRIBUTE_PTR pPrivateKeyTemplate,                                   \
       CK_ULONG ulPrivateKeyAttributeCount, CK_OBJECT_HANDLE_PTR phPublicKey,  \
       CK_OBJECT_HANDLE_PTR phPrivateKey),                                     \
      (hSession, pMechanism, pPublicKeyTemplate, ulPublicKeyAttributeCount,    \
       pPrivateKeyTemplate, ulPrivateKeyAttributeCount, phPublicKey,           \
       phPrivateKey))                                                          \
    X(C_WrapKey,                                                               \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,                \
       CK_OBJECT_HANDLE hWrappingKey, CK_OBJECT_HANDLE hKey,                   \
       CK_BYTE_PTR pWrappedKey, CK_ULONG_PTR pulWrappedKeyLen),                \
      (hSession, pMechanism, hWrappingKey, hKey, pWrappedKey,                  \
       pulWrappedKeyLen))                                                      \
    X(C_UnwrapKey,                                                             \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,                \
       CK_OBJECT_HANDLE hUnwrappingKey, CK_BYTE_PTR pWrappedKey,               \
       CK_ULONG ulWrappedKeyLen, CK_ATTRIBUTE_PTR pTemplate,                   \
       CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey),                 \
      (hSession, pMechanism, hUnwrappingKey, pWrappedKey, ulWrappedKeyLen,     \
       pTemplate, ulAttributeCount, phKey))                                    \
    X(C_DeriveKey,                                                             \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,                \
       CK_OBJECT_HANDLE hBaseKey, CK_ATTRIBUTE_PTR pTemplate,                  \
       CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey),                 \
      (hSession, pMechanism, hBaseKey, pTemplate, ulAttributeCount, phKey))    \
    X(C_SeedRandom,                                                            \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSeed, CK_ULONG ulSeedLen),     \
      (hSession, pSeed, ulSeedLen))                                            \
    X(C_GenerateRandom,                                                        \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR RandomData,                     \
       CK_ULONG ulRandomLen),                                                  \
      (hSession, RandomData, ulRandomLen))                                     \
    X(C_GetFunctionStatus, (CK_SESSION_HANDLE hSession), (hSession))           \
    X(C_CancelFunction, (CK_SESSION_HANDLE hSession), (hSession))              \
    X(C_WaitForSlotEvent,                                                      \
      (CK_FLAGS flags, CK_SLOT_ID_PTR pSlot, CK_VOID_PTR pReserved),           \
      (flags, pSlot, pReserved))

#define QOR_PKCS11_FUNCTION_COUNT 68

/* CK_C_Initialize, CK_C_Finalize, ... as the standard names them. */
#define QOR_PKCS11_TYPEDEF(name, params, args) typedef CK_RV(*CK_##name) params;
QOR_PKCS11_FUNCTIONS(QOR_PKCS11_TYPEDEF)
#undef QOR_PKCS11_TYPEDEF

/* The client proxy defines these; every other unit reaches a module through
 * its CK_FUNCTION_LIST instead. */
#define QOR_PKCS11_DECLARE(name, params, args) QOR_PKCS11_API CK_RV name params;
QOR_PKCS11_FUNCTIONS(QOR_PKCS11_DECLARE)
#undef QOR_PKCS11_DECLARE

#pragma pack(push, 1)
struct CK_FUNCTION_LIST {
    CK_VERSION version;
#define QOR_PKCS11_MEMBER(name, params, args) CK_##name name;
    QOR_PKCS11_FUNCTIONS(QOR_PKCS11_MEMBER)
#undef QOR_PKCS11_MEMBER
};
#pragma pack(pop)

/* ------------------------------------------------------------------------
 * Return values
 * --------------------------------------------------------------------- */

#define CKR_OK 0x00000000u
#define CKR_CANCEL 0x00000001u
#define CKR_HOST_MEMORY 0x00000002u
#define CKR_SLOT_ID_INVALID 0x00000003u
#define CKR_GENERAL_ERROR 0x00000005u
#define CKR_FUNCTION_FAILED 0x00000006u
#define CKR_ARGUMENTS_BAD 0x00000007u
#define CKR_NO_EVENT 0x00000008u
#define CKR_NEED_TO_CREATE_THREADS 0x00000009u
#define CKR_CANT_LOCK 0x0000000Au
#define CKR_ATTRIBUTE_READ_ONLY 0x00000010u
#define CKR_ATTRIBUTE_SENSITIVE 0x00000011u
#define CKR_ATTRIBUTE_TYPE_INVALID 0x00000012u
#define CKR_ATTRIBUTE_VALUE_INVALID 0x00000013u
#define CKR_DATA_INVALID 0x00000020u
#define CKR_DATA_LEN_RANGE 0x00000021u
#define CKR_DEVICE_ERROR 0x00000030u
#define CKR_DEVICE_MEMORY 0x00000031u
#define CKR_DEVICE_REMOVED 0x00000032u
#define CKR_ENCRYPTED_DATA_INVALID 0x00000040u
#define CKR_ENCRYPTED_DATA_LEN_RANGE 0x00000041u
#define CKR_FUNCTION_CANCELED 0x00000050u
#define CKR_FUNCTION_NOT_PARALLEL 0x00000051u
#define CKR_FUNCTION_NOT_SUPPORTED 0x00000054u
#define CKR_KEY_HANDLE_INVALID 0x00000060u
#define CKR_KEY_SIZE_RANGE 0x00000062u
#define CKR_KEY_TYPE_INCONSISTENT 0x00000063u
#define CKR_KEY_NOT_NEEDED 0x00000064u
#define CKR_KEY_CHANGED 0x00000065u
#define CKR_KEY_NEEDED 0x00000066u
#define CKR_KEY_INDIGESTIBLE 0x00000067u
#define CKR_KEY_FUNCTION_NOT_PERMITTED 0x00000068u
#define CKR_KEY_NOT_WRAPPABLE 0x00000069u
#define CKR_KEY_UNEXTRACTABLE 0x0000006Au
#define CKR_MECHANISM_INVALID 0x00000070u
#define CKR_MECHANISM_PARAM_INVALID 0x00000071u
#define CKR_OBJECT_HANDLE_INVALID 0x00000082u
#define CKR_OPERATION_ACTIVE 0x00000090u
#define CKR_OPERATION_NOT_INITIALIZED 0x00000091u
#define CKR_PIN_INCORRECT 0x000000A0u
#define CKR_PIN_INVALID 0x000000A1u
#define CKR_PIN_LEN_RANGE 0x000000A2u
#define CKR_PIN_EXPIRED 0x000000A3u
#define CKR_PIN_LOCKED 0x000000A4u
#define CKR_SESSION_CLOSED 0x000000B0u
#define CKR_SESSION_COUNT 0x000000B1u
#define CKR_SESSION_HANDLE_INVALID 0x000000B3u
#define CKR_SESSION_PARALLEL_NOT_SUPPORTED 0x000000B4u
#define CKR_SESSION_READ_ONLY 0x000000B5u
#define CKR_SESSION_EXISTS 0x000000B6u
#define CKR_SESSION_READ_ONLY_EXISTS 0x000000B7u
#define CKR_SESSION_READ_WRITE_SO_EXISTS 0x000000B8u
#define CKR_SIGNATURE_INVALID 0x000000C0u
#define CKR_SIGNATURE_LEN_RANGE 0x000000C1u
#define CKR_TEMPLATE_INCOMPLETE 0x000000D0u
#define CKR_TEMPLATE_INCONSISTENT 0x000000D1u
#define CKR_TOKEN_NOT_PRESENT 0x000000E0u
#define CKR_TOKEN_NOT_RECOGNIZED 0x000000E1u
#define CKR_TOKEN_WRITE_PROTECTED 0x000000E2u
#define CKR_UNWRAPPING_KEY_HANDLE_INVALID 0x000000F0u
#define CKR_UNWRAPPING_KEY_SIZE_RANGE 0x000000F1u
#define CKR_UNWRAPPING_KEY_TYPE_INCONSISTENT 0x000000F2u
#define CKR_USER_ALREADY_LOGGED_IN 0x00000100u
#define CKR_USER_NOT_LOGGED_IN 0x00000101u
#define CKR_USER_PIN_NOT_INITIALIZED 0x00000102u
#define CKR_USER_TYPE_INVALID 0x00000103u
#define CKR_USER_ANOTHER_ALREADY_LOGGED_IN 0x00000104u
#define CKR_USER_TOO_MANY_TYPES 0x00000105u
#define CKR_WRAPPED_KEY_INVALID 0x00000110u
#define CKR_WRAPPED_KEY_LEN_RANGE 0x00000112u
#define CKR_WRAPPING_KEY_HANDLE_INVALID 0x00000113u
#define CKR_WRAPPING_KEY_SIZE_RANGE 0x00000114u
#define CKR_WRAPPING_KEY_TYPE_INCONSISTENT 0x00000115u
#define CKR_RANDOM_SEED_NOT_SUPPORTED 0x00000120u
#define CKR_RANDOM_NO_RNG 0x00000121u
#define CKR_DOMAIN_PARAMS_INVALID 0x00000130u
#define CKR_BUFFER_TOO_SMALL 0x00000150u
#define CKR_SAVED_STATE_INVALID 0x00000160u
#define CKR_INFORMATION_SENSITIVE 0x00000170u
#define CKR_STATE_UNSAVEABLE 0x00000180u
#define CKR_CRYPTOKI_NOT_INITIALIZED 0x00000190u
#define CKR_CRYPTOKI_ALREADY_INITIALIZED 0x00000191u
#define CKR_MUTEX_BAD 0x000001A0u
#define CKR_MUTEX_NOT_LOCKED 0x000001A1u
#define CKR_FUNCTION_REJECTED 0x00000200u
#define CKR_VENDOR_DEFINED 0x80000000u

/* ------------------------------------------------------------------------
 * Flags
 * --------------------------------------------------------------------- */

/* CK_C_INITIALIZE_ARGS.flags */
#define CKF_LIBRARY_CANT_CREATE_OS_THREADS 0x00000001u
#define CKF_OS_LOCKING_OK 0x00000002u

/* C_WaitForSlotEvent */
#define CKF_DONT_BLOCK 0x00000001u

/* CK_SLOT_INFO.flags */
#define CKF_TOKEN_PRESENT 0x00000001u
#define CKF_REMOVABLE_DEVICE 0x00000002u
#define CKF_HW_SLOT 0x00000004u

/* CK_TOKEN_INFO.flags */
#define CKF_RNG 0x00000001u
#define CKF_WRITE_PROTECTED 0x00000002u
#define CKF_LOGIN_REQUIRED 0x00000004u
#define CKF_USER_PIN_INITIALIZED 0x00000008u
#define CKF_RESTORE_KEY_NOT_NEEDED 0x00000020u
#define CKF_CLOCK_ON_TOKEN 0x00000040u
#define CKF_PROTECTED_AUTHENTICATION_PATH 0x00000100u
#define CKF_DUAL_CRYPTO_OPERATIONS 0x00000200u
#define CKF_TOKEN_INITIALIZED 0x00000400u
#define CKF_SECONDARY_AUTHENTICATION 0x00000800u
#define CKF_USER_PIN_COUNT_LOW 0x00010000u
#define CKF_USER_PIN_FINAL_TRY 0x00020000u
#define CKF_USER_PIN_LOCKED 0x00040000u
#define CKF_USER_PIN_TO_BE_CHANGED 0x00080000u
#define CKF_SO_PIN_COUNT_LOW 0x00100000u
#define CKF_SO_PIN_FINAL_TRY 0x00200000u
#define CKF_SO_PIN_LOCKED 0x00400000u
#define CKF_SO_PIN_TO_BE_CHANGED 0x00800000u

/* CK_SESSION_INFO.flags and C_OpenSession */
#define CKF_RW_SESSION 0x00000002u
#define CKF_SERIAL_SESSION 0x00000004u

/* CK_MECHANISM_INFO.flags */
#define CKF_HW 0x00000001u
#define CKF_ENCRYPT 0x00000100u
#define CKF_DECRYPT 0x00000200u
#define CKF_DIGEST 0x00000400u
#define CKF_SIGN 0x00000800u
#define CKF_SIGN_RECOVER 0x00001000u
#define CKF_VERIFY 0x00002000u
#define CKF_VERIFY_RECOVER 0x00004000u
#define CKF_GENERATE 0x00008000u
#define CKF_GENERATE_KEY_PAIR 0x00010000u
#define CKF_WRAP 0x00020000u
#define CKF_UNWRAP 0x00040000u
#define CKF_DERIVE 0x00080000u
#define CKF_EC_F_P 0x00100000u
#define CKF_EC_F_2M 0x00200000u
#define CKF_EC_ECPARAMETERS 0x00400000u
#define CKF_EC_NAMEDCURVE 0x00800000u
#define CKF_EC_UNCOMPRESS 0x01000000u
#define CKF_EC_COMPRESS 0x02000000u
#define CKF_EXTENSION 0x80000000u

/* Marks attribute types whose value is itself a CK_ATTRIBUTE array. */
#define CKF_ARRAY_ATTRIBUTE 0x40000000u

/* ------------------------------------------------------------------------
 * Notifications, users, session states
 * --------------------------------------------------------------------- */

#define CKN_SURRENDER 0u

#define CKU_SO 0u
#define CKU_USER 1u
#define CKU_CONTEXT_SPECIFIC 2u

#define CKS_RO_PUBLIC_SESSION 0u
#define CKS_RO_USER_FUNCTIONS 1u
#define CKS_RW_PUBLIC_SESSION 2u
#define CKS_RW_USER_FUNCTIONS 3u
#define CKS_RW_SO_FUNCTIONS 4u

/* ------------------------------------------------------------------------
 * Object classes, hardware features, key and certificate types
 * --------------------------------------------------------------------- */

#define CKO_DATA 0x00000000u
#define CKO_CERTIFICATE 0x00000001u
#define CKO_PUBLIC_KEY 0x00000002u
#define CKO_PRIVATE_KEY 0x00000003u
#define CKO_SECRET_KEY 0x00000004u
#define CKO_HW_FEATURE 0x00000005u
#define CKO_DOMAIN_PARAMETERS 0x00000006u
#define CKO_MECHANISM 0x00000007u
#define CKO_VENDOR_DEFINED 0x80000000u

#define CKH_MONOTONIC_COUNTER 0x00000001u
#define CKH_CLOCK 0x00000002u
#define CKH_USER_INTERFACE 0x00000003u
#define CKH_VENDOR_DEFINED 0x80000000u

#define CKK_RSA 0x00000000u
#define CKK_DSA 0x00000001u
#define CKK_DH 0x00000002u
#define CKK_ECDSA 0x00000003u
#define CKK_EC 0x00000003u
#define CKK_X9_42_DH 0x00000004u
#define CKK_KEA 0x00000005u
#define CKK_GENERIC_SECRET 0x00000010u
#define CKK_RC2 0x00000011u
#define CKK_RC4 0x00000012u
#define CKK_DES 0x00000013u
#define CKK_DES2 0x00000014u
#define CKK_DES3 0x00000015u
#define CKK_CAST 0x00000016u
#define CKK_CAST3 0x00000017u
#define CKK_CAST5 0x00000018u
#define CKK_CAST128 0x00000018u
#define CKK_RC5 0x00000019u
#define CKK_IDEA 0x0000001Au
#define CKK_SKIPJACK 0x0000001Bu
#define CKK_BATON 0x0000001Cu
#define CKK_JUNIPER 0x0000001Du
#define CKK_CDMF 0x0000001Eu
#define CKK_AES 0x0000001Fu
#define CKK_BLOWFISH 0x00000020u
#define CKK_TWOFISH 0x00000021u
#define CKK_VENDOR_DEFINED 0x80000000u

#define CKC_X_509 0x00000000u
#define CKC_X_509_ATTR_CERT 0x00000001u
#define CKC_WTLS 0x00000002u
#define CKC_VENDOR_DEFINED 0x80000000u

/* ------------------------------------------------------------------------
 * Attribute types
 * --------------------------------------------------------------------- */

#define CKA_CLASS 0x00000000u
#define CKA_TOKEN 0x00000001u
#define CKA_PRIVATE 0x00000002u
#define CKA_LABEL 0x00000003u
#define CKA_APPLICATION 0x00000010u
#define CKA_VALUE 0x00000011u
#define CKA_OBJECT_ID 0x00000012u
#define CKA_CERTIFICATE_TYPE 0x00000080u
#define CKA_ISSUER 0x00000081u
#define CKA_SERIAL_NUMBER 0x00000082u
#define CKA_AC_ISSUER 0x00000083u
#define CKA_OWNER 0x00000084u
#define CKA_ATTR_TYPES 0x00000085u
#define CKA_TRUSTED 0x00000086u
#define CKA_CERTIFICATE_CATEGORY 0x00000087u
#define CKA_JAVA_MIDP_SECURITY_DOMAIN 0x00000088u
#define CKA_URL 0x00000089u
#define CKA_HASH_OF_SUBJECT_PUBLIC_KEY 0x0000008Au
#define CKA_HASH_OF_ISSUER_PUBLIC_KEY 0x0000008Bu
#define CKA_CHECK_VALUE 0x00000090u
#define CKA_KEY_TYPE 0x00000100u
#define CKA_SUBJECT 0x00000101u
#define CKA_ID 0x00000102u
#define CKA_SENSITIVE 0x00000103u
#define CKA_ENCRYPT 0x00000104u
#define CKA_DECRYPT 0x00000105u
#define CKA_WRAP 0x00000106u
#define CKA_UNWRAP 0x00000107u
#define CKA_SIGN 0x00000108u
#define CKA_SIGN_RECOVER 0x00000109u
#define CKA_VERIFY 0x0000010Au
#define CKA_VERIFY_RECOVER 0x0000010Bu
#define CKA_DERIVE 0x0000010Cu
#define CKA_START_DATE 0x00000110u
#define CKA_END_DATE 0x00000111u
#define CKA_MODULUS 0x00000120u
#define CKA_MODULUS_BITS 0x00000121u
#define CKA_PUBLIC_EXPONENT 0x00000122u
#define CKA_PRIVATE_EXPONENT 0x00000123u
#define CKA_PRIME_1 0x00000124u
#define CKA_PRIME_2 0x00000125u
#define CKA_EXPONENT_1 0x00000126u
#define CKA_EXPONENT_2 0x00000127u
#define CKA_COEFFICIENT 0x00000128u
#define CKA_PRIME 0x00000130u
#define CKA_SUBPRIME 0x00000131u
#define CKA_BASE 0x00000132u
#define CKA_PRIME_BITS 0x00000133u
#define CKA_SUBPRIME_BITS 0x00000134u
#define CKA_SUB_PRIME_BITS CKA_SUBPRIME_BITS
#define CKA_VALUE_BITS 0x00000160u
#define CKA_VALUE_LEN 0x00000161u
#define CKA_EXTRACTABLE 0x00000162u
#define CKA_LOCAL 0x00000163u
#define CKA_NEVER_EXTRACTABLE 0x00000164u
#define CKA_ALWAYS_SENSITIVE 0x00000165u
#define CKA_KEY_GEN_MECHANISM 0x00000166u
#define CKA_MODIFIABLE 0x00000170u
#define CKA_ECDSA_PARAMS 0x00000180u
#define CKA_EC_PARAMS 0x00000180u
#define CKA_EC_POINT 0x00000181u
#define CKA_SECONDARY_AUTH 0x00000200u
#define CKA_AUTH_PIN_FLAGS 0x00000201u
#define CKA_ALWAYS_AUTHENTICATE 0x00000202u
#define CKA_WRAP_WITH_TRUSTED 0x00000210u
#define CKA_WRAP_TEMPLATE (CKF_ARRAY_ATTRIBUTE | 0x00000211u)
#define CKA_UNWRAP_TEMPLATE (CKF_ARRAY_ATTRIBUTE | 0x00000212u)
#define CKA_HW_FEATURE_TYPE 0x00000300u
#define CKA_RESET_ON_INIT 0x00000301u
#define CKA_HAS_RESET 0x00000302u
#define CKA_PIXEL_X 0x00000400u
#define CKA_PIXEL_Y 0x00000401u
#define CKA_RESOLUTION 0x00000402u
#define CKA_CHAR_ROWS 0x00000403u
#define CKA_CHAR_COLUMNS 0x00000404u
#define CKA_COLOR 0x00000405u
#define CKA_BITS_PER_PIXEL 0x00000406u
#define CKA_CHAR_SETS 0x00000480u
#define CKA_ENCODING_METHODS 0x00000481u
#define CKA_MIME_TYPES 0x00000482u
#define CKA_MECHANISM_TYPE 0x00000500u
#define CKA_REQUIRED_CMS_ATTRIBUTES 0x00000501u
#define CKA_DEFAULT_CMS_ATTRIBUTES 0x00000502u
#define CKA_SUPPORTED_CMS_ATTRIBUTES 0x00000503u
#define CKA_ALLOWED_MECHANISMS (CKF_ARRAY_ATTRIBUTE | 0x00000600u)
#define CKA_VENDOR_DEFINED 0x80000000u

/* ------------------------------------------------------------------------
 * Mechanism types
 * --------------------------------------------------------------------- */

#define CKM_RSA_PKCS_KEY_PAIR_GEN 0x00000000u
#define CKM_RSA_PKCS 0x00000001u
#define CKM_RSA_9796 0x00000002u
#define CKM_RSA_X_509 0x00000003u
#define CKM_MD2_RSA_PKCS 0x00000004u
#define CKM_MD5_RSA_PKCS 0x00000005u
#define CKM_SHA1_RSA_PKCS 0x00000006u
#define CKM_RIPEMD128_RSA_PKCS 0x00000007u
#define CKM_RIPEMD160_RSA_PKCS 0x00000008u
#define CKM_RSA_PKCS_OAEP 0x00000009u
#define CKM_RSA_X9_31_KEY_PAIR_GEN 0x0000000Au
#define CKM_RSA_X9_31 0x0000000Bu
#define CKM_SHA1_RSA_X9_31 0x0000000Cu
#define CKM_RSA_PKCS_PSS 0x0000000Du
#define CKM_SHA1_RSA_PKCS_PSS 0x0000000Eu
#define CKM_DSA_KEY_PAIR_GEN 0x00000010u
#define CKM_DSA 0x00000011u
#define CKM_DSA_SHA1 0x00000012u
#define CKM_DH_PKCS_KEY_PAIR_GEN 0x00000020u
#define CKM_DH_PKCS_DERIVE 0x00000021u
#define CKM_X9_42_DH_KEY_PAIR_GEN 0x00000030u
#define CKM_X9_42_DH_DERIVE 0x00000031u
#define CKM_X9_42_DH_HYBRID_DERIVE 0x00000032u
#define CKM_X9_42_MQV_DERIVE 0x00000033u
#define CKM_SHA256_RSA_PKCS 0x00000040u
#define CKM_SHA384_RSA_PKCS 0x00000041u
#define CKM_SHA512_RSA_PKCS 0x00000042u
#define CKM_SHA256_RSA_PKCS_PSS 0x00000043u
#define CKM_SHA384_RSA_PKCS_PSS 0x00000044u
#define CKM_SHA512_RSA_PKCS_PSS 0x00000045u
#define CKM_SHA224_RSA_PKCS 0x00000046u
#define CKM_SHA224_RSA_PKCS_PSS 0x00000047u
#define CKM_RC2_KEY_GEN 0x00000100u
#define CKM_RC2_ECB 0x00000101u
#define CKM_RC2_CBC 0x00000102u
#define CKM_RC2_MAC 0x00000103u
#define CKM_RC2_MAC_GENERAL 0x00000104u
#define CKM_RC2_CBC_PAD 0x00000105u
#define CKM_RC4_KEY_GEN 0x00000110u
#define CKM_RC4 0x00000111u
#define CKM_DES_KEY_GEN 0x00000120u
#define CKM_DES_ECB 0x00000121u
#define CKM_DES_CBC 0x00000122u
#define CKM_DES_MAC 0x00000123u
#define CKM_DES_MAC_GENERAL 0x00000124u
#define CKM_DES_CBC_PAD 0x00000125u
#define CKM_DES2_KEY_GEN 0x00000130u
#define CKM_DES3_KEY_GEN 0x00000131u
#define CKM_DES3_ECB 0x00000132u
#define CKM_DES3_CBC 0x00000133u
#define CKM_DES3_MAC 0x00000134u
#define CKM_DES3_MAC_GENERAL 0x00000135u
#define CKM_DES3_CBC_PAD 0x00000136u
#define CKM_CDMF_KEY_GEN 0x00000140u
#define CKM_CDMF_ECB 0x00000141u
#define CKM_CDMF_CBC 0x00000142u
#define CKM_CDMF_MAC 0x00000143u
#define CKM_CDMF_MAC_GENERAL 0x00000144u
#define CKM_CDMF_CBC_PAD 0x00000145u
#define CKM_DES_OFB64 0x00000150u
#define CKM_DES_OFB8 0x00000151u
#define CKM_DES_CFB64 0x00000152u
#define CKM_DES_CFB8 0x00000153u
#define CKM_MD2 0x00000200u
#define CKM_MD2_HMAC 0x00000201u
#define CKM_MD2_HMAC_GENERAL 0x00000202u
#define CKM_MD5 0x00000210u
#define CKM_MD5_HMAC 0x00000211u
#define CKM_MD5_HMAC_GENERAL 0x00000212u
#define CKM_SHA_1 0x00000220u
#define CKM_SHA_1_HMAC 0x00000221u
#define CKM_SHA_1_HMAC_GENERAL 0x00000222u
#define CKM_RIPEMD128 0x00000230u
#define CKM_RIPEMD128_HMAC 0x00000231u
#define CKM_RIPEMD128_HMAC_GENERAL 0x00000232u
#define CKM_RIPEMD160 0x00000240u
#define CKM_RIPEMD160_HMAC 0x00000241u
#define CKM_RIPEMD160_HMAC_GENERAL 0x00000242u
#define CKM_SHA256 0x00000250u
#define CKM_SHA256_HMAC 0x00000251u
#define CKM_SHA256_HMAC_GENERAL 0x00000252u
#define CKM_SHA224 0x00000255u
#define CKM_SHA224_HMAC 0x00000256u
#define CKM_SHA224_HMAC_GENERAL 0x00000257u
#define CKM_SHA384 0x00000260u
#define CKM_SHA384_HMAC 0x00000261u
#define CKM_SHA384_HMAC_GENERAL 0x00000262u
#define CKM_SHA512 0x00000270u
#define CKM_SHA512_HMAC 0x00000271u
#define CKM_SHA512_HMAC_GENERAL 0x00000272u
#define CKM_CAST_KEY_GEN 0x00000300u
#define CKM_CAST_ECB 0x00000301u
#define CKM_CAST_CBC 0x00000302u
#define CKM_CAST_MAC 0x00000303u
#define CKM_CAST_MAC_GENERAL 0x00000304u
#define CKM_CAST_CBC_PAD 0x00000305u
#define CKM_CAST3_KEY_GEN 0x00000310u
#define CKM_CAST3_ECB 0x00000311u
#define CKM_CAST3_CBC 0x00000312u
#define CKM_CAST3_MAC 0x00000313u
#define CKM_CAST3_MAC_GENERAL 0x00000314u
#define CKM_CAST3_CBC_PAD 0x00000315u
#define CKM_CAST5_KEY_GEN 0x00000320u
#define CKM_CAST128_KEY_GEN 0x00000320u
#define CKM_CAST5_ECB 0x00000321u
#define CKM_CAST128_ECB 0x00000321u
#define CKM_CAST5_CBC 0x00000322u
#define CKM_CAST128_CBC 0x00000322u
#define CKM_CAST5_MAC 0x00000323u
#define CKM_CAST128_MAC 0x00000323u
#define CKM_CAST5_MAC_GENERAL 0x00000324u
#define CKM_CAST128_MAC_GENERAL 0x00000324u
#define CKM_CAST5_CBC_PAD 0x00000325u
#define CKM_CAST128_CBC_PAD 0x00000325u
#define CKM_RC5_KEY_GEN 0x00000330u
#define CKM_RC5_ECB 0x00000331u
#define CKM_RC5_CBC 0x00000332u
#define CKM_RC5_MAC 0x00000333u
#define CKM_RC5_MAC_GENERAL 0x00000334u
#define CKM_RC5_CBC_PAD 0x00000335u
#define CKM_IDEA_KEY_GEN 0x00000340u
#define CKM_IDEA_ECB 0x00000341u
#define CKM_IDEA_CBC 0x00000342u
#define CKM_IDEA_MAC 0x00000343u
#define CKM_IDEA_MAC_GENERAL 0x00000344u
#define CKM_IDEA_CBC_PAD 0x00000345u
#define CKM_GENERIC_SECRET_KEY_GEN 0x00000350u
#define CKM_CONCATENATE_BASE_AND_KEY 0x00000360u
#define CKM_CONCATENATE_BASE_AND_DATA 0x00000362u
#define CKM_CONCATENATE_DATA_AND_BASE 0x00000363u
#define CKM_XOR_BASE_AND_DATA 0x00000364u
#define CKM_EXTRACT_KEY_FROM_KEY 0x00000365u
#define CKM_SSL3_PRE_MASTER_KEY_GEN 0x00000370u
#define CKM_SSL3_MASTER_KEY_DERIVE 0x00000371u
#define CKM_SSL3_KEY_AND_MAC_DERIVE 0x00000372u
#define CKM_SSL3_MASTER_KEY_DERIVE_DH 0x00000373u
#define CKM_TLS_PRE_MASTER_KEY_GEN 0x00000374u
#define CKM_TLS_MASTER_KEY_DERIVE 0x00000375u
#define CKM_TLS_KEY_AND_MAC_DERIVE 0x00000376u
#define CKM_TLS_MASTER_KEY_DERIVE_DH 0x00000377u
#define CKM_TLS_PRF 0x00000378u
#define CKM_SSL3_MD5_MAC 0x00000380u
#define CKM_SSL3_SHA1_MAC 0x00000381u
#define CKM_MD5_KEY_DERIVATION 0x00000390u
#define CKM_MD2_KEY_DERIVATION 0x00000391u
#define CKM_SHA1_KEY_DERIVATION 0x00000392u
#define CKM_SHA256_KEY_DERIVATION 0x00000393u
#define CKM_SHA384_KEY_DERIVATION 0x00000394u
#define CKM_SHA512_KEY_DERIVATION 0x00000395u
#define CKM_SHA224_KEY_DERIVATION 0x00000396u
#define CKM_PBE_MD2_DES_CBC 0x000003A0u
#define CKM_PBE_MD5_DES_CBC 0x000003A1u
#define CKM_PBE_MD5_CAST_CBC 0x000003A2u
#define CKM_PBE_MD5_CAST3_CBC 0x000003A3u
#define CKM_PBE_MD5_CAST5_CBC 0x000003A4u
#define CKM_PBE_MD5_CAST128_CBC 0x000003A4u
#define CKM_PBE_SHA1_CAST5_CBC 0x000003A5u
#define CKM_PBE_SHA1_CAST128_CBC 0x000003A5u
#define CKM_PBE_SHA1_RC4_128 0x000003A6u
#define CKM_PBE_SHA1_RC4_40 0x000003A7u
#define CKM_PBE_SHA1_DES3_EDE_CBC 0x000003A8u
#define CKM_PBE_SHA1_DES2_EDE_CBC 0x000003A9u
#define CKM_PBE_SHA1_RC2_128_CBC 0x000003AAu
#define CKM_PBE_SHA1_RC2_40_CBC 0x000003ABu
#define CKM_PKCS5_PBKD2 0x000003B0u
#define CKM_PBA_SHA1_WITH_SHA1_HMAC 0x000003C0u
#define CKM_WTLS_PRE_MASTER_KEY_GEN 0x000003D0u
#define CKM_WTLS_MASTER_KEY_DERIVE 0x000003D1u
#define CKM_WTLS_MASTER_KEY_DERIVE_DH_ECC 0x000003D2u
#define CKM_WTLS_PRF 0x000003D3u
#define CKM_WTLS_SERVER_KEY_AND_MAC_DERIVE 0x000003D4u
#define CKM_WTLS_CLIENT_KEY_AND_MAC_DERIVE 0x000003D5u
#define CKM_KEY_WRAP_LYNKS 0x00000400u
#define CKM_KEY_WRAP_SET_OAEP 0x00000401u
#define CKM_CMS_SIG 0x00000500u
#define CKM_SKIPJACK_KEY_GEN 0x00001000u
#define CKM_SKIPJACK_ECB64 0x00001001u
#define CKM_SKIPJACK_CBC64 0x00001002u
#define CKM_SKIPJACK_OFB64 0x00001003u
#define CKM_SKIPJACK_CFB64 0x00001004u
#define CKM_SKIPJACK_CFB32 0x00001005u
#define CKM_SKIPJACK_CFB16 0x00001006u
#define CKM_SKIPJACK_CFB8 0x00001007u
#define CKM_SKIPJACK_WRAP 0x00001008u
#define CKM_SKIPJACK_PRIVATE_WRAP 0x00001009u
#define CKM_SKIPJACK_RELAYX 0x0000100Au
#define CKM_KEA_KEY_PAIR_GEN 0x00001010u
#define CKM_KEA_KEY_DERIVE 0x00001011u
#define CKM_FORTEZZA_TIMESTAMP 0x00001020u
#define CKM_BATON_KEY_GEN 0x00001030u
#define CKM_BATON_ECB128 0x00001031u
#define CKM_BATON_ECB96 0x00001032u
#define CKM_BATON_CBC128 0x00001033u
#define CKM_BATON_COUNTER 0x00001034u
#define CKM_BATON_SHUFFLE 0x00001035u
#define CKM_BATON_WRAP 0x00001036u
#define CKM_ECDSA_KEY_PAIR_GEN 0x00001040u
#define CKM_EC_KEY_PAIR_GEN 0x00001040u
#define CKM_ECDSA 0x00001041u
#define CKM_ECDSA_SHA1 0x00001042u
#define CKM_ECDH1_DERIVE 0x00001050u
#define CKM_ECDH1_COFACTOR_DERIVE 0x00001051u
#define CKM_ECMQV_DERIVE 0x00001052u
#define CKM_JUNIPER_KEY_GEN 0x00001060u
#define CKM_JUNIPER_ECB128 0x00001061u
#define CKM_JUNIPER_CBC128 0x00001062u
#define CKM_JUNIPER_COUNTER 0x00001063u
#define CKM_JUNIPER_SHUFFLE 0x00001064u
#define CKM_JUNIPER_WRAP 0x00001065u
#define CKM_FASTHASH 0x00001070u
#define CKM_AES_KEY_GEN 0x00001080u
#define CKM_AES_ECB 0x00001081u
#define CKM_AES_CBC 0x00001082u
#define CKM_AES_MAC 0x00001083u
#define CKM_AES_MAC_GENERAL 0x00001084u
#define CKM_AES_CBC_PAD 0x00001085u
#define CKM_AES_CTR 0x00001086u
#define CKM_AES_GCM 0x00001087u
#define CKM_BLOWFISH_KEY_GEN 0x00001090u
#define CKM_BLOWFISH_CBC 0x00001091u
#define CKM_TWOFISH_KEY_GEN 0x00001092u
#define CKM_TWOFISH_CBC 0x00001093u
#define CKM_DES_ECB_ENCRYPT_DATA 0x00001100u
#define CKM_DES_CBC_ENCRYPT_DATA 0x00001101u
#define CKM_DES3_ECB_ENCRYPT_DATA 0x00001102u
#define CKM_DES3_CBC_ENCRYPT_DATA 0x00001103u
#define CKM_AES_ECB_ENCRYPT_DATA 0x00001104u
#define CKM_AES_CBC_ENCRYPT_DATA 0x00001105u
#define CKM_DSA_PARAMETER_GEN 0x00002000u
#define CKM_DH_PKCS_PARAMETER_GEN 0x00002001u
#define CKM_X9_42_DH_PARAMETER_GEN 0x00002002u
#define CKM_AES_KEY_WRAP 0x00002109u
#define CKM_AES_KEY_WRAP_PAD 0x0000210Au
#define CKM_VENDOR_DEFINED 0x80000000u

/* ------------------------------------------------------------------------
 * Layout checks: the device ABI (P == 4) is what peers rely on; the same
 * formulas keep the host build honest about where each member sits.
 * --------------------------------------------------------------------- */

QOR_PKCS11_STATIC_ASSERT(sizeof(CK_ULONG) == 4, "CK_ULONG must be 32-bit");
QOR_PKCS11_STATIC_ASSERT(sizeof(CK_BBOOL) == 1, "CK_BBOOL must be one byte");
QOR_PKCS11_STATIC_ASSERT(sizeof(CK_NOTIFY) == QOR_PKCS11_P,
                         "entry points must be pointer-sized");

QOR_PKCS11_CHECK_SIZE(CK_VERSION, 2);
QOR_PKCS11_CHECK_SIZE(CK_INFO, 72);
QOR_PKCS11_CHECK_OFFSET(CK_INFO, flags, 34);
QOR_PKCS11_CHECK_OFFSET(CK_INFO, libraryVersion, 70);
QOR_PKCS11_CHECK_SIZE(CK_SLOT_INFO, 104);
QOR_PKCS11_CHECK_OFFSET(CK_SLOT_INFO, flags, 96);
QOR_PKCS11_CHECK_SIZE(CK_TOKEN_INFO, 160);
QOR_PKCS11_CHECK_OFFSET(CK_TOKEN_INFO, flags, 96);
QOR_PKCS11_CHECK_OFFSET(CK_TOKEN_INFO, utcTime, 144);
QOR_PKCS11_CHECK_SIZE(CK_SESSION_INFO, 16);
QOR_PKCS11_CHECK_SIZE(CK_MECHANISM_INFO, 12);
QOR_PKCS11_CHECK_SIZE(CK_DATE, 8);
QOR_PKCS11_CHECK_SIZE(CK_ATTRIBUTE, 8 + QOR_PKCS11_P);
QOR_PKCS11_CHECK_OFFSET(CK_ATTRIBUTE, ulValueLen, 4 + QOR_PKCS11_P);
QOR_PKCS11_CHECK_SIZE(CK_MECHANISM, 8 + QOR_PKCS11_P);
QOR_PKCS11_CHECK_OFFSET(CK_MECHANISM, ulParameterLen, 4 + QOR_PKCS11_P);
QOR_PKCS11_CHECK_SIZE(CK_C_INITIALIZE_ARGS, 4 + 5 * QOR_PKCS11_P);
QOR_PKCS11_CHECK_OFFSET(CK_C_INITIALIZE_ARGS, flags, 4 * QOR_PKCS11_P);

#define QOR_PKCS11_COUNT_ONE(name, params, args) +1
QOR_PKCS11_STATIC_ASSERT((0 QOR_PKCS11_FUNCTIONS(QOR_PKCS11_COUNT_ONE)) ==
                             QOR_PKCS11_FUNCTION_COUNT,
                         "function table must list every entry point");
#undef QOR_PKCS11_COUNT_ONE

/* Entry k (from 0) sits right after the 2-byte version: 2 + P*k. */
QOR_PKCS11_CHECK_SIZE(CK_FUNCTION_LIST,
                      2 + QOR_PKCS11_FUNCTION_COUNT * QOR_PKCS11_P);
QOR_PKCS11_CHECK_OFFSET(CK_FUNCTION_LIST, C_Initialize, 2);
QOR_PKCS11_CHECK_OFFSET(CK_FUNCTION_LIST, C_GetFunctionList,
                        2 + 3 * QOR_PKCS11_P);
QOR_PKCS11_CHECK_OFFSET(CK_FUNCTION_LIST, C_UnwrapKey, 2 + 61 * QOR_PKCS11_P);
QOR_PKCS11_CHECK_OFFSET(CK_FUNCTION_LIST, C_WaitForSlotEvent,
                        2 + 67 * QOR_PKCS11_P);

#ifdef __cplusplus
}
#endif

#include "pkcs11_params.h"

#endif /* QORPKCS11_PKCS11_H */
