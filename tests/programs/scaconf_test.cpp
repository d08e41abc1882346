#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>

#include "foundation/SCA_ConfigFile.h"
#include "tests/support/Program.h"
#include "tests/support/TempDir.h"

namespace {

class Scaconf : public ::testing::Test {
 protected:
  Scaconf() : file_(dir_.File("report.trv")) {
    SCA_ConfigObj root("Report", nullptr);
    root.AddField("1", "4 2026-01-02 03:04:05 two\nlines\\", 0);
    root.AddConfigObj("Empty");
    SCA_ConfigObj* child = root.AddConfigObj("Child");
    child->AddField("1", "caf\xC3\xA9", 0);
    child->AddField("1", "caf\xE9\x1B\xC2\x9B\xE2\x80\xAE", 0);
    unsigned long error = 0;
    EXPECT_EQ(root.Save(file_.c_str(), SCA_FileTypeReport, 9, &error), 1);
  }

  TempDir dir_;
  const std::string file_;
};

TEST_F(Scaconf, ShowsAFileAsIndentedText) {
  Program program("scaconf", {file_});
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_EQ(program.Output(), file_ +
                                  ": file type 1011 (report of a message log), format version 9, " +
                                  std::to_string(ReadFile(file_).size()) +
                                  " bytes\n"
                                  "[Report]\n"
                                  "  1 = 4 2026-01-02 03:04:05 two\\nlines\\\\\n"
                                  "  [Empty]\n"
                                  "  [Child]\n"
                                  "    1 = caf\xC3\xA9\n"
                                  "    1 = caf\\xE9\\x1B\\xC2\\x9B\\xE2\\x80\\xAE\n");
  EXPECT_EQ(program.Error(), "");
}

TEST_F(Scaconf, ShowsAFileAsJson) {
  Program program("scaconf", {"--json", file_});
  EXPECT_EQ(program.Wait(), 0);
  const auto line = nlohmann::json::parse(program.Output());
  EXPECT_EQ(line["fileType"], 1011);
  const auto expected = nlohmann::json::parse(R"({"name": "Report", "members": [
      {"name": "1", "value": "4 2026-01-02 03:04:05 two\nlines\\"},
      {"name": "Empty", "members": []},
      {"name": "Child", "members": [
          {"name": "1", "value": "caf\u00e9"},
          {"name": "1", "valueBase64": "Y2Fm6RvCm+KArg==",
           "value": "caf\ufffd\u001b\u009b\u202e"}]}]})");
  EXPECT_EQ(line["root"], expected);
}

TEST_F(Scaconf, ChecksFilesAndTellsWhatIsWrong) {
  const std::string whole = ReadFile(file_);
  std::string changed = whole;
  changed.back() = '?';
  struct {
    std::string file;
    int status;
    std::string complaint;
  } const rows[] = {
      {file_, 0, ""},
      {dir_.File("missing"), 1, "No such file or directory"},
      {dir_.Write("foreign", "text"), 3,
       "not a configuration file or report (.trv): byte 0: the file does not begin with "
       "\"SCA-CONFIG \""},
      {dir_.Write("cut", whole.substr(0, 60)), 4,
       "the file is damaged: byte 60: the file ends before the length that its header gives"},
      {dir_.Write("changed", changed), 4,
       "the file is damaged: byte " + std::to_string(whole.size() - 2) +
           ": no record of a field or an object begins here"},
      {dir_.Write("newer", "SCA-CONFIG 2 x"), 5,
       "the file was written by a newer version: byte 11: the layout is newer than this program"},
  };
  std::vector<std::string> all = {"--check", "--json"};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.file);
    Program program("scaconf", {"--check", row.file});
    EXPECT_EQ(program.Wait(), row.status);
    EXPECT_EQ(program.Error(),
              row.status == 0 ? "" : "scaconf: " + row.file + ": " + row.complaint + "\n");
    EXPECT_EQ(program.Output().empty(), row.status != 0);
    EXPECT_EQ(program.Output().find('['), std::string::npos);
    all.push_back(row.file);
  }
  Program program("scaconf", all);
  EXPECT_EQ(program.Wait(), 5);
  const std::string lines = program.Output();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 6);
  EXPECT_EQ(Program("scaconf", {}).Wait(), 2);
}

}  // namespace
