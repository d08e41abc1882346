// The samples through real Tika servers of both lines, by all three decoders.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "client/SCA_TikaClient.h"
#include "platform/SCA_Error.h"
#include "programs/tikaextract/PrivateServer.h"
#include "tests/e2e/jars.h"
#include "tests/support/Program.h"

namespace {

namespace fs = std::filesystem;

constexpr unsigned long kVariants[] = {1, 2, 3};

class RealTika : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    options_.jar = CachedJar(GetParam());
    ASSERT_TRUE(fs::is_regular_file(options_.jar))
        << "there is no " << options_.jar << ": run scripts/setup, which fetches it";
    std::string complaint;
    ASSERT_TRUE(server_.EnsureReady(&complaint)) << complaint;
    client_.SetPortNumber(server_.Port());
    settings_.SetNetworkTimeout(60000);
    unsigned long error = 0;
    ASSERT_EQ(client_.InitDataBuffer(), 1);
    ASSERT_EQ(client_.Connect(10000, &error), 1) << SCA_ErrorText(error);
  }

  /// @return 0 or the error code.
  unsigned long Extract(unsigned long variant, const std::string& file, std::string* text) {
    const SCA_TikaTextCallback append = [](const char* block, unsigned long length, unsigned long,
                                           void* context) {
      static_cast<std::string*>(context)->append(block, length);
      return 1;
    };
    text->clear();
    unsigned long length = 0;
    unsigned long error = 0;
    if (client_.GetFileText(variant, file.c_str(), nullptr, append, text, nullptr, &length,
                            &error) == 0) {
      return error;
    }
    EXPECT_EQ(length, text->size());
    return 0;
  }

  void CheckSample(unsigned long variant, const fs::path& sample) {
    SCOPED_TRACE(sample.filename().string() + ", variant " + std::to_string(variant));
    std::string text;
    const unsigned long error = Extract(variant, sample.string(), &text);
    const std::string sentences = sample.string() + ".sentences";
    if (fs::exists(sentences)) {
      EXPECT_EQ(error, 0U) << SCA_ErrorText(error);
      for (const std::string& sentence : Lines(ReadFile(sentences))) {
        EXPECT_TRUE(Has(text, sentence));
      }
    } else if (ReadFile(sample.string() + ".outcome").rfind("refused", 0) == 0) {
      EXPECT_EQ(error, SCA_ErrorTika422);
    } else {
      EXPECT_EQ(error, 0U) << SCA_ErrorText(error);
      EXPECT_EQ(text.find_first_not_of(" \t\r\n"), std::string::npos) << text;
    }
  }

  Options options_;
  SCA_Event cancel_{1, 0};
  PrivateServer server_{options_, &cancel_};
  SCA_TikaConfigOrv settings_;
  SCA_TikaClient client_{&settings_, "127.0.0.1", 0};
};

TEST_P(RealTika, EverySampleByEveryVariantOnOneConnection) {
  std::vector<fs::path> samples;
  for (const fs::directory_entry& entry : fs::directory_iterator(SCA_SAMPLES_DIR)) {
    const std::string name = entry.path().string();
    if (fs::exists(name + ".sentences") || fs::exists(name + ".outcome")) {
      samples.push_back(entry.path());
    }
  }
  ASSERT_GE(samples.size(), 20U);
  std::sort(samples.begin(), samples.end());
  for (const fs::path& sample : samples) {
    for (const unsigned long variant : kVariants) CheckSample(variant, sample);
  }
  EXPECT_EQ(client_.GetConnectCount(), 1U);
  EXPECT_EQ(client_.IsValid(), 1);
  EXPECT_EQ(client_.GetTotalFiles(), samples.size() * std::size(kVariants));
}

TEST_P(RealTika, HundredsOfPagesComeWholeAndInOrder) {
  const std::vector<std::string> expected = Lines(ReadFile(SCA_LARGE_SAMPLE ".lines"));
  ASSERT_GT(expected.size(), 10000U);
  for (const unsigned long variant : kVariants) {
    SCOPED_TRACE(variant);
    std::string text;
    const unsigned long error = Extract(variant, SCA_LARGE_SAMPLE, &text);
    ASSERT_EQ(error, 0U) << SCA_ErrorText(error);
    std::vector<std::string> lines = Lines(text);
    lines.erase(std::remove(lines.begin(), lines.end(), ""), lines.end());
    EXPECT_TRUE(lines == expected) << lines.size() << " lines instead of " << expected.size();
  }
}

TEST_P(RealTika, SaysItsVersionAlsoToAnIpv6Literal) {
  // The same address, with another Host line.
  client_.Disconnect();
  ASSERT_EQ(client_.SetServerName("::ffff:127.0.0.1"), 1);
  char version[101];
  unsigned long error = 0;
  ASSERT_EQ(client_.Connect(10000, &error), 1) << SCA_ErrorText(error);
  CheckSample(3, fs::path(SCA_SAMPLES_DIR) / "bicycle-repair-de.doc");
  ASSERT_EQ(client_.GetVersion(version, sizeof version, &error), 1) << SCA_ErrorText(error);
  const std::string jar = GetParam();
  const std::string number = jar.substr(jar.rfind('-') + 1, jar.rfind(".jar") - jar.rfind('-') - 1);
  EXPECT_EQ(std::string(version), "Apache Tika " + number);
}

INSTANTIATE_TEST_SUITE_P(BothLines, RealTika,
                         ::testing::Values("tika-server-1.28.5.jar",
                                           "tika-server-standard-3.3.2.jar"),
                         [](const auto& row) {
                           return std::string(row.index == 0 ? "Tika1" : "Tika3");
                         });

}  // namespace
