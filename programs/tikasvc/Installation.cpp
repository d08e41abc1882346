#include "programs/tikasvc/Installation.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "control/SCA_ControlKey.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Report.h"
#include "programs/common/LocalHost.h"
#include "programs/tikasvc/HostLog.h"

namespace {

std::string Complaint(const std::string& what, unsigned long error) {
  return what + ": " + SCA_ErrorText(error);
}

std::string Unreadable(const char* kind, const char* fileName, unsigned long error) {
  return Complaint(std::string("cannot read the ") + kind + " configuration " + fileName, error) +
         "; restore it, or remove it to begin with the defaults";
}

}  // namespace

std::string Installation::Load() {
  std::string complaint = FindConfigDirectory();
  if (complaint.empty()) complaint = LoadRoot();
  if (complaint.empty()) complaint = LoadUser();
  if (!complaint.empty()) return complaint;
  dataDirectory_ = user_.GetDataDirectory();
  if (dataDirectory_.empty() || SCA_DirectoryExists(dataDirectory_.c_str()) == 0) {
    return std::string("the data directory '") + dataDirectory_ + "' of " +
           user_.GetConfigFileName() + " does not exist; create it, or correct the configuration";
  }
  // The account's own configuration is the nearer one, where it says more than the default.
  const bool hasOwnPort = user_.GetControlPort() != SCA_DefaultControlPort;
  controlPort_ = hasOwnPort ? user_.GetControlPort() : root_.GetControlPort();
  if (options_.controlPort) controlPort_ = *options_.controlPort;
  return {};
}

std::string Installation::ControlSocket() const {
  return options_.controlSocket.empty() ? dataDirectory_ + "/" + kControlSocket
                                        : options_.controlSocket;
}

// An account that is a bare number, as in a container, may have no directory for its settings: they
// lie beside the root configuration then.
std::string Installation::FindConfigDirectory() const {
  char directory[SCA_MaxPath];
  if (SCA_GetUserAppConfDir(directory, sizeof directory) != 0) return {};
  if (options_.configFile.empty()) {
    return "the account has no home directory for the configuration and the data; set "
           "XDG_CONFIG_HOME, or name a root configuration with --config, beside which they then "
           "lie";
  }
  std::error_code error;
  const std::filesystem::path file = std::filesystem::absolute(options_.configFile, error);
  if (error) return "the directory of " + options_.configFile + " is not known: " + error.message();
  ::setenv("XDG_CONFIG_HOME", file.parent_path().c_str(), 1);
  return {};
}

std::string Installation::LoadRoot() {
  const bool isNamed = !options_.configFile.empty();
  if (isNamed ? root_.SetConfigFileName(options_.configFile.c_str()) == 0 : root_.Init() == 0) {
    return "the path of the root configuration is unknown or too long; name it with --config";
  }
  const char* fileName = root_.GetConfigFileName();
  unsigned long error = 0;
  if (SCA_FileExists(fileName) != 0) {
    return root_.LoadConfig(&error) != 0 ? "" : Unreadable("root", fileName, error);
  }
  char directory[SCA_MaxPath];
  const bool isWritable =
      SCA_GetDirName(fileName, directory, sizeof directory) != 0 && ::access(directory, W_OK) == 0;
  if (isWritable && root_.SaveConfig(&error) == 0) {
    Say(SCA_LevelWarning, "cannot write the root configuration %s: %s; the defaults are used",
        fileName, SCA_ErrorText(error));
  }
  return {};
}

std::string Installation::LoadUser() {
  const SCA_LockGuard guard(lock_);
  unsigned long error = 0;
  if (user_.Init() == 0) {
    return "the user configuration cannot be created; the messages above say why; XDG_CONFIG_HOME "
           "names another directory";
  }
  return ReadUser(&error) ? "" : Unreadable("user", user_.GetConfigFileName(), error);
}

// What cannot be read leaves everything as it is. What can is used, whether or not the file can be
// brought up to date, which taking it over may try.
bool Installation::ReadUser(unsigned long* error) {
  SCA_TikaConfigUser read(&root_, nullptr);
  if (read.SetConfigFileName(user_.GetConfigFileName()) == 0 || read.LoadConfig(error) == 0) {
    return false;
  }
  if (user_.SetConfig(&read) == 0) {
    Say(SCA_LevelWarning, "%s could be read but not written", user_.GetConfigFileName());
  }
  return true;
}

std::string Installation::PrepareKey() const {
  char fileName[SCA_MaxPath];
  if (SCA_GetControlKeyFile(fileName, sizeof fileName) == 0) {
    return "the account has no configuration directory for the control key; set XDG_CONFIG_HOME";
  }
  unsigned long error = 0;
  SCA_ControlKey key;
  if (SCA_CreateControlKey(fileName, &error) == 0) {
    return Complaint(std::string("cannot create the control key ") + fileName, error);
  }
  if (SCA_LoadControlKey(fileName, &key, &error) == 0) {
    return Complaint(std::string("cannot use the control key ") + fileName, error);
  }
  return {};
}

void Installation::Reload() {
  const SCA_LockGuard guard(lock_);
  const unsigned short port = user_.GetControlPort();
  unsigned long error = 0;
  if (!ReadUser(&error)) {
    Say(SCA_LevelError, "cannot reread %s: %s; the previous values stay", user_.GetConfigFileName(),
        SCA_ErrorText(error));
    return;
  }
  Say(SCA_LevelInfo, "reread %s", user_.GetConfigFileName());
  if (user_.GetControlPort() != port || user_.GetDataDirectory() != dataDirectory_) {
    Say(SCA_LevelWarning, "another control port or data directory takes effect at the next start");
  }
}

void Installation::SaveTikaLog(bool save, const char* directory, unsigned long* code) {
  const SCA_LockGuard guard(lock_);
  *code = 0;
  std::string wanted = *directory != '\0' ? directory : user_.GetTikaLogDir();
  if (wanted.empty()) wanted = dataDirectory_ + "/logs";
  if (save) {
    if (SCA_IsAbsolutePath(wanted.c_str()) == 0) {
      *code = EINVAL;
      return;
    }
    if (SCA_CreateDirectory(wanted.c_str(), code) == 0) return;
    *code = 0;
    if (::access(wanted.c_str(), W_OK) != 0) {
      *code = static_cast<unsigned long>(errno);
      return;
    }
    if (user_.SetTikaLogDir(wanted.c_str()) == 0) {
      *code = ENAMETOOLONG;
      return;
    }
  }
  user_.SetSaveTikaLog(save ? 1 : 0);
  const bool isSaved = user_.SaveConfig(code) != 0;
  if (isSaved) *code = 0;
  Say(isSaved ? SCA_LevelInfo : SCA_LevelWarning, "daily log files of the servers: %s%s%s",
      save ? "on, in " : "off", save ? wanted.c_str() : "",
      isSaved ? "" : ", until the host stops: the setting could not be saved");
}

Installation::LogSwitches Installation::GetLogSwitches() const {
  const SCA_LockGuard guard(lock_);
  LogSwitches switches;
  switches.saveTikaLog = user_.GetSaveTikaLog() != 0;
  switches.tikaLogDir = user_.GetTikaLogDir();
  return switches;
}
