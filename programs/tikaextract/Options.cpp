#include "programs/tikaextract/Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "programs/common/Escape.h"
#include "programs/common/LocalHost.h"
#include "programs/common/Start.h"
#include "programs/tikaextract/Documents.h"
#include "programs/tikaextract/OptionGroups.h"
#include "programs/tikaextract/PathPattern.h"

namespace {

namespace fs = std::filesystem;

constexpr char kDescription[] =
    "Prints the plain text of documents: PDF, DOC, DOCX, XLS, XLSX and every other format that "
    "Apache Tika reads. Without --server or --service it uses the servers of this machine's "
    "service host. If there is no host that it may use, or no server there is ready, it starts a "
    "private Tika server for the run and stops it at the end.";
constexpr char kFooter[] =
    "From a directory it takes the files with the extensions of --ext or of the settings. Under -o "
    "their texts keep the directory's layout, in a folder of the directory's name when more than "
    "one FILE is given. The documents of a list keep their paths under -o.\n"
    "\n"
    "The servers of a service host are used as they are. With --service-servers or --service-jar, "
    "missing servers are added for the run and deleted at its end if nobody else uses them. "
    "This machine's host is found as by --service local. It is never asked to start a server "
    "unless --service names it: a private server takes as long, and leaves nothing behind.\n"
    "\n"
    "Exit status:\n"
    "  0    all documents were extracted\n"
    "  1    some documents failed\n"
    "  2    the command line is wrong\n"
    "  3    no server could be used\n"
    "  4    all documents were extracted, but texts may not be whole (--check-complete, --meta)\n"
    "  130  interrupted\n"
    "\n"
    "Environment:\n"
    "  TIKA_SERVER_JAR  The runnable Tika server jar of the private server, which is then used "
    "even if this machine has a service host\n"
    "\n"
    "Examples:\n"
    "  $ tikaextract -o texts report.pdf minutes.docx\n"
    "  $ tikaextract -r archive -o texts --server tika1:9998 --server tika2:9998\n"
    "  $ tikaextract -r archive -o texts --service tika1 --service tika2";

constexpr unsigned long kMaxPort = 65535;
constexpr std::size_t kMaxServiceText = 259;

// Each of these says that a service is to run servers for this run.
constexpr const char* kServiceWishes[] = {"--service-servers", "--service-jar",
                                          "--service-first-port", "--service-heap",
                                          "--service-java-options"};

using ParseAddress = std::string (*)(const std::string& text, unsigned short defaultPort,
                                     HostPort* address);

std::string ParseAddresses(const std::vector<std::string>& texts, ParseAddress parse,
                           unsigned short defaultPort, std::vector<HostPort>* addresses) {
  for (const std::string& text : texts) {
    HostPort address;
    const std::string complaint = parse(text, defaultPort, &address);
    if (!complaint.empty()) return complaint;
    addresses->push_back(address);
  }
  return {};
}

// "pdf,.docx" and "pdf docx" alike become what settings hold.
std::string Extensions(const std::vector<std::string>& given) {
  std::string list;
  for (const std::string& text : given) {
    std::string word;
    for (const char c : text + " ") {
      if (c != ' ' && c != ',') {
        word += c;
        continue;
      }
      const std::size_t begin = word.find_first_not_of('.');
      if (begin != std::string::npos) list += (list.empty() ? "" : " ") + word.substr(begin);
      word.clear();
    }
  }
  return list;
}

Aim AimOf(const OptionWords& words) {
  if (words.markdown) return Aim::Markdown;
  if (words.detect) return Aim::Detection;
  if (words.meta) return Aim::Metadata;
  return words.checkComplete ? Aim::CheckedText : Aim::Text;
}

std::string PrepareOutputDir(const Options& options) {
  if (options.outputDir.empty()) return {};
  const std::string clash = FindNameClash(options);
  if (!clash.empty()) return clash;
  std::error_code error;
  std::error_code ignored;
  fs::create_directories(options.outputDir, error);
  if (fs::is_directory(options.outputDir, ignored)) return {};
  return "cannot create the directory " + Quoted(options.outputDir) + ": " +
         (error ? error.message() : "a file of that name is in the way");
}

std::string CheckInput(const Options& options) {
  const auto inputs = std::count(options.files.begin(), options.files.end(), kStandardInput);
  if (inputs > 1 || (inputs == 1 && options.filesFrom == kStandardInput)) {
    return "standard input can be read only once: leave out one -";
  }
  if (!options.inputName.empty()) {
    const std::string name = fs::path(options.inputName).filename().string();
    if (inputs == 0) return "--name is for the document on standard input: add - or leave it out";
    if (name.empty() || name == "." || name == "..") {
      return Quoted(options.inputName) + " is no name of a file, such as report.pdf";
    }
  }
  for (const auto& globs : {options.includes, options.excludes}) {
    for (const std::string& glob : globs) {
      if (!PathPattern::FromArgument(glob)) return Quoted(glob) + " is no pattern of names";
    }
  }
  return {};
}

std::string CheckWatch(const Options& options) {
  if (!options.files.empty() || !options.filesFrom.empty()) {
    return "--watch takes the documents of its directory: leave out FILE and --files-from";
  }
  if (options.outputDir.empty() && !options.jsonl) {
    return "--watch needs -o or --jsonl, for texts that can be told apart";
  }
  std::error_code ignored;
  if (!options.outputDir.empty() &&
      fs::equivalent(options.watchFolder, options.outputDir, ignored)) {
    return "the texts of --watch need a directory of their own: name another one with -o";
  }
  return {};
}

std::string Check(const Options& options) {
  if (options.makeClassArchive) return {};
  if (!options.HasInput() && options.saveSettingsFile.empty()) {
    return "FILE is required: name documents, or a list of them with --files-from";
  }
  std::string complaint = CheckInput(options);
  if (complaint.empty() && !options.watchFolder.empty()) complaint = CheckWatch(options);
  if (!complaint.empty()) return complaint;
  if (options.resume && options.outputDir.empty()) {
    return "--resume needs -o, the directory of the earlier run";
  }
  if (options.zeroSeparated && options.filesFrom.empty()) return "-0 needs --files-from";
  if (options.privateUse == PrivateServerUse::Always &&
      !(options.servers.empty() && options.services.empty())) {
    return "--private is given with --server or --service: choose one";
  }
  if (options.serviceServers != 0 && options.services.empty()) {
    return "--service-jar, --service-servers and the other --service options need --service";
  }
  if (options.serviceFirstPort + options.serviceServers > kMaxPort + 1) {
    return "--service-first-port leaves no room for --service-servers: ports end at 65535";
  }
  for (const std::string& text : {options.serviceJar, options.serviceJavaOptions}) {
    if (text.size() > kMaxServiceText) return Quoted(text) + " is longer than 259 bytes";
  }
  if (options.choice.aim == Aim::Detection && !options.outputDir.empty()) {
    return "--detect makes no texts: leave -o out";
  }
  if (options.variant != 3 && !options.choice.IsPlain()) {
    return "--variant 1 and 2 are for plain text without further options";
  }
  return PrepareOutputDir(options);
}

// A private server's jar or heap are named for a private server.
PrivateServerUse FindPrivateUse(const CLI::App& app, const OptionWords& words) {
  if (words.isPrivate) return PrivateServerUse::Always;
  const char* jar = std::getenv("TIKA_SERVER_JAR");
  const bool isDescribed =
      app.count("--jar") > 0 || app.count("--java-heap") > 0 || (jar != nullptr && *jar != '\0');
  return isDescribed ? PrivateServerUse::WithoutServers : PrivateServerUse::WithoutHost;
}

}  // namespace

std::optional<int> ParseOptions(int argc, char** argv, Options* options) {
  CLI::App app(kDescription, "tikaextract");
  app.footer(kFooter);
  app.set_version_flag("--version", "tikaextract " SCA_VERSION);
  OptionWords words;
  DefineOptions(&app, options, &words);
  if (const auto status = ParseCommandLine(&app, argc, argv)) return status;
  if (words.timeoutSeconds != 0) options->timeoutMs = words.timeoutSeconds * 1000;
  if (words.limitSeconds) options->timeLimitMs = *words.limitSeconds * 1000;
  if (!options->inputName.empty() && options->files.empty() && options->filesFrom.empty()) {
    options->files.emplace_back(kStandardInput);
  }
  options->extensions = Extensions(words.extensions);
  options->addedExtensions = Extensions(words.addedExtensions);
  options->removedExtensions = Extensions(words.removedExtensions);
  options->privateUse = FindPrivateUse(app, words);
  for (const char* wish : kServiceWishes) {
    if (options->serviceServers == 0 && app.count(wish) > 0) options->serviceServers = 1;
  }
  std::string complaint =
      ParseAddresses(words.servers, ParseServerAddress, kDefaultServerPort, &options->servers);
  if (complaint.empty()) {
    complaint = ParseAddresses(words.services, ParseServiceAddress, kDefaultControlPort,
                               &options->services);
  }
  options->choice.aim = AimOf(words);
  if (complaint.empty()) complaint = CompleteChoice(&options->choice);
  if (complaint.empty()) complaint = Check(*options);
  if (complaint.empty()) return std::nullopt;
  PrintErrorLine("tikaextract: " + complaint);
  return kWrongUse;
}
