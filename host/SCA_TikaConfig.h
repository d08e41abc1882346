/// The root configuration of the service host: one file beside the host's program.
/// Threads: one at a time.
#ifndef SCA_HOST_SCA_TIKACONFIG_H
#define SCA_HOST_SCA_TIKACONFIG_H

#include "foundation/SCA_ConfigObj.h"

/// The product's version, as the configuration files carry it.
constexpr char SCA_ProductVersion[] = "17.1.12";
/// The port on which a service host listens unless told otherwise.
constexpr unsigned short SCA_DefaultControlPort = 9500;

/// Where the product is installed and on which port its service listens. int results are 1 for
/// success and 0 for failure.
class SCA_API SCA_TikaConfig : public SCA_Object {
 public:
  SCA_TikaConfig();

  /// Names the file: "tikasvc.trv" in the directory of the program that runs. To be called before
  /// the file is loaded or saved, unless `SetConfigFileName` is.
  /// @return 0 when the program's path cannot be had or does not fit its field.
  int Init();

  /// Reads the file.
  /// @param error  `SCA_ErrorRootConfig` for contents that are refused, else as
  ///               in `SCA_LoadConfigFile`. What has been read by then stays.
  int LoadConfig(unsigned long* error);
  /// Replaces the file whole.
  /// @param error  `SCA_ErrorCannotCreate` for a value that no file can hold, else as
  ///               in `SCA_SaveConfigFile`.
  int SaveConfig(unsigned long* error) const { return SaveAs(configFileName_, error); }
  /// Saves under another name; the object keeps its own.
  int SaveAs(const char* fileName, unsigned long* error) const;

  /// Adds the fields to an object, with the version of this library.
  int Serialize(SCA_ConfigObj* object) const;
  /// Reads the fields; what is missing stays as it is. An object of another file type and one with
  /// a value that is too long are refused with a report.
  int Deserialize(const SCA_ConfigObj* object);

  /// Setters of texts refuse what is longer than 259 bytes, with a report. The pointers are to the
  /// fields themselves.
  const char* GetConfigFileName() const { return configFileName_; }
  int SetConfigFileName(const char* fileName);
  /// The installation's directory; the configuration of the account "SYSTEM" lies below it.
  const char* GetRootDir() const { return rootDir_; }
  int SetRootDir(const char* directory);
  unsigned short GetControlPort() const { return controlPort_; }
  void SetControlPort(unsigned short port) { controlPort_ = port; }
  /// The version that wrote the file that was read; cut to 259 bytes.
  const char* GetSavedProductVersion() const { return savedProductVersion_; }
  /// Sets it, despite the name. @note Inherited.
  void GetSavedProductVersion(const char* version);

 private:
  char configFileName_[260] = "";
  char savedProductVersion_[260] = "";
  char rootDir_[260] = "";
  unsigned short controlPort_ = SCA_DefaultControlPort;
};

#endif  // SCA_HOST_SCA_TIKACONFIG_H
