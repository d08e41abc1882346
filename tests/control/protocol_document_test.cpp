// docs/control-protocol.md lists what the rows in the code hold.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <sstream>

#include "control/SCA_ServiceCommands.h"
#include "control/SCA_ServiceStatusNames.h"
#include "host/SCA_ProcessStatus.h"
#include "tests/support/TempDir.h"

namespace {

using Rows = std::vector<std::string>;

std::string Document() {
  return ReadFile(SCA_SAMPLES_DIR "/../docs/control-protocol.md");
}

// The rows of the table after a heading, without remarks in brackets.
Rows TableAfter(const std::string& heading) {
  const std::string text = Document();
  Rows rows;
  std::istringstream lines(text.substr(std::min(text.find("# " + heading + "\n"), text.size())));
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("| ", 0) == 0) {
      rows.push_back(std::regex_replace(line, std::regex(R"( \([^)]*\))"), ""));
    } else if (!rows.empty()) {
      break;
    }
  }
  if (rows.size() > 2) rows.erase(rows.begin(), rows.begin() + 2);
  return rows;
}

template <class T>
constexpr const char* kType = "u32";
template <>
constexpr const char* kType<unsigned short> = "u16";
template <>
constexpr const char* kType<unsigned long long> = "u64";
template <>
constexpr const char* kType<char> = "text";
template <>
constexpr const char* kType<const char> = "text";
template <>
constexpr const char* kType<SCA_ConfigObj*> = "object";

template <class... Args>
std::string RowOf(const SCA_ServiceCommand<Args...>& row) {
  std::string request;
  std::string reply;
  [[maybe_unused]] auto field = row.fields.begin();
  [[maybe_unused]] const auto add = [&](bool isReply, const char* type) {
    std::string& side = isReply ? reply : request;
    side += std::string(side.empty() ? "" : ", ") + *field++ + " " + type;
  };
  (add(std::is_pointer_v<Args> && !std::is_same_v<Args, const char*>,
       kType<std::remove_pointer_t<Args>>),
   ...);
  const auto cell = [](const std::string& text) { return text.empty() ? " |" : " " + text + " |"; };
  return std::string("| ") + row.name + " |" + cell(request) + cell(reply);
}

TEST(ProtocolDocument, ListsTheCommands) {
#define SCA_ROW(name, parameters, arguments, fields) RowOf(SCA_Commands::name),
  EXPECT_EQ(TableAfter("Commands"), (Rows{SCA_SERVICE_COMMANDS(SCA_ROW)}));
}

template <std::size_t count>
Rows RowsOf(const SCA_StatusField (&fields)[count]) {
  static const std::map<SCA_FieldType, const char*> types = {{SCA_FieldType::U32, "u32"},
                                                             {SCA_FieldType::U64, "u64"},
                                                             {SCA_FieldType::Switch, "u32, 0 or 1"},
                                                             {SCA_FieldType::Time, "u64, time"},
                                                             {SCA_FieldType::Ms, "u64, ms"},
                                                             {SCA_FieldType::Bytes, "u64, bytes"},
                                                             {SCA_FieldType::Int, "int"},
                                                             {SCA_FieldType::Text, "text"},
                                                             {SCA_FieldType::Path, "text, path"},
                                                             {SCA_FieldType::Object, "object"}};
  Rows rows;
  for (const SCA_StatusField& field : fields) {
    rows.push_back(std::string("| ") + field.name + " | " + types.at(field.type) + " | " +
                   field.meaning + " |");
  }
  return rows;
}

TEST(ProtocolDocument, ListsTheFieldsAndTheWords) {
  EXPECT_EQ(TableAfter("The whole service"), RowsOf(SCA_ServiceFieldRows));
  EXPECT_EQ(TableAfter("One server"), RowsOf(SCA_ServerFieldRows));
  EXPECT_EQ(TableAfter("One death"), RowsOf(SCA_DeathFieldRows));
  Rows statuses;
  for (const SCA_ProcessStatus& status : SCA_ProcessStatuses) {
    statuses.push_back("| " + std::to_string(status.value) + " | " + status.text + " | " +
                       status.serverWord + " | " + status.serviceWord + " |");
  }
  EXPECT_EQ(TableAfter("Process statuses"), statuses);
  std::string kinds;
  for (const char* kind : SCA_DeathKindTexts)
    kinds += (kinds.empty() ? "" : ", ") + std::string(kind);
  std::string text = Document();
  std::replace(text.begin(), text.end(), '\n', ' ');
  EXPECT_NE(text.find("The kinds of deaths are: " + kinds + "."), std::string::npos) << kinds;
}

}  // namespace
