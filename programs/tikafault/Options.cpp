#include "programs/tikafault/Options.h"

#include <CLI/CLI.hpp>
#include <cstdio>

#include "programs/common/Start.h"

namespace {

constexpr char kDescription[] =
    "A Tika server that misbehaves on command, for testing programs. The text of a document is "
    "\"text of \" followed by the document itself. The fault is named by a marker in the first "
    "4096 "
    "bytes of the document, such as tikafault:reset=1000, or given by --fault and --mix to a share "
    "of all documents. Prints the address of each server once it answers, and runs until SIGTERM "
    "or SIGINT.";

constexpr char kFaultRules[] =
    "A fault is NAME or NAME=VALUE. Commas separate it from further parts.\n"
    "\n"
    "Further parts of a fault:\n"
    "  rate=SHARE  The share of documents that have this fault\n"
    "  tries=N     Passes after N tries of a document, counted over all servers\n"
    "  text=BYTES  The length of the text; may stand alone\n";

constexpr char kExamples[] =
    "\n"
    "Exit status:\n"
    "  0  stopped\n"
    "  1  failed\n"
    "  2  the command line is wrong\n"
    "A server that plays 'die' ends by SIGKILL.\n"
    "\n"
    "Examples:\n"
    "  $ tikafault --port 0 --fault status=503,rate=0.1 --seed 7\n"
    "  $ tikafault --servers 3 --restart --mix 0.1\n"
    "  $ tikafault --plan --mix 0.1 documents/*.pdf";

constexpr unsigned kMaxServers = 64;
constexpr int kMaxMs = 3600000;

std::string FaultRows(FaultEffect effect) {
  std::string rows;
  for (const FaultRow& row : FaultTable()) {
    if (row.effect != effect) continue;
    std::string name = row.name;
    if (row.unit != nullptr) name += std::string("=") + row.unit;
    name.resize(14, ' ');
    rows += "  " + name + row.help + "\n";
  }
  return rows;
}

std::string Footer() {
  return kFaultRules +
         ("\nFaults after which the text still arrives:\n" + FaultRows(FaultEffect::Harmless)) +
         "\nFaults after which another try may bring the text:\n" + FaultRows(FaultEffect::Breaks) +
         "\nFaults after which the document has no text:\n" + FaultRows(FaultEffect::Fails) +
         kExamples;
}

void DefineServers(CLI::App* app, Options* options) {
  app->add_option("--address", options->address, "IPv4 address to listen on")
      ->capture_default_str()
      ->type_name("ADDRESS");
  app->add_option("--port", options->port, "Port of the first server; 0 picks free ports")
      ->capture_default_str()
      ->type_name("PORT");
  app->add_option("--servers", options->servers, "Servers to run, each a process on the next port")
      ->check(CLI::Range(1U, kMaxServers))
      ->capture_default_str()
      ->type_name("N");
  app->add_option("--tika", options->version, "Version of Tika to imitate")
      ->capture_default_str()
      ->type_name("VERSION");
  app->add_flag("--restart", options->restart, "Restart servers that die");
  app->add_option_function<int>(
         "--down", [options](int ms) { options->down = std::chrono::milliseconds(ms); },
         "Time before a restart")
      ->check(CLI::Range(0, kMaxMs))
      ->default_str("100")
      ->type_name("MS");
  app->add_option_function<int>(
         "--coming-up", [options](int ms) { options->comingUp = std::chrono::milliseconds(ms); },
         "Answer 404 for this long after each start")
      ->check(CLI::Range(0, kMaxMs))
      ->default_str("0")
      ->type_name("MS");
  app->add_option("--mute-after", options->muteAfter, "Stop answering after N requests")
      ->type_name("N");
  app->add_option("--say", options->lines, "Print a line on standard error at the start")
      ->allow_extra_args(false)
      ->type_name("LINE");
  app->add_option("--exit", options->exitStatus, "Exit with this status after --say")
      ->check(CLI::Range(0, 255))
      ->type_name("STATUS");
  app->add_flag("-v,--verbose", options->verbose, "Report on standard error");
}

void DefineDocuments(CLI::App* app, Options* options, std::vector<std::string>* faults) {
  app->add_option("--fault", *faults, "A fault with its rate")
      ->allow_extra_args(false)
      ->type_name("FAULT");
  app->add_option("--mix", options->mix, "Share of documents with a fault, chosen from all kinds")
      ->check(CLI::Range(0.0, 1.0))
      ->type_name("SHARE");
  app->add_option("--seed", options->seed, "Seed for choosing the documents with faults")
      ->capture_default_str()
      ->type_name("N");
  app->add_option("--chunk", options->chunkSize, "Largest chunk of a reply")
      ->check(CLI::Range(std::size_t{1}, std::size_t{1} << 30))
      ->capture_default_str()
      ->type_name("BYTES");
  app->add_option("--max-document", options->maxDocumentMb, "Refuse larger documents with 413")
      ->check(CLI::Range(1ULL, 4096ULL))
      ->capture_default_str()
      ->type_name("MB");
  app->add_flag("--plan", options->plan,
                "Print the outcome of each FILE (text, fails or either), its fault, and the "
                "SHA-256 of its text");
  app->add_flag("--text", options->text, "Print the text of each FILE");
  app->add_option("FILE", options->files, "Documents for --plan and --text");
}

std::string Check(const std::vector<std::string>& faults, Options* options) {
  for (const std::string& words : faults) {
    const std::string complaint = ParseFault(words, &options->faults.emplace_back());
    if (!complaint.empty()) return complaint;
  }
  if (options->plan && options->text) return "--plan and --text exclude each other";
  const bool wantsFiles = options->plan || options->text;
  if (wantsFiles == options->files.empty()) {
    return wantsFiles ? "FILE is required by --plan and --text" : "FILE needs --plan or --text";
  }
  if (options->port != 0 && options->port + options->servers - 1 > 65535) {
    return "--port and --servers exceed port 65535";
  }
  return {};
}

}  // namespace

std::optional<int> ParseOptions(int argc, char** argv, Options* options) {
  CLI::App app(kDescription, "tikafault");
  app.footer(Footer());
  app.set_version_flag("--version", "tikafault " SCA_VERSION);
  std::vector<std::string> faults;
  DefineServers(&app, options);
  DefineDocuments(&app, options, &faults);
  if (const auto status = ParseCommandLine(&app, argc, argv)) return status;
  const std::string complaint = Check(faults, options);
  if (complaint.empty()) return std::nullopt;
  std::fprintf(stderr, "tikafault: %s\nRun with --help for more information.\n", complaint.c_str());
  return kWrongUse;
}
