// The PKCS#11 v2 interface as the host platform's own modules speak it
// (SoftHSM2, OpenSC's tools): CK_ULONG is the C `unsigned long` and every
// structure keeps its natural alignment. Only what the translation modules
// need is declared, in namespace `host` so that it can sit beside the
// project's packed 32-bit declarations in one translation unit.
//
// The function table reuses the project's QOR_PKCS11_FUNCTIONS list: its
// parameter types are written unqualified, so expanded inside this namespace
// they name the host types below. Every name that list uses must therefore be
// declared here; qor::abi::Host (abi.h) aliases each of them and fails to
// compile when one is missing.
#pragma once

#include <cstddef>

#include "qorpkcs11/pkcs11.h"

namespace host {

typedef unsigned char CK_BYTE;
typedef CK_BYTE CK_CHAR;
typedef CK_BYTE CK_UTF8CHAR;
typedef CK_BYTE CK_BBOOL;
typedef unsigned long CK_ULONG;
typedef long CK_LONG;
typedef CK_ULONG CK_FLAGS;
typedef CK_ULONG CK_RV;
typedef CK_ULONG CK_SLOT_ID;
typedef CK_ULONG CK_SESSION_HANDLE;
typedef CK_ULONG CK_OBJECT_HANDLE;
typedef CK_ULONG CK_USER_TYPE;
typedef CK_ULONG CK_STATE;
typedef CK_ULONG CK_NOTIFICATION;
typedef CK_ULONG CK_ATTRIBUTE_TYPE;
typedef CK_ULONG CK_MECHANISM_TYPE;

typedef CK_BYTE* CK_BYTE_PTR;
typedef CK_UTF8CHAR* CK_UTF8CHAR_PTR;
typedef CK_ULONG* CK_ULONG_PTR;
typedef void* CK_VOID_PTR;
typedef CK_VOID_PTR* CK_VOID_PTR_PTR;
typedef CK_SLOT_ID* CK_SLOT_ID_PTR;
typedef CK_SESSION_HANDLE* CK_SESSION_HANDLE_PTR;
typedef CK_OBJECT_HANDLE* CK_OBJECT_HANDLE_PTR;
typedef CK_MECHANISM_TYPE* CK_MECHANISM_TYPE_PTR;

struct CK_VERSION {
  CK_BYTE major;
  CK_BYTE minor;
};

struct CK_INFO {
  CK_VERSION cryptokiVersion;
  CK_UTF8CHAR manufacturerID[32];
  CK_FLAGS flags;
  CK_UTF8CHAR libraryDescription[32];
  CK_VERSION libraryVersion;
};

struct CK_SLOT_INFO {
  CK_UTF8CHAR slotDescription[64];
  CK_UTF8CHAR manufacturerID[32];
  CK_FLAGS flags;
  CK_VERSION hardwareVersion;
  CK_VERSION firmwareVersion;
};

struct CK_TOKEN_INFO {
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
};

struct CK_SESSION_INFO {
  CK_SLOT_ID slotID;
  CK_STATE state;
  CK_FLAGS flags;
  CK_ULONG ulDeviceError;
};

struct CK_ATTRIBUTE {
  CK_ATTRIBUTE_TYPE type;
  CK_VOID_PTR pValue;
  CK_ULONG ulValueLen;
};

struct CK_MECHANISM {
  CK_MECHANISM_TYPE mechanism;
  CK_VOID_PTR pParameter;
  CK_ULONG ulParameterLen;
};

struct CK_MECHANISM_INFO {
  CK_ULONG ulMinKeySize;
  CK_ULONG ulMaxKeySize;
  CK_FLAGS flags;
};

typedef CK_RV (*CK_NOTIFY)(CK_SESSION_HANDLE, CK_NOTIFICATION, CK_VOID_PTR);
typedef CK_RV (*CK_CREATEMUTEX)(CK_VOID_PTR_PTR);
typedef CK_RV (*CK_DESTROYMUTEX)(CK_VOID_PTR);
typedef CK_RV (*CK_LOCKMUTEX)(CK_VOID_PTR);
typedef CK_RV (*CK_UNLOCKMUTEX)(CK_VOID_PTR);

struct CK_C_INITIALIZE_ARGS {
  CK_CREATEMUTEX CreateMutex;
  CK_DESTROYMUTEX DestroyMutex;
  CK_LOCKMUTEX LockMutex;
  CK_UNLOCKMUTEX UnlockMutex;
  CK_FLAGS flags;
  CK_VOID_PTR pReserved;
};

// Mechanism parameters whose layout depends on the ABI.
struct CK_RSA_PKCS_OAEP_PARAMS {
  CK_MECHANISM_TYPE hashAlg;
  CK_ULONG mgf;
  CK_ULONG source;
  CK_VOID_PTR pSourceData;
  CK_ULONG ulSourceDataLen;
};

struct CK_RSA_PKCS_PSS_PARAMS {
  CK_MECHANISM_TYPE hashAlg;
  CK_ULONG mgf;
  CK_ULONG sLen;
};

struct CK_ECDH1_DERIVE_PARAMS {
  CK_ULONG kdf;
  CK_ULONG ulSharedDataLen;
  CK_BYTE_PTR pSharedData;
  CK_ULONG ulPublicDataLen;
  CK_BYTE_PTR pPublicData;
};

struct CK_AES_GCM_PARAMS {
  CK_BYTE_PTR pIv;
  CK_ULONG ulIvLen;
  CK_ULONG ulIvBits;
  CK_BYTE_PTR pAAD;
  CK_ULONG ulAADLen;
  CK_ULONG ulTagBits;
};

struct CK_AES_CTR_PARAMS {
  CK_ULONG ulCounterBits;
  CK_BYTE cb[16];
};

struct CK_AES_CBC_ENCRYPT_DATA_PARAMS {
  CK_BYTE iv[16];
  CK_BYTE_PTR pData;
  CK_ULONG length;
};

struct CK_DES_CBC_ENCRYPT_DATA_PARAMS {
  CK_BYTE iv[8];
  CK_BYTE_PTR pData;
  CK_ULONG length;
};

struct CK_KEY_DERIVATION_STRING_DATA {
  CK_BYTE_PTR pData;
  CK_ULONG ulLen;
};

typedef CK_INFO* CK_INFO_PTR;
typedef CK_SLOT_INFO* CK_SLOT_INFO_PTR;
typedef CK_TOKEN_INFO* CK_TOKEN_INFO_PTR;
typedef CK_SESSION_INFO* CK_SESSION_INFO_PTR;
typedef CK_ATTRIBUTE* CK_ATTRIBUTE_PTR;
typedef CK_MECHANISM* CK_MECHANISM_PTR;
typedef CK_MECHANISM_INFO* CK_MECHANISM_INFO_PTR;

struct CK_FUNCTION_LIST;
typedef CK_FUNCTION_LIST* CK_FUNCTION_LIST_PTR;
typedef CK_FUNCTION_LIST_PTR* CK_FUNCTION_LIST_PTR_PTR;

#define QOR_HOST_TYPEDEF(name, params, args) typedef CK_RV(*CK_##name) params;
QOR_PKCS11_FUNCTIONS(QOR_HOST_TYPEDEF)
#undef QOR_HOST_TYPEDEF

struct CK_FUNCTION_LIST {
  CK_VERSION version;
#define QOR_HOST_MEMBER(name, params, args) CK_##name name;
  QOR_PKCS11_FUNCTIONS(QOR_HOST_MEMBER)
#undef QOR_HOST_MEMBER
};

// The natural x86_64/AArch64 layout (8-byte CK_ULONG and pointers) that the
// platform's modules are built with.
static_assert(sizeof(CK_ULONG) == sizeof(void*), "host CK_ULONG is pointer-wide");
static_assert(sizeof(CK_INFO) == 88 && offsetof(CK_INFO, flags) == 40, "CK_INFO");
static_assert(sizeof(CK_SLOT_INFO) == 112, "CK_SLOT_INFO");
static_assert(sizeof(CK_TOKEN_INFO) == 208 && offsetof(CK_TOKEN_INFO, utcTime) == 188,
              "CK_TOKEN_INFO");
static_assert(sizeof(CK_ATTRIBUTE) == 24 && sizeof(CK_MECHANISM) == 24, "CK_ATTRIBUTE");
static_assert(sizeof(CK_C_INITIALIZE_ARGS) == 48, "CK_C_INITIALIZE_ARGS");
static_assert(sizeof(CK_RSA_PKCS_OAEP_PARAMS) == 40 && sizeof(CK_AES_GCM_PARAMS) == 48,
              "mechanism parameters");
static_assert(offsetof(CK_FUNCTION_LIST, C_Initialize) == 8 &&
                  sizeof(CK_FUNCTION_LIST) == 8 + 8 * QOR_PKCS11_FUNCTION_COUNT,
              "CK_FUNCTION_LIST");

}  // namespace host
