// How many system calls a chunk and a document take.
//
// strace counts the calls of this program run as a single peer, once with a short piece of work
// and once with a longer one: the difference is free of what starting and ending a program take.
// Under strace a client is far slower than the server, so there is always something to receive.

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <stdexcept>

#include "bench/Contest.h"
#include "bench/Machine.h"
#include "bench/Peers.h"
#include "bench/ReplyServer.h"

namespace {

constexpr char kWorkerSwitch[] = "--worker";
constexpr unsigned long kDocumentSize = 4096;
constexpr unsigned long kDocumentText = 2048;

// What a worker does: one peer that exchanges one file a number of times.
struct Work {
  std::string fileName;
  PeerTarget target;
  unsigned long exchanges;
};

int RunWorker(char** arguments) {
  const auto number = [&](int i) { return std::strtoull(arguments[i], nullptr, 10); };
  const PeerTarget target{static_cast<unsigned short>(number(2)), number(3), number(4)};
  const std::unique_ptr<Peer> peer = MakePeer(arguments[0], target);
  for (unsigned long long i = number(5); i > 0; --i) {
    if (peer->Exchange(arguments[1]) != target.textSize) return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}

// The call count is the second word of the line that begins with "total".
unsigned long long ReadTotal(const std::string& fileName) {
  std::ifstream file(fileName);
  for (std::string name, count; file >> name >> count;) {
    if (name == "total") return std::strtoull(count.c_str(), nullptr, 10);
  }
  throw std::runtime_error("strace counted nothing");
}

bool RunUnderStrace(const std::string& name, const Work& work, const std::string& countFile) {
  std::vector<std::string> words = {"strace",
                                    "-f",
                                    "-c",
                                    "-U",
                                    "name,calls",
                                    "-o",
                                    countFile,
                                    "/proc/self/exe",
                                    kWorkerSwitch,
                                    name,
                                    work.fileName,
                                    std::to_string(work.target.port),
                                    std::to_string(work.target.wireSize),
                                    std::to_string(work.target.textSize),
                                    std::to_string(work.exchanges)};
  char self[4096] = "";
  if (::readlink("/proc/self/exe", self, sizeof self - 1) < 0) throw std::runtime_error("readlink");
  words[7] = self;
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t child = -1;
  int status = 0;
  if (::posix_spawnp(&child, "strace", nullptr, nullptr, arguments.data(), environ) != 0) {
    throw std::runtime_error("cannot start strace, which counts the calls");
  }
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

unsigned long long CountCalls(const std::string& name, const Work& work,
                              const std::string& countFile) {
  constexpr int kAttempts = 5;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (RunUnderStrace(name, work, countFile)) return ReadTotal(countFile);
  }
  throw std::runtime_error(name + " keeps failing");
}

// Rows for the three variants beside all others, the bare loop included.
void AddRows(const std::string& what, const std::string& unit, std::optional<double> limit,
             const std::function<double(const std::string&)>& count, Results* results) {
  ResultRow row{what, unit, {}, limit, {}};
  row.peers.emplace_back(kBareName, Figure{count(kBareName), 0});
  for (const char* name : kOtherNames) row.peers.emplace_back(name, Figure{count(name), 0});
  for (const char* name : kOurNames) {
    row.work = what + ", " + name;
    row.ours = {count(name), 0};
    results->Add(row);
  }
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc == 8 && argv[1] == std::string(kWorkerSwitch)) return RunWorker(argv + 2);
  const BenchOptions options = BeginBench(argc, argv, "syscalls");
  std::printf("System calls counted by strace; one run each, the numbers hardly vary\n");
  const ScratchDir dir;
  const std::string countFile = dir.MakeFile("count", 0);
  Results results;
  for (const unsigned long chunkSize : {4096UL, 32768UL}) {
    const unsigned long shortReply = 256;  // chunks
    const unsigned long longReply = options.quick ? 512 : 4096;
    const ChunkedReply replies[] = {{shortReply * chunkSize, chunkSize},
                                    {(shortReply + longReply) * chunkSize, chunkSize}};
    const ReplyServer servers[] = {ReplyServer(replies[0]), ReplyServer(replies[1])};
    const std::string fileName = dir.MakeFile("tiny", 16);
    const auto count = [&](const std::string& name) {
      double calls[2];
      for (int i = 0; i < 2; ++i) {
        const PeerTarget target{servers[i].Port(), replies[i].WireSize(), replies[i].TextSize()};
        calls[i] = static_cast<double>(CountCalls(name, {fileName, target, 1}, countFile));
      }
      return (calls[1] - calls[0]) / static_cast<double>(longReply);
    };
    AddRows(std::to_string(chunkSize >> 10) + " KiB chunks", "calls a chunk", 1.0, count, &results);
  }
  const unsigned long documents = options.quick ? 20 : 200;
  const ChunkedReply reply(kDocumentText, kDocumentText);
  const ReplyServer server(reply);
  const std::string fileName = dir.MakeFile("document", kDocumentSize);
  const PeerTarget target{server.Port(), reply.WireSize(), kDocumentText};
  const auto count = [&](const std::string& name) {
    const auto calls = [&](unsigned long exchanges) {
      return static_cast<double>(CountCalls(name, {fileName, target, exchanges}, countFile));
    };
    const double once = calls(1);
    return (calls(1 + documents) - once) / static_cast<double>(documents);
  };
  AddRows("small documents", "calls a document", std::nullopt, count, &results);
  return results.Finish(options);
} catch (const std::exception& error) {
  std::fprintf(stderr, "bench_syscalls: %s\n", error.what());
  return EXIT_FAILURE;
}
