#include "programs/tikaextract/Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>

#include "programs/common/Escape.h"
#include "programs/common/LocalHost.h"
#include "programs/common/Start.h"
#include "programs/tikaextract/Documents.h"

namespace {

namespace fs = std::filesystem;

constexpr char kDescription[] =
    "Prints the plain text of documents: PDF, DOC, DOCX, XLS, XLSX and every other format that "
    "Apache Tika reads. Without --server or --service it starts a private Tika server for the run "
    "and stops it at the end.";
constexpr char kFooter[] =
    "From a directory it takes the files with the extensions of --ext or of the settings. Under -o "
    "their texts keep the directory's layout, in a folder of the directory's name when more than "
    "one FILE is given. The documents of a list keep their paths under -o.\n"
    "\n"
    "The servers of a service host are used as they are. With --service-servers or --service-jar, "
    "missing servers are added for the run and deleted at its end if nobody else uses them.\n"
    "\n"
    "Exit status:\n"
    "  0    all documents were extracted\n"
    "  1    some documents failed\n"
    "  2    the command line is wrong\n"
    "  3    no server could be used\n"
    "  130  interrupted\n"
    "\n"
    "Environment:\n"
    "  TIKA_SERVER_JAR  The runnable Tika server jar of the private server\n"
    "\n"
    "Examples:\n"
    "  $ tikaextract -o texts report.pdf minutes.docx\n"
    "  $ tikaextract -r archive -o texts --server tika1:9998 --server tika2:9998\n"
    "  $ tikaextract -r archive -o texts --service tika1 --service tika2";

constexpr unsigned long kMaxTimeoutSeconds = 1000000;
constexpr unsigned long kMaxTextMb = 1UL << 30;
constexpr unsigned long kMaxJobs = 256;

constexpr unsigned long kMaxServers = 256;
constexpr unsigned long kMaxPort = 65535;
constexpr std::size_t kMaxServiceText = 259;

// Each of these says that a service is to run servers for this run.
constexpr const char* kServiceWishes[] = {"--service-servers", "--service-jar",
                                          "--service-first-port", "--service-heap",
                                          "--service-java-options"};

// What is given as words and becomes something else.
struct Words {
  std::vector<std::string> servers;
  std::vector<std::string> services;
  std::vector<std::string> extensions;
  unsigned long timeoutSeconds = 0;
  std::optional<unsigned long> limitSeconds;
};

std::string ParseAddresses(const std::vector<std::string>& texts, unsigned short defaultPort,
                           std::vector<HostPort>* addresses) {
  for (const std::string& text : texts) {
    HostPort address;
    // Service hosts have a default port, Tika servers none.
    const std::string complaint = defaultPort != 0
                                      ? ParseServiceAddress(text, defaultPort, &address)
                                      : ParseHostPort(text, defaultPort, &address);
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

std::string Check(const Options& options) {
  if (options.files.empty() && options.filesFrom.empty() && options.saveSettingsFile.empty()) {
    return "FILE is required: name documents, or a list of them with --files-from";
  }
  if (options.resume && options.outputDir.empty()) {
    return "--resume needs -o, the directory of the earlier run";
  }
  if (options.zeroSeparated && options.filesFrom.empty()) return "-0 needs --files-from";
  if (options.serviceServers != 0 && options.services.empty()) {
    return "--service-jar, --service-servers and the other --service options need --service";
  }
  if (options.serviceFirstPort + options.serviceServers > kMaxPort + 1) {
    return "--service-first-port leaves no room for --service-servers: ports end at 65535";
  }
  for (const std::string& text : {options.serviceJar, options.serviceJavaOptions}) {
    if (text.size() > kMaxServiceText) return Quoted(text) + " is longer than 259 bytes";
  }
  if (options.extensions.size() > 519) return "the list of --ext is longer than 519 bytes";
  return PrepareOutputDir(options);
}

void DefineInput(CLI::App* app, Options* options, std::vector<std::string>* extensions) {
  app->add_option("FILE", options->files, "Documents; with -r also directories");
  app->add_flag("-r,--recursive", options->recursive, "Extract the documents in directories");
  app->add_option("--files-from", options->filesFrom,
                  "Read the names of documents from a file, one per line; - is standard input")
      ->type_name("FILE");
  app->add_flag("-0,--null", options->zeroSeparated,
                "Names in the list end with a zero byte, not a line feed");
  app->add_option("--ext", *extensions,
                  "Extensions of the files to take from directories, such as pdf,docx")
      ->type_name("LIST")
      ->allow_extra_args(false);
}

void DefineOutput(CLI::App* app, Options* options) {
  app->add_option("-o,--output", options->outputDir,
                  "Write the text of each document NAME to DIR/NAME.txt")
      ->type_name("DIR");
  app->add_flag("--jsonl", options->jsonl, "Print one JSON record per document");
  app->add_flag("--unordered", options->unordered,
                "Print each text as soon as it is complete, in any order");
  app->add_flag("--resume", options->resume,
                "Skip documents that an earlier run with the same -o has finished");
  app->add_flag("--retry-refused", options->retryRefused,
                "Retry documents that were refused or that killed servers");
  app->add_flag("-v,--verbose", options->verbose, "Report progress on standard error");
}

void DefineServers(CLI::App* app, Options* options, Words* words) {
  app->add_option("--server", words->servers, "Tika server to use")
      ->type_name("HOST:PORT")
      ->allow_extra_args(false);
  app->add_option("-j,--jobs", options->jobs, "Extractions at the same time")
      ->default_str("one per server")
      ->check(CLI::Range(1UL, kMaxJobs))
      ->type_name("N");
  app->add_option("--settings", options->settingsFile,
                  "Read servers, extensions and timeout from saved settings")
      ->type_name("FILE");
  app->add_option("--save-settings", options->saveSettingsFile, "Save the settings of this run")
      ->type_name("FILE");
  app->add_option("--variant", options->variant,
                  "Reply decoder; decoder 2 may report truncated text as success")
      ->check(CLI::Range(1UL, 3UL))
      ->type_name("N")
      ->capture_default_str();
  app->add_option("--timeout", words->timeoutSeconds,
                  "Give up on a server that sends nothing for this long")
      ->check(CLI::Range(1UL, kMaxTimeoutSeconds))
      ->default_str("60")
      ->type_name("SECONDS");
  app->add_option("--time-limit", words->limitSeconds, "Time limit per document; 0 means none")
      ->default_str("310, plus 1 per MB")
      ->check(CLI::Range(0UL, kMaxTimeoutSeconds))
      ->type_name("SECONDS");
  app->add_option("--text-limit", options->textLimitMb, "Size limit per text; 0 means none")
      ->check(CLI::Range(0UL, kMaxTextMb))
      ->type_name("MB")
      ->capture_default_str();
  app->add_option("--java-heap", options->javaHeapMb, "Java heap of the private server")
      ->check(CLI::Range(64UL, 1048576UL))
      ->type_name("MB")
      ->capture_default_str();
  app->add_option("--jar", options->jar, "Runnable Tika server jar of the private server")
      ->type_name("FILE");
}

void DefineServices(CLI::App* app, Options* options, Words* words) {
  app->add_option("--service", words->services,
                  "Service host whose servers to use: its control port or the path of its "
                  "socket; 'local' is this machine's host and needs no key")
      ->type_name("HOST[:PORT]")
      ->allow_extra_args(false);
  app->add_option("--key", options->keyFile, "Key file of the control ports")
      ->default_str("the user's key")
      ->type_name("FILE");
  app->add_option("--service-servers", options->serviceServers,
                  "Servers that each service host shall run for this run")
      ->check(CLI::Range(1UL, kMaxServers))
      ->type_name("N");
  app->add_option("--service-jar", options->serviceJar,
                  "Tika server jar for these servers, a path on the service host")
      ->type_name("FILE");
  app->add_option("--service-first-port", options->serviceFirstPort,
                  "Port of the first of these servers; the others use the next ports")
      ->check(CLI::Range(1UL, kMaxPort))
      ->type_name("PORT")
      ->capture_default_str();
  app->add_option("--service-heap", options->serviceHeapMb, "Java heap of each of these servers")
      ->check(CLI::Range(64UL, 1048576UL))
      ->type_name("MB")
      ->capture_default_str();
  app->add_option("--service-java-options", options->serviceJavaOptions,
                  "Additional Java options of these servers")
      ->type_name("OPTIONS");
}

}  // namespace

std::optional<int> ParseOptions(int argc, char** argv, Options* options) {
  CLI::App app(kDescription, "tikaextract");
  app.footer(kFooter);
  app.set_version_flag("--version", "tikaextract " SCA_VERSION);
  Words words;
  DefineInput(&app, options, &words.extensions);
  DefineOutput(&app, options);
  DefineServers(&app, options, &words);
  DefineServices(&app, options, &words);
  if (const auto status = ParseCommandLine(&app, argc, argv)) return status;
  if (words.timeoutSeconds != 0) options->timeoutMs = words.timeoutSeconds * 1000;
  if (words.limitSeconds) options->timeLimitMs = *words.limitSeconds * 1000;
  options->extensions = Extensions(words.extensions);
  for (const char* wish : kServiceWishes) {
    if (options->serviceServers == 0 && app.count(wish) > 0) options->serviceServers = 1;
  }
  std::string complaint = ParseAddresses(words.servers, 0, &options->servers);
  if (complaint.empty()) {
    complaint = ParseAddresses(words.services, kDefaultControlPort, &options->services);
  }
  if (complaint.empty()) complaint = Check(*options);
  if (complaint.empty()) return std::nullopt;
  PrintErrorLine("tikaextract: " + complaint);
  return kWrongUse;
}
