/// The configurations of the service host, its directories and its key.
#ifndef SCA_PROGRAMS_TIKASVC_INSTALLATION_H
#define SCA_PROGRAMS_TIKASVC_INSTALLATION_H

#include <string>

#include "host/SCA_TikaConfig.h"
#include "host/SCA_TikaConfigUser.h"
#include "platform/SCA_Lock.h"
#include "programs/tikasvc/Options.h"

/// Threads: `Load` and the getters before the threads are made, and what never changes later; the
/// rest by any thread.
class Installation {
 public:
  explicit Installation(const Options& options) : options_(options) {}

  /// Finds and reads the two configurations, making what is missing.
  /// @return A complaint, or nothing.
  std::string Load() SCA_EXCLUDES(lock_);
  /// Makes the control key where there is none. @return A complaint, or nothing.
  std::string PrepareKey() const;

  /// Reads the user configuration again. What takes effect at a start only is left for it.
  void Reload() SCA_EXCLUDES(lock_);

  /// Switches the daily files of the servers' logs, and saves that.
  /// @param code  Receives why it could not be done, or 0.
  void SaveTikaLog(bool save, const char* directory, unsigned long* code) SCA_EXCLUDES(lock_);

  struct LogSwitches {
    bool saveTikaLog = false;
    std::string tikaLogDir;
  };
  LogSwitches GetLogSwitches() const SCA_EXCLUDES(lock_);

  /// The servers' logs ask it for the switch of the daily files.
  SCA_TikaConfigUser* User() { return &user_; }
  const std::string& DataDirectory() const { return dataDirectory_; }
  unsigned short ControlPort() const { return controlPort_; }
  /// Of operators on this machine.
  std::string ControlSocket() const;

 private:
  std::string FindConfigDirectory() const;
  std::string LoadRoot();
  std::string LoadUser() SCA_EXCLUDES(lock_);
  bool ReadUser(unsigned long* error) SCA_REQUIRES(lock_);

  const Options& options_;
  SCA_TikaConfig root_;
  SCA_TikaConfigUser user_{&root_, nullptr};
  std::string dataDirectory_;
  unsigned short controlPort_ = SCA_DefaultControlPort;
  mutable SCA_Lock lock_;  // of `user_`, except for what the logs ask
};

#endif  // SCA_PROGRAMS_TIKASVC_INSTALLATION_H
