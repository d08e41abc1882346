#include "settings/SCA_TikaConfigOrv.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

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
  struct Row {
    unsigned long mode;
    int enabled;
    const char* description;
  };
  SCA_TikaConfigOrv config;
  for (const Row& row : {Row{1, 1, "Enabled"}, Row{2, 1, "Optional"}, Row{3, 1, "Error"},
                         Row{0xFFFFFFFF, 1, "Error"}, Row{0, 0, "Disabled"}}) {
    SCOPED_TRACE(row.mode);
    config.SetMode(row.mode);
    EXPECT_EQ(config.GetMode(), row.mode);
    EXPECT_EQ(config.IsEnabled(), row.enabled);
    EXPECT_STREQ(config.GetModeDescr(), row.description);
  }
}

TEST(TikaConfig, TextsAreCutAtTheirFields) {
  SCA_TikaConfigOrv config;
  for (const std::size_t length : {0U, 1U, 258U, 259U, 260U, 518U, 519U, 520U, 5000U}) {
    SCOPED_TRACE(length);
    std::string text;
    while (text.size() < length) text += static_cast<char>('a' + text.size() % 26);
    config.SetJavaOptions(text.c_str());
    config.SetFileExtensions(text.c_str());
    EXPECT_EQ(config.GetJavaOptions(), text.substr(0, 259));
    EXPECT_EQ(config.GetFileExtensions(), text.substr(0, 519));
  }
  config.SetJavaOptions(nullptr);
  EXPECT_STREQ(config.GetJavaOptions(), "");
  EXPECT_EQ(config.GetNetworkTimeout(), 10000U) << "the neighbours are untouched";
  EXPECT_EQ(config.GetShowParseErrors(), 1);
}

TEST(TikaConfig, MatchesWholeExtensionsInAnyCase) {
  struct Row {
    const char* list;  // null: the default
    const char* extension;
    int matches;
  };
  const Row rows[] = {{nullptr, "PDF", 1},
                      {nullptr, "xlsx", 1},
                      {nullptr, "dOc", 1},
                      {nullptr, "XL", 0},
                      {nullptr, "XLSXX", 0},
                      {nullptr, "", 0},
                      {nullptr, nullptr, 0},
                      {nullptr, ".pdf", 0},
                      {nullptr, "PDF DOC", 0},
                      {nullptr, "txt", 0},
                      {"  odt\t\trtf ", "RTF", 1},
                      {"  odt\t\trtf ", "ODT", 1},
                      {"  odt\t\trtf ", "pdf", 0},
                      {"odt,rtf", "rtf", 0},
                      {"", "pdf", 0},
                      {"", "", 0}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.extension != nullptr ? row.extension : "(null)");
    SCA_TikaConfigOrv config;
    if (row.list != nullptr) config.SetFileExtensions(row.list);
    for (const unsigned long mode : {SCA_TikaModeDisabled, SCA_TikaModeEnabled}) {
      config.SetMode(mode);
      EXPECT_EQ(config.MatchExtension(row.extension), row.matches) << row.list;
    }
  }
}

TEST(TikaConfig, CopiesCarryEverySetting) {
  SCA_TikaConfigOrv config;
  config.SetMode(SCA_TikaModeOptional);
  config.SetNetworkTimeout(1);
  config.SetMaxPendingRequests(2);
  config.SetShowParseErrors(0);
  config.SetJavaOptions("-Xss4m");
  config.SetFileExtensions("odt");
  SCA_TikaConfigOrv copy;
  copy = config;
  config = SCA_TikaConfigOrv();
  EXPECT_EQ(copy.GetMode(), SCA_TikaModeOptional);
  EXPECT_EQ(copy.GetNetworkTimeout(), 1U);
  EXPECT_EQ(copy.GetMaxPendingRequests(), 2U);
  EXPECT_EQ(copy.GetShowParseErrors(), 0);
  EXPECT_STREQ(copy.GetJavaOptions(), "-Xss4m");
  EXPECT_STREQ(copy.GetFileExtensions(), "odt");
}

TEST(TikaConfig, LimitsMayChangeWhileOthersRead) {
  SCA_TikaConfigOrv config;
  std::thread writer([&config] {
    for (unsigned long i = 1; i <= 1000; ++i) {
      config.SetMode(i % 3);
      config.SetNetworkTimeout(10000 + i);
      config.SetMaxPendingRequests(128 + i);
    }
  });
  for (unsigned long last = 0; last < 11000;) {
    const unsigned long timeout = config.GetNetworkTimeout();
    EXPECT_GE(timeout, last);
    EXPECT_GE(config.GetMaxPendingRequests(), 128U);
    EXPECT_LE(config.GetMode(), SCA_TikaModeOptional);
    last = timeout;
  }
  writer.join();
}

}  // namespace
