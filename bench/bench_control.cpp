// What a command costs on the control port, against the same bytes sent to and fro over a bare
// socket.

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/Contest.h"
#include "control/SCA_TikaServiceClient.h"
#include "control/SCA_TikaServiceServer.h"
#include "tests/control/fake_service.h"

namespace {

constexpr char kBare[] = "bare ping-pong";
constexpr double kLimits[] = {1.5, 2};  // by login mode, for one client

// Bytes of one exchange, frames included.
struct Sizes {
  std::size_t request;
  std::size_t reply;
};

void SendAll(int fd, const std::vector<char>& bytes) {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const ssize_t count = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) throw std::runtime_error("the peer of the ping-pong is gone");
    sent += static_cast<std::size_t>(count);
  }
}

bool ReceiveAll(int fd, std::vector<char>* bytes) {
  for (std::size_t got = 0; got < bytes->size();) {
    const ssize_t count = ::recv(fd, bytes->data() + got, bytes->size() - got, 0);
    if (count <= 0) return false;
    got += static_cast<std::size_t>(count);
  }
  return true;
}

// A pair of connected sockets on loopback whose other end answers on a thread of its own.
class PingPong {
 public:
  explicit PingPong(const Sizes& sizes) : request_(sizes.request), reply_(sizes.reply) {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* general = reinterpret_cast<sockaddr*>(&address);
    fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::bind(listener, general, length) != 0 || ::listen(listener, 1) != 0 ||
        ::getsockname(listener, general, &length) != 0 || ::connect(fd_, general, length) != 0) {
      throw std::runtime_error("cannot connect on loopback");
    }
    peer_ = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    ::close(listener);
    const int on = 1;
    for (const int fd : {fd_, peer_}) {
      ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
    thread_ = std::thread([this, sizes] {
      std::vector<char> request(sizes.request);
      const std::vector<char> reply(sizes.reply);
      while (ReceiveAll(peer_, &request)) SendAll(peer_, reply);
    });
  }
  ~PingPong() {
    ::shutdown(fd_, SHUT_RDWR);
    thread_.join();
    ::close(fd_);
    ::close(peer_);
  }
  PingPong(const PingPong&) = delete;
  PingPong& operator=(const PingPong&) = delete;

  bool Exchange() {
    SendAll(fd_, request_);
    return ReceiveAll(fd_, &reply_);
  }

 private:
  std::vector<char> request_;
  std::vector<char> reply_;
  int fd_ = -1;
  int peer_ = -1;
  std::thread thread_;
};

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
    unsigned long error = 0;
    if (client->Connect("127.0.0.1", server_->GetPort(), 5000, &error) == 0) {
      throw std::runtime_error("cannot connect to the control port");
    }
    return client;
  }

  BenchService service;

 private:
  FakeFactory factory_;
  std::unique_ptr<SCA_TikaServiceServer> server_;
};

// Work done by several clients at once, each on a thread of its own.
template <class Call>
bool InParallel(std::size_t clients, const Call& call) {
  if (clients == 1) return call(0);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < clients; ++i) threads.emplace_back([&call, i] { call(i); });
  for (std::thread& thread : threads) thread.join();
  return true;
}

void Measure(const std::string& name, unsigned long mode, std::size_t clients, const Sizes& sizes,
             bool (*call)(SCA_TikaServiceClient*), int calls, const BenchOptions& options,
             Results* results) {
  Host host(mode);
  host.service.objectFields = 500;
  std::vector<std::unique_ptr<PingPong>> bare;
  std::vector<std::unique_ptr<SCA_TikaServiceClient>> ours;
  for (std::size_t i = 0; i < clients; ++i) {
    bare.push_back(std::make_unique<PingPong>(sizes));
    ours.push_back(host.Connect());
  }
  const auto nothing = [] {};
  Contest contest;
  contest.Add(kBare, nothing, [&] {
    return InParallel(clients, [&](std::size_t i) {
      bool isGood = true;
      for (int n = 0; n < calls; ++n) isGood = bare[i]->Exchange() && isGood;
      return isGood;
    });
  });
  contest.Add("ours", nothing, [&] {
    return InParallel(clients, [&](std::size_t i) {
      bool isGood = true;
      for (int n = 0; n < calls; ++n) isGood = call(ours[i].get()) && isGood;
      return isGood;
    });
  });
  contest.Run(options.rounds);
  const std::optional<double> limit =
      clients == 1 && sizes.reply < 1000 ? std::optional<double>(kLimits[mode]) : std::nullopt;
  const std::string work =
      name + ", " + std::to_string(clients) + " clients, mode " + std::to_string(mode);
  results->Add({work, "time", contest.Wall("ours"), limit, {}});
  std::printf("%s: the bare ping-pong takes %.1f us\n", work.c_str(),
              contest.BaseWall() * 1e6 / calls / static_cast<double>(clients));
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

}  // namespace

int main(int argc, char** argv) try {
  const BenchOptions options = BeginBench(argc, argv, "control");
  std::printf("Commands on the control port; time that passes, since both ends are at work\n");
  const int calls = options.quick ? 100 : 4000;
  Results results;
  for (const unsigned long mode : {0UL, 1UL}) {
    // A frame of GetStatus and of its reply; 32 bytes of proof are added in mode 1.
    const std::size_t proof = mode * 32;
    const Sizes status{39 + proof, 44 + proof};
    for (const std::size_t clients : {1U, 8U, 64U}) {
      const int each = std::max(calls / static_cast<int>(clients), 10);
      Measure("GetStatus", mode, clients, status, GetStatus, each, options, &results);
    }
    const Sizes log{101 + proof, 5435 + proof};
    Measure("GetServerLog of 500 fields", mode, 1, log, GetServerLog, calls / 20, options,
            &results);
  }
  return results.Finish(options);
} catch (const std::exception& error) {
  std::fprintf(stderr, "bench_control: %s\n", error.what());
  return EXIT_FAILURE;
}
