#include "platform/SCA_TcpSockFactory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "platform/SCA_Error.h"
#include "platform/SCA_File.h"
#include "platform/SCA_Text.h"
#include "platform/posix/SCA_Posix.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

constexpr unsigned long Code(int error) {
  return static_cast<unsigned long>(error);
}

std::atomic<int> interrupts{0};  // counted by the handler of SIGUSR1

// Runs an action on a thread of its own as soon as the thread that makes this is blocked.
class WhenBlocked {
 public:
  using Action = std::function<void(const WhenBlocked&)>;
  explicit WhenBlocked(const Action& action)
      : thread_([this, action] {
          EXPECT_TRUE(BlocksSoon(blockedId_));
          action(*this);
        }) {}
  ~WhenBlocked() { thread_.join(); }

  // Interrupts the thread and waits until it is blocked again.
  void Interrupt() const {
    const int before = interrupts;
    ::pthread_kill(blocked_, SIGUSR1);
    EXPECT_TRUE(Eventually([&] { return interrupts > before; }));
    EXPECT_TRUE(BlocksSoon(blockedId_));
  }

 private:
  const pid_t blockedId_ = ::gettid();
  const pthread_t blocked_ = ::pthread_self();
  std::thread thread_;
};

// A port of loopback: bound only, or listening with this backlog.
struct Port {
  explicit Port(int backlog = -1) {
    const int little = 32 << 10;  // inherited by what is accepted
    ::setsockopt(fd.Get(), SOL_SOCKET, SO_RCVBUF, &little, sizeof little);
    socklen_t length = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::bind(fd.Get(), Address(), length), 0);
    EXPECT_EQ(::getsockname(fd.Get(), Address(), &length), 0);
    EXPECT_TRUE(backlog < 0 || ::listen(fd.Get(), backlog) == 0);
  }
  sockaddr* Address() { return reinterpret_cast<sockaddr*>(&address); }
  unsigned short Number() const { return ntohs(address.sin_port); }

  SCA_Fd fd{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  sockaddr_in address{};
};

// A TCP connection over loopback: the end under test, and the peer that the test plays. There is
// little room for what the end under test sends, so that a send blocks soon.
struct Connection {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);  // owned by the socket
  SCA_Fd peer;
  SCA_Owned<SCA_VirtualTcpSock> socket;

  Connection() {
    Port port(1);
    const int little = 32 << 10;
    const int much = 200 << 10;
    const int atOnce = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &little, sizeof little);
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &much, sizeof much);
    EXPECT_EQ(::connect(fd, port.Address(), sizeof port.address), 0);
    peer.Reset(::accept4(port.fd.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    ::setsockopt(peer.Get(), IPPROTO_TCP, TCP_NODELAY, &atOnce, sizeof atOnce);
    socket.reset(SCA_CreateTcpSock(fd));
  }
  int Queued() const {
    int count = 0;
    EXPECT_EQ(::ioctl(fd, FIONREAD, &count), 0);
    return count;
  }
  // Sends from the peer and waits until the bytes are in the queue of the end under test.
  void Deliver(const std::string& bytes) const {
    const int wanted = Queued() + static_cast<int>(bytes.size());
    EXPECT_GT(::send(peer.Get(), bytes.data(), bytes.size(), 0), 0);
    EXPECT_TRUE(Eventually([&] { return Queued() == wanted; }));
  }
  // Ends the connection in good order or with a reset, and waits until that has arrived.
  void ClosePeer(bool reset) {
    const linger hard{1, 0};
    if (reset) ::setsockopt(peer.Get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    peer.Reset();
    pollfd entry{fd, POLLRDHUP, 0};
    EXPECT_EQ(::poll(&entry, 1, kDeadlineMs), 1);
  }
};

// The operations, giving 0 or the error code.

unsigned long Wait(SCA_VirtualTcpSock& socket, unsigned long timeoutMs) {
  unsigned long error = 0;
  return socket.WaitForData(timeoutMs, &error) != 0 ? 0 : error;
}

unsigned long Receive(SCA_VirtualTcpSock& socket, unsigned long size, std::string* bytes) {
  bytes->assign(size, '?');
  unsigned long received = 0;
  unsigned long error = 0;
  const bool done = socket.Receive(bytes->data(), size, &received, &error) != 0;
  EXPECT_TRUE(done ? received >= 1 && received <= size : received == 0) << received;
  bytes->resize(received);
  return done ? 0 : error;
}

unsigned long Send(SCA_VirtualTcpSock& socket, const std::string& bytes) {
  unsigned long sent = 0;
  unsigned long error = 0;
  const bool done = socket.Send(bytes.data(), bytes.size(), &sent, &error) != 0;
  EXPECT_TRUE(done ? sent == bytes.size() : sent < bytes.size()) << sent;
  return done ? 0 : error;
}

unsigned long Connect(SCA_VirtualTcpSock& socket, const std::string& host, unsigned short port,
                      unsigned long timeoutMs = kDeadlineMs) {
  unsigned long error = 0;
  return socket.Connect(host.c_str(), port, timeoutMs, &error) != 0 ? 0 : error;
}

std::string Bytes(std::size_t count, unsigned seed = 1) {
  std::mt19937 random(seed);
  std::string bytes(count, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

// More than the queues of a connection hold.
const std::string& TooMuch() {
  static const std::string bytes = [] {
    const std::string block = Bytes(65537);
    std::string all;
    while (all.size() < 16 << 20) all += block;
    return all;
  }();
  return bytes;
}

// Sends a file of too many bytes as its user does: what ends early goes on by a plain send.
unsigned long SendFile(SCA_VirtualTcpSock& socket) {
  const TempDir dir;
  SCA_File file;
  unsigned long sent = 0;
  unsigned long error = 0;
  EXPECT_EQ(file.Open(dir.Write("f", TooMuch()).c_str(), SCA_FileOpenRead, &error), 1);
  if (socket.SendFile(&file, TooMuch().size(), &sent, &error) == 0) return error;
  return sent == TooMuch().size() ? 0 : Send(socket, TooMuch());
}

// What the look-ahead is compared with: a poll and a receive, and nothing else.
class PlainSocket final : public SCA_VirtualTcpSock {
 public:
  explicit PlainSocket(int fd) : fd_(fd) {}
  int WaitForData(unsigned long timeoutMs, unsigned long* error) override {
    char byte = 0;
    if (Polls(timeoutMs, error) == 0) return 0;
    if (broken_ == 0 && ::recv(fd_.Get(), &byte, 1, MSG_PEEK) < 0)
      broken_ = SCA_SystemError().Code();
    *error = broken_;
    return broken_ == 0 ? 1 : 0;
  }
  int Receive(char* buffer, unsigned long length, unsigned long* received,
              unsigned long* error) override {
    if (Polls(idleTimeoutMs_, error) == 0) return 0;
    const ssize_t count = ::recv(fd_.Get(), buffer, length, 0);
    if (count < 0) broken_ = SCA_SystemError().Code();
    *error = count == 0 ? ECONNRESET : broken_;
    if (count > 0) *received = static_cast<unsigned long>(count);
    return count > 0 ? 1 : 0;
  }
  int Connect(const char*, unsigned short, unsigned long, unsigned long*) override { return 0; }
  int Send(const char*, unsigned long, unsigned long*, unsigned long*) override { return 0; }
  int SetOption(int, int) override { return 0; }
  void SetCancelEvent(SCA_Event*) override {}
  void SetIdleTimeout(unsigned long timeoutMs) override { idleTimeoutMs_ = timeoutMs; }
  void Shutdown() override {}

 private:
  int Polls(unsigned long timeoutMs, unsigned long* error) {
    pollfd entry{fd_.Get(), POLLIN, 0};
    *error = ETIMEDOUT;
    return ::poll(&entry, 1, static_cast<int>(timeoutMs));
  }
  SCA_Fd fd_;
  unsigned long broken_ = 0;
  unsigned long idleTimeoutMs_ = 0;
};

// Everything that a client sees of a peer that follows a random script, step by step.
std::string Observe(SCA_TcpSockFactory factory, unsigned seed) {
  SCA_SetTcpSockFactory(factory);
  Connection connection;
  SCA_SetTcpSockFactory(nullptr);
  SCA_VirtualTcpSock& socket = *connection.socket;
  socket.SetIdleTimeout(1);
  std::mt19937 random(seed);
  const unsigned long sizes[] = {1, 2, 7, 100, 4096, 16384, 20000, 200000};
  std::size_t pending = 0;
  std::string seen;
  const auto wait = [&] { seen += " wait " + std::to_string(Wait(socket, 0)); };
  const auto receive = [&] {
    std::string bytes;
    seen += " receive " + std::to_string(Receive(socket, sizes[random() % 8], &bytes)) + ' ' +
            std::to_string(bytes.size()) + ' ' + std::to_string(std::hash<std::string>()(bytes));
    pending -= bytes.size();
  };
  const auto deliver = [&] {
    const unsigned long size = sizes[random() % 7];
    if (pending > 30000) return;  // or the queue would be full
    connection.Deliver(Bytes(size, seed));
    pending += size;
  };
  for (int step = 0; step < 60; ++step) {
    const std::function<void()> actions[] = {deliver, wait, receive};
    actions[random() % 3]();
  }
  connection.ClosePeer(seed % 2 == 1);
  for (int step = 0; step < 12; ++step) random() % 2 == 0 ? wait() : receive();
  return seen;
}

TEST(TcpSock, TheLookAheadShowsWhatAPlainSocketShows) {
  for (unsigned seed = 1; seed <= 100; ++seed) {
    ASSERT_EQ(Observe(nullptr, seed),
              Observe([](int fd) -> SCA_VirtualTcpSock* { return new PlainSocket(fd); }, seed))
        << seed;
  }
}

TEST(TcpSock, AnIpv6AddressIsWrittenInBrackets) {
  char text[SCA_HostPortSize];
  EXPECT_EQ(SCA_FormatHostPort("::1", 80, text, sizeof text), 1);
  EXPECT_STREQ(text, "[::1]:80");
  EXPECT_EQ(SCA_FormatHostPort("host", 65535, text, 10), 0);
  EXPECT_STREQ(text, "host:6553");
}

// The calls that can block, against a peer that neither speaks nor reads.
class BlockedTcpSock : public ::testing::Test {
 protected:
  // The queue of the listener is full after one connection; the others never come about.
  BlockedTcpSock() {
    for (SCA_Fd& filler : fillers_) {
      filler.Reset(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
      (void)::connect(filler.Get(), full_.Address(), sizeof full_.address);
      pollfd entry{fillers_[0].Get(), POLLOUT, 0};
      EXPECT_EQ(::poll(&entry, 1, kDeadlineMs), 1);
    }
  }

  // Makes each call with this limit, on a connection of its own.
  void ForEachCall(
      unsigned long timeoutMs,
      const std::function<void(SCA_VirtualTcpSock&, std::function<unsigned long()>)>& test) {
    for (const std::string name : {"connect", "wait", "receive", "send", "send file"}) {
      SCOPED_TRACE(name);
      Connection connection;
      SCA_VirtualTcpSock& socket = *connection.socket;
      socket.SetIdleTimeout(timeoutMs);
      std::string bytes;
      test(socket, [&] {
        if (name == "connect") return Connect(socket, "127.0.0.1", full_.Number(), timeoutMs);
        if (name == "wait") return Wait(socket, timeoutMs);
        if (name == "send file") return SendFile(socket);
        return name == "send" ? Send(socket, TooMuch()) : Receive(socket, 10, &bytes);
      });
    }
  }

 private:
  Port full_{0};
  SCA_Fd fillers_[3];
};

TEST_F(BlockedTcpSock, GivesUpAfterItsTimeOut) {
  ForEachCall(60, [](SCA_VirtualTcpSock&, const std::function<unsigned long()>& call) {
    const Stopwatch watch;
    EXPECT_EQ(call(), Code(ETIMEDOUT));
    EXPECT_GE(watch.Ms(), 60);
    EXPECT_LT(watch.Ms(), 5000);
  });
}

TEST_F(BlockedTcpSock, EndsSoonAfterACancel) {
  ForEachCall(kDeadlineMs,
              [](SCA_VirtualTcpSock& socket, const std::function<unsigned long()>& call) {
                SCA_Event cancel(0, 0);  // its answer unsets it
                Stopwatch watch;
                socket.SetCancelEvent(&cancel);
                {
                  const WhenBlocked canceller([&](const WhenBlocked&) {
                    watch = Stopwatch();
                    cancel.Set();
                  });
                  EXPECT_EQ(call(), SCA_ErrorCancelled);
                }
                EXPECT_LT(watch.Ms(), 1000);
              });
}

TEST(TcpSock, AWaitSeesTheCancelEvenIfThereIsData) {
  Connection connection;
  SCA_Event cancel(1, 0);
  connection.socket->SetCancelEvent(&cancel);
  connection.Deliver("data");
  EXPECT_EQ(Wait(*connection.socket, 0), 0U);
  cancel.Set();
  EXPECT_EQ(Wait(*connection.socket, 0), SCA_ErrorCancelled);
  connection.socket->SetCancelEvent(nullptr);
  EXPECT_EQ(Wait(*connection.socket, 0), 0U);
}

TEST(TcpSock, ASendThatGoesOnSlowlySeesTheCancel) {
  Connection connection;
  SCA_Event cancel(1, 0);
  std::atomic<bool> ended{false};
  connection.socket->SetCancelEvent(&cancel);
  std::thread reader([&] {
    std::vector<char> buffer(32 << 10);
    for (const Stopwatch watch; !ended; ::poll(nullptr, 0, watch.Ms() < 3000 ? 10 : 0)) {
      if (::recv(connection.peer.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT) > 0)
        cancel.Set();
    }
  });
  EXPECT_EQ(Send(*connection.socket, TooMuch()), SCA_ErrorCancelled);
  ended = true;
  reader.join();
}

TEST(TcpSock, ABlockedSendEndsWhenThePeerCloses) {
  const auto formerAction = std::signal(SIGPIPE, SIG_DFL);  // which would end the test
  const std::function<void(Connection&)> ends[] = {
      [](Connection& connection) { connection.ClosePeer(false); },
      [](Connection& connection) { connection.ClosePeer(true); },
      [](Connection& connection) { ::shutdown(connection.peer.Get(), SHUT_WR); }};
  for (int i = 0; i < 6; ++i) {
    Connection connection;
    const Stopwatch watch;
    {
      const WhenBlocked closer([&](const WhenBlocked&) { ends[i / 2](connection); });
      const unsigned long code =
          i % 2 == 0 ? Send(*connection.socket, TooMuch()) : SendFile(*connection.socket);
      EXPECT_TRUE(code == ECONNRESET || code == EPIPE) << code;
    }
    EXPECT_LT(watch.Ms(), 10000);
    EXPECT_TRUE(connection.peer.IsOpen() || Send(*connection.socket, "more") == EPIPE);
  }
  std::signal(SIGPIPE, formerAction);
}

TEST(TcpSock, WhatWasKeptBackTravelsFirstAndNotOverTheNextConnection) {
  std::string received;
  ScriptedServer server([&](ServerConnection& connection) {
    received.clear();
    while (received.size() < 2200) {
      const std::string more = connection.Receive();
      if (more.empty()) break;
      received += more;
    }
    connection.Send("x");
  });
  const TempDir dir;
  SCA_File file;
  unsigned long error = 0;
  const std::string rest = Bytes(2188);
  ASSERT_EQ(file.Open(dir.Write("f", rest).c_str(), SCA_FileOpenRead, &error), 1);
  SCA_TcpSock socket;
  std::string answer;
  for (const bool isFile : {false, true}) {
    ASSERT_EQ(Connect(socket, "127.0.0.1", server.Port()), 0U);
    socket.SetOption(SCA_SockOptionMoreFollows, 1);
    EXPECT_EQ(Send(socket, "forgotten"), 0U);
    ASSERT_EQ(Connect(socket, "127.0.0.1", server.Port()), 0U);
    for (const char* part : {"head", "line", "end\n"}) {
      socket.SetOption(SCA_SockOptionMoreFollows, 1);
      EXPECT_EQ(Send(socket, part), 0U);
    }
    unsigned long sent = 0;
    EXPECT_TRUE(!isFile || socket.SendFile(&file, rest.size(), &sent, &error) == 1);
    EXPECT_EQ(Send(socket, rest.substr(sent)), 0U);
    EXPECT_EQ(Receive(socket, 10, &answer), 0U);
    EXPECT_EQ(received, "headlineend\n" + rest);
  }
}

TEST(TcpSock, SignalsDoNotBreakAWaitOrASend) {
  struct sigaction action {};
  struct sigaction former {};
  action.sa_handler = [](int) { interrupts.fetch_add(1); };
  ::sigaction(SIGUSR1, &action, &former);
  for (const bool sends : {false, true}) {
    Connection connection;
    std::string received;
    {
      const WhenBlocked disturber([&](const WhenBlocked& self) {
        for (int i = 0; i < 5; ++i) self.Interrupt();
        ::send(connection.peer.Get(), "data", 4, 0);
        char buffer[65536];
        for (ssize_t count = 1; sends && count > 0;) {
          count = ::recv(connection.peer.Get(), buffer, sizeof buffer, 0);
          received.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        }
      });
      EXPECT_EQ(sends ? Send(*connection.socket, TooMuch()) : Wait(*connection.socket, kDeadlineMs),
                0U);
      ::shutdown(connection.fd, SHUT_WR);
    }
    EXPECT_TRUE(!sends || received == TooMuch());
  }
  ::sigaction(SIGUSR1, &former, nullptr);
}

TEST(TcpSock, AFailedConnectSaysWhy) {
  const Port port;  // that nobody listens on
  const std::pair<std::string, unsigned long> rows[] = {
      {"127.0.0.1", ECONNREFUSED},
      {"localhost", ECONNREFUSED},
      {std::string(259, 'a'), SCA_ErrorHostName},
      {std::string(260, 'a'), SCA_ErrorHostNameInvalid},
      {"", SCA_ErrorHostNameInvalid}};
  SCA_TcpSock socket;
  for (const auto& [host, code] : rows)
    EXPECT_EQ(Connect(socket, host, port.Number()), code) << host;
  std::string bytes;
  EXPECT_NE(Wait(socket, 0), 0U) << "not connected";
  EXPECT_NE(Receive(socket, 1, &bytes), 0U);
  EXPECT_NE(Send(socket, "x"), 0U);
}

TEST(TcpSock, ConnectingAgainForgetsTheOldConnection) {
  ScriptedServer server([number = 0](ServerConnection& connection) mutable {
    connection.Send("greeting " + std::to_string(++number));
    if (number == 2) connection.CloseWrite();
    connection.WaitForEnd();
  });
  SCA_TcpSock socket;
  std::string bytes;
  ASSERT_EQ(Connect(socket, "localhost", server.Port(), SCA_Infinite), 0U) << "by name";
  EXPECT_EQ(Receive(socket, 3, &bytes), 0U);  // leaves the rest in the look-ahead
  ASSERT_EQ(Connect(socket, "127.0.0.1", server.Port(), 0), 0U);
  EXPECT_EQ(Receive(socket, 100, &bytes), 0U);
  EXPECT_EQ(bytes, "greeting 2");
  EXPECT_EQ(Receive(socket, 100, &bytes), Code(ECONNRESET));
  ASSERT_EQ(Connect(socket, "127.0.0.1", server.Port()), 0U);
  EXPECT_EQ(Receive(socket, 100, &bytes), 0U);
  EXPECT_EQ(bytes, "greeting 3");
}

TEST(TcpSock, AConnectionToItselfIsRefused) {
  std::thread([] {  // with a network of its own, where the system has one port to give
    if (::unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "needs the right to make a network";
    const SCA_Fd control(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq loopback{};
    SCA_CopyText(loopback.ifr_name, "lo", SCA_TextFit::Cut);
    loopback.ifr_flags = IFF_UP;
    ASSERT_EQ(::ioctl(control.Get(), SIOCSIFFLAGS, &loopback), 0);
    std::ofstream range("/proc/sys/net/ipv4/ip_local_port_range");
    ASSERT_TRUE(range << "40000 40000" << std::flush);
    SCA_TcpSock socket;
    EXPECT_EQ(Connect(socket, "127.0.0.1", 40000), Code(ECONNREFUSED));
  })
      .join();
}

TEST(TcpSock, ADescriptorStaysInTheProcessAndEndsWithTheSocket) {
  Connection connection;
  EXPECT_EQ(::fcntl(connection.fd, F_GETFD), FD_CLOEXEC);
  connection.socket.reset();
  char byte = 0;
  EXPECT_EQ(::recv(connection.peer.Get(), &byte, 1, 0), 0) << "the peer sees the close";
}

}  // namespace
