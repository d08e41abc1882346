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
    "Prints the plain text of documents (PDF, DOC, DOCX, XLS, XLSX and whatever else Apache Tika\n"
    "reads). Without --server and --service a private Tika server is started for the run and\n"
    "stopped at its end.";
constexpr char kFooter[] =
    "A directory's documents are those with the extensions of --ext or of the settings; under -o\n"
    "they lie as in the directory, below its name when more than one FILE is given. A list's\n"
    "documents lie under -o by their paths.\n"
    "A service's servers are used as they are, unless --service-servers or --service-jar ask for\n"
    "some: these are added where they are missing, and deleted at the end if nobody else uses "
    "them.\n"
    "Exit status: 0 all extracted, 1 some failed, 2 wrong use, 3 no server, 130 interrupted.\n"
    "Environment: TIKA_SERVER_JAR names the runnable Tika server jar of the private server.\n"
    "Examples: tikaextract -o texts report.pdf minutes.docx\n"
    "          tikaextract -r archive -o texts --server tika1:9998 --server tika2:9998 -j 8\n"
    "          tikaextract -r archive -o texts --service tika1 --service tika2";

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
    return "--resume needs -o: a former run is known by what it wrote there";
  }
  if (options.zeroSeparated && options.filesFrom.empty()) return "-0 needs --files-from";
  if (options.serviceServers != 0 && options.services.empty()) {
    return "--service-jar, --service-servers and the like need --service: they say what it is to "
           "run";
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
  app->add_option("FILE", options->files, "Documents, and directories with -r");
  app->add_flag("-r,--recursive", options->recursive, "Extract the documents in directories");
  app->add_option("--files-from", options->filesFrom,
                  "Extract the documents listed in a file, one a line; - is standard input")
      ->type_name("FILE");
  app->add_flag("-0,--null", options->zeroSeparated, "The list's entries end in zero bytes");
  app->add_option("--ext", *extensions, "Extensions to take from directories, such as pdf,docx")
      ->type_name("LIST")
      ->allow_extra_args(false);
}

void DefineOutput(CLI::App* app, Options* options) {
  app->add_option("-o,--output", options->outputDir,
                  "Write the text of each document NAME to DIR/NAME.txt")
      ->type_name("DIR");
  app->add_flag("--jsonl", options->jsonl, "Print one JSON record for each document");
  app->add_flag("--unordered", options->unordered, "Print as the texts come, in any order");
  app->add_flag("--resume", options->resume, "Skip what a former run with the same -o has done");
  app->add_flag("--retry-refused", options->retryRefused,
                "Send also what was refused, or what servers died of");
  app->add_flag("-v,--verbose", options->verbose, "Say on standard error what happens");
}

void DefineServers(CLI::App* app, Options* options, Words* words) {
  app->add_option("--server", words->servers,
                  "Tika server to use, as host:port; may be given again")
      ->type_name("HOST:PORT")
      ->allow_extra_args(false);
  app->add_option("-j,--jobs", options->jobs, "Extractions at once (default: one for each server)")
      ->check(CLI::Range(1UL, kMaxJobs))
      ->type_name("N");
  app->add_option("--settings", options->settingsFile,
                  "Take servers, extensions and time-out from saved settings")
      ->type_name("FILE");
  app->add_option("--save-settings", options->saveSettingsFile, "Save the settings of this run")
      ->type_name("FILE");
  app->add_option("--variant", options->variant,
                  "Reply decoder: 1, 2 or 3; the second may report a "
                  "text that was cut as a success")
      ->check(CLI::Range(1UL, 3UL))
      ->type_name("N")
      ->capture_default_str();
  app->add_option("--timeout", words->timeoutSeconds,
                  "Give up when the server is silent for so long (60)")
      ->check(CLI::Range(1UL, kMaxTimeoutSeconds))
      ->type_name("SECONDS");
  app->add_option("--time-limit", words->limitSeconds,
                  "Give a document up after this time; 0 is no limit (310 + 1 a MB)")
      ->check(CLI::Range(0UL, kMaxTimeoutSeconds))
      ->type_name("SECONDS");
  app->add_option("--text-limit", options->textLimitMb,
                  "Give a document up when its text becomes longer; 0 is no limit")
      ->check(CLI::Range(0UL, kMaxTextMb))
      ->type_name("MB")
      ->capture_default_str();
  app->add_option("--java-heap", options->javaHeapMb, "Heap limit of the private server")
      ->check(CLI::Range(64UL, 1048576UL))
      ->type_name("MB")
      ->capture_default_str();
  app->add_option("--jar", options->jar, "Runnable Tika server jar of the private server")
      ->type_name("FILE");
}

void DefineServices(CLI::App* app, Options* options, Words* words) {
  app->add_option("--service", words->services,
                  "Service host whose servers to use, by its control port or the path of its "
                  "socket; 'local' is this machine's, which needs no key; may be given again")
      ->type_name("HOST[:PORT]")
      ->allow_extra_args(false);
  app->add_option("--key", options->keyFile, "Key of the control ports (default: the user's)")
      ->type_name("FILE");
  app->add_option("--service-servers", options->serviceServers,
                  "Servers that each service is to run for this run")
      ->check(CLI::Range(1UL, kMaxServers))
      ->type_name("N");
  app->add_option("--service-jar", options->serviceJar,
                  "Runnable Tika server jar of those servers, a path on the service's machine")
      ->type_name("FILE");
  app->add_option("--service-first-port", options->serviceFirstPort,
                  "Port of the first of them; the others have those behind it")
      ->check(CLI::Range(1UL, kMaxPort))
      ->type_name("PORT")
      ->capture_default_str();
  app->add_option("--service-heap", options->serviceHeapMb, "Heap limit of each of them")
      ->check(CLI::Range(64UL, 1048576UL))
      ->type_name("MB")
      ->capture_default_str();
  app->add_option("--service-java-options", options->serviceJavaOptions,
                  "Further Java options of theirs")
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
