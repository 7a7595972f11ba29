package com.qor.smartcard.testmodule;

import java.util.ArrayList;
import java.util.List;

/**
 * Control of the test PKCS#11 module (libqortestmodule.so) from Java tests.
 *
 * <p>Load the library first with {@link #load(String)} (the same path the
 * module registry loads, so both see one module), then reset it, drive the
 * bridge, and assert on the recorded call texts. The call-text format and the
 * script rules are those of testmodule_control.h.
 */
public final class TestModule {
    private TestModule() {}

    public static void load(String modulePath) {
        System.load(modulePath);
    }

    /** Fresh module: not initialised, token restored, no calls, no scripts. */
    public static native void reset();

    /** As {@link #reset()}, then initialised as if C_Initialize(NULL) had run. */
    public static native void resetReady();

    public static native void clearCalls();

    public static native void setRecording(boolean on);

    public static native int callCount();

    /** The call's text, e.g. "C_Logout(hSession=1)"; null when out of range. */
    public static native String callText(int index);

    public static native String callName(int index);

    /** One argument's value text ("pData" gives "[0a0b]"); null when absent. */
    public static native String callArg(int index, String arg);

    /** The call's return value; -1 when out of range or still running. */
    public static native long callRv(int index);

    /** Index of the last call of that function, or -1. */
    public static native int lastCall(String function);

    /**
     * Queues the answer of the next call of {@code function}. {@code output}
     * null, {@code lenValue} and {@code countValue} negative, and
     * {@code values} null leave the matching outputs untouched.
     *
     * @throws IllegalArgumentException if the name is not a PKCS#11 function
     */
    public static native void script(String function, long rv, byte[] output, long lenValue, long countValue,
            long[] values);

    /** Queues a slot event for C_WaitForSlotEvent. */
    public static native void slotEvent(long slot);

    /** Next call returns {@code rv} and leaves every output untouched. */
    public static void script(String function, long rv) {
        script(function, rv, null, -1, -1, null);
    }

    /** Next call succeeds without writing its buffer, reporting length {@code lenValue}. */
    public static void untouched(String function, long lenValue) {
        script(function, 0, null, lenValue, -1, null);
    }

    public static List<String> calls() {
        List<String> all = new ArrayList<>();
        for (int i = 0, n = callCount(); i < n; i++) {
            all.add(callText(i));
        }
        return all;
    }

    /** Text of the last call of {@code function}, or null. */
    public static String lastCallText(String function) {
        int i = lastCall(function);
        return i < 0 ? null : callText(i);
    }
}
