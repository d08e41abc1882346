#include "programs/tikaextract/OptionGroups.h"

#include <CLI/CLI.hpp>
#include <map>

namespace {

constexpr unsigned long kMaxTimeoutSeconds = 1000000;
constexpr unsigned long kMaxTextMb = 1UL << 30;
constexpr unsigned long kMaxJobs = 256;

constexpr unsigned long kMaxServers = 256;
constexpr unsigned long kMaxPort = 65535;

void DefineInput(CLI::App* app, Options* options, OptionWords* words) {
  app->add_option("FILE", options->files,
                  "Documents; - is standard input; with -r also directories");
  app->add_option("--name", options->inputName,
                  "Name of the document on standard input, which is read without FILE, too")
      ->type_name("NAME");
  app->add_flag("-r,--recursive", options->recursive, "Extract the documents in directories");
  app->add_option("--watch", options->watchFolder,
                  "Extract the documents of a directory, and from then on those that come or "
                  "change there; ends when interrupted")
      ->type_name("DIR");
  app->add_option("--files-from", options->filesFrom,
                  "Read the names of documents from a file, one per line; - is standard input")
      ->type_name("FILE");
  app->add_flag("-0,--null", options->zeroSeparated,
                "Names in the list end with a zero byte, not a line feed");
  app->add_option("--ext", words->extensions,
                  "Extensions of the files to take from directories, such as pdf,docx; '*' takes "
                  "every file")
      ->type_name("LIST")
      ->allow_extra_args(false);
  app->add_option("--add-ext", words->addedExtensions, "Take files with these extensions, too")
      ->type_name("LIST")
      ->allow_extra_args(false);
  app->add_option("--remove-ext", words->removedExtensions,
                  "Do not take files with these extensions")
      ->type_name("LIST")
      ->allow_extra_args(false);
  app->add_option("--include", options->includes,
                  "From directories, take only what matches; whatever its extension, without --ext")
      ->type_name("GLOB")
      ->allow_extra_args(false);
  app->add_option("--exclude", options->excludes,
                  "From directories, leave out what matches, as a .tikaignore there does")
      ->type_name("GLOB")
      ->allow_extra_args(false);
}

void DefineOutput(CLI::App* app, Options* options) {
  app->add_option(
         "-o,--output", options->outputDir,
         "Write the text of each document NAME to DIR/NAME.txt, or NAME.md with --markdown")
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

void DefineRequest(CLI::App* app, Options* options, OptionWords* words) {
  RequestChoice& choice = options->choice;
  auto* const check =
      app->add_flag("--check-complete", words->checkComplete,
                    "Find out whether each text is whole, by what Tika notes about it");
  auto* const meta = app->add_flag("--meta", words->meta,
                                   "Print title, author, dates and so on instead of the text; with "
                                   "--jsonl or -o besides it. Checks completeness, too");
  auto* const detect =
      app->add_flag("--detect", words->detect, "Print only the type and language of each document");
  auto* const markdown =
      app->add_flag("--markdown", words->markdown,
                    "Extract Markdown instead of plain text, where the Tika version can");
  detect->excludes(check)->excludes(meta)->excludes(markdown);
  markdown->excludes(check)->excludes(meta);
  app->add_flag("--embedded", choice.embeddedRecords,
                "Print a record of its own for each embedded document, such as an attachment; "
                "needs --jsonl and --meta")
      ->needs(meta)
      ->needs(app->get_option("--jsonl"))
      ->excludes(app->get_option("-o"));
  app->add_flag("--no-embedded{false}", choice.request.embedded, "Leave embedded documents out")
      ->excludes(app->get_option("--embedded"));
  app->add_option("--password-file", choice.passwordFile,
                  "Open locked documents with the password in the first line of this file")
      ->type_name("FILE");
  const std::map<std::string, SCA_TikaOcr> ocr = {
      {"none", SCA_TikaOcr::None}, {"auto", SCA_TikaOcr::Automatic}, {"only", SCA_TikaOcr::Only}};
  app->add_option("--ocr", choice.request.ocr,
                  "Text in pictures: none, auto (where a page has no other text), or only")
      ->transform(CLI::CheckedTransformer(ocr))
      ->type_name("HOW");
  app->add_option("--ocr-lang", choice.request.ocrLanguage, "Languages for --ocr, such as deu+eng")
      ->type_name("LANG");
  app->add_flag("--no-name{false}", choice.sendsName,
                "Do not send file names. They help Tika to recognize types, and are sent with any "
                "option of this kind, not for plain text alone");
}

void DefineServers(CLI::App* app, Options* options, OptionWords* words) {
  app->add_option("--server", words->servers, "Tika server to use; its default port is 9998")
      ->type_name("HOST[:PORT]")
      ->allow_extra_args(false);
  app->add_option("-j,--jobs", options->jobs, "Extractions at the same time")
      ->default_str("one per server")
      ->check(CLI::Range(1UL, kMaxJobs))
      ->type_name("N");
  app->add_option("--settings", options->settingsFile,
                  "Read servers, extensions and timeout from saved settings")
      ->type_name("FILE");
  app->add_option("--save-settings", options->saveSettingsFile,
                  "Save the settings of this run, which needs no FILE")
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
  app->add_flag("--private", words->isPrivate,
                "Start a private server even if the settings name servers or this machine has a "
                "service host; --jar and --java-heap also keep from the host");
  app->add_option("--java-heap", options->javaHeapMb, "Java heap of the private server")
      ->check(CLI::Range(64UL, 1048576UL))
      ->type_name("MB")
      ->capture_default_str();
  app->add_option("--jar", options->jar, "Runnable Tika server jar of the private server")
      ->type_name("FILE");
  app->add_flag("!--no-class-archive", options->classArchive,
                "Start the private server without the class-data archive, which the end of a run "
                "without one makes in the background");
  app->add_flag("--make-class-archive", options->makeClassArchive,
                "Make the class-data archive of the private server now, and exit");
}

void DefineServices(CLI::App* app, Options* options, OptionWords* words) {
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

void DefineOptions(CLI::App* app, Options* options, OptionWords* words) {
  DefineInput(app, options, words);
  DefineOutput(app, options);
  DefineRequest(app, options, words);
  DefineServers(app, options, words);
  DefineServices(app, options, words);
}
