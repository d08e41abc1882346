#include "supervision/SCA_JavaRuntime.h"

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/SCA_Deadline.h"
#include "platform/SCA_Object.h"
#include "platform/SCA_Path.h"
#include "platform/SCA_Process.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostText = 65536;  // a release file has about 2 KB
constexpr unsigned long kVersionLimitMs = 5000;

std::string ReadBegin(const fs::path& file, std::size_t most) {
  std::ifstream stream(file, std::ios::binary);
  std::string text(most, '\0');
  stream.read(text.data(), static_cast<std::streamsize>(most));
  text.resize(static_cast<std::size_t>(stream.gcount()));
  return text;
}

// What the release file has; empty without one. It lies in the home of Java, and that of a version
// 8 one directory above.
std::string ReadRelease(const fs::path& program) {
  const fs::path home = program.parent_path().parent_path();
  for (const fs::path& directory : {home, home.parent_path()}) {
    const std::string text = ReadBegin(directory / "release", kMostText);
    const std::size_t begin = text.find("JAVA_VERSION=");
    if (begin != std::string::npos) return text;
  }
  return {};
}

// A script chooses among several Javas, so only a run tells. It costs 40 ms or more.
std::string AskScript(const std::string& program) {
  const SCA_Owned<SCA_Process> process(SCA_CreateProcess());
  unsigned long error = 0;
  const std::string command = "\"" + program + "\" -version";
  if (process == nullptr ||
      process->Start(command.c_str(), 0, SCA_ProcessReadOutput, &error) == 0) {
    return {};
  }
  std::string text;
  const SCA_Deadline deadline(kVersionLimitMs);
  while (process->WaitForOutput(deadline.MsLeft(), 0) != 0 && text.size() < kMostText) {
    char line[260];
    unsigned long length = 0;
    if (process->ReadOutputLine(line, sizeof line, &length, &error) == 0 || length == 0) break;
    text.append(line, length).append("\n");
  }
  SCA_ProcessExit exit;
  const bool isDone = process->GetExit(&exit) != 0 && exit.signal == 0 && exit.exitCode == 0;
  return isDone ? text : std::string();
}

const char* Environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

}  // namespace

int SCA_JavaMajor(const std::string& text) {
  std::size_t begin = text.find("JAVA_VERSION=");
  begin = text.find('"', begin != std::string::npos ? begin : 0);
  if (begin == std::string::npos) return 0;
  const char* const digits = text.c_str() + begin + 1;
  const int first = std::atoi(digits);
  return first == 1 && digits[1] == '.' ? std::atoi(digits + 2) : first;
}

bool SCA_FindJava(SCA_JavaRuntime* java) {
  char found[SCA_MaxPath];
  if (SCA_FindProgram("java", found, sizeof found) == 0) return false;
  std::error_code error;
  const fs::path program = fs::canonical(found, error);
  if (error) return false;
  java->program = program.native();
  java->version = ReadRelease(program);
  if (java->version.empty() && ReadBegin(program, 2) == "#!") java->version = AskScript(found);
  java->major = SCA_JavaMajor(java->version);
  return java->major != 0;
}

std::vector<std::string> SCA_JavaWords(const std::string& options) {
  std::vector<std::string> words;
  char quote = '\0';
  bool isInWord = false;
  for (const char c : options) {
    const bool isQuote = quote != '\0' ? c == quote : c == '"' || c == '\'';
    if (quote == '\0' && std::isspace(static_cast<unsigned char>(c)) != 0) {
      isInWord = false;
      continue;
    }
    if (!isInWord) words.emplace_back();
    isInWord = true;
    if (isQuote) {
      quote = quote != '\0' ? '\0' : c;
    } else {
      words.back() += c;
    }
  }
  return words;
}

std::vector<std::string> SCA_JavaWordsInForce(const std::string& options) {
  std::string all;
  for (const char* name : {"JAVA_TOOL_OPTIONS", "JDK_JAVA_OPTIONS", "_JAVA_OPTIONS"}) {
    all.append(Environment(name)).append(" ");
  }
  return SCA_JavaWords(all + options);
}
