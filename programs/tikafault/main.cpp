// tikafault: a Tika server that misbehaves on command.

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <system_error>

#include "faultlab/FaultServer.h"
#include "platform/SCA_Sha256.h"
#include "programs/common/Address.h"
#include "programs/common/Event.h"
#include "programs/common/Signals.h"
#include "programs/common/Start.h"
#include "programs/tikafault/Options.h"
#include "programs/tikafault/Supervisor.h"

namespace {

std::string ReadDocument(const std::string& path) {
  errno = 0;
  const std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  // An empty file, from which nothing can be taken, is none that failed.
  if (file.is_open()) content << file.rdbuf();
  if (!file.is_open() || content.bad() || errno != 0) {
    throw std::system_error(errno != 0 ? errno : EIO, std::generic_category(),
                            "cannot read '" + path + "'");
  }
  return content.str();
}

std::string DigestOf(DocumentText text) {
  constexpr std::size_t kPiece = 1 << 20;
  SCA_Sha256 hash;
  for (std::string piece; !(piece = text.Next(kPiece)).empty();) {
    hash.Update(piece.data(), piece.size());
  }
  std::string digits;
  for (const unsigned char byte : hash.Finish()) {
    char pair[3];
    std::snprintf(pair, sizeof pair, "%02x", byte);
    digits += pair;
  }
  return digits;
}

void PrintText(DocumentText text) {
  constexpr std::size_t kPiece = 1 << 16;
  for (std::string piece; !(piece = text.Next(kPiece)).empty();) {
    if (std::fwrite(piece.data(), 1, piece.size(), stdout) != piece.size()) break;
  }
}

void PrintPlan(const std::string& path, const FaultSpec& fault, const std::string& content) {
  const FaultPrognosis prognosis = Foretell(fault);
  const char* const word = prognosis == FaultPrognosis::Text    ? "text"
                           : prognosis == FaultPrognosis::Fails ? "fails"
                                                                : "either";
  const bool isEndless = fault.Kind() == FaultKind::Endless;
  std::printf("%s\t%s\t%s\t%s\n", word, FaultWords(fault).c_str(),
              isEndless ? "-" : DigestOf(TextOf(content, fault)).c_str(), path.c_str());
}

int TellOfFiles(const Options& options, const FaultPlan& plan) {
  for (const std::string& path : options.files) {
    const std::string content = ReadDocument(path);
    const FaultSpec fault = plan.Choose({content.size(), content.substr(0, DocumentHead::kSize)});
    if (options.plan) {
      PrintPlan(path, fault, content);
    } else {
      PrintText(TextOf(content, fault));
    }
  }
  return kStopped;
}

FaultServerOptions ServerOptions(const Options& options, const FaultPlan& plan,
                                 unsigned short port) {
  FaultServerOptions server;
  server.address = options.address;
  server.port = port;
  server.plan = plan;
  server.version = "Apache Tika " + options.version;
  server.die = [] { ::kill(::getpid(), SIGKILL); };
  server.chunkSize = options.chunkSize;
  server.maxDocument = options.maxDocumentMb << 20;
  server.comingUp = options.comingUp;
  server.muteAfter = options.muteAfter;
  if (options.verbose) {
    server.note = [port](const FaultSpec& fault, unsigned long long size) {
      std::fprintf(stderr, "tikafault: port %u: document of %llu bytes: %s\n", port, size,
                   FaultWords(fault).c_str());
    };
  }
  return server;
}

int Serve(const Options& options, const FaultPlan& plan) {
  const auto memory = std::make_shared<LabMemory>();
  if (options.servers == 1 && !options.restart) {
    ProgramEvent stop(1, 0);
    const Signals signals(&stop);
    const FaultServer server(ServerOptions(options, plan, options.port), memory);
    std::puts(FormatHostPort({options.address, server.Port()}).c_str());
    if (std::fflush(stdout) != 0) {
      throw std::system_error(errno, std::generic_category(), "cannot write to standard output");
    }
    stop.Wait(SCA_Infinite);
    return kStopped;
  }
  const auto serve = [&](unsigned short port, const std::function<void()>& ready) {
    const FaultServer server(ServerOptions(options, plan, port), memory);
    ready();
    for (;;) ::pause();
  };
  Supervisor supervisor({options.address, options.port, options.servers, options.restart,
                         options.down, options.verbose, serve});
  return supervisor.Run() ? kStopped : kFailed;
}

int Run(int argc, char** argv) {
  Options options;
  if (const auto status = ParseOptions(argc, argv, &options)) return *status;
  for (const std::string& line : options.lines) std::fprintf(stderr, "%s\n", line.c_str());
  if (options.exitStatus) return *options.exitStatus;
  const FaultPlan plan(options.faults, options.mix, options.seed);
  return options.files.empty() ? Serve(options, plan) : TellOfFiles(options, plan);
}

}  // namespace

int main(int argc, char** argv) {
  return RunProgram("tikafault", kFailed, [=] { return Run(argc, argv); });
}
