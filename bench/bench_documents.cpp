// What a small document costs on a connection that is kept.

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "bench/Contest.h"
#include "bench/Machine.h"
#include "bench/Peers.h"
#include "bench/ReplyServer.h"

namespace {

constexpr unsigned long kFileSize = 4096;
constexpr unsigned long kTextSize = 2048;
constexpr double kLimit = 1.15;

}  // namespace

int main(int argc, char** argv) try {
  const BenchOptions options = BeginBench(argc, argv, "documents");
  const int documents = options.quick ? 200 : 4000;
  std::printf(
      "Documents of %lu bytes with %lu bytes of text, %d one after another on one connection over\n"
      "loopback; opening and reading the file is part of the work\n",
      kFileSize, kTextSize, documents);
  const ScratchDir dir;
  const std::string fileName = dir.MakeFile("document", kFileSize);
  const ChunkedReply reply(kTextSize, kTextSize);
  const ReplyServer server(reply);
  const PeerTarget target{server.Port(), reply.WireSize(), kTextSize};
  Contest contest;
  const auto add = [&](const std::string& name) {
    const std::shared_ptr<Peer> peer = MakePeer(name, target);
    contest.Add(
        name, [] {},
        [=] {
          for (int i = 0; i < documents; ++i) {
            if (peer->Exchange(fileName) != kTextSize) return false;
          }
          return true;
        });
  };
  add(kBareName);
  for (const char* name : kOurNames) add(name);
  for (const char* name : kOtherNames) add(name);
  contest.Run(options.rounds);

  std::printf("the bare loop takes %.1f us of CPU for a document and does %.0f a second\n",
              contest.BaseCpu() / documents * 1e6, documents / contest.BaseWall());
  Results results;
  for (const char* name : kOurNames) {
    results.AddCosts(contest, std::string("small documents, ") + name, name, kLimit);
  }
  return results.Finish(options);
} catch (const std::exception& error) {
  std::fprintf(stderr, "bench_documents: %s\n", error.what());
  return EXIT_FAILURE;
}
