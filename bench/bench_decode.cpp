// What it costs a client to take a long chunked reply.

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "bench/Contest.h"
#include "bench/Machine.h"
#include "bench/Peers.h"
#include "bench/ReplyServer.h"

namespace {

constexpr unsigned long long kMiB = 1 << 20;
constexpr double kVariantLimit = 1.15;

struct Chunks {
  unsigned long size;
  double limit;
};
constexpr Chunks kChunks[] = {{4096, 1.25}, {32768, 1.20}};

// The variants against each other: the slowest as a multiple of the fastest.
ResultRow CompareVariants(const Contest& contest, const std::string& work) {
  Figure fastest = contest.Cpu(kOurNames[0]);
  Figure slowest = fastest;
  for (const char* name : kOurNames) {
    const Figure figure = contest.Cpu(name);
    if (figure.median < fastest.median) fastest = figure;
    if (figure.median > slowest.median) slowest = figure;
  }
  const Figure ratio{slowest.median / fastest.median, slowest.spread / fastest.median};
  return {work + ", slowest variant / fastest", "client CPU", ratio, kVariantLimit, {}};
}

void MeasureChunks(const Chunks& chunks, const std::string& congestionControl,
                   const BenchOptions& options, const std::string& fileName, Results* results) {
  const unsigned long long textSize = (options.quick ? 16 : 256) * kMiB;
  const ChunkedReply reply(textSize, chunks.size);
  const ReplyServer server(reply, congestionControl);
  const PeerTarget target{server.Port(), reply.WireSize(), textSize};
  Contest contest;
  const auto add = [&](const std::string& name) {
    const std::shared_ptr<Peer> peer = MakePeer(name, target);
    // A connection's history (window, pacing) is in what it costs: each time takes a new one.
    contest.Add(
        name, [peer] { peer->Disconnect(); }, [=] { return peer->Exchange(fileName) == textSize; });
  };
  add(kBareName);
  for (const char* name : kOurNames) add(name);
  for (const char* name : kOtherNames) add(name);
  contest.Run(options.rounds);

  const std::string work = std::to_string(chunks.size >> 10) + " KiB chunks, " + congestionControl;
  std::printf("%s: %llu MiB of text; the bare loop takes %.1f ms of CPU, %.1f ms in all\n",
              work.c_str(), textSize / kMiB, contest.BaseCpu() * 1e3, contest.BaseWall() * 1e3);
  for (const char* name : kOurNames) {
    results->AddCosts(contest, work + ", " + name, name, chunks.limit);
  }
  results->Add(CompareVariants(contest, work));
}

}  // namespace

int main(int argc, char** argv) try {
  const BenchOptions options = BeginBench(argc, argv, "decode");
  std::printf(
      "Decoding a chunked reply over loopback; how its sender is paced (congestion control) "
      "decides\n"
      "how much of the sending is done in the receiver's time. The bare loop receives %lu KiB at "
      "a\n"
      "time and drops them; the peers collect the text in a buffer of 1 MiB\n",
      kBareReceiveSize >> 10);
  const ScratchDir dir;
  const std::string fileName = dir.MakeFile("tiny", 16);
  Results results;
  for (const std::string& congestionControl : CongestionControls()) {
    if (!MayChoose(congestionControl)) {
      std::printf("%s: skipped, this user may not choose it\n", congestionControl.c_str());
      continue;
    }
    for (const Chunks& chunks : kChunks) {
      MeasureChunks(chunks, congestionControl, options, fileName, &results);
    }
  }
  return results.Finish(options);
} catch (const std::exception& error) {
  std::fprintf(stderr, "bench_decode: %s\n", error.what());
  return EXIT_FAILURE;
}
