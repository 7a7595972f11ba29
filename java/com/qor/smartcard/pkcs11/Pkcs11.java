package com.qor.smartcard.pkcs11;

import java.io.IOException;

/**
 * A PKCS#11 module, called from Java.
 *
 * <p>One object is bound to one loaded module by {@link #connect}. In the
 * process that holds the vendor module, connect it with {@link #MODE_SERVER}
 * and a module name: the library then also serves that module to other
 * processes over a local socket of that name. In a calling process, connect
 * {@link #WRAPPER_LIBRARY} itself with the same module name and
 * {@link #MODE_CLIENT}: every {@code C_*} call of the object is then carried
 * to the serving process.
 *
 * <pre>{@code
 * Pkcs11 p11 = new Pkcs11();
 * p11.initializeLibrary();
 * p11.connect(Pkcs11.WRAPPER_LIBRARY, "C_GetFunctionList", "@vendor", Pkcs11.MODE_CLIENT);
 * p11.C_Initialize(null);
 * long[] slots = p11.C_GetSlotList(true);
 * }</pre>
 *
 * <p>Handles, slot ids, flags and mechanism types are Java {@code long}s of
 * which the module sees the low 32 bits. A failing PKCS#11 function throws
 * {@link PKCS11Exception} with its return value; any method called on an
 * object that is not connected throws {@link PKCS11RuntimeException}.
 *
 * <p>The native library is loaded when this class is first used, by
 * {@code System.loadLibrary("KorvanePkcs11Wrapper")}, or from the path in the
 * system property {@value #LIBRARY_PATH_PROPERTY} when that is set.
 */
public class Pkcs11 {
  /** File name of this library: connect it to call a module in another process. */
  public static final String WRAPPER_LIBRARY = "libKorvanePkcs11Wrapper.so";
  /** Load the named library in this process and use it here (or remotely, see above). */
  public static final int MODE_CLIENT = 0;
  /** Load the vendor library here and serve it to other processes. */
  public static final int MODE_SERVER = 1;
  /** System property with an absolute path of the native library to load instead. */
  public static final String LIBRARY_PATH_PROPERTY = "com.qor.smartcard.pkcs11.library";

  static {
    NativeLibrary.load();
  }

  // ---- library lifecycle -------------------------------------------------

  /** Makes the process ready to connect modules; a second call does nothing. */
  public native void initializeLibrary();

  /** Forgets every connected module; afterwards {@link #initializeLibrary} starts afresh. */
  public native void finalizeLibrary();

  /**
   * Loads a PKCS#11 library and binds it to this object. A repeated connect
   * replaces the earlier binding.
   *
   * @param libraryName file name or path given to the dynamic loader
   * @param getFunctionListName name of the library's function-list getter,
   *     normally {@code "C_GetFunctionList"}
   * @param moduleName name the module is registered and served under; also
   *     the local socket name. Null starts no transport.
   * @param mode {@link #MODE_SERVER} to serve the module to other processes,
   *     anything else to use it here
   * @throws IOException when the library or its getter cannot be loaded
   * @throws PKCS11Exception when the getter fails (the module stays bound)
   */
  public native void connect(String libraryName, String getFunctionListName, String moduleName,
      int mode) throws IOException, PKCS11Exception;

  /** Unbinds and unloads the module and closes this process's transport. */
  public native void disconnect();

  // ---- general purpose ---------------------------------------------------

  public native void C_Initialize(CK_C_INITIALIZE_ARGS pInitArgs) throws PKCS11Exception;

  public native void C_Finalize(Object pReserved) throws PKCS11Exception;

  public native CK_INFO C_GetInfo() throws PKCS11Exception;

  // ---- slots and tokens --------------------------------------------------

  public native long[] C_GetSlotList(boolean tokenPresent) throws PKCS11Exception;

  public native CK_SLOT_INFO C_GetSlotInfo(long slotID) throws PKCS11Exception;

  public native CK_TOKEN_INFO C_GetTokenInfo(long slotID) throws PKCS11Exception;

  public native long[] C_GetMechanismList(long slotID) throws PKCS11Exception;

  public native CK_MECHANISM_INFO C_GetMechanismInfo(long slotID, long type)
      throws PKCS11Exception;

  /** The label is blank padded to the 32 characters PKCS#11 expects. */
  public native void C_InitToken(long slotID, char[] pPin, char[] pLabel) throws PKCS11Exception;

  public native void C_InitPIN(long hSession, char[] pPin) throws PKCS11Exception;

  public native void C_SetPIN(long hSession, char[] pOldPin, char[] pNewPin)
      throws PKCS11Exception;

  // ---- sessions ----------------------------------------------------------

  /** No application value or callback reaches the module; pass null for both. */
  public native long C_OpenSession(long slotID, long flags, Object pApplication, Object Notify)
      throws PKCS11Exception;

  public native void C_CloseSession(long hSession) throws PKCS11Exception;

  public native void C_CloseAllSessions(long slotID) throws PKCS11Exception;

  public native CK_SESSION_INFO C_GetSessionInfo(long hSession) throws PKCS11Exception;

  public native byte[] C_GetOperationState(long hSession) throws PKCS11Exception;

  public native void C_SetOperationState(long hSession, byte[] pOperationState,
      long hEncryptionKey, long hAuthenticationKey) throws PKCS11Exception;

  public native void C_Login(long hSession, long userType, char[] pPin) throws PKCS11Exception;

  public native void C_Logout(long hSession) throws PKCS11Exception;

  // ---- objects -----------------------------------------------------------

  public native long C_CreateObject(long hSession, CK_ATTRIBUTE[] pTemplate)
      throws PKCS11Exception;

  public native long C_CopyObject(long hSession, long hObject, CK_ATTRIBUTE[] pTemplate)
      throws PKCS11Exception;

  public native void C_DestroyObject(long hSession, long hObject) throws PKCS11Exception;

  public native long C_GetObjectSize(long hSession, long hObject) throws PKCS11Exception;

  /**
   * Reads the values of the template's attribute types. Each element of
   * {@code pTemplate} is replaced by a new {@link CK_ATTRIBUTE} holding the
   * value the module returned (also when the module then reports an error
   * such as {@code CKR_ATTRIBUTE_SENSITIVE} for some of them).
   */
  public native void C_GetAttributeValue(long hSession, long hObject, CK_ATTRIBUTE[] pTemplate)
      throws PKCS11Exception;

  public native void C_SetAttributeValue(long hSession, long hObject, CK_ATTRIBUTE[] pTemplate)
      throws PKCS11Exception;

  public native void C_FindObjectsInit(long hSession, CK_ATTRIBUTE[] pTemplate)
      throws PKCS11Exception;

  /** @return the handles found, at most {@code ulMaxObjectCount} */
  public native long[] C_FindObjects(long hSession, long ulMaxObjectCount) throws PKCS11Exception;

  public native void C_FindObjectsFinal(long hSession) throws PKCS11Exception;

  // ---- encryption and decryption -----------------------------------------

  public native void C_EncryptInit(long hSession, CK_MECHANISM pMechanism, long hKey)
      throws PKCS11Exception;

  /** Single-part encryption; results longer than 260 bytes fail with the module's error. */
  public native byte[] C_Encrypt(long hSession, byte[] pData) throws PKCS11Exception;

  public native byte[] C_EncryptUpdate(long hSession, byte[] pPart) throws PKCS11Exception;

  public native byte[] C_EncryptFinal(long hSession) throws PKCS11Exception;

  public native void C_DecryptInit(long hSession, CK_MECHANISM pMechanism, long hKey)
      throws PKCS11Exception;

  /** Single-part decryption; results longer than 260 bytes fail with the module's error. */
  public native byte[] C_Decrypt(long hSession, byte[] pEncryptedData) throws PKCS11Exception;

  public native byte[] C_DecryptUpdate(long hSession, byte[] pEncryptedPart)
      throws PKCS11Exception;

  public native byte[] C_DecryptFinal(long hSession) throws PKCS11Exception;

  // ---- digests -----------------------------------------------------------

  public native void C_DigestInit(long hSession, CK_MECHANISM pMechanism) throws PKCS11Exception;

  /** Single-part digest; digests longer than 65 bytes fail with the module's error. */
  public native byte[] C_Digest(long hSession, byte[] pData) throws PKCS11Exception;

  public native void C_DigestUpdate(long hSession, byte[] pPart) throws PKCS11Exception;

  public native void C_DigestKey(long hSession, long hKey) throws PKCS11Exception;

  public native byte[] C_DigestFinal(long hSession) throws PKCS11Exception;

  // ---- signatures and verification ---------------------------------------

  public native void C_SignInit(long hSession, CK_MECHANISM pMechanism, long hKey)
      throws PKCS11Exception;

  public native byte[] C_Sign(long hSession, byte[] pData) throws PKCS11Exception;

  public native void C_SignUpdate(long hSession, byte[] pPart) throws PKCS11Exception;

  public native byte[] C_SignFinal(long hSession) throws PKCS11Exception;

  public native void C_SignRecoverInit(long hSession, CK_MECHANISM pMechanism, long hKey)
      throws PKCS11Exception;

  public native byte[] C_SignRecover(long hSession, byte[] pData) throws PKCS11Exception;

  public native void C_VerifyInit(long hSession, CK_MECHANISM pMechanism, long hKey)
      throws PKCS11Exception;

  /** Returns normally when the signature is valid. */
  public native void C_Verify(long hSession, byte[] pData, byte[] pSignature)
      throws PKCS11Exception;

  public native void C_VerifyUpdate(long hSession, byte[] pPart) throws PKCS11Exception;

  public native void C_VerifyFinal(long hSession, byte[] pSignature) throws PKCS11Exception;

  public native void C_VerifyRecoverInit(long hSession, CK_MECHANISM pMechanism, long hKey)
      throws PKCS11Exception;

  public native byte[] C_VerifyRecover(long hSession, byte[] pSignature) throws PKCS11Exception;

  // ---- dual-function operations ------------------------------------------

  public native byte[] C_DigestEncryptUpdate(long hSession, byte[] pPart) throws PKCS11Exception;

  public native byte[] C_DecryptDigestUpdate(long hSession, byte[] pEncryptedPart)
      throws PKCS11Exception;

  public native byte[] C_SignEncryptUpdate(long hSession, byte[] pPart) throws PKCS11Exception;

  public native byte[] C_DecryptVerifyUpdate(long hSession, byte[] pEncryptedPart)
      throws PKCS11Exception;

  // ---- keys --------------------------------------------------------------

  public native long C_GenerateKey(long hSession, CK_MECHANISM pMechanism,
      CK_ATTRIBUTE[] pTemplate) throws PKCS11Exception;

  /** @return {public key handle, private key handle} */
  public native long[] C_GenerateKeyPair(long hSession, CK_MECHANISM pMechanism,
      CK_ATTRIBUTE[] pPublicKeyTemplate, CK_ATTRIBUTE[] pPrivateKeyTemplate)
      throws PKCS11Exception;

  public native byte[] C_WrapKey(long hSession, CK_MECHANISM pMechanism, long hWrappingKey,
      long hKey) throws PKCS11Exception;

  public native long C_UnwrapKey(long hSession, CK_MECHANISM pMechanism, long hUnwrappingKey,
      byte[] pWrappedKey, CK_ATTRIBUTE[] pTemplate) throws PKCS11Exception;

  public native long C_DeriveKey(long hSession, CK_MECHANISM pMechanism, long hBaseKey,
      CK_ATTRIBUTE[] pTemplate) throws PKCS11Exception;

  // ---- random numbers ----------------------------------------------------

  public native void C_SeedRandom(long hSession, byte[] pSeed) throws PKCS11Exception;

  /** @return {@code randomLen} bytes from the module */
  public native byte[] C_GenerateRandom(long hSession, long randomLen) throws PKCS11Exception;

  // ---- legacy parallel functions and slot events -------------------------

  public native void C_GetFunctionStatus(long hSession) throws PKCS11Exception;

  public native void C_CancelFunction(long hSession) throws PKCS11Exception;

  /** @return the slot in which an event occurred */
  public native long C_WaitForSlotEvent(long flags) throws PKCS11Exception;
}
