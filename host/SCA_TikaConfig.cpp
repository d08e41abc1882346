#include "host/SCA_TikaConfig.h"

#include "foundation/SCA_ConfigFile.h"
#include "host/SCA_PathField.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Path.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Result.h"

namespace {

constexpr char kSource[] = "SCA_TikaConfig";
constexpr char kRootName[] = "TarvCfg";

}  // namespace

SCA_TikaConfig::SCA_TikaConfig() {
  SetValid(1);
}

int SCA_TikaConfig::Init() {
  char path[SCA_MaxPath];
  char directory[SCA_MaxPath];
  unsigned long error = 0;
  if (SCA_GetExeFileName(path, sizeof path, &error) == 0 || *path == '\0') {
    return SCA_Complain(kSource, __LINE__, SCA_LevelError,
                        "SCA_TikaConfig::Init: Cannot get EXE file name (ERR:%lu)", error);
  }
  if (SCA_GetDirName(path, directory, sizeof directory) == 0 ||
      SCA_DirectoryExists(directory) == 0) {
    return 0;
  }
  if (SCA_FormatPath(path, sizeof path, "%s\\tikasvc.trv", directory) == 0) return 0;
  return SCA_SetPathField(configFileName_, sizeof configFileName_, path,
                          {kSource, "SCA_TikaConfig::Init"});
}

int SCA_TikaConfig::LoadConfig(unsigned long* error) {
  SCA_ConfigObj object(kRootName, nullptr);
  if (object.Load(configFileName_, error) == 0) {
    return SCA_Complain(kSource, __LINE__, SCA_LevelError,
                        "SCA_TikaConfig::LoadConfig: cannot load configuration file - %s",
                        configFileName_);
  }
  return Deserialize(&object) != 0 ? 1 : SCA_Fail(SCA_ErrorRootConfig, error);
}

int SCA_TikaConfig::SaveAs(const char* fileName, unsigned long* error) const {
  SCA_ConfigObj object(kRootName, nullptr);
  if (object.IsValid() == 0 || Serialize(&object) == 0) {
    return SCA_Fail(SCA_ErrorCannotCreate, error);
  }
  return object.Save(fileName, SCA_FileTypeServiceRoot, SCA_ConfigFormatVersion, error);
}

int SCA_TikaConfig::Serialize(SCA_ConfigObj* object) const {
  return object != nullptr && object->AddField("FileType", SCA_FileTypeServiceRoot, 0) != 0 &&
                 object->AddField("Platform", "Orvane", 0) != 0 &&
                 object->AddField("Version", SCA_ProductVersion, 0) != 0 &&
                 object->AddField("RootDir", rootDir_, 0) != 0 &&
                 object->AddField("ControlPort", controlPort_, 0) != 0
             ? 1
             : 0;
}

int SCA_TikaConfig::Deserialize(const SCA_ConfigObj* object) {
  const SCA_Reporter reporter{kSource, "SCA_TikaConfig::Deserialize"};
  if (SCA_CheckFileType(object, SCA_FileTypeServiceRoot, reporter) == 0) return 0;
  object->GetField("Version", savedProductVersion_, sizeof savedProductVersion_);
  object->GetField("ControlPort", &controlPort_);
  return SCA_ReadPathField(*object, "RootDir", rootDir_, sizeof rootDir_, reporter);
}

int SCA_TikaConfig::SetConfigFileName(const char* fileName) {
  return SCA_SetPathField(configFileName_, sizeof configFileName_, fileName,
                          {kSource, "SCA_TikaConfig::SetConfigFileName"});
}

int SCA_TikaConfig::SetRootDir(const char* directory) {
  return SCA_SetPathField(rootDir_, sizeof rootDir_, directory,
                          {kSource, "SCA_TikaConfig::SetRootDir"});
}

void SCA_TikaConfig::GetSavedProductVersion(const char* version) {
  SCA_CopyText(savedProductVersion_, version, SCA_TextFit::Cut);
}
