#include "host/SCA_TikaConfigUser.h"

#include <cstring>
#include <new>

#include "foundation/SCA_ConfigFile.h"
#include "host/SCA_PathField.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Result.h"

namespace {

constexpr char kSource[] = "SCA_TikaConfigUser";
constexpr char kRootName[] = "TarvConf";
constexpr char kSystemAccount[] = "SYSTEM";

}  // namespace

SCA_TikaConfigUser::SCA_TikaConfigUser(SCA_TikaConfig* config, SCA_ConfigObj* params)
    : config_(config), params_(params) {
  SetValid(1);
}

SCA_TikaConfigUser::SCA_TikaConfigUser(const SCA_TikaConfigUser& source) : SCA_Object(source) {
  *this = source;
}

SCA_TikaConfigUser& SCA_TikaConfigUser::operator=(const SCA_TikaConfigUser& source) {
  if (this == &source) return *this;
  SCA_Object::operator=(source);
  config_ = source.config_;
  params_ = source.params_;
  modified_ = source.modified_;
  SCA_CopyText(configFileName_, source.configFileName_, SCA_TextFit::Cut);
  SCA_CopyText(version_, source.version_, SCA_TextFit::Cut);
  SCA_CopyText(dataDirectory_, source.dataDirectory_, SCA_TextFit::Cut);
  controlPort_ = source.controlPort_;
  saveMessages_ = source.saveMessages_;
  SCA_CopyText(messagesLogDir_, source.messagesLogDir_, SCA_TextFit::Cut);
  saveTikaLog_ = source.saveTikaLog_;
  char directory[SCA_MaxPath];
  source.CopyTikaLogDir(directory);
  SetTikaLogDir(directory);
  return *this;
}

// Makes a directory where there is none, and takes note of it.
int SCA_TikaConfigUser::MakeDirectory(const char* directory, const char* complaint) {
  if (SCA_DirectoryExists(directory) != 0) return 1;
  unsigned long error = 0;
  if (SCA_CreateDirectory(directory, &error) == 0) {
    return SCA_Complain(kSource, __LINE__, SCA_LevelError, "%s - %s", complaint, directory);
  }
  modified_ = 1;
  return 1;
}

// The configuration directory, made where it is missing.
int SCA_TikaConfigUser::FindDirectory(char (&directory)[SCA_MaxPath]) {
  char account[260];
  if (SCA_GetUserName(account, sizeof account) == 0) {
    return SCA_Complain(kSource, __LINE__, SCA_LevelError,
                        "SCA_TikaConfigUser::Init: Cannot get user name.");
  }
  if (std::strcmp(account, kSystemAccount) == 0) {
    return SCA_FormatPath(directory, sizeof directory, "%s\\config",
                          config_ != nullptr ? config_->GetRootDir() : "") != 0
               ? MakeDirectory(directory, "Cannot create product config directory")
               : 0;
  }
  char base[260];
  if (SCA_GetUserAppConfDir(base, sizeof base) == 0) {
    return SCA_Complain(kSource, __LINE__, SCA_LevelError, "Cannot get user app-config directory");
  }
  return SCA_FormatPath(directory, sizeof directory, "%s\\Tika Service", base) != 0
             ? MakeDirectory(directory, "Cannot create directory")
             : 0;
}

int SCA_TikaConfigUser::Init() {
  modified_ = 0;
  char directory[SCA_MaxPath];
  char fileName[SCA_MaxPath];
  if (FindDirectory(directory) == 0) return 0;
  if (SCA_FormatPath(dataDirectory_, sizeof dataDirectory_, "%s\\data", directory) == 0 ||
      MakeDirectory(dataDirectory_, "Cannot create data directory") == 0 ||
      SCA_FormatPath(fileName, sizeof fileName, "%s\\tika_service.trv", directory) == 0 ||
      SCA_SetPathField(configFileName_, sizeof configFileName_, fileName,
                       {kSource, "SCA_TikaConfigUser::Init"}) == 0) {
    return 0;
  }
  unsigned long error = 0;
  if (SCA_FileExists(configFileName_) != 0 || SaveConfig(&error) != 0) return 1;
  return SCA_Complain(kSource, __LINE__, SCA_LevelError, "Cannot save default configuration file.");
}

int SCA_TikaConfigUser::LoadConfig(unsigned long* error) {
  if (*configFileName_ == '\0') return SCA_Fail(SCA_ErrorInvalidData, error);
  SCA_ConfigObj object(kRootName, nullptr);
  if (object.Load(configFileName_, error) == 0) return 0;
  return Deserialize(&object) != 0 ? 1 : SCA_Fail(SCA_ErrorInvalidData, error);
}

int SCA_TikaConfigUser::SaveConfig(unsigned long* error) {
  if (*configFileName_ == '\0') return SCA_Fail(SCA_ErrorInvalidData, error);
  SCA_ConfigObj object(kRootName, nullptr);
  if (Serialize(&object) == 0) return SCA_Fail(SCA_ErrorInvalidData, error);
  if (object.Save(configFileName_, SCA_FileTypeServiceUser, SCA_ConfigFormatVersion, error) != 0) {
    return 1;
  }
  return SCA_Complain(
      kSource, __LINE__, SCA_LevelError,
      "SCA_TikaConfigUser::SaveConfig: cannot save user configuration file (ERR:%lu) - %s", *error,
      configFileName_);
}

int SCA_TikaConfigUser::Serialize(SCA_ConfigObj* object) const {
  char tikaLogDir[SCA_MaxPath];
  CopyTikaLogDir(tikaLogDir);
  return object != nullptr && object->AddField("FileType", SCA_FileTypeServiceUser, 0) != 0 &&
                 object->AddField("Version", SCA_ProductVersion, 0) != 0 &&
                 object->AddField("DataDirectory", dataDirectory_, 0) != 0 &&
                 object->AddField("ControlPort", controlPort_, 0) != 0 &&
                 object->AddField("SaveMessages", saveMessages_, 0) != 0 &&
                 object->AddField("MessagesLogDir", messagesLogDir_, 0) != 0 &&
                 object->AddField("SaveTikaLog", GetSaveTikaLog(), 0) != 0 &&
                 object->AddField("TikaLogDir", tikaLogDir, 0) != 0
             ? 1
             : 0;
}

int SCA_TikaConfigUser::ReadFields(const SCA_ConfigObj& object) {
  const SCA_Reporter reporter{kSource, "SCA_TikaConfigUser::Deserialize"};
  char tikaLogDir[SCA_MaxPath];
  int saveTikaLog = GetSaveTikaLog();
  CopyTikaLogDir(tikaLogDir);
  object.GetField("Version", version_, sizeof version_);
  object.GetField("ControlPort", &controlPort_);
  object.GetField("SaveMessages", &saveMessages_);
  object.GetField("SaveTikaLog", &saveTikaLog);
  SetSaveTikaLog(saveTikaLog);
  return SCA_ReadPathField(object, "DataDirectory", dataDirectory_, sizeof dataDirectory_,
                           reporter) != 0 &&
                 SCA_ReadPathField(object, "MessagesLogDir", messagesLogDir_,
                                   sizeof messagesLogDir_, reporter) != 0 &&
                 SCA_ReadPathField(object, "TikaLogDir", tikaLogDir, sizeof tikaLogDir, reporter) !=
                     0
             ? SetTikaLogDir(tikaLogDir)
             : 0;
}

int SCA_TikaConfigUser::Deserialize(const SCA_ConfigObj* object) {
  const SCA_Reporter reporter{kSource, "SCA_TikaConfigUser::Deserialize"};
  if (SCA_CheckFileType(object, SCA_FileTypeServiceUser, reporter) == 0) return 0;
  if (ReadFields(*object) == 0) return 0;
  if (std::strcmp(version_, SCA_ProductVersion) != 0) modified_ = 1;
  unsigned long error = 0;
  return modified_ != 0 ? SaveConfig(&error) : 1;
}

int SCA_TikaConfigUser::SetConfig(const SCA_TikaConfigUser* source) {
  SCA_ConfigObj object("UserConfig", nullptr);
  return source != nullptr && source->Serialize(&object) != 0 ? Deserialize(&object) : 0;
}

SCA_TikaConfigUser* SCA_TikaConfigUser::Clone() const {
  SCA_Owned<SCA_TikaConfigUser> copy(new (std::nothrow) SCA_TikaConfigUser(config_, params_));
  if (copy == nullptr || copy->IsValid() == 0) {
    SCA_Complain(kSource, __LINE__, SCA_LevelError,
                 "SCA_TikaConfigUser::Clone: Cannot create SCA_TikaConfigUser");
    return nullptr;
  }
  if (copy->SetConfig(this) != 0) return copy.release();
  SCA_Complain(kSource, __LINE__, SCA_LevelError,
               "SCA_TikaConfigUser::Clone: Cannot copy product configuration");
  return nullptr;
}

int SCA_TikaConfigUser::SetConfigFileName(const char* fileName) {
  return SCA_SetPathField(configFileName_, sizeof configFileName_, fileName,
                          {kSource, "SCA_TikaConfigUser::SetConfigFileName"});
}

int SCA_TikaConfigUser::SetMessagesLogDir(const char* directory) {
  return SCA_SetPathField(messagesLogDir_, sizeof messagesLogDir_, directory,
                          {kSource, "SCA_TikaConfigUser::SetMessagesLogDir"});
}

int SCA_TikaConfigUser::SetTikaLogDir(const char* directory) {
  char value[SCA_MaxPath];
  if (SCA_SetPathField(value, sizeof value, directory,
                       {kSource, "SCA_TikaConfigUser::SetTikaLogDir"}) == 0) {
    return 0;
  }
  const SCA_LockGuard guard(lock_);
  return SCA_CopyText(tikaLogDir_, value, SCA_TextFit::Refuse);
}

void SCA_TikaConfigUser::CopyTikaLogDir(char (&directory)[SCA_MaxPath]) const {
  const SCA_LockGuard guard(lock_);
  SCA_CopyText(directory, tikaLogDir_, SCA_TextFit::Cut);
}
