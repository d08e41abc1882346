/// Collects the reports of the library while it lives.
#ifndef SCA_TESTS_SUPPORT_REPORTCAPTURE_H
#define SCA_TESTS_SUPPORT_REPORTCAPTURE_H

#include <mutex>
#include <ostream>
#include <string>
#include <vector>

struct CapturedReport {
  unsigned long level = 0;
  std::string source;
  std::string text;
};

bool operator==(const CapturedReport& left, const CapturedReport& right);
std::ostream& operator<<(std::ostream& out, const CapturedReport& report);

class ReportCapture {
 public:
  ReportCapture();
  ~ReportCapture();
  ReportCapture(const ReportCapture&) = delete;
  ReportCapture& operator=(const ReportCapture&) = delete;

  std::vector<CapturedReport> All() const;
  void Clear();

 private:
  static void Collect(void* context, unsigned long level, const char* source, int line,
                      const char* text);

  mutable std::mutex mutex_;
  std::vector<CapturedReport> reports_;
};

#endif  // SCA_TESTS_SUPPORT_REPORTCAPTURE_H
