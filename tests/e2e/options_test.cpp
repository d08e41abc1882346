// The options of a request on real servers of each line.

#include <gtest/gtest.h>

#include "client/SCA_TikaClient.h"
#include "platform/SCA_Error.h"
#include "programs/tikaextract/PrivateServer.h"
#include "tests/e2e/jars.h"

namespace {

using Content = SCA_TikaContent;

const std::string kSamples = SCA_SAMPLES_DIR;

class RealOptions : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    options_.jar = GetParam() == "4" ? Tika4Jar() : CachedJar(GetParam());
    if (GetParam() == "4" && options_.jar.empty()) {
      GTEST_SKIP() << "ran without Tika 4: TIKA4_SERVER_JAR names none, and none lies in the cache";
    }
    std::string complaint;
    ASSERT_TRUE(server_.EnsureReady(&complaint)) << complaint;
    client_.SetPortNumber(server_.Port());
    settings_.SetNetworkTimeout(60000);
    ASSERT_EQ(client_.InitDataBuffer(), 1);
  }

  /// @return What came, or the error's text after "error: ".
  std::string Extract(const std::string& file, const SCA_TikaRequestOptions& options) {
    std::string got;
    unsigned long length = 0;
    unsigned long error = 0;
    client_.Disconnect();
    const bool isDone =
        client_.Connect(10000, &error) != 0 &&
        client_.GetFileText(
            file.c_str(), options,
            [](const char* block, unsigned long size, unsigned long, void* context) {
              static_cast<std::string*>(context)->append(block, size);
              return 1;
            },
            &got, nullptr, &length, &error) != 0;
    return isDone ? got : std::string("error: ") + SCA_ErrorText(error);
  }
  static bool Has(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
  }

  Options options_;
  SCA_Event cancel_{1, 0};
  PrivateServer server_{options_, &cancel_};
  SCA_TikaConfigOrv settings_;
  SCA_TikaClient client_{&settings_, "127.0.0.1", 0};
};

TEST_P(RealOptions, DoWhatTheTableSays) {
  const std::string report = kSamples + "/quarterly-report-en.docx";
  const std::string text = Extract(report, {});
  const unsigned long line = client_.GetServerVersion().GetLine();
  EXPECT_TRUE(Has(text, "Windmill Bakery")) << text;
  EXPECT_FALSE(Has(text, "# ")) << "no Markdown";

  SCA_TikaRequestOptions options;
  options.content = Content::Markdown;
  const std::string markdown = Extract(report, options);
  if (line == 1) {
    EXPECT_EQ(client_.GetRefusedOptions(), SCA_TikaOptionMarkdown) << markdown;
  } else {
    EXPECT_TRUE(Has(markdown, "# Quarterly report")) << markdown;
  }
  options.content = Content::Metadata;
  const std::string metadata = Extract(report, options);
  EXPECT_TRUE(metadata.front() == '[' && Has(metadata, "Windmill Bakery")) << metadata;
  options.content = Content::Detection;
  options.fileName = "Z\xC3\xBC\"g;\\e.docx";
  const std::string detection = Extract(report, options);
  EXPECT_TRUE(detection.front() == '{' && Has(detection, "wordprocessingml")) << detection;
  EXPECT_TRUE(Has(detection, "Z\xC3\xBC\\\"g;\\\\e.docx")) << detection;
  EXPECT_FALSE(Has(detection, "Windmill"));

  for (const std::string& locked : {kSamples + "/encrypted.docx", kSamples + "/encrypted.pdf"}) {
    options = {};
    EXPECT_TRUE(Has(Extract(locked, options), "422"));
    options.password = "secret";
    const std::string opened = Extract(locked, options);
    EXPECT_EQ(Has(opened, "the password did its work"), line < 4) << opened;
    EXPECT_EQ(client_.GetRefusedOptions(), line < 4 ? 0UL : SCA_TikaOptionPassword * 1UL);
    options.password = "wr\xC3\xB6ng\r\n";
    EXPECT_TRUE(Has(Extract(locked, options), line < 4 ? "422" : "version of Tika"));
  }

  options = {};
  options.ocr = SCA_TikaOcr::None;
  options.ocrLanguage = "eng";
  options.embedded = false;
  options.serverTimeoutMs = 60000;
  EXPECT_EQ(Extract(report, options), text);
  const unsigned long byLine[] = {SCA_TikaOptionServerTimeout, 0, 0,
                                  SCA_TikaOptionServerTimeout | SCA_TikaOptionNoEmbedded |
                                      SCA_TikaOptionOcr | SCA_TikaOptionOcrLanguage};
  EXPECT_EQ(client_.GetIgnoredOptions(), byLine[line - 1]);
}

INSTANTIATE_TEST_SUITE_P(Lines, RealOptions,
                         ::testing::Values("tika-server-1.28.5.jar",
                                           "tika-server-standard-3.3.2.jar", "4"),
                         [](const auto& row) { return "Line" + std::to_string(row.index); });

}  // namespace
