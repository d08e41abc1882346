// The configuration files of the service host.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "foundation/SCA_ConfigFile.h"
#include "host/SCA_TikaConfigUser.h"
#include "platform/SCA_Error.h"
#include "tests/support/Environment.h"
#include "tests/support/ReportCapture.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;

std::string Long(std::size_t length) {
  return "/" + std::string(length - 1, 'x');
}

// An account with a home of its own.
class Account {
 public:
  explicit Account(const std::string& home, const char* name = "someone")
      : home_("HOME", home), config_("XDG_CONFIG_HOME", ""), name_("LOGNAME", name) {}

 private:
  ScopedVariable home_;
  ScopedVariable config_;
  ScopedVariable name_;
};

std::string Field(const std::string& file, const char* name) {
  SCA_ConfigObj object("", nullptr);
  unsigned long error = 0;
  char value[SCA_MaxPath] = "(none)";
  EXPECT_EQ(object.Load(file.c_str(), &error), 1) << SCA_ErrorText(error);
  object.GetField(name, value, sizeof value);
  return value;
}

void Replace(const std::string& file, const char* name, const char* value) {
  SCA_ConfigObj object("", nullptr);
  SCA_Field* field = nullptr;
  unsigned long error = 0;
  ASSERT_EQ(object.Load(file.c_str(), &error), 1);
  ASSERT_EQ(object.GetFieldByName(name, &field), 1);
  ASSERT_EQ(field->SetValue(value, std::strlen(value)), 1);
  ASSERT_EQ(object.Save(file.c_str(), 1, 1, &error), 1) << SCA_ErrorText(error);
}

TEST(TikaConfig, SavesWhatItLoads) {
  const TempDir dir;
  const std::string file = dir.File("root.trv");
  SCA_TikaConfig config;
  unsigned long error = 0;
  ASSERT_EQ(config.Init(), 1);
  EXPECT_EQ(config.GetConfigFileName(),
            fs::read_symlink("/proc/self/exe").parent_path().string() + "/tikasvc.trv");
  config.SetRootDir("/opt/tika");
  config.SetControlPort(9600);
  ASSERT_EQ(config.SaveAs(file.c_str(), &error), 1);
  SCA_TikaConfig loaded;
  loaded.SetConfigFileName(file.c_str());
  ASSERT_EQ(loaded.LoadConfig(&error), 1);
  EXPECT_STREQ(loaded.GetRootDir(), "/opt/tika");
  EXPECT_EQ(loaded.GetControlPort(), 9600);
  EXPECT_STREQ(loaded.GetSavedProductVersion(), "17.1.12");
  EXPECT_EQ(Field(file, "Platform"), "Orvane");
}

TEST(TikaConfig, RefusesWhatItCannotHoldAndForeignFiles) {
  const TempDir dir;
  const ReportCapture reports;
  const std::string file = dir.File("root.trv");
  SCA_TikaConfig config;
  const auto loadError = [&config] {
    unsigned long error = 0;
    EXPECT_EQ(config.LoadConfig(&error), 0);
    return error;
  };
  unsigned long error = 0;
  EXPECT_EQ(config.SetRootDir(Long(259).c_str()), 1);
  EXPECT_EQ(config.SetRootDir(Long(260).c_str()), 0);
  ASSERT_EQ(config.SetConfigFileName(file.c_str()), 1);
  EXPECT_EQ(loadError(), static_cast<unsigned long>(ENOENT));
  ASSERT_EQ(config.SaveConfig(&error), 1);
  Replace(file, "RootDir", Long(260).c_str());
  EXPECT_EQ(loadError(), SCA_ErrorRootConfig);
  EXPECT_EQ(config.GetRootDir(), Long(259)) << "no other path in its place";
  Replace(file, "FileType", "9001");
  EXPECT_EQ(loadError(), SCA_ErrorRootConfig);
  EXPECT_EQ(reports.All().back().text,
            "SCA_TikaConfig::Deserialize: the config file type mismatch, expected 9000, actual "
            "9001");
  config.SetRootDir("a\x01");
  EXPECT_EQ(config.SaveConfig(&error), 0);
  EXPECT_EQ(error, SCA_ErrorCannotCreate);
}

TEST(TikaConfigUser, FirstStartInAnEmptyHomeMakesEverything) {
  const TempDir home;
  const Account account(home.Path());
  const std::string directory = home.File(".config/Tika Service");
  SCA_TikaConfigUser config(nullptr, nullptr);
  ASSERT_EQ(config.Init(), 1);
  EXPECT_EQ(config.GetModified(), 1);
  EXPECT_EQ(config.GetConfigFileName(), directory + "/tika_service.trv");
  EXPECT_TRUE(fs::is_directory(directory + "/data"));
  SCA_TikaConfigUser second(nullptr, nullptr);
  unsigned long error = 0;
  ASSERT_EQ(second.Init(), 1);
  EXPECT_EQ(second.GetModified(), 0) << "nothing had to be made";
  ASSERT_EQ(second.LoadConfig(&error), 1);
  EXPECT_EQ(second.GetControlPort(), 9500);
  EXPECT_EQ(second.GetDataDirectory(), directory + "/data");
}

TEST(TikaConfigUser, TheSystemAccountLivesBelowTheRootDirectory) {
  const TempDir home;
  const Account account(home.Path(), "SYSTEM");
  SCA_TikaConfig root;
  root.SetRootDir(home.File("root").c_str());
  SCA_TikaConfigUser config(&root, nullptr);
  ASSERT_EQ(config.Init(), 1);
  EXPECT_EQ(config.GetConfigFileName(), home.File("root/config/tika_service.trv"));
}

TEST(TikaConfigUser, AHomeThatTakesNothingIsReported) {
  const TempDir dir;
  const ReportCapture reports;
  const std::string inFile = dir.Write("file", "") + "/home";
  const std::string tooDeep = dir.Path() + Long(220);
  const std::pair<std::string, std::string> rows[] = {
      {inFile, "Cannot create directory - " + inFile + "/.config/Tika Service"},
      {tooDeep, "SCA_TikaConfigUser::Init: refused a value of more than 259 bytes - " + tooDeep +
                    "/.config/Tika Service/tika_service.trv"}};
  for (const auto& [home, complaint] : rows) {
    const Account account(home);
    EXPECT_EQ(SCA_TikaConfigUser(nullptr, nullptr).Init(), 0);
    EXPECT_EQ(reports.All().back(), (CapturedReport{5, "SCA_TikaConfigUser", complaint}));
  }
}

TEST(TikaConfigUser, AnOldVersionIsRewrittenAndADamagedFileRefused) {
  const TempDir home;
  const Account account(home.Path());
  const ReportCapture reports;
  unsigned long error = 0;
  ASSERT_EQ(SCA_TikaConfigUser(nullptr, nullptr).Init(), 1);
  SCA_TikaConfigUser config(nullptr, nullptr);
  ASSERT_EQ(config.Init(), 1);
  const std::string file = config.GetConfigFileName();
  Replace(file, "Version", "16.0");
  Replace(file, "SaveTikaLog", "7");
  ASSERT_EQ(config.LoadConfig(&error), 1);
  EXPECT_EQ(config.GetSaveTikaLog(), 7);
  EXPECT_EQ(Field(file, "Version"), "17.1.12");
  EXPECT_EQ(Field(file, "SaveTikaLog"), "7");
  EXPECT_EQ(config.GetModified(), 1) << "a save does not take it back";
  Replace(file, "TikaLogDir", Long(4096).c_str());
  EXPECT_EQ(config.LoadConfig(&error), 0);
  EXPECT_EQ(error, SCA_ErrorInvalidData);
  Replace(file, "FileType", "9000");
  EXPECT_EQ(config.LoadConfig(&error), 0);
  fs::remove(file);
  fs::create_directory(file);
  EXPECT_EQ(config.SaveConfig(&error), 0);
  EXPECT_EQ(reports.All().back().text,
            "SCA_TikaConfigUser::SaveConfig: cannot save user configuration file (ERR:" +
                std::to_string(error) + ") - " + file);
}

TEST(TikaConfigUser, CopiesCarryWhatIsSavedAndNoFile) {
  SCA_TikaConfig root;
  SCA_TikaConfigUser config(&root, nullptr);
  config.SetSaveTikaLog(1);
  ASSERT_EQ(config.SetTikaLogDir(Long(4095).c_str()), 1);
  const ReportCapture reports;
  EXPECT_EQ(config.SetTikaLogDir(Long(4096).c_str()), 0);
  const SCA_Owned<SCA_TikaConfigUser> clone(config.Clone());
  const SCA_TikaConfigUser copy(config);
  for (const SCA_TikaConfigUser* other :
       {static_cast<const SCA_TikaConfigUser*>(clone.get()), &copy}) {
    EXPECT_EQ(other->GetConfig(), &root);
    EXPECT_EQ(other->GetSaveTikaLog(), 1);
    EXPECT_EQ(other->GetTikaLogDir(), Long(4095));
  }
  unsigned long error = 0;
  EXPECT_EQ(clone->SaveConfig(&error), 0);
  EXPECT_EQ(error, SCA_ErrorInvalidData);
  // Fields of another version are read; that they cannot be written back makes it a failure.
  SCA_ConfigObj other("Other", nullptr);
  other.AddField("FileType", 9001, 0);
  other.AddField("Version", "16.0", 0);
  other.AddField("ControlPort", 9700, 0);
  EXPECT_EQ(clone->Deserialize(&other), 0);
  EXPECT_EQ(clone->GetControlPort(), 9700);
}

}  // namespace
