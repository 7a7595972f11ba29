#include <gtest/gtest.h>

#include "log_capture.h"
#include "qorpkcs11/common/log.h"

namespace {

int gFormatted = 0;
const char* counted(const char* s) {
  ++gFormatted;
  return s;
}

TEST(Log, DebugLineCarriesTagPriorityAndText) {
  qor::test::LogCapture capture;
  QOR_LOGD(qor::log::kCommClient, "Bytes read:%d", 16);
  QOR_LOGE(qor::log::kJni, "callback_handler: %s", "x");
  auto lines = capture.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].priority, ANDROID_LOG_DEBUG);
  EXPECT_EQ(lines[0].tag, "QORPKCS11-COMM_CLIENT");
  EXPECT_EQ(lines[0].message, "Bytes read:16");
  EXPECT_EQ(lines[1].priority, ANDROID_LOG_ERROR);
  EXPECT_EQ(lines[1].tag, "[native jni pkcs11wrapper]");
}

// A line below the minimum priority is neither formatted nor written.
TEST(Log, SuppressedLineIsNotFormatted) {
  qor::test::LogCapture capture;
  __android_log_set_minimum_priority(ANDROID_LOG_INFO);
  gFormatted = 0;
  QOR_LOGD(qor::log::kClient, "%s", counted("x"));
  EXPECT_EQ(gFormatted, 0);
  EXPECT_TRUE(capture.lines().empty());
  QOR_LOGE(qor::log::kClient, "%s", counted("y"));
  EXPECT_EQ(gFormatted, 1);
  EXPECT_EQ(capture.lines().size(), 1u);
}

}  // namespace
