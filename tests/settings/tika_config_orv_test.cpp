#include "settings/SCA_TikaConfigOrv.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

namespace {

TEST(TikaConfig, BeginsWithTheDefaults) {
  const SCA_TikaConfigOrv config;
  EXPECT_EQ(config.IsValid(), 1);
  EXPECT_EQ(config.GetMode(), SCA_TikaModeDisabled);
  EXPECT_EQ(config.GetNetworkTimeout(), 10000U);
  EXPECT_EQ(config.GetMaxPendingRequests(), 128U);
  EXPECT_STREQ(config.GetJavaOptions(), "");
  EXPECT_STREQ(config.GetFileExtensions(), "PDF DOC DOCX XLS XLSX");
  EXPECT_EQ(config.GetShowParseErrors(), 1);
}

TEST(TikaConfig, EveryModeButDisabledEnables) {
  const std::tuple<unsigned long, int, const char*> rows[] = {{1, 1, "Enabled"},
                                                              {2, 1, "Optional"},
                                                              {3, 1, "Error"},
                                                              {0xFFFFFFFF, 1, "Error"},
                                                              {0, 0, "Disabled"}};
  SCA_TikaConfigOrv config;
  for (const auto& [mode, enabled, description] : rows) {
    config.SetMode(mode);
    EXPECT_EQ(config.GetMode(), mode);
    EXPECT_EQ(config.IsEnabled(), enabled);
    EXPECT_STREQ(config.GetModeDescr(), description);
  }
}

TEST(TikaConfig, TextsAreCutAtTheirFields) {
  SCA_TikaConfigOrv config;
  for (const std::size_t length : {0U, 258U, 259U, 260U, 518U, 519U, 520U, 5000U}) {
    std::string text(length, 'x');
    for (std::size_t i = 0; i < length; ++i) text[i] = static_cast<char>('a' + i % 26);
    config.SetJavaOptions(text.c_str());
    config.SetFileExtensions(text.c_str());
    EXPECT_EQ(config.GetJavaOptions(), text.substr(0, 259));
    EXPECT_EQ(config.GetFileExtensions(), text.substr(0, 519));
  }
  EXPECT_EQ(config.GetMaxPendingRequests(), 128U) << "the neighbours are untouched";
  EXPECT_EQ(config.GetShowParseErrors(), 1);
}

TEST(TikaConfig, MatchesWholeExtensionsInAnyCaseWhateverTheMode) {
  constexpr char kDefault[] = "PDF DOC DOCX XLS XLSX";
  constexpr char kOther[] = "  odt\t\trtf ";
  const std::tuple<const char*, const char*, int> rows[] = {
      {kDefault, "PDF", 1},     {kDefault, "xlsx", 1},
      {kDefault, "dOc", 1},     {kDefault, "XL", 0},
      {kDefault, "XLSXX", 0},   {kDefault, "", 0},
      {kDefault, nullptr, 0},   {kDefault, ".pdf", 0},
      {kDefault, "PDF DOC", 0}, {kOther, "RTF", 1},
      {kOther, "ODT", 1},       {kOther, "pdf", 0},
      {"odt,rtf", "rtf", 0},    {"", "", 0}};
  SCA_TikaConfigOrv config;
  for (const auto& [list, extension, matches] : rows) {
    config.SetFileExtensions(list);
    config.SetMode(1 - config.GetMode());
    EXPECT_EQ(config.MatchExtension(extension), matches) << list << ": " << extension;
  }
}

}  // namespace
