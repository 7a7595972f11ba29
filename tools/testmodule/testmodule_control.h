/*
 * Control interface of the test module (libqortestmodule.so).
 *
 * The module is a PKCS#11 module over a small in-memory token. Besides
 * C_GetFunctionList it exports these functions, which let a test look at
 * every call the module received and script the answers of the next calls.
 *
 * Recording: every entry point appends one record before it runs, holding
 * the function name, its arguments as text and, once it returns, its return
 * value. The text names every parameter as the standard does, in order:
 *
 *   C_Sign(hSession=1, pData=[0a0b], ulDataLen=2, pSignature=[0000], *pulSignatureLen=2)
 *
 *   - CK_ULONG values in decimal; flags, mechanism and attribute types in hex.
 *   - byte buffers as [lower-case hex] of the bytes in range (for output
 *     buffers: the capacity the caller declared, i.e. what it handed over),
 *     or null. At most 4096 bytes are shown, then "...".
 *   - in/out length and count pointers as *pulX=<value on entry>, or pulX=null;
 *     pure output pointers (handles, pulSize, pulObjectCount) as nonnull/null.
 *   - info structures (pInfo) as the hex of the whole structure on entry.
 *   - templates as [{type=0x3, pValue=[6b6579], ulValueLen=3}, ...] or null.
 *   - mechanisms as {mechanism=0x1082, pParameter=[...], ulParameterLen=16};
 *     a known parameter structure of the right size is shown member by
 *     member instead, nested buffers included:
 *     pParameter={hashAlg=0x250, mgf=0x2, source=0x1, pSourceData=[01], ulSourceDataLen=1}
 *
 * Scripting: qortm_script queues an answer for the next call of a function.
 * A scripted call does not touch the token: it writes exactly what the script
 * gives into the caller's outputs, never past what the caller declared, and
 * returns rv. Whatever the script leaves out stays untouched, so a script
 * with only rv proves what the caller put in its buffers beforehand.
 *   output   bytes for the call's byte output: the data buffer of crypto
 *            functions, GetOperationState and WrapKey, RandomData, or the info
 *            structure; for C_GetAttributeValue every non-null pValue.
 *            NULL leaves them untouched.
 *   lenValue written to every length output (*pul...Len, *pulSize, and for
 *            C_GetAttributeValue every ulValueLen); < 0 leaves them.
 *   countValue written to *pulCount / *pulObjectCount; < 0 leaves them.
 *   values   CK_ULONGs written in order to the handle and id outputs
 *            (phSession, phObject, phKey, phPublicKey then phPrivateKey,
 *            pSlot, the arrays pSlotList, pMechanismList and phObject); for
 *            C_GetAttributeValue the i-th value becomes the i-th ulValueLen.
 */
#ifndef QOR_TESTMODULE_CONTROL_H
#define QOR_TESTMODULE_CONTROL_H

#include <stddef.h>
#include <stdint.h>

#include "qorpkcs11/pkcs11.h"

#ifdef __cplusplus
extern "C" {
#endif

/* X(return type, name, parameters), one row per exported control function. */
#define QORTM_CONTROL_FUNCTIONS(X)                                              \
    /* Fresh module: not initialised, token restored, log and scripts empty. */ \
    X(void, qortm_reset, (void))                                                \
    /* As qortm_reset, then initialised as if C_Initialize(NULL) had run. */     \
    X(void, qortm_reset_ready, (void))                                          \
    X(void, qortm_clear_calls, (void))                                          \
    /* 0 stops recording (benchmarks); scripts still apply. */                  \
    X(void, qortm_set_recording, (int on))                                      \
    X(int, qortm_call_count, (void))                                            \
    /* Text, name or one argument's value of call i, snprintf-style: returns   \
       the full length, or -1 when there is no such call or argument. */       \
    X(int, qortm_call_text, (int index, char *buf, size_t buflen))              \
    X(int, qortm_call_name, (int index, char *buf, size_t buflen))              \
    X(int, qortm_call_arg,                                                      \
      (int index, const char *arg, char *buf, size_t buflen))                   \
    /* Return value of call i; -1 if out of range or still running. */          \
    X(int64_t, qortm_call_rv, (int index))                                      \
    /* Index of the last call of that function, or -1. */                       \
    X(int, qortm_last_call, (const char *name))                                 \
    /* 0, or -1 when name is not one of the 68 functions. */                    \
    X(int, qortm_script,                                                        \
      (const char *name, CK_RV rv, const uint8_t *output, size_t outputLen,     \
       int64_t lenValue, int64_t countValue, const CK_ULONG *values,            \
       size_t valueCount))                                                      \
    /* Queues a slot event for C_WaitForSlotEvent (wakes a blocked wait). */    \
    X(void, qortm_slot_event, (CK_SLOT_ID slot))                                \
    /* The function list, without recording a C_GetFunctionList call. */       \
    X(CK_FUNCTION_LIST_PTR, qortm_function_list, (void))

#define QORTM_DECLARE(ret, name, params) QOR_PKCS11_API ret name params;
QORTM_CONTROL_FUNCTIONS(QORTM_DECLARE)
#undef QORTM_DECLARE

#ifdef __cplusplus
}
#endif

#endif /* QOR_TESTMODULE_CONTROL_H */
