package com.example.consumer;

import static com.qor.smartcard.pkcs11.QorConstants.CKA_CLASS;
import static com.qor.smartcard.pkcs11.QorConstants.CKF_RW_SESSION;
import static com.qor.smartcard.pkcs11.QorConstants.CKF_SERIAL_SESSION;
import static com.qor.smartcard.pkcs11.QorConstants.CKM_SHA256_RSA_PKCS;
import static com.qor.smartcard.pkcs11.QorConstants.CKO_PRIVATE_KEY;
import static com.qor.smartcard.pkcs11.QorConstants.CKR_PIN_INCORRECT;
import static com.qor.smartcard.pkcs11.QorConstants.CKU_USER;

import com.qor.smartcard.pkcs11.CK_ATTRIBUTE;
import com.qor.smartcard.pkcs11.CK_MECHANISM;
import com.qor.smartcard.pkcs11.PKCS11Exception;
import com.qor.smartcard.pkcs11.Pkcs11;
import com.qor.smartcard.pkcs11.RemoteClient;

/**
 * Uses the installed Java API: its constants and error names run here, and
 * {@link #sign} shows a calling process's session (it needs a serving process,
 * so this program only compiles it).
 */
public final class Consumer {
  private Consumer() {}

  /** Signs {@code data} with the first private key of the token behind {@code socket}. */
  static byte[] sign(String socket, char[] pin, byte[] data) throws Exception {
    Pkcs11 p11 = RemoteClient.connect(socket, 100, 50);
    p11.C_Initialize(null);
    try {
      long slot = p11.C_GetSlotList(true)[0];
      long session = p11.C_OpenSession(slot, CKF_RW_SESSION | CKF_SERIAL_SESSION, null, null);
      p11.C_Login(session, CKU_USER, pin);
      p11.C_FindObjectsInit(session, new CK_ATTRIBUTE[] {new CK_ATTRIBUTE(CKA_CLASS, CKO_PRIVATE_KEY)});
      long key = p11.C_FindObjects(session, 1)[0];
      p11.C_FindObjectsFinal(session);
      p11.C_SignInit(session, new CK_MECHANISM(CKM_SHA256_RSA_PKCS), key);
      return p11.C_Sign(session, data);
    } finally {
      p11.C_Finalize(null);
      p11.disconnect();
    }
  }

  public static void main(String[] args) {
    System.out.printf("CKM_SHA256_RSA_PKCS = 0x%X%n", CKM_SHA256_RSA_PKCS);
    System.out.println("a wrong PIN: " + new PKCS11Exception(CKR_PIN_INCORRECT).getMessage());
  }
}
