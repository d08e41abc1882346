// What it costs a client to send a large file.

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <vector>

#include "bench/Contest.h"
#include "bench/Machine.h"
#include "bench/Peers.h"
#include "bench/ReplyServer.h"

namespace {

constexpr unsigned long long kMiB = 1 << 20;
constexpr unsigned long kTextSize = 2048;
constexpr double kLimit = 0.65;

void MeasureUpload(const std::string& congestionControl, const BenchOptions& options,
                   const ScratchDir& dir, Results* results) {
  const unsigned long long size = (options.quick ? 16 : 256) * kMiB;
  const std::string fileName = dir.MakeFile("large", size);
  const std::string tinyFile = dir.MakeFile("tiny", 16);
  const ChunkedReply reply(kTextSize, kTextSize);
  const ReplyServer server(reply);
  const PeerTarget target{server.Port(), reply.WireSize(), kTextSize};
  // Each time takes a new connection, whose history is in what it costs.
  const auto connect = [&](Peer* peer) {
    peer->Disconnect();
    if (peer->Exchange(tinyFile) != kTextSize) throw std::runtime_error("tiny file refused");
    // Ours avoids those that pace.
    const std::string inUse = CongestionControlInUse();
    if (inUse.find(congestionControl) == std::string::npos) {
      throw std::runtime_error("connections use " + inUse);
    }
  };
  ChooseCongestionControl(congestionControl);
  Contest contest;
  std::vector<std::string> names = {kBareName, kOurNames[0]};
  names.insert(names.end(), std::begin(kOtherNames), std::end(kOtherNames));
  for (const std::string& name : names) {
    const std::shared_ptr<Peer> peer = MakePeer(name, target);
    contest.Add(
        name, [=] { connect(peer.get()); }, [=] { return peer->Exchange(fileName) == kTextSize; });
  }
  contest.Run(options.rounds);
  std::printf(
      "%s: a file of %llu MiB in the page cache; the bare loop takes %.1f ms of CPU, %.1f ms in "
      "all; connections used %s\n",
      congestionControl.c_str(), size / kMiB, contest.BaseCpu() * 1e3, contest.BaseWall() * 1e3,
      CongestionControlInUse().c_str());
  results->AddCosts(contest, "upload, " + congestionControl, kOurNames[0], kLimit);
}

}  // namespace

int main(int argc, char** argv) try {
  const BenchOptions options = BeginBench(argc, argv, "upload");
  std::printf(
      "Sending a file over loopback; the bare loop reads and sends %lu KiB at a time; all three\n"
      "variants upload alike, the first stands for them\n",
      kBareSendSize >> 10);
  const ScratchDir dir;
  Results results;
  for (const std::string& congestionControl : CongestionControls()) {
    if (MayChoose(congestionControl)) {
      MeasureUpload(congestionControl, options, dir, &results);
    } else {
      std::printf("%s: skipped, this user may not choose it\n", congestionControl.c_str());
    }
  }
  return results.Finish(options);
} catch (const std::exception& error) {
  std::fprintf(stderr, "bench_upload: %s\n", error.what());
  return EXIT_FAILURE;
}
