// What a command costs on the control port, against the same bytes sent to and fro over a bare
// socket.

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/Contest.h"
#include "bench/ControlPeers.h"
#include "control/SCA_TikaServiceClient.h"
#include "control/SCA_TikaServiceServer.h"
#include "platform/SCA_Sha256.h"
#include "tests/control/fake_service.h"

namespace {

constexpr char kBare[] = "bare ping-pong";
constexpr char kGrpc[] = "gRPC";
constexpr char kRedis[] = "Redis PING";
constexpr std::size_t kEntries = 500;
constexpr std::size_t kStatusReplySize = 44;
constexpr std::size_t kIdle = 1000;
constexpr double kLimits[] = {1.5, 2};  // by login mode, for one client

// The key of both ends in mode 1.
int GiveKey(void*, const char*, unsigned short, SCA_ControlKey* key, unsigned long*) {
  key->length = SCA_ControlKeySize;
  return 1;
}

// Answers at once and keeps nothing.
class BenchService : public FakeService {
 public:
  int GetStatus(unsigned long* status) override {
    *status = 11;
    return 1;
  }
};

class Host {
 public:
  explicit Host(unsigned long mode) : factory_(&service, mode) {
    SCA_SetControlKeyProvider(GiveKey, nullptr);
    unsigned long error = 0;
    server_ = std::make_unique<SCA_TikaServiceServer>(&factory_, 0, &error);
    if (server_->IsValid() == 0) throw std::runtime_error("cannot open a control port");
  }
  std::unique_ptr<SCA_TikaServiceClient> Connect() const {
    auto client = std::make_unique<SCA_TikaServiceClient>();
    client->GetNetTransport()->SetAllowNoLogin(1);  // of mode 0, with the key of mode 1 at hand
    unsigned long error = 0;
    if (client->Connect("127.0.0.1", server_->GetPort(), 5000, &error) == 0) {
      throw std::runtime_error("cannot connect to the control port");
    }
    return client;
  }

  unsigned short Port() const { return server_->GetPort(); }

  BenchService service;

 private:
  FakeFactory factory_;
  std::unique_ptr<SCA_TikaServiceServer> server_;
};

// Work done by several clients at once, each on a thread of its own.
template <class Call>
void InParallel(std::size_t clients, const Call& call) {
  if (clients == 1) return call(0);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < clients; ++i) threads.emplace_back([&call, i] { call(i); });
  for (std::thread& thread : threads) thread.join();
}

bool GetStatus(SCA_TikaServiceClient* client) {
  unsigned long status = 0;
  return client->GetStatus(&status) != 0;
}

bool GetServerLog(SCA_TikaServiceClient* client) {
  SCA_ConfigObj* log = nullptr;
  if (client->GetServerLog(1, 0xFFFFFFFF, 0xFFFFFFFF, &log) == 0) return false;
  log->Destroy();
  return true;
}

// One kind of exchange, as each peer does it.
struct Kind {
  const char* name;
  ExchangeSizes sizes;  // of our frames, without their proof
  bool (*ours)(SCA_TikaServiceClient*);
  bool (GrpcClient::*grpc)();
  bool isPing;  // small enough to be compared with Redis
};

template <class Peer>
using Peers = std::vector<std::unique_ptr<Peer>>;

// A contender: each of its connections makes that many exchanges, all at the same time.
template <class Peer, class Exchange>
void Enter(Contest* contest, const char* name, const Peers<Peer>& peers, int calls,
           const Exchange& exchange) {
  contest->Add(
      name, [] {},
      [&peers, calls, exchange] {
        std::atomic<bool> isGood{true};
        InParallel(peers.size(), [&](std::size_t i) {
          for (int n = 0; n < calls; ++n) {
            if (!exchange(peers[i].get())) isGood = false;
          }
        });
        return isGood.load();
      });
}

void Measure(const Kind& kind, unsigned long mode, std::size_t clients, int calls,
             const BenchOptions& options, Results* results) {
  Host host(mode);
  host.service.fill = [](SCA_ConfigObj* object) {
    for (std::size_t i = 0; i < kEntries; ++i) object->AddField("Mark", i, 0);
  };
  const RedisServer redisServer;
  const GrpcHost grpcHost(kEntries);
  const std::size_t proof = mode * SCA_DigestSize;
  Peers<PingPong> bare;
  Peers<SCA_TikaServiceClient> ours;
  Peers<RedisClient> redis;
  Peers<GrpcClient> grpc;
  for (std::size_t i = 0; i < clients; ++i) {
    bare.push_back(std::make_unique<PingPong>(
        ExchangeSizes{kind.sizes.request + proof, kind.sizes.reply + proof}));
    ours.push_back(host.Connect());
    redis.push_back(std::make_unique<RedisClient>(redisServer));
    grpc.push_back(std::make_unique<GrpcClient>(grpcHost));
  }
  Contest contest;
  Enter(&contest, kBare, bare, calls, [](PingPong* peer) { return peer->Exchange(); });
  Enter(&contest, "ours", ours, calls, kind.ours);
  Enter(&contest, kGrpc, grpc, calls, [&](GrpcClient* peer) { return (peer->*kind.grpc)(); });
  if (kind.isPing) {
    Enter(&contest, kRedis, redis, calls, [](RedisClient* peer) { return peer->Ping(); });
  }
  contest.Run(options.rounds);
  const std::string work = std::string(kind.name) + ", " + std::to_string(clients) +
                           " clients, mode " + std::to_string(mode);
  const bool hasLimit = clients == 1 && kind.isPing;
  ResultRow row{work,
                "time",
                contest.Wall("ours"),
                hasLimit ? std::optional<double>(kLimits[mode]) : std::nullopt,
                {{kGrpc, contest.Wall(kGrpc)}}};
  if (kind.isPing) row.peers.emplace_back(kRedis, contest.Wall(kRedis));
  results->Add(row);
  std::printf("%s: the bare ping-pong takes %.1f us\n", work.c_str(),
              contest.BaseWall() * 1e6 / calls / static_cast<double>(clients));
}

// GetStatus, as the first request of a connection.
std::string StatusRequest() {
  const std::string header("SCA1\0\0\0\x17\0\0\0\1\0\0\0\1", 16);
  return header + std::string(8, '\0') + "\x09GetStatus" + "2\1\1" + "0\1";
}

// What a thousand connections that do nothing cost the server in memory, each after one exchange.
void MeasureIdle(std::size_t count, Results* results) {
  rlimit handles{};
  ::getrlimit(RLIMIT_NOFILE, &handles);
  handles.rlim_cur = std::min<rlim_t>(handles.rlim_max, 8 * count);
  ::setrlimit(RLIMIT_NOFILE, &handles);
  const Host host(0);
  const RedisServer redis;
  Peers<IdleConnection> connections;
  connections.reserve(2 * count);
  const auto grow = [&](int pid, const auto& connect) {
    connect();  // what the first one makes stays
    const double before = MemoryOf(pid);
    for (std::size_t i = 1; i < count; ++i) connect();
    return (MemoryOf(pid) - before) / (1 << 20);
  };
  const double ours = grow(::getpid(), [&] {
    connections.push_back(
        std::make_unique<IdleConnection>(host.Port(), true, StatusRequest(), kStatusReplySize));
  });
  const double theirs = grow(redis.ProcessId(), [&] {
    connections.push_back(
        std::make_unique<IdleConnection>(redis.Port(), false, "*1\r\n$4\r\nPING\r\n", 7));
  });
  results->Add({std::to_string(count) + " idle connections", "MiB", {ours, 0}, 20, {}});
  std::printf("%zu idle connections take %.1f MiB, those of Redis %.1f MiB\n", count, ours, theirs);
}

}  // namespace

int main(int argc, char** argv) try {
  const BenchOptions options = BeginBench(argc, argv, "control");
  std::printf(
      "Commands on the control port, beside %s and Redis's PING; the time that passes, since both\n"
      "ends are at work. On one core: taskset -c 0\n",
      ControlPeerVersions().c_str());
  const Kind status{"GetStatus", {39, kStatusReplySize}, GetStatus, &GrpcClient::GetStatus, true};
  const Kind log{
      "GetServerLog of 500 fields", {101, 5435}, GetServerLog, &GrpcClient::GetServerLog, false};
  const int calls = options.quick ? 100 : 4000;
  Results results;
  for (const unsigned long mode : {0UL, 1UL}) {
    for (const std::size_t clients : {1U, 8U, 64U}) {
      const int each = std::max(calls / static_cast<int>(clients), 10);
      Measure(status, mode, clients, each, options, &results);
    }
    Measure(log, mode, 1, std::max(calls / 20, 10), options, &results);
  }
  MeasureIdle(kIdle, &results);
  return results.Finish(options);
} catch (const std::exception& error) {
  std::fprintf(stderr, "bench_control: %s\n", error.what());
  return EXIT_FAILURE;
}
