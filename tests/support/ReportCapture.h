/// Collects the reports of the library while it lives.
#ifndef SCA_TESTS_SUPPORT_REPORTCAPTURE_H
#define SCA_TESTS_SUPPORT_REPORTCAPTURE_H

#include <mutex>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "platform/SCA_Report.h"

struct CapturedReport {
  unsigned long level = 0;
  std::string source;
  std::string text;

  friend bool operator==(const CapturedReport& left, const CapturedReport& right) {
    return std::tie(left.level, left.source, left.text) ==
           std::tie(right.level, right.source, right.text);
  }
  friend std::ostream& operator<<(std::ostream& out, const CapturedReport& report) {
    return out << '[' << report.level << ' ' << report.source << "] " << report.text;
  }
};

class ReportCapture {
 public:
  ReportCapture() {
    const auto collect = [](void* context, unsigned long level, const char* source, int /*line*/,
                            const char* text) {
      auto* const self = static_cast<ReportCapture*>(context);
      const std::lock_guard<std::mutex> guard(self->mutex_);
      self->reports_.push_back({level, source, text});
    };
    SCA_SetReportSink(collect, this);
  }
  ~ReportCapture() { SCA_SetReportSink(nullptr, nullptr); }
  ReportCapture(const ReportCapture&) = delete;
  ReportCapture& operator=(const ReportCapture&) = delete;

  std::vector<CapturedReport> All() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return reports_;
  }
  void Clear() {
    const std::lock_guard<std::mutex> guard(mutex_);
    reports_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<CapturedReport> reports_;
};

#endif  // SCA_TESTS_SUPPORT_REPORTCAPTURE_H
