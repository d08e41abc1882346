// scaconf: shows and checks the files of the service host and its reports.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/SCA_Error.h"
#include "programs/common/Escape.h"
#include "programs/common/Json.h"
#include "programs/common/Start.h"
#include "programs/scaconf/Print.h"

namespace {

constexpr char kDescription[] =
    "Shows configuration files and reports (.trv) as indented text or JSON. Says what is wrong "
    "with "
    "a damaged file, and where.";
constexpr char kFooter[] =
    "Exit status:\n"
    "  0  all files are sound\n"
    "  1  a file cannot be read\n"
    "  2  the command line is wrong\n"
    "  3  not a file of this kind\n"
    "  4  damaged\n"
    "  5  written by a newer version\n"
    "With several files, the highest status counts.\n"
    "\n"
    "Examples:\n"
    "  $ scaconf --check ~/.config/*/*.trv";

enum Status { kSound = 0, kUnreadable = 1, kForeign = 3, kDamaged = 4, kNewer = 5 };

struct Options {
  std::vector<std::string> files;
  bool json = false;
  bool check = false;
};

Status StatusOf(unsigned long code) {
  switch (code) {
    case 0:
      return kSound;
    case SCA_ErrorFileForeign:
      return kForeign;
    case SCA_ErrorFileDamaged:
    case SCA_ErrorDataTooLarge:
      return kDamaged;
    case SCA_ErrorFileNewer:
      return kNewer;
    default:
      return kUnreadable;
  }
}

// "the file is damaged: byte 40: the data end within an object"
std::string Complaint(unsigned long code, const SCA_ConfigFault& fault) {
  std::string text = SCA_ErrorText(code);
  if (*fault.text != '\0') {
    text += ": byte " + std::to_string(fault.offset) + ": " + fault.text;
  }
  return text;
}

void ShowJson(const Options& options, const std::string& file, unsigned long code,
              const SCA_ConfigFileInfo& info, const SCA_ConfigObj& object) {
  nlohmann::ordered_json line = NewJsonObject();
  SetJsonText(&line, "file", file);
  if (code == 0) {
    line["fileType"] = info.fileType;
    line["formatVersion"] = info.formatVersion;
    line["size"] = info.fileSize;
    if (!options.check) line["root"] = ToJson(object);
  } else {
    line["error"] = SCA_ErrorText(code);
    line["errorCode"] = code;
    if (*info.fault.text != '\0') {
      line["fault"] = info.fault.text;
      line["offset"] = info.fault.offset;
    }
  }
  std::printf("%s\n", JsonText(line).c_str());
}

Status Show(const Options& options, const std::string& file) {
  SCA_ConfigObj object;
  SCA_ConfigFileInfo info;
  unsigned long code = 0;
  SCA_LoadConfigFile(file.c_str(), &object, &info, &code);
  if (options.json) {
    ShowJson(options, file, code, info, object);
  } else if (code == 0) {
    std::printf("%s: %s\n", Escape(file).c_str(), Summary(info).c_str());
    if (!options.check) PrintText(object);
  }
  if (code != 0) {
    PrintErrorLine("scaconf: " + Escape(file) + ": " + Complaint(code, info.fault));
  }
  return StatusOf(code);
}

int Run(int argc, char** argv) {
  Options options;
  CLI::App app(kDescription, "scaconf");
  app.footer(kFooter);
  app.set_version_flag("--version", "scaconf " SCA_VERSION);
  app.add_option("FILE", options.files, "Files to show")->required();
  app.add_flag("--json", options.json, "Print one line of JSON per file");
  app.add_flag("--check", options.check, "Only check whether the files are sound");
  if (const auto status = ParseCommandLine(&app, argc, argv)) return *status;
  Status status = kSound;
  for (const std::string& file : options.files) status = std::max(status, Show(options, file));
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  return RunProgram("scaconf", kUnreadable, [=] { return Run(argc, argv); });
}
