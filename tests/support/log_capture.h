// Captures the lines the library writes to the Android log, through the log
// library's logger hook, so tests can compare them with the expected text.
#ifndef KAFX_TESTS_LOG_CAPTURE_H
#define KAFX_TESTS_LOG_CAPTURE_H

#include <android/log.h>

#include <string>
#include <vector>

namespace kafx_test {

struct LogLine {
  int priority;
  std::string tag;
  std::string message;
};

// While an instance lives, every log line is recorded (and not printed).
class LogCapture {
 public:
  LogCapture() : saved_priority_(__android_log_get_minimum_priority()) {
    lines().clear();
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger(&LogCapture::record);
  }
  ~LogCapture() {
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(saved_priority_);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  const std::vector<LogLine>& all() const { return lines(); }
  void clear() { lines().clear(); }
  // Messages only, in order.
  std::vector<std::string> messages() const {
    std::vector<std::string> out;
    for (const auto& l : lines()) out.push_back(l.message);
    return out;
  }

 private:
  int saved_priority_;
  static std::vector<LogLine>& lines() {
    static std::vector<LogLine> v;
    return v;
  }
  static void record(const struct __android_logger_data* data, const char* message) {
    lines().push_back({data->priority, data->tag ? data->tag : "", message ? message : ""});
  }
};

}  // namespace kafx_test

#endif
