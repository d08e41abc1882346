#include "bench/ControlPeers.h"

#include <grpcpp/grpcpp.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "status.grpc.pb.h"

namespace {

sockaddr_in Loopback(unsigned short port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

void SendAll(int fd, const char* bytes, std::size_t length) {
  for (std::size_t sent = 0; sent < length;) {
    const ssize_t count = ::send(fd, bytes + sent, length - sent, MSG_NOSIGNAL);
    if (count <= 0) throw std::runtime_error("the peer is gone");
    sent += static_cast<std::size_t>(count);
  }
}

bool ReceiveAll(int fd, char* bytes, std::size_t length) {
  for (std::size_t got = 0; got < length;) {
    const ssize_t count = ::recv(fd, bytes + got, length - got, 0);
    if (count <= 0) return false;
    got += static_cast<std::size_t>(count);
  }
  return true;
}

// A connected socket; -1 when nobody listens.
int ConnectTo(unsigned short port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = Loopback(port);
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    ::close(fd);
    return -1;
  }
  const int on = 1;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return fd;
}

// A listening socket on a free port.
int Listen(unsigned short* port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = Loopback(0);
  socklen_t length = sizeof address;
  auto* general = reinterpret_cast<sockaddr*>(&address);
  if (::bind(fd, general, length) != 0 || ::listen(fd, 1) != 0 ||
      ::getsockname(fd, general, &length) != 0) {
    throw std::runtime_error("cannot listen on loopback");
  }
  *port = ntohs(address.sin_port);
  return fd;
}

class Service final : public sca_bench::Host::Service {
 public:
  explicit Service(std::size_t entries) {
    for (std::size_t i = 0; i < entries; ++i) {
      auto* entry = log_.add_entries();
      entry->set_name("Mark");
      entry->set_value(std::to_string(i + 1));
    }
  }

 private:
  grpc::Status GetStatus(grpc::ServerContext* /*context*/, const sca_bench::Empty* /*request*/,
                         sca_bench::Status* status) override {
    status->set_status(11);
    return grpc::Status::OK;
  }
  grpc::Status GetServerLog(grpc::ServerContext* /*context*/, const sca_bench::Empty* /*request*/,
                            sca_bench::Log* log) override {
    *log = log_;
    return grpc::Status::OK;
  }

  sca_bench::Log log_;
};

}  // namespace

PingPong::PingPong(const ExchangeSizes& sizes) : request_(sizes.request), reply_(sizes.reply) {
  unsigned short port = 0;
  const int listener = Listen(&port);
  fd_ = ConnectTo(port);
  peer_ = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  ::close(listener);
  const int on = 1;
  ::setsockopt(peer_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  thread_ = std::thread([this, sizes] {
    std::vector<char> request(sizes.request);
    const std::vector<char> reply(sizes.reply);
    while (ReceiveAll(peer_, request.data(), request.size())) {
      SendAll(peer_, reply.data(), reply.size());
    }
  });
}

PingPong::~PingPong() {
  ::shutdown(fd_, SHUT_RDWR);
  thread_.join();
  ::close(fd_);
  ::close(peer_);
}

bool PingPong::Exchange() {
  SendAll(fd_, request_.data(), request_.size());
  return ReceiveAll(fd_, reply_.data(), reply_.size());
}

RedisServer::RedisServer() : port_(0) {
  ::close(Listen(&port_));
  const std::string port = std::to_string(port_);
  const char* arguments[] = {"redis-server", "--port",    port.c_str(), "--bind",
                             "127.0.0.1",    "--save",    "",           "--appendonly",
                             "no",           "--logfile", "/dev/null",  nullptr};
  if (::posix_spawnp(&pid_, arguments[0], nullptr, nullptr, const_cast<char**>(arguments),
                     environ) != 0) {
    throw std::runtime_error("cannot start redis-server");
  }
  for (int tries = 0; tries < 500; ++tries) {
    const int fd = ConnectTo(port_);
    if (fd >= 0) {
      ::close(fd);
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  throw std::runtime_error("redis-server does not answer");
}

RedisServer::~RedisServer() {
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

RedisClient::RedisClient(const RedisServer& server) : fd_(ConnectTo(server.Port())) {}

RedisClient::~RedisClient() {
  ::close(fd_);
}

bool RedisClient::Ping() {
  // As its client libraries send it: the short form is meant for people and costs the server more.
  constexpr char kPing[] = "*1\r\n$4\r\nPING\r\n";
  char pong[7];
  SendAll(fd_, kPing, sizeof kPing - 1);
  return ReceiveAll(fd_, pong, sizeof pong) && std::memcmp(pong, "+PONG\r\n", sizeof pong) == 0;
}

struct GrpcHost::Parts {
  explicit Parts(std::size_t entries) : service(entries) {}

  Service service;
  int port = 0;
  std::unique_ptr<grpc::Server> server;
};

GrpcHost::GrpcHost(std::size_t entries) : parts_(std::make_unique<Parts>(entries)) {
  grpc::ServerBuilder builder;
  builder.AddListeningPort("127.0.0.1:0", grpc::InsecureServerCredentials(), &parts_->port);
  builder.RegisterService(&parts_->service);
  parts_->server = builder.BuildAndStart();
  if (parts_->server == nullptr) throw std::runtime_error("cannot start a gRPC server");
}

GrpcHost::~GrpcHost() {
  parts_->server->Shutdown();
}

std::string GrpcHost::Address() const {
  return "127.0.0.1:" + std::to_string(parts_->port);
}

struct GrpcClient::Parts {
  std::unique_ptr<sca_bench::Host::Stub> stub;
};

GrpcClient::GrpcClient(const GrpcHost& host) : parts_(std::make_unique<Parts>()) {
  grpc::ChannelArguments arguments;
  // A connection of its own, as the other peers have.
  arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
  parts_->stub = sca_bench::Host::NewStub(
      grpc::CreateCustomChannel(host.Address(), grpc::InsecureChannelCredentials(), arguments));
}

GrpcClient::~GrpcClient() = default;

bool GrpcClient::GetStatus() {
  grpc::ClientContext context;
  sca_bench::Status status;
  return parts_->stub->GetStatus(&context, sca_bench::Empty(), &status).ok() &&
         status.status() == 11;
}

bool GrpcClient::GetServerLog() {
  grpc::ClientContext context;
  sca_bench::Log log;
  return parts_->stub->GetServerLog(&context, sca_bench::Empty(), &log).ok() &&
         log.entries_size() > 0;
}

std::string ControlPeerVersions() {
  return "gRPC " + grpc::Version();
}

IdleConnection::IdleConnection(unsigned short port, bool hasGreeting, const std::string& request,
                               std::size_t replySize)
    : fd_(ConnectTo(port)) {
  char bytes[1024];
  bool isServed = fd_ >= 0;
  if (hasGreeting) {
    // A header of 16 bytes, which tells the length of the rest.
    isServed = isServed && ReceiveAll(fd_, bytes, 16);
    const std::size_t length =
        static_cast<unsigned char>(bytes[6]) * 256U + static_cast<unsigned char>(bytes[7]);
    isServed = isServed && length <= sizeof bytes && ReceiveAll(fd_, bytes, length);
  }
  if (isServed) SendAll(fd_, request.data(), request.size());
  if (!isServed || replySize > sizeof bytes || !ReceiveAll(fd_, bytes, replySize)) {
    throw std::runtime_error("a connection that is to be idle is not served");
  }
}

IdleConnection::~IdleConnection() {
  ::close(fd_);
}

double MemoryOf(int pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/statm");
  double total = 0;
  double resident = 0;
  file >> total >> resident;
  return resident * static_cast<double>(::sysconf(_SC_PAGESIZE));
}
