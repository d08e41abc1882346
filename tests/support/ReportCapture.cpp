#include "tests/support/ReportCapture.h"

#include "platform/SCA_Report.h"

bool operator==(const CapturedReport& left, const CapturedReport& right) {
  return left.level == right.level && left.source == right.source && left.text == right.text;
}

std::ostream& operator<<(std::ostream& out, const CapturedReport& report) {
  return out << '[' << report.level << ' ' << report.source << "] " << report.text;
}

ReportCapture::ReportCapture() {
  SCA_SetReportSink(&ReportCapture::Collect, this);
}

ReportCapture::~ReportCapture() {
  SCA_SetReportSink(nullptr, nullptr);
}

std::vector<CapturedReport> ReportCapture::All() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return reports_;
}

void ReportCapture::Clear() {
  const std::lock_guard<std::mutex> guard(mutex_);
  reports_.clear();
}

void ReportCapture::Collect(void* context, unsigned long level, const char* source, int /*line*/,
                            const char* text) {
  auto* self = static_cast<ReportCapture*>(context);
  const std::lock_guard<std::mutex> guard(self->mutex_);
  self->reports_.push_back({level, source, text});
}
