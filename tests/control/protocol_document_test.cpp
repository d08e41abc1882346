// docs/control-protocol.md lists what the rows in the code hold.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "control/SCA_ServiceCommands.h"
#include "control/SCA_ServiceStatusNames.h"
#include "host/SCA_ProcessStatus.h"
#include "tests/control/raw_client.h"
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

// A row of the table of commands, as it should happen: the fields of a request, the call that they
// make, and the reply.
struct Exchange {
  explicit Exchange(const std::string& row) {
    std::smatch cells;
    std::regex_match(row, cells, std::regex(R"(\| (\w+) \|(.*)\|(.*)\|)"));
    command = call = cells[1];
    unsigned mark = 0;
    ForEachField(cells[2], [&](const std::string& field, const std::string& type) {
      const std::string value = type == "text"  ? std::string(SCA_ServiceTextSize - 1, 'f')
                                : type == "u16" ? "65535"
                                                : std::to_string(0xFFFFFFFF - asked.size());
      asked.emplace_back(field, value);
      call += " " + value;
    });
    ForEachField(cells[3], [&](const std::string& field, const std::string& type) {
      ++mark;
      reply += " " + field +
               (type == "text"     ? "=text " + std::to_string(mark) + " of " + command
                : type == "object" ? "{Mark=" + std::to_string(mark) + "}"
                : type == "u64"    ? "=" + std::to_string(~0ULL - mark)
                                   : "=" + std::to_string(0xFFFFFFFF - mark));
    });
  }
  template <class Visit>
  static void ForEachField(std::string cell, Visit visit) {
    const std::regex field(R"((\w+) (\w+))");
    for (std::smatch found; std::regex_search(cell, found, field); cell = found.suffix()) {
      visit(found[1], found[2]);
    }
  }

  std::string command;
  Fields asked;
  std::string call;
  std::string reply = "OK";
};

TEST(ProtocolDocument, ListsTheCommandsAsTheyAreServed) {
  FakeHost<> host;
  RawClient client(host.Port());
  Rows commands;
  for (const std::string& row : TableAfter("Commands")) {
    SCOPED_TRACE(row);
    const Exchange exchange(row);
    commands.push_back(exchange.command);
    EXPECT_EQ(client.Ask(exchange.command, exchange.asked), exchange.reply);
    const Rows calls = host.service.Calls();
    EXPECT_EQ(calls.back(), exchange.call);
    for (std::size_t i = 0; i < exchange.asked.size(); ++i) {
      Fields fields = exchange.asked;
      fields.erase(fields.begin() + static_cast<std::ptrdiff_t>(i));
      EXPECT_EQ(client.Ask(exchange.command, fields), "ERR") << exchange.asked[i].first;
    }
    EXPECT_EQ(host.service.Calls(), calls) << "called without a field";
    host.service.fails = true;
    EXPECT_EQ(client.Ask(exchange.command, exchange.asked), "ERR");
    host.service.fails = false;
  }
#define SCA_NAME(name, parameters, arguments, fields) #name,
  EXPECT_EQ(commands, (Rows{SCA_SERVICE_COMMANDS(SCA_NAME)}));
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

// The error codes that a source file names, as the header numbers them: "| 100220 |
// `SCA_ErrorFrame`".
std::set<std::string> CodesIn(const std::string& file) {
  static const std::string header = ReadFile(SCA_SAMPLES_DIR "/../platform/SCA_Error.h");
  std::map<std::string, std::string> numbers;
  for (auto [text, found] = std::pair(header, std::smatch());
       std::regex_search(text, found, std::regex(R"((SCA_Error\w+) =\s+(\d+);)"));
       text = found.suffix()) {
    numbers[found[1]] = found[2];
  }
  std::set<std::string> codes;
  for (auto [text, found] = std::pair(ReadFile(file), std::smatch());
       std::regex_search(text, found, std::regex(R"(\bSCA_Error[A-Z]\w+)"));
       text = found.suffix()) {
    if (numbers.count(found[0]) > 0) {
      codes.insert("| " + numbers[found[0]] + " | `" + found[0].str() + "`");
    }
  }
  return codes;
}

TEST(ProtocolDocument, ListsTheCodesThatTheTwoEndsGive) {
  std::set<std::string> given;
  const std::string root = SCA_SAMPLES_DIR "/../";
  for (const char* folder : {"control", "platform/posix"}) {
    for (const auto& file : std::filesystem::directory_iterator(root + folder)) {
      const std::string name = file.path().filename();
      const bool isOurs = folder == std::string("control")
                              ? file.path().extension() == ".cpp"
                              : name == "SCA_Listener.cpp" || name == "SCA_UnixAddress.cpp";
      if (isOurs) given.merge(CodesIn(file.path()));
    }
  }
  std::set<std::string> listed;
  for (const std::string& row : TableAfter("Codes")) listed.insert(row.substr(0, row.rfind(" | ")));
  EXPECT_EQ(listed, given);
}

}  // namespace
