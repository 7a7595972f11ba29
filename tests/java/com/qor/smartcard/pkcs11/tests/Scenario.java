package com.qor.smartcard.pkcs11.tests;

import static com.qor.smartcard.pkcs11.QorConstants.*;

import com.qor.smartcard.pkcs11.CK_ATTRIBUTE;
import com.qor.smartcard.pkcs11.CK_INFO;
import com.qor.smartcard.pkcs11.CK_MECHANISM;
import com.qor.smartcard.pkcs11.CK_SLOT_INFO;
import com.qor.smartcard.pkcs11.PKCS11Exception;
import com.qor.smartcard.pkcs11.Pkcs11;
import com.qor.smartcard.testmodule.TestModule;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/**
 * One pass over every PKCS#11 function against the test module's token,
 * recording what each call returned, so that the same pass made directly and
 * through the transport can be compared step by step.
 */
final class Scenario {

  /** A step's outcome as text: its result, or the code it failed with. */
  record Outcome(String step, String result) {}

  interface Step {
    Object run() throws Exception;
  }

  private final Pkcs11 p11;
  private final List<Outcome> outcomes = new ArrayList<>();
  private long session;
  private long dataObject;
  private long aesKey;
  private long[] rsa;

  Scenario(Pkcs11 p11) {
    this.p11 = p11;
  }

  private void step(String name, Step step) {
    String result;
    try {
      result = show(step.run());
    } catch (PKCS11Exception e) {
      result = "rv=0x" + Long.toHexString(e.getErrorCode());
    } catch (Exception e) {
      result = e.toString();
    }
    outcomes.add(new Outcome(name, result));
  }

  private static String show(Object value) {
    if (value instanceof byte[]) {
      return Fixture.hex((byte[]) value);
    }
    if (value instanceof long[]) {
      return Arrays.toString((long[]) value);
    }
    if (value instanceof CK_ATTRIBUTE[]) {
      return Arrays.toString((CK_ATTRIBUTE[]) value);
    }
    return String.valueOf(value);
  }

  private static CK_ATTRIBUTE a(long type, Object value) {
    return new CK_ATTRIBUTE(type, value);
  }

  /** A new session of its own, so one step's operations cannot disturb the next. */
  private long fresh() throws PKCS11Exception {
    return p11.C_OpenSession(Fixture.TOKEN_SLOT, CKF_SERIAL_SESSION | CKF_RW_SESSION, null, null);
  }

  private CK_MECHANISM aesCbc() {
    return new CK_MECHANISM(0x1082, new byte[16]);
  }

  List<Outcome> run() {
    TestModule.resetReady();
    step("C_Finalize", () -> { p11.C_Finalize(null); return "ok"; });
    step("C_Initialize", () -> { p11.C_Initialize(null); return "ok"; });
    // The description is left out: deployed servers send it without a
    // terminator, and the proxies then keep the caller's bytes.
    step("C_GetInfo", () -> {
      CK_INFO info = p11.C_GetInfo();
      return info.cryptokiVersion + " " + new String(info.manufacturerID) + " " + info.flags + " " + info.libraryVersion;
    });
    step("C_GetSlotList", () -> p11.C_GetSlotList(true));
    // The same holds for the slot's texts.
    step("C_GetSlotInfo", () -> {
      CK_SLOT_INFO info = p11.C_GetSlotInfo(Fixture.TOKEN_SLOT);
      return info.flags + " " + info.hardwareVersion + " " + info.firmwareVersion;
    });
    step("C_GetTokenInfo", () -> p11.C_GetTokenInfo(Fixture.TOKEN_SLOT));
    step("C_GetMechanismList", () -> p11.C_GetMechanismList(Fixture.TOKEN_SLOT));
    step("C_GetMechanismInfo", () -> p11.C_GetMechanismInfo(Fixture.TOKEN_SLOT, 0x1082));
    step("C_OpenSession", () -> session = p11.C_OpenSession(Fixture.TOKEN_SLOT,
        CKF_SERIAL_SESSION | CKF_RW_SESSION, null, null));
    step("C_Login", () -> { p11.C_Login(session, CKU_USER, "1234".toCharArray()); return "ok"; });
    step("C_CreateObject", () -> dataObject = p11.C_CreateObject(session, new CK_ATTRIBUTE[] {a(CKA_CLASS, CKO_DATA),
        a(CKA_TOKEN, false), a(CKA_LABEL, "note".toCharArray()), a(CKA_VALUE, new byte[] {1, 2, 3})}));
    step("C_CopyObject", () -> p11.C_CopyObject(session, dataObject, new CK_ATTRIBUTE[] {a(CKA_LABEL, "copy".toCharArray())}));
    step("C_GetObjectSize", () -> p11.C_GetObjectSize(session, dataObject));
    step("C_SetAttributeValue", () -> {
      p11.C_SetAttributeValue(session, dataObject, new CK_ATTRIBUTE[] {a(CKA_VALUE, new byte[] {4, 5})});
      return "ok";
    });
    step("C_GetAttributeValue", () -> {
      CK_ATTRIBUTE[] t = {new CK_ATTRIBUTE(CKA_CLASS), new CK_ATTRIBUTE(CKA_LABEL), new CK_ATTRIBUTE(CKA_VALUE),
          new CK_ATTRIBUTE(CKA_TOKEN)};
      p11.C_GetAttributeValue(session, dataObject, t);
      return t;
    });
    step("C_FindObjectsInit", () -> { p11.C_FindObjectsInit(session, new CK_ATTRIBUTE[] {a(CKA_CLASS, CKO_DATA)}); return "ok"; });
    step("C_FindObjects", () -> p11.C_FindObjects(session, 10));
    step("C_FindObjectsFinal", () -> { p11.C_FindObjectsFinal(session); return "ok"; });
    step("C_GenerateKey", () -> aesKey = p11.C_GenerateKey(session, new CK_MECHANISM(0x1080), new CK_ATTRIBUTE[] {
        a(CKA_VALUE_LEN, 16L), a(CKA_ENCRYPT, true), a(CKA_DECRYPT, true), a(CKA_WRAP, true), a(CKA_UNWRAP, true),
        a(CKA_EXTRACTABLE, true), a(CKA_DERIVE, true)}));
    step("C_EncryptInit", () -> { p11.C_EncryptInit(session, aesCbc(), aesKey); return "ok"; });
    step("C_Encrypt", () -> p11.C_Encrypt(session, Fixture.pattern(32, 1)));
    step("C_DecryptInit", () -> { p11.C_DecryptInit(session, aesCbc(), aesKey); return "ok"; });
    step("C_Decrypt", () -> p11.C_Decrypt(session, Fixture.pattern(32, 7)));
    step("C_EncryptInit again", () -> { p11.C_EncryptInit(session, aesCbc(), aesKey); return "ok"; });
    step("C_EncryptUpdate", () -> p11.C_EncryptUpdate(session, Fixture.pattern(16, 3)));
    step("C_GetOperationState", () -> p11.C_GetOperationState(session));
    step("C_SetOperationState", () -> {
      p11.C_SetOperationState(session, p11.C_GetOperationState(session), 0, 0);
      return "ok";
    });
    step("C_EncryptFinal", () -> p11.C_EncryptFinal(session));
    step("C_DecryptInit again", () -> { p11.C_DecryptInit(session, aesCbc(), aesKey); return "ok"; });
    step("C_DecryptUpdate", () -> p11.C_DecryptUpdate(session, Fixture.pattern(16, 5)));
    step("C_DecryptFinal", () -> p11.C_DecryptFinal(session));
    step("C_DigestInit", () -> { p11.C_DigestInit(session, new CK_MECHANISM(0x250)); return "ok"; });
    step("C_Digest", () -> p11.C_Digest(session, Fixture.pattern(100, 0)));
    step("C_DigestInit again", () -> { p11.C_DigestInit(session, new CK_MECHANISM(0x250)); return "ok"; });
    step("C_DigestUpdate", () -> { p11.C_DigestUpdate(session, Fixture.pattern(10, 0)); return "ok"; });
    step("C_DigestKey", () -> { p11.C_DigestKey(session, aesKey); return "ok"; });
    step("C_DigestFinal", () -> p11.C_DigestFinal(session));
    step("C_GenerateKeyPair", () -> rsa = p11.C_GenerateKeyPair(session, new CK_MECHANISM(0x0),
        new CK_ATTRIBUTE[] {a(CKA_MODULUS_BITS, 1024L)}, new CK_ATTRIBUTE[] {a(CKA_TOKEN, false)}));
    step("C_SignInit", () -> { p11.C_SignInit(session, new CK_MECHANISM(0x40), rsa[1]); return "ok"; });
    step("C_Sign", () -> p11.C_Sign(session, Fixture.pattern(20, 9)));
    step("C_SignInit again", () -> { p11.C_SignInit(session, new CK_MECHANISM(0x40), rsa[1]); return "ok"; });
    step("C_SignUpdate", () -> { p11.C_SignUpdate(session, Fixture.pattern(20, 9)); return "ok"; });
    step("C_SignFinal", () -> p11.C_SignFinal(session));
    step("C_VerifyInit", () -> { p11.C_VerifyInit(fresh(), new CK_MECHANISM(0x40), rsa[0]); return "ok"; });
    byte[][] signature = new byte[1][];
    step("C_Sign for C_Verify", () -> {
      long s = fresh();
      p11.C_SignInit(s, new CK_MECHANISM(0x40), rsa[1]);
      return signature[0] = p11.C_Sign(s, Fixture.pattern(20, 9));
    });
    step("C_Verify", () -> {
      long s = fresh();
      p11.C_VerifyInit(s, new CK_MECHANISM(0x40), rsa[0]);
      p11.C_Verify(s, Fixture.pattern(20, 9), signature[0]);
      return "ok";
    });
    step("C_VerifyUpdate and C_VerifyFinal", () -> {
      long s = fresh();
      p11.C_VerifyInit(s, new CK_MECHANISM(0x40), rsa[0]);
      p11.C_VerifyUpdate(s, Fixture.pattern(20, 9));
      p11.C_VerifyFinal(s, signature[0]);
      return "ok";
    });
    step("C_SignRecoverInit", () -> { p11.C_SignRecoverInit(fresh(), new CK_MECHANISM(0x1), rsa[1]); return "ok"; });
    step("C_SignRecover", () -> {
      long s = fresh();
      p11.C_SignRecoverInit(s, new CK_MECHANISM(0x1), rsa[1]);
      return p11.C_SignRecover(s, Fixture.pattern(20, 2));
    });
    step("C_VerifyRecover", () -> {
      long s = fresh();
      p11.C_SignRecoverInit(s, new CK_MECHANISM(0x1), rsa[1]);
      byte[] recoverable = p11.C_SignRecover(s, Fixture.pattern(20, 2));
      p11.C_VerifyRecoverInit(s, new CK_MECHANISM(0x1), rsa[0]);
      return p11.C_VerifyRecover(s, recoverable);
    });
    step("C_DigestEncryptUpdate", () -> {
      long s = fresh();
      p11.C_DigestInit(s, new CK_MECHANISM(0x250));
      p11.C_EncryptInit(s, aesCbc(), aesKey);
      return p11.C_DigestEncryptUpdate(s, Fixture.pattern(16, 4));
    });
    step("C_DecryptDigestUpdate", () -> {
      long s = fresh();
      p11.C_DigestInit(s, new CK_MECHANISM(0x250));
      p11.C_DecryptInit(s, aesCbc(), aesKey);
      return p11.C_DecryptDigestUpdate(s, Fixture.pattern(16, 4));
    });
    step("C_SignEncryptUpdate", () -> {
      long s = fresh();
      p11.C_SignInit(s, new CK_MECHANISM(0x40), rsa[1]);
      p11.C_EncryptInit(s, aesCbc(), aesKey);
      return p11.C_SignEncryptUpdate(s, Fixture.pattern(16, 4));
    });
    step("C_DecryptVerifyUpdate", () -> {
      long s = fresh();
      p11.C_VerifyInit(s, new CK_MECHANISM(0x40), rsa[0]);
      p11.C_DecryptInit(s, aesCbc(), aesKey);
      return p11.C_DecryptVerifyUpdate(s, Fixture.pattern(16, 4));
    });
    step("C_WrapKey", () -> p11.C_WrapKey(session, aesCbc(), aesKey, aesKey));
    step("C_UnwrapKey", () -> p11.C_UnwrapKey(session, aesCbc(), aesKey, Fixture.pattern(16, 8),
        new CK_ATTRIBUTE[] {a(CKA_CLASS, CKO_SECRET_KEY), a(CKA_TOKEN, false)}));
    step("C_DeriveKey", () -> p11.C_DeriveKey(session, new CK_MECHANISM(0x371, Params.ssl3Master()),
        p11.C_GenerateKey(session, new CK_MECHANISM(0x350),
            new CK_ATTRIBUTE[] {a(CKA_VALUE_LEN, 48L), a(CKA_DERIVE, true)}),
        new CK_ATTRIBUTE[0]));
    step("C_SeedRandom", () -> { p11.C_SeedRandom(session, new byte[] {1, 2, 3}); return "ok"; });
    step("C_GenerateRandom", () -> p11.C_GenerateRandom(session, 24));
    step("C_GetFunctionStatus", () -> { p11.C_GetFunctionStatus(session); return "ok"; });
    step("C_CancelFunction", () -> { p11.C_CancelFunction(session); return "ok"; });
    step("C_WaitForSlotEvent", () -> {
      TestModule.slotEvent(2);
      return p11.C_WaitForSlotEvent(0);
    });
    step("C_DestroyObject", () -> { p11.C_DestroyObject(session, dataObject); return "ok"; });
    step("C_Logout", () -> { p11.C_Logout(session); return "ok"; });
    step("C_CloseSession", () -> { p11.C_CloseSession(session); return "ok"; });
    step("C_CloseAllSessions", () -> { p11.C_CloseAllSessions(Fixture.TOKEN_SLOT); return "ok"; });
    step("C_InitToken", () -> { p11.C_InitToken(Fixture.TOKEN_SLOT, "5678".toCharArray(), "Remote".toCharArray()); return "ok"; });
    step("C_GetTokenInfo after C_InitToken", () -> new String(p11.C_GetTokenInfo(Fixture.TOKEN_SLOT).label));
    step("C_Finalize at the end", () -> { p11.C_Finalize(null); return "ok"; });
    return outcomes;
  }
}
