// Captures log lines in tests through liblog's logger hook.
#pragma once

#include <string>
#include <vector>

namespace qor::test {

struct LogLine {
  int priority;
  std::string tag;
  std::string message;
};

// While alive, every line the process logs (any priority) is recorded
// instead of written. One at a time per process.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogLine> lines() const;
  std::vector<std::string> messages(const std::string& tag) const;
  bool contains(const std::string& tag, const std::string& message) const;
  void clear();
};

}  // namespace qor::test
