#include "platform/SCA_TcpSock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "platform/SCA_Error.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Text.h"
#include "platform/posix/SCA_Posix.h"
#include "tests/support/ReportCapture.h"
#include "tests/support/ScriptedServer.h"

namespace {

using Socket = SCA_Owned<SCA_VirtualTcpSock>;
using Clock = std::chrono::steady_clock;

constexpr unsigned long kDeadlineMs = 30000;

bool Eventually(const std::function<bool()>& holds) {
  const SCA_Deadline deadline(kDeadlineMs);
  while (!holds()) {
    if (deadline.HasPassed()) return false;
    ::poll(nullptr, 0, 1);
  }
  return true;
}

long long MsSince(Clock::time_point begin) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
}

// A thread as others see it, to act once it is blocked.
class Sleeper {
 public:
  bool SleepsSoon() const {
    return Eventually([this] {
      std::ifstream file("/proc/self/task/" + std::to_string(id_) + "/stat");
      std::string stat;
      std::getline(file, stat);
      const std::size_t nameEnd = stat.rfind(") ");
      return nameEnd != std::string::npos && stat.compare(nameEnd + 2, 1, "S") == 0;
    });
  }
  void Interrupt() const { ::pthread_kill(thread_, SIGUSR1); }

 private:
  const pid_t id_ = ::gettid();
  const pthread_t thread_ = ::pthread_self();
};

// A listening socket on loopback; with a backlog of 0 its queue is full after one connection.
SCA_Fd Listen(int backlog, sockaddr_in* address) {
  SCA_Fd listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  *address = {};
  address->sin_family = AF_INET;
  address->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof *address;
  auto* generic = reinterpret_cast<sockaddr*>(address);
  EXPECT_EQ(::bind(listener.Get(), generic, length), 0);
  EXPECT_EQ(::getsockname(listener.Get(), generic, &length), 0);
  EXPECT_TRUE(backlog < 0 || ::listen(listener.Get(), backlog) == 0);
  return listener;
}

// A TCP connection over loopback: the end under test, and the peer that the test plays.
struct Connection {
  SCA_Fd peer;
  int fd = -1;  // owned by the socket
  Socket socket;

  Connection() {
    sockaddr_in address{};
    const SCA_Fd listener = Listen(1, &address);
    // Little room for what is sent, so that a send blocks soon, and much for what is delivered.
    const int little = 32 << 10;
    const int much = 200 << 10;
    ::setsockopt(listener.Get(), SOL_SOCKET, SO_RCVBUF, &little, sizeof little);
    fd = ::socket(AF_INET, SOCK_STREAM, 0);
    ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &little, sizeof little);
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &much, sizeof much);
    EXPECT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    peer.Reset(::accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    const int atOnce = 1;
    ::setsockopt(peer.Get(), IPPROTO_TCP, TCP_NODELAY, &atOnce, sizeof atOnce);
    socket.reset(SCA_CreateTcpSock(fd));
  }

  // Bytes in the queue of the end under test.
  std::size_t Queued() const {
    int count = 0;
    EXPECT_EQ(::ioctl(fd, FIONREAD, &count), 0);
    return static_cast<std::size_t>(count);
  }
  // Sends from the peer and waits until the bytes have arrived.
  void Deliver(const std::string& bytes) const {
    const std::size_t wanted = Queued() + bytes.size();
    EXPECT_EQ(::send(peer.Get(), bytes.data(), bytes.size(), 0),
              static_cast<ssize_t>(bytes.size()));
    EXPECT_TRUE(Eventually([&] { return Queued() == wanted; }));
  }
  // Ends the connection in good order or with a reset, and waits until that has arrived.
  void ClosePeer(bool reset) {
    const linger hard{1, 0};
    if (reset) ::setsockopt(peer.Get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    peer.Reset();
    pollfd entry{fd, POLLRDHUP, 0};
    EXPECT_EQ(::poll(&entry, 1, static_cast<int>(kDeadlineMs)), 1);
  }
};

// 0 or the error code.
unsigned long Wait(SCA_VirtualTcpSock& socket, unsigned long timeoutMs) {
  unsigned long error = 0;
  return socket.WaitForData(timeoutMs, &error) != 0 ? 0 : error;
}

unsigned long Receive(SCA_VirtualTcpSock& socket, unsigned long size, std::string* bytes) {
  bytes->assign(size, '?');
  unsigned long received = 4711;
  unsigned long error = 0;
  const bool done = socket.Receive(bytes->data(), size, &received, &error) != 0;
  EXPECT_TRUE(done ? received >= 1 && received <= size : received == 4711) << received;
  bytes->resize(done ? received : 0);
  return done ? 0 : error;
}

unsigned long Send(SCA_VirtualTcpSock& socket, const std::string& bytes, unsigned long* sent) {
  unsigned long error = 0;
  const bool done = socket.Send(bytes.data(), bytes.size(), sent, &error) != 0;
  EXPECT_TRUE(done ? *sent == bytes.size() : *sent < bytes.size());
  return done ? 0 : error;
}

unsigned long Connect(SCA_VirtualTcpSock& socket, const char* host, unsigned short port,
                      unsigned long timeoutMs = kDeadlineMs) {
  unsigned long error = 0;
  return socket.Connect(host, port, timeoutMs, &error) != 0 ? 0 : error;
}

std::string Bytes(std::size_t count, unsigned seed = 1) {
  std::mt19937 random(seed);
  std::string bytes(count, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

// More than the queues of a connection hold.
const std::string& TooMuch() {
  static const std::string bytes = Bytes(16 << 20);
  return bytes;
}

// What the look-ahead is compared with: a poll and a receive, and nothing else.
class PlainSocket final : public SCA_VirtualTcpSock {
 public:
  static SCA_VirtualTcpSock* Create(int handle) { return new PlainSocket(handle); }
  int Connect(const char*, unsigned short, unsigned long, unsigned long*) override { return 0; }
  int WaitForData(unsigned long timeoutMs, unsigned long* error) override {
    if (Polls(timeoutMs, error) == 0) return 0;
    char byte = 0;
    if (broken_ == 0 && ::recv(fd_.Get(), &byte, 1, MSG_PEEK) < 0) broken_ = SCA_SystemError();
    *error = broken_;
    return broken_ == 0 ? 1 : 0;
  }
  int Receive(char* buffer, unsigned long length, unsigned long* received,
              unsigned long* error) override {
    if (Polls(idleTimeoutMs_, error) == 0) return 0;
    const ssize_t count = ::recv(fd_.Get(), buffer, length, 0);
    if (count < 0) broken_ = SCA_SystemError();
    if (count <= 0) *error = count == 0 ? ECONNRESET : broken_;
    if (count > 0) *received = static_cast<unsigned long>(count);
    return count > 0 ? 1 : 0;
  }
  int Send(const char*, unsigned long, unsigned long*, unsigned long*) override { return 0; }
  int SetOption(int, int) override { return 0; }
  void SetCancelEvent(SCA_Event*) override {}
  void SetIdleTimeout(unsigned long timeoutMs) override { idleTimeoutMs_ = timeoutMs; }

 private:
  explicit PlainSocket(int fd) : fd_(fd) {}
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
  const unsigned long sizes[] = {1, 2, 7, 100, 4096, 16383, 16384, 16385, 20000, 60000};
  std::size_t pending = 0;
  std::string seen;
  const auto look = [&] {
    const unsigned long size = sizes[random() % std::size(sizes)];
    std::string bytes;
    if (random() % 2 == 0) seen += " wait " + std::to_string(Wait(socket, 0));
    const unsigned long code = Receive(socket, size, &bytes);
    pending -= bytes.size();
    seen += " receive " + std::to_string(code) + ' ' + std::to_string(bytes.size()) + ' ' +
            std::to_string(std::hash<std::string>()(bytes));
  };
  const auto deliver = [&] {
    const unsigned long size = sizes[random() % 8];
    if (random() % 2 == 0 || pending > 30000) return;  // or the queues would be full
    connection.Deliver(Bytes(size, seed));
    pending += size;
  };
  for (int step = 0; step < 25; ++step) {
    deliver();
    if (random() % 3 == 0) seen += " wait " + std::to_string(Wait(socket, 0));
    deliver();  // behind the look-ahead
    if (random() % 4 != 0) look();
  }
  connection.ClosePeer(seed % 2 == 1);
  for (int step = 0; step < 12; ++step) look();
  for (int step = 0; step < 3; ++step) seen += " wait " + std::to_string(Wait(socket, 0));
  return seen;
}

TEST(TcpSock, TheLookAheadShowsWhatAPlainSocketShows) {
  for (unsigned seed = 1; seed <= 100; ++seed) {
    SCOPED_TRACE(seed);
    ASSERT_EQ(Observe(nullptr, seed), Observe(&PlainSocket::Create, seed));
  }
}

TEST(TcpSock, AReceiveTakesWhatCameAfterTheWaitToo) {
  Connection connection;
  std::string bytes;
  connection.Deliver("first");
  ASSERT_EQ(Wait(*connection.socket, kDeadlineMs), 0U);
  connection.Deliver(" second");
  EXPECT_EQ(Receive(*connection.socket, 100, &bytes), 0U);
  EXPECT_EQ(bytes, "first second");
}

TEST(TcpSock, ACloseInGoodOrderIsToldByTheReceiveAndAResetByTheWait) {
  for (const bool reset : {false, true}) {
    SCOPED_TRACE(reset);
    Connection connection;
    std::string bytes;
    connection.Deliver("last");
    connection.ClosePeer(reset);
    EXPECT_EQ(Wait(*connection.socket, kDeadlineMs), 0U);
    EXPECT_EQ(Receive(*connection.socket, 2, &bytes), 0U);
    EXPECT_EQ(Wait(*connection.socket, kDeadlineMs), 0U);
    EXPECT_EQ(Receive(*connection.socket, 2, &bytes), 0U);
    EXPECT_EQ(bytes, "st");
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(Wait(*connection.socket, kDeadlineMs), reset ? ECONNRESET : 0U);
      EXPECT_EQ(Receive(*connection.socket, 2, &bytes), static_cast<unsigned long>(ECONNRESET));
    }
  }
}

TEST(TcpSock, ALargeStreamArrivesIntactWhateverTheSizes) {
  const std::string sent = Bytes(16 << 20, 7);
  ScriptedServer server([&sent](ServerConnection& connection) {
    std::mt19937 random(8);
    for (std::size_t begin = 0; begin < sent.size();) {
      const std::string piece = sent.substr(begin, 1 + random() % 100000);
      if (!connection.Send(piece)) return;
      begin += piece.size();
    }
  });
  SCA_TcpSock socket;
  ASSERT_EQ(Connect(socket, "127.0.0.1", server.Port()), 0U);
  std::mt19937 random(9);
  std::string received;
  for (std::string piece; Receive(socket, 1 + random() % (256 << 10), &piece) == 0;) {
    received += piece;
    EXPECT_TRUE(random() % 3 != 0 || Wait(socket, kDeadlineMs) == 0);
  }
  EXPECT_TRUE(received == sent) << received.size();
}

// The calls that can block, against a peer that neither speaks nor reads.
struct BlockingCall {
  const char* name;
  std::function<unsigned long(SCA_VirtualTcpSock&)> call;
};

class BlockedTcpSock : public ::testing::Test {
 protected:
  BlockedTcpSock() : listener_(Listen(0, &address_)) {
    for (SCA_Fd& filler : fillers_) {
      filler.Reset(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
      ::connect(filler.Get(), reinterpret_cast<sockaddr*>(&address_), sizeof address_);
      pollfd entry{fillers_[0].Get(), POLLOUT, 0};
      EXPECT_EQ(::poll(&entry, 1, static_cast<int>(kDeadlineMs)), 1);
    }
  }

  // Each call made with this limit.
  std::vector<BlockingCall> Calls(unsigned long timeoutMs) const {
    const unsigned short port = ntohs(address_.sin_port);
    return {
        {"connect",
         [=](SCA_VirtualTcpSock& socket) { return Connect(socket, "127.0.0.1", port, timeoutMs); }},
        {"wait", [=](SCA_VirtualTcpSock& socket) { return Wait(socket, timeoutMs); }},
        {"receive",
         [=](SCA_VirtualTcpSock& socket) {
           std::string bytes;
           socket.SetIdleTimeout(timeoutMs);
           return Receive(socket, 10, &bytes);
         }},
        {"receive after a wait",
         [=](SCA_VirtualTcpSock& socket) {
           std::string bytes;
           socket.SetIdleTimeout(kDeadlineMs);
           const unsigned long code = Wait(socket, timeoutMs);
           return code != ETIMEDOUT ? code : Receive(socket, 10, &bytes);
         }},
        {"send", [=](SCA_VirtualTcpSock& socket) {
           unsigned long sent = 0;
           socket.SetIdleTimeout(timeoutMs);
           const unsigned long code = Send(socket, TooMuch(), &sent);
           EXPECT_GT(sent, 0U);
           return code;
         }}};
  }

 private:
  sockaddr_in address_{};
  SCA_Fd listener_;
  SCA_Fd fillers_[3];
};

TEST_F(BlockedTcpSock, GivesUpAfterItsTimeOut) {
  for (const BlockingCall& row : Calls(60)) {
    SCOPED_TRACE(row.name);
    Connection connection;
    const Clock::time_point begin = Clock::now();
    EXPECT_EQ(row.call(*connection.socket), static_cast<unsigned long>(ETIMEDOUT));
    EXPECT_GE(MsSince(begin), 60);
    EXPECT_LT(MsSince(begin), 5000);
  }
}

TEST_F(BlockedTcpSock, EndsSoonAfterACancel) {
  for (const BlockingCall& row : Calls(kDeadlineMs)) {
    SCOPED_TRACE(row.name);
    Connection connection;
    SCA_Event cancel(1, 0);
    connection.socket->SetCancelEvent(&cancel);
    Clock::time_point begin;
    std::thread canceller([&, sleeper = Sleeper()] {
      EXPECT_TRUE(sleeper.SleepsSoon());
      begin = Clock::now();
      cancel.Set();
    });
    EXPECT_EQ(row.call(*connection.socket), SCA_ErrorCancelled);
    canceller.join();
    EXPECT_LT(MsSince(begin), 1000);
  }
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

// Reads a little whenever it is asked to, which it is until the deadline, and then all there is.
TEST(TcpSock, ASendThatGoesOnSlowlySeesTheCancel) {
  Connection connection;
  SCA_Event cancel(1, 0);
  std::atomic<bool> done{false};
  connection.socket->SetCancelEvent(&cancel);
  std::thread reader([&] {
    std::vector<char> buffer(256 << 10);
    const Clock::time_point begin = Clock::now();
    for (bool first = true; !done; first = false) {
      ::recv(connection.peer.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
      if (first) cancel.Set();
      if (MsSince(begin) < 3000) ::poll(nullptr, 0, 10);
    }
  });
  const Clock::time_point begin = Clock::now();
  unsigned long sent = 0;
  EXPECT_EQ(Send(*connection.socket, TooMuch(), &sent), SCA_ErrorCancelled);
  EXPECT_LT(MsSince(begin), 1500);
  done = true;
  reader.join();
}

TEST(TcpSock, ABlockedSendEndsWhenThePeerCloses) {
  const auto formerAction = std::signal(SIGPIPE, SIG_DFL);  // which would end the test
  for (const char* how : {"close", "reset", "half"}) {
    SCOPED_TRACE(how);
    Connection connection;
    std::thread closer([&, sleeper = Sleeper()] {
      EXPECT_TRUE(sleeper.SleepsSoon());
      if (*how == 'h') {
        ::shutdown(connection.peer.Get(), SHUT_WR);
      } else {
        connection.ClosePeer(*how == 'r');
      }
    });
    const Clock::time_point begin = Clock::now();
    unsigned long sent = 0;
    const unsigned long code = Send(*connection.socket, TooMuch(), &sent);
    closer.join();
    EXPECT_TRUE(code == ECONNRESET || code == EPIPE) << code;
    EXPECT_LT(MsSince(begin), 10000);
    EXPECT_TRUE(*how == 'h' || Send(*connection.socket, "more", &sent) != 0);
  }
  std::signal(SIGPIPE, formerAction);
}

std::atomic<int> interrupts{0};

TEST(TcpSock, SignalsDoNotBreakAWaitOrASend) {
  struct sigaction action {};
  struct sigaction former {};
  action.sa_handler = [](int) { interrupts.fetch_add(1); };
  ::sigaction(SIGUSR1, &action, &former);
  for (const bool sends : {false, true}) {
    Connection connection;
    std::string received;
    std::thread disturber([&, sleeper = Sleeper()] {
      for (int i = 0; i < 5; ++i) {
        const int before = interrupts;
        EXPECT_TRUE(sleeper.SleepsSoon());
        sleeper.Interrupt();
        EXPECT_TRUE(Eventually([&] { return interrupts > before; }));
      }
      if (!sends) ::send(connection.peer.Get(), "data", 4, 0);
      for (ssize_t count = 1; sends && count > 0 && received.size() < TooMuch().size();) {
        char buffer[65536];
        count = ::recv(connection.peer.Get(), buffer, sizeof buffer, 0);
        received.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
      }
    });
    unsigned long sent = 0;
    const unsigned long code =
        sends ? Send(*connection.socket, TooMuch(), &sent) : Wait(*connection.socket, kDeadlineMs);
    EXPECT_EQ(code, 0U);
    disturber.join();
    EXPECT_TRUE(!sends || received == TooMuch());
  }
  ::sigaction(SIGUSR1, &former, nullptr);
}

TEST(TcpSock, AFailedConnectSaysWhy) {
  sockaddr_in address{};
  const SCA_Fd bound = Listen(-1, &address);  // has a port that nobody listens on
  const unsigned short port = ntohs(address.sin_port);
  const std::pair<std::string, unsigned long> rows[] = {
      {"127.0.0.1", ECONNREFUSED},
      {"localhost", ECONNREFUSED},
      {"no-such-host.invalid", SCA_ErrorHostName},
      {std::string(64, 'a') + ".invalid", SCA_ErrorHostName},
      {std::string(259, 'a'), SCA_ErrorHostName},
      {std::string(260, 'a'), SCA_ErrorHostNameInvalid},
      {"", SCA_ErrorHostNameInvalid}};
  SCA_TcpSock socket;
  for (const auto& [host, code] : rows)
    EXPECT_EQ(Connect(socket, host.c_str(), port), code) << host;
  EXPECT_EQ(Connect(socket, nullptr, port), SCA_ErrorHostNameInvalid);
  unsigned long sent = 0;
  std::string bytes;
  EXPECT_NE(Wait(socket, 0), 0U) << "not connected";
  EXPECT_NE(Receive(socket, 1, &bytes), 0U);
  EXPECT_NE(Send(socket, "x", &sent), 0U);
  EXPECT_EQ(socket.SetOption(SCA_SockOptionNoDelay, 1), 0);
}

TEST(TcpSock, ConnectingAgainForgetsTheOldConnection) {
  ScriptedServer server([number = 0](ServerConnection& connection) mutable {
    connection.Send("greeting " + std::to_string(++number));
    if (number != 2) connection.CloseWrite();
    connection.WaitForEnd();
  });
  SCA_TcpSock socket;
  std::string bytes;
  ASSERT_EQ(Connect(socket, "localhost", server.Port(), SCA_Infinite), 0U) << "by name";
  EXPECT_EQ(Receive(socket, 3, &bytes), 0U);  // leaves the rest in the look-ahead
  ASSERT_EQ(Connect(socket, "127.0.0.1", server.Port(), 0), 0U);
  EXPECT_EQ(Receive(socket, 100, &bytes), 0U);
  EXPECT_EQ(bytes, "greeting 2");
  ASSERT_EQ(Connect(socket, "127.0.0.1", server.Port()), 0U);
  while (Receive(socket, 100, &bytes) == 0) continue;  // to the end of the connection
  ASSERT_EQ(Connect(socket, "127.0.0.1", server.Port()), 0U);
  EXPECT_EQ(Receive(socket, 100, &bytes), 0U);
  EXPECT_EQ(bytes, "greeting 4");
}

TEST(TcpSock, AConnectionToItselfIsRefused) {
  std::thread([] {  // with a network of its own, where the system has one port to give
    constexpr unsigned short kPort = 40000;
    if (::unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "needs the right to make a network";
    const SCA_Fd control(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq loopback{};
    SCA_CopyText(loopback.ifr_name, "lo", SCA_TextFit::Cut);
    loopback.ifr_flags = IFF_UP;
    ASSERT_EQ(::ioctl(control.Get(), SIOCSIFFLAGS, &loopback), 0);
    std::ofstream range("/proc/sys/net/ipv4/ip_local_port_range");
    ASSERT_TRUE(range << kPort << ' ' << kPort << std::flush);
    SCA_TcpSock socket;
    EXPECT_EQ(Connect(socket, "127.0.0.1", kPort), static_cast<unsigned long>(ECONNREFUSED));
  })
      .join();
}

TEST(TcpSock, DescriptorsStayInTheProcessAndEndWithTheSocket) {
  ScriptedServer server([](ServerConnection& connection) { connection.WaitForEnd(); });
  SCA_TcpSock socket;
  ASSERT_EQ(Connect(socket, "127.0.0.1", server.Port()), 0U);
  int found = 0;
  for (int fd = 0; fd < 1024; ++fd) {
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    if (::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length) != 0) continue;
    if (peer.sin_port != htons(server.Port())) continue;
    ++found;
    EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC);
  }
  EXPECT_EQ(found, 1);

  Connection connection;
  EXPECT_EQ(::fcntl(connection.fd, F_GETFD), FD_CLOEXEC);
  for (const int value : {1, 0}) {
    int set = -1;
    socklen_t length = sizeof set;
    EXPECT_EQ(connection.socket->SetOption(SCA_SockOptionNoDelay, value), 1);
    EXPECT_EQ(::getsockopt(connection.fd, IPPROTO_TCP, TCP_NODELAY, &set, &length), 0);
    EXPECT_EQ(set, value);
  }
  EXPECT_EQ(connection.socket->SetOption(4, 1), 0);
  connection.socket.reset();
  char byte = 0;
  EXPECT_EQ(::recv(connection.peer.Get(), &byte, 1, 0), 0) << "the peer sees the close";
}

TEST(TcpSock, IsInvalidWhenNoSocketCouldBeMade) {
  const ReportCapture capture;
  SCA_SetTcpSockFactory([](int) -> SCA_VirtualTcpSock* { return nullptr; });
  const SCA_TcpSock socket;
  SCA_SetTcpSockFactory(nullptr);
  EXPECT_EQ(socket.IsValid(), 0);
  ASSERT_EQ(capture.All().size(), 1U);
  EXPECT_EQ(capture.All()[0].level, SCA_LevelError);
  EXPECT_EQ(SCA_TcpSock().IsValid(), 1);
}

}  // namespace
