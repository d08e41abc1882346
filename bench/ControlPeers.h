/// What the control port is measured against: the same exchange over a bare socket, a Redis server
/// and a gRPC service, all on loopback.
#ifndef SCA_BENCH_CONTROLPEERS_H
#define SCA_BENCH_CONTROLPEERS_H

#include <memory>
#include <string>
#include <thread>
#include <vector>

/// Bytes of one exchange.
struct ExchangeSizes {
  std::size_t request;
  std::size_t reply;
};

/// A connected pair of sockets whose other end answers on a thread of its own.
class PingPong {
 public:
  explicit PingPong(const ExchangeSizes& sizes);
  ~PingPong();
  PingPong(const PingPong&) = delete;
  PingPong& operator=(const PingPong&) = delete;

  bool Exchange();

 private:
  std::vector<char> request_;
  std::vector<char> reply_;
  int fd_ = -1;
  int peer_ = -1;
  std::thread thread_;
};

/// A Redis server of its own, ended with the object.
class RedisServer {
 public:
  RedisServer();
  ~RedisServer();
  RedisServer(const RedisServer&) = delete;
  RedisServer& operator=(const RedisServer&) = delete;

  unsigned short Port() const { return port_; }
  int ProcessId() const { return pid_; }

 private:
  unsigned short port_;
  int pid_ = -1;
};

/// A connection to it that sends PING and reads PONG.
class RedisClient {
 public:
  explicit RedisClient(const RedisServer& server);
  ~RedisClient();
  RedisClient(const RedisClient&) = delete;
  RedisClient& operator=(const RedisClient&) = delete;

  bool Ping();

 private:
  int fd_;
};

/// A gRPC service in this process that answers as the control port's service does.
class GrpcHost {
 public:
  /// @param entries  Of the log that it gives.
  explicit GrpcHost(std::size_t entries);
  ~GrpcHost();
  GrpcHost(const GrpcHost&) = delete;
  GrpcHost& operator=(const GrpcHost&) = delete;

  std::string Address() const;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

/// A connection to it.
class GrpcClient {
 public:
  explicit GrpcClient(const GrpcHost& host);
  ~GrpcClient();
  GrpcClient(const GrpcClient&) = delete;
  GrpcClient& operator=(const GrpcClient&) = delete;

  bool GetStatus();
  bool GetServerLog();

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

std::string ControlPeerVersions();

/// A connection whose client takes no memory in this process, after one exchange of bytes.
class IdleConnection {
 public:
  /// @param hasGreeting  The server speaks first, in a frame of the control protocol.
  /// @param request      Sent once; `replySize` bytes come back.
  IdleConnection(unsigned short port, bool hasGreeting, const std::string& request,
                 std::size_t replySize);
  ~IdleConnection();
  IdleConnection(const IdleConnection&) = delete;
  IdleConnection& operator=(const IdleConnection&) = delete;

 private:
  int fd_;
};

/// @return Bytes of memory that a process has.
double MemoryOf(int pid);

#endif  // SCA_BENCH_CONTROLPEERS_H
