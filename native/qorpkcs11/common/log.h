// One logging facility for every component: a line per call through
// __android_log_print under the component's tag.
#pragma once

#include <android/log.h>

namespace qor::log {

inline constexpr const char kCommClient[] = "QORPKCS11-COMM_CLIENT";
inline constexpr const char kCommServer[] = "QORPKCS11-COMM_SERVER";
inline constexpr const char kClient[] = "Qorpkcs11f";
inline constexpr const char kServer[] = "Qorpkcs11f_Server";
inline constexpr const char kJni[] = "[native jni pkcs11wrapper]";
inline constexpr const char kNative[] = "[native]";
inline constexpr const char kNativeInterface[] = "[native:QorPkcs11]";

// Same default liblog applies when it decides, so the early test never drops
// a line liblog would have written; it only spares formatting one it drops.
inline bool loggable(int prio, const char* tag) {
#if defined(__ANDROID_API__) && __ANDROID_API__ < 30
  (void)prio; (void)tag;  // no early test before API 30: liblog decides
  return true;
#else
  return __android_log_is_loggable(prio, tag, ANDROID_LOG_VERBOSE) != 0;
#endif
}

}  // namespace qor::log

#define QOR_LOG(prio, tag, ...)                          \
  do {                                                   \
    if (::qor::log::loggable((prio), (tag)))             \
      __android_log_print((prio), (tag), __VA_ARGS__);   \
  } while (0)

#if QOR_DEBUG_LOG
#define QOR_LOGD(tag, ...) QOR_LOG(ANDROID_LOG_DEBUG, tag, __VA_ARGS__)
#else
// Compiled out, but the arguments stay type-checked against the format.
#define QOR_LOGD(tag, ...)                                          \
  do {                                                              \
    if (false) __android_log_print(ANDROID_LOG_DEBUG, tag, __VA_ARGS__); \
  } while (0)
#endif

#define QOR_LOGE(tag, ...) QOR_LOG(ANDROID_LOG_ERROR, tag, __VA_ARGS__)
