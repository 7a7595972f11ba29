package com.qor.smartcard.adapter;

import com.qor.smartcard.pkcs11.NativeLibrary;

/**
 * When the serving process last did work for its callers, so that whoever
 * hosts it can decide when it has been idle long enough to stop.
 */
public class SandboxedProcessUsageStatistics {
  static {
    NativeLibrary.load();
  }

  /**
   * @return -1 while a request is being served; otherwise the time of the
   *     last reply (0 before the first): the whole seconds of the clock
   *     plus the milliseconds within that second, so only differences of a
   *     second or more are meaningful
   */
  public native long native_getLastUsageTime();

  /** @return true while the serving process is busy with a request */
  public boolean isBusy() {
    return native_getLastUsageTime() == -1;
  }
}
