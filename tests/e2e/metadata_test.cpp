// Metadata, completeness, passwords and Markdown, with real Tika servers of all lines.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>

#include "programs/common/Json.h"
#include "programs/tikaextract/PrivateServer.h"
#include "tests/e2e/jars.h"
#include "tests/support/Program.h"

namespace {

namespace fs = std::filesystem;

const std::string kSamples = SCA_SAMPLES_DIR;

class Metadata : public ::testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    const std::string jars[] = {"", CachedJar("tika-server-1.28.5.jar"), "",
                                CachedJar("tika-server-standard-3.3.2.jar"), Tika4Jar()};
    options_.jar = jars[GetParam()];
    if (GetParam() == 4 && options_.jar.empty()) GTEST_SKIP() << "without a server of Tika 4";
    std::string complaint;
    ASSERT_TRUE(server_.EnsureReady(&complaint)) << complaint;
  }

  int Run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(),
                     {"--server", "127.0.0.1:" + std::to_string(server_.Port())});
    Program program("tikaextract", arguments);
    const int status = program.Wait();
    out_ = program.Output();
    error_ = program.Error();
    return status;
  }

  void CheckEverySample();
  void CheckCutTexts();
  void CheckThatTextIsThePlainText();
  void CheckLockedSamples();
  void CheckDetectionAndMarkdown();

  Options options_;
  SCA_Event cancel_{1, 0};
  PrivateServer server_{options_, &cancel_};
  std::string out_;
  std::string error_;
};

void Metadata::CheckEverySample() {
  // The folder holds more than documents.
  EXPECT_EQ(Run({"-r", "--ext", "pdf,doc,docx,xls,xlsx,eml", kSamples, "--jsonl", "--meta"}), 1);
  const std::map<std::string, std::string> outcomes = {
      {"zero-bytes.pdf", "empty file"},
      {"encrypted.pdf", "locked"},
      {"encrypted.docx", "locked"},
      {"damaged.pdf", "damaged"},
      {"damaged.doc", "damaged"},
      {"harbour-papers-en.eml", "truncated"},
      {"logbook-en.pdf", "truncated"},
      {"logbook-en.docx", GetParam() == 4 ? "extracted" : "truncated"}};
  std::map<std::string, nlohmann::json> records;
  for (const std::string& line : Lines(out_)) {
    if (line.empty()) continue;
    const auto record = nlohmann::json::parse(line);
    const std::string name = fs::path(record["path"].get<std::string>()).filename();
    SCOPED_TRACE(name);
    const auto expected = outcomes.find(name);
    const std::string outcome = expected != outcomes.end() ? expected->second : "extracted";
    EXPECT_EQ(record["outcome"], outcome);
    EXPECT_EQ(record["complete"], outcome == "extracted");
    EXPECT_TRUE(record["contentType"].is_string());
    records[name] = record;
    // The text is the one that plain extraction gives.
    const std::string sentences = record["path"].get<std::string>() + ".sentences";
    if (!fs::exists(sentences)) continue;
    for (const std::string& sentence : Lines(ReadFile(sentences))) {
      EXPECT_TRUE(Has(record["text"], sentence));
    }
  }
  EXPECT_GE(records.size(), 25U);
  EXPECT_EQ(records["lighthouse-survey-en.pdf"]["title"], "Survey of the Harbour Light");
  EXPECT_EQ(records["lighthouse-survey-en.pdf"]["pages"], 3);
  const nlohmann::json& letter = records["harbour-papers-en.eml"];
  EXPECT_EQ(letter["title"], "Papers for the harbour meeting");
  EXPECT_EQ(letter["authors"][0], "Ida Falk <ida.falk@lighthouse.example>");
  EXPECT_EQ(letter["created"], "2026-11-03T08:15:00Z");
  EXPECT_EQ(letter["embedded"][1]["path"], "/encrypted.docx");
}

void Metadata::CheckCutTexts() {
  const std::string pdf = kSamples + "/cut/logbook-en.pdf";
  const std::string docx = kSamples + "/cut/logbook-en.docx";
  // Tika 4 refuses the one and reads the other.
  EXPECT_EQ(Run({pdf}), GetParam() == 4 ? 1 : 0) << error_;
  EXPECT_EQ(error_.empty(), GetParam() != 4) << error_;
  EXPECT_EQ(out_.find("Entry 641 of"), std::string::npos);  // on page 17
  EXPECT_EQ(Run({docx}), 0) << error_;
  EXPECT_EQ(error_, "");
  EXPECT_EQ(out_.find("Entry 800 of") != std::string::npos, GetParam() == 4);
  EXPECT_EQ(Run({"--check-complete", pdf, docx}), 4);
  EXPECT_TRUE(Has(error_, "logbook-en.pdf: its text may not be whole"));
  EXPECT_EQ(error_.find("logbook-en.docx") != std::string::npos, GetParam() != 4) << error_;
  EXPECT_TRUE(Has(out_, "Entry 640 of"));
}

void Metadata::CheckThatTextIsThePlainText() {
  for (const char* name : {"/lending-rules-he.pdf", "/bicycle-repair-de.doc",
                           "/soup-recipe-zh.docx", "/museum-inventory-ja.xls"}) {
    ASSERT_EQ(Run({kSamples + name}), 0) << error_;
    const std::string plain = out_;
    ASSERT_EQ(Run({"--check-complete", kSamples + name}), 0) << error_;
    EXPECT_EQ(out_, plain) << name;
  }
}

void Metadata::CheckLockedSamples() {
  const TempDir dir;
  const std::string right = dir.Write("right", "secret\n");
  const std::string wrong = dir.Write("wrong", "sesame\n");
  for (const char* name : {"/encrypted.pdf", "/encrypted.docx"}) {
    EXPECT_EQ(Run({kSamples + name}), 1);
    EXPECT_TRUE(Has(error_, "it is locked with a password"));
    EXPECT_EQ(error_.find("--password-file") != std::string::npos, GetParam() != 4) << error_;
    const int status = Run({"--password-file", right, kSamples + name});
    if (GetParam() == 4) {
      EXPECT_EQ(status, 1);
      EXPECT_TRUE(Has(error_, "password"));
      continue;
    }
    EXPECT_EQ(status, 0) << error_;
    EXPECT_TRUE(Has(out_, "If you can read this sentence"));
    EXPECT_EQ(Run({"--password-file", wrong, kSamples + name}), 1);
    EXPECT_TRUE(Has(error_, "the password of --password-file does not open it"));
  }
}

void Metadata::CheckDetectionAndMarkdown() {
  EXPECT_EQ(Run({"--detect", kSamples + "/museum-guide-el.pdf", kSamples + "/encrypted.docx"}), 0);
  EXPECT_TRUE(Has(out_, "museum-guide-el.pdf: application/pdf; "));
  EXPECT_TRUE(Has(out_, "encrypted.docx: application/x-tika-ooxml-protected"));
  const int status = Run({"--markdown", kSamples + "/quarterly-report-en.docx"});
  if (GetParam() == 1) {
    EXPECT_EQ(status, 1);
    EXPECT_TRUE(Has(error_, "Markdown"));
  } else {
    EXPECT_EQ(status, 0) << error_;
    EXPECT_TRUE(Has(out_, "# Quarterly report, July to September"));
  }
}

// One server for all of it.
TEST_P(Metadata, TellsWhatPlainTextDoesNot) {
  CheckEverySample();
  CheckCutTexts();
  CheckThatTextIsThePlainText();
  CheckLockedSamples();
  CheckDetectionAndMarkdown();
}

INSTANTIATE_TEST_SUITE_P(AllLines, Metadata, ::testing::Values(1, 3, 4),
                         [](const auto& row) { return "Tika" + std::to_string(row.param); });

}  // namespace
