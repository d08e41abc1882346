/// Where the service host says what happens: standard error and its debug log.
#ifndef SCA_PROGRAMS_TIKASVC_HOSTLOG_H
#define SCA_PROGRAMS_TIKASVC_HOSTLOG_H

#include <string>

#include "host/SCA_TikaLog.h"
#include "platform/SCA_Lock.h"
#include "platform/SCA_Report.h"

/// While it lives, every report of the process goes through it, the program's own included.
/// Threads: any thread may call any operation.
class HostLog {
 public:
  /// @param withDebug  Whether reports of the debug level are kept.
  explicit HostLog(bool withDebug);
  ~HostLog();
  HostLog(const HostLog&) = delete;
  HostLog& operator=(const HostLog&) = delete;

  SCA_TikaLog* GetLog() { return &log_; }

 private:
  static void Receive(void* context, unsigned long level, const char* source, int line,
                      const char* text);
  void Write(unsigned long level, const std::string& text) SCA_EXCLUDES(lock_);
  bool Print(unsigned long level, const std::string& text) SCA_REQUIRES(lock_);

  const bool withDebug_;
  const bool isJournal_;  // standard error goes to the journal, which has its own times
  SCA_TikaLog log_;

  SCA_Lock lock_;  // of standard error, so that lines neither mix nor block
  unsigned long long lost_ SCA_GUARDED_BY(lock_) = 0;  // since the last that was written
};

/// Says what happens, in the words of printf.
void Say(unsigned long level, const char* format, ...) __attribute__((format(printf, 2, 3)));

#endif  // SCA_PROGRAMS_TIKASVC_HOSTLOG_H
