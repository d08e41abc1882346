#include "programs/tikafault/Options.h"

#include <CLI/CLI.hpp>
#include <cstdio>

#include "programs/common/Start.h"

namespace {

constexpr char kDescription[] =
    "A Tika server that misbehaves on command, to try programs with. The text of a\n"
    "document is \"text of \" and the document itself. Its fault is that of a marker in\n"
    "its first 4096 bytes, such as tikafault:reset=1000, or one that --fault and --mix\n"
    "give to a share of all documents. Prints the address of each server once it\n"
    "answers, and runs until SIGTERM or SIGINT.";

constexpr char kExamples[] =
    "Exit status: 0 stopped, 1 failed, 2 wrong use; after 'die' that of SIGKILL.\n"
    "Examples: tikafault --port 0 --fault status=503,rate=0.1 --seed 7\n"
    "          tikafault --servers 3 --restart --mix 0.1\n"
    "          tikafault --plan --mix 0.1 documents/*.pdf";

constexpr unsigned kMaxServers = 64;
constexpr int kMaxMs = 3600000;

std::string Footer() {
  std::string text =
      "A fault is NAME or NAME=VALUE. After commas may follow: rate=SHARE, the share of\n"
      "documents that have it; tries=N, it passes after N tries of a document, counted\n"
      "by all servers together; text=BYTES, the text is that long (may stand alone).\n"
      "Faults: what becomes of a document, and what its server does:\n";
  for (const FaultRow& row : FaultTable()) {
    std::string name = row.name;
    if (row.unit != nullptr) name += std::string("=") + row.unit;
    name.resize(14, ' ');
    const char* const effect = row.effect == FaultEffect::Harmless ? "text    "
                               : row.effect == FaultEffect::Breaks ? "breaks  "
                                                                   : "no text ";
    text += "  " + name + effect + row.help + "\n";
  }
  return text + kExamples;
}

void DefineServers(CLI::App* app, Options* options) {
  app->add_option("--address", options->address, "IPv4 address to listen on")
      ->capture_default_str()
      ->type_name("ADDRESS");
  app->add_option("--port", options->port, "Port of the first server; 0: free ones")
      ->capture_default_str()
      ->type_name("PORT");
  app->add_option("--servers", options->servers, "Servers, each a process with the next port")
      ->check(CLI::Range(1U, kMaxServers))
      ->capture_default_str()
      ->type_name("N");
  app->add_flag("--restart", options->restart, "Start servers that have died again");
  app->add_option_function<int>(
         "--down", [options](int ms) { options->down = std::chrono::milliseconds(ms); },
         "How long such a server is down")
      ->check(CLI::Range(0, kMaxMs))
      ->default_str("100")
      ->type_name("MS");
  app->add_option_function<int>(
         "--coming-up", [options](int ms) { options->comingUp = std::chrono::milliseconds(ms); },
         "Answer 404 for so long after each start")
      ->check(CLI::Range(0, kMaxMs))
      ->default_str("0")
      ->type_name("MS");
  app->add_option("--mute-after", options->muteAfter, "Say nothing more after N requests")
      ->type_name("N");
  app->add_option("--say", options->lines, "Print a line on standard error first")
      ->allow_extra_args(false)
      ->type_name("LINE");
  app->add_option("--exit", options->exitStatus, "End after that, with this status")
      ->check(CLI::Range(0, 255))
      ->type_name("STATUS");
  app->add_flag("-v,--verbose", options->verbose, "Say on standard error what happens");
}

void DefineDocuments(CLI::App* app, Options* options, std::vector<std::string>* faults) {
  app->add_option("--fault", *faults, "A fault, with its rate; may be given again")
      ->allow_extra_args(false)
      ->type_name("FAULT");
  app->add_option("--mix", options->mix, "Share of documents with a fault of all kinds")
      ->check(CLI::Range(0.0, 1.0))
      ->type_name("SHARE");
  app->add_option("--seed", options->seed, "Chooses the documents that have faults")
      ->capture_default_str()
      ->type_name("N");
  app->add_option("--chunk", options->chunkSize, "Largest chunk of a reply")
      ->check(CLI::Range(std::size_t{1}, std::size_t{1} << 30))
      ->capture_default_str()
      ->type_name("BYTES");
  app->add_option("--max-document", options->maxDocumentMb, "Refuse larger documents (413)")
      ->check(CLI::Range(1ULL, 4096ULL))
      ->capture_default_str()
      ->type_name("MB");
  app->add_flag("--plan", options->plan,
                "Print for each FILE text, fails or either, its\n"
                "                              fault, and the SHA-256 of its text");
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
    return "--port and --servers lead beyond port 65535";
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
