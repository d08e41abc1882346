#include "programs/tikaextract/Options.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <map>

namespace {

namespace fs = std::filesystem;

constexpr char kDescription[] =
    "Prints the plain text of documents (PDF, DOC, DOCX, XLS, XLSX and whatever else Apache Tika\n"
    "reads). Without --server a private Tika server is started for the run and stopped at its end.";
constexpr char kFooter[] =
    "Exit status: 0 all extracted, 1 some failed, 2 wrong use, 3 no server, 130 interrupted.\n"
    "Environment: TIKA_SERVER_JAR names the runnable Tika server jar of the private server.\n"
    "Example: tikaextract -o texts report.pdf minutes.docx";

constexpr unsigned long kMaxTimeoutSeconds = 1000000;

// Splits "host:port"; an IPv6 address stands in brackets.
std::string SplitServer(const std::string& text, Options* options) {
  const std::size_t colon = text.rfind(':');
  std::string host = text.substr(0, colon);
  const std::string port = colon == std::string::npos ? "" : text.substr(colon + 1);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  }
  const bool isNumber = !port.empty() && port.size() <= 5 &&
                        port.find_first_not_of("0123456789") == std::string::npos;
  const unsigned long number = isNumber ? std::stoul(port) : 0;
  if (host.empty() || host.size() > 259 || number == 0 || number > 65535) {
    return "'" + text + "' is not host:port, such as 127.0.0.1:9998";
  }
  options->serverHost = host;
  options->serverPort = static_cast<unsigned short>(number);
  return {};
}

// Two documents of one name would write one file, and one text would be lost.
std::string FindNameClash(const Options& options) {
  std::map<std::string, std::string> outputs;
  for (const std::string& file : options.files) {
    const auto [entry, isNew] = outputs.emplace(OutputPath(options, file), file);
    if (!isNew) {
      return "'" + entry->second + "' and '" + file + "' would both be written to '" +
             entry->first + "': extract them into different directories";
    }
  }
  return {};
}

std::string PrepareOutputDir(const Options& options) {
  if (options.outputDir.empty()) return {};
  const std::string clash = FindNameClash(options);
  if (!clash.empty()) return clash;
  std::error_code error;
  fs::create_directories(options.outputDir, error);
  if (fs::is_directory(options.outputDir)) return {};
  return "cannot create the directory '" + options.outputDir +
         "': " + (error ? error.message() : "a file of that name is in the way");
}

}  // namespace

std::string OutputPath(const Options& options, const std::string& file) {
  return (fs::path(options.outputDir) / fs::path(file).filename()).string() + ".txt";
}

std::optional<int> ParseOptions(int argc, char** argv, Options* options) {
  CLI::App app(kDescription, "tikaextract");
  app.footer(kFooter);
  app.set_version_flag("--version", "tikaextract " SCA_VERSION);
  std::string server;
  unsigned long timeoutSeconds = options->timeoutMs / 1000;
  app.add_option("FILE", options->files, "Documents")->required();
  app.add_option("--server", server, "Tika server to use, as host:port")->type_name("HOST:PORT");
  app.add_option("-o,--output", options->outputDir,
                 "Write the text of each document NAME to DIR/NAME.txt")
      ->type_name("DIR");
  app.add_option("--variant", options->variant, "Reply decoder: 1, 2 or 3")
      ->check(CLI::Range(1UL, 3UL))
      ->type_name("N")
      ->capture_default_str();
  app.add_option("--timeout", timeoutSeconds, "Give up when the server is silent for so long")
      ->check(CLI::Range(1UL, kMaxTimeoutSeconds))
      ->type_name("SECONDS")
      ->capture_default_str();
  app.add_option("--java-heap", options->javaHeapMb, "Heap limit of the private server")
      ->check(CLI::Range(64UL, 1048576UL))
      ->type_name("MB")
      ->capture_default_str();
  app.add_option("--jar", options->jar, "Runnable Tika server jar of the private server")
      ->type_name("FILE");
  app.add_flag("-v,--verbose", options->verbose, "Say on standard error what happens");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kAllExtracted : kWrongUse;
  }
  options->timeoutMs = timeoutSeconds * 1000;
  std::string complaint =
      server.empty() && app.count("--server") == 0 ? std::string() : SplitServer(server, options);
  if (complaint.empty()) complaint = PrepareOutputDir(*options);
  if (complaint.empty()) return std::nullopt;
  std::fprintf(stderr, "tikaextract: %s\n", complaint.c_str());
  return kWrongUse;
}
