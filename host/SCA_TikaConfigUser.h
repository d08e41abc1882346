/// The user configuration of the service host: one file in a directory of the account's own.
/// Threads: one at a time, except for the switch of the daily logs and their directory, which the
/// servers' workers read: these any thread may read and set, the directory by `CopyTikaLogDir`.
#ifndef SCA_HOST_SCA_TIKACONFIGUSER_H
#define SCA_HOST_SCA_TIKACONFIGUSER_H

#include "host/SCA_TikaConfig.h"
#include "platform/SCA_Lock.h"
#include "platform/SCA_Path.h"

/// Where the service keeps its data and logs. int results are 1 for success and 0 for failure;
/// setters of directories refuse what is longer than 4095 bytes, with a report.
class SCA_API SCA_TikaConfigUser : public SCA_Object {
 public:
  /// @param config  The root configuration, loaded; not owned, and may be null where `Init` is not
  ///                called. Outlives this object.
  /// @param params  Handed out by `GetParams`; not owned, may be null.
  SCA_TikaConfigUser(SCA_TikaConfig* config, SCA_ConfigObj* params);
  SCA_TikaConfigUser(const SCA_TikaConfigUser& source);
  SCA_TikaConfigUser& operator=(const SCA_TikaConfigUser& source);

  /// Finds the configuration directory: "config" below the root directory for the account
  /// "SYSTEM", else "Tika Service" below the account's own configuration directory. Makes it and
  /// its "data" directory, with parents, where they are missing, and writes a file of defaults,
  /// "tika_service.trv", where there is none. Every failure is reported.
  int Init();

  /// Reads the file. One of another version is written back at once.
  /// @param error  `SCA_ErrorInvalidData` without a file name and for contents that are refused,
  ///               else as in `SCA_LoadConfigFile`. What has been read by then stays.
  int LoadConfig(unsigned long* error);
  /// Replaces the file whole; a failure is reported.
  /// @param error  `SCA_ErrorInvalidData` without a file name and for a value that no file can
  ///               hold, else as in `SCA_SaveConfigFile`.
  int SaveConfig(unsigned long* error);

  /// Adds the fields to an object, with the version of this library.
  int Serialize(SCA_ConfigObj* object) const;
  /// Reads the fields; what is missing stays as it is. An object of another file type and one with
  /// a value that is too long are refused with a report. Where the object is marked as modified,
  /// by `Init` or by fields of another version, it saves itself, and gives 0 when it cannot: one
  /// without a file name gives 0 although it has read all fields. The mark is never taken back.
  /// @note Inherited.
  int Deserialize(const SCA_ConfigObj* object);

  /// Takes over the fields that are saved; saves itself as `Deserialize` does. @note Inherited.
  int SetConfig(const SCA_TikaConfigUser* source);
  /// @return A copy without a file name, which the caller ends by `Destroy()`; null on failure.
  SCA_TikaConfigUser* Clone() const;
  /// Does nothing. @return 1. @note Inherited.
  int ClearAll() { return 1; }

  SCA_TikaConfig* GetConfig() const { return config_; }
  SCA_ConfigObj* GetParams() const { return params_; }
  /// 1 when the file is to be written back after every load.
  int GetModified() const { return modified_; }
  const char* GetConfigFileName() const { return configFileName_; }
  int SetConfigFileName(const char* fileName);
  /// The version that wrote the fields that were read.
  const char* GetVersion() const { return version_; }
  const char* GetDataDirectory() const { return dataDirectory_; }
  unsigned short GetControlPort() const { return controlPort_; }
  void SetControlPort(unsigned short port) { controlPort_ = port; }
  int GetSaveMessages() const { return saveMessages_; }
  void SetSaveMessages(int save) { saveMessages_ = save; }
  const char* GetMessagesLogDir() const { return messagesLogDir_; }
  int SetMessagesLogDir(const char* directory);
  /// Not 0 when every message of a server is added to a daily file.
  int GetSaveTikaLog() const { return saveTikaLog_.Get(); }
  void SetSaveTikaLog(int save) { saveTikaLog_.Set(save); }
  /// Of the daily files. The pointer is to the field itself; use it only while no thread sets it.
  const char* GetTikaLogDir() const SCA_NO_THREAD_SAFETY_ANALYSIS { return tikaLogDir_; }
  int SetTikaLogDir(const char* directory) SCA_EXCLUDES(lock_);
  /// @param directory  Receives a copy.
  void CopyTikaLogDir(char (&directory)[SCA_MaxPath]) const SCA_EXCLUDES(lock_);

 private:
  int FindDirectory(char (&directory)[SCA_MaxPath]);
  int MakeDirectory(const char* directory, const char* complaint);
  int ReadFields(const SCA_ConfigObj& object);

  SCA_TikaConfig* config_ = nullptr;
  SCA_ConfigObj* params_ = nullptr;
  int modified_ = 0;
  char configFileName_[260] = "";
  char version_[260] = "";
  char dataDirectory_[SCA_MaxPath] = "";
  unsigned short controlPort_ = SCA_DefaultControlPort;
  int saveMessages_ = 0;
  char messagesLogDir_[SCA_MaxPath] = "";
  SCA_AtomicValue<int> saveTikaLog_{0};

  mutable SCA_Lock lock_;
  char tikaLogDir_[SCA_MaxPath] SCA_GUARDED_BY(lock_) = "";
};

#endif  // SCA_HOST_SCA_TIKACONFIGUSER_H
