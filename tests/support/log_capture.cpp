#include "log_capture.h"

#include <android/log.h>

#include <algorithm>
#include <mutex>

namespace qor::test {
namespace {

std::mutex gMutex;
std::vector<LogLine> gLines;

void record(const struct __android_logger_data* data, const char* message) {
  std::lock_guard<std::mutex> lock(gMutex);
  gLines.push_back({data->priority, data->tag ? data->tag : "", message ? message : ""});
}

}  // namespace

LogCapture::LogCapture() {
  clear();
  __android_log_set_logger(record);
  __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
}

LogCapture::~LogCapture() {
  __android_log_set_minimum_priority(ANDROID_LOG_DEFAULT);
  __android_log_set_logger(__android_log_stderr_logger);
}

std::vector<LogLine> LogCapture::lines() const {
  std::lock_guard<std::mutex> lock(gMutex);
  return gLines;
}

std::vector<std::string> LogCapture::messages(const std::string& tag) const {
  std::vector<std::string> out;
  for (const auto& line : lines())
    if (line.tag == tag) out.push_back(line.message);
  return out;
}

bool LogCapture::contains(const std::string& tag, const std::string& message) const {
  auto msgs = messages(tag);
  return std::find(msgs.begin(), msgs.end(), message) != msgs.end();
}

void LogCapture::clear() {
  std::lock_guard<std::mutex> lock(gMutex);
  gLines.clear();
}

}  // namespace qor::test
