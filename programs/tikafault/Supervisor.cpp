#include "programs/tikafault/Supervisor.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "programs/common/Address.h"

namespace {

[[noreturn]] void Throw(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// Waits for a byte from a child that listens. @return False when the child ended without one.
bool IsReady(int fd) {
  char byte = 0;
  ssize_t count = 0;
  do {
    count = ::read(fd, &byte, 1);
  } while (count < 0 && errno == EINTR);
  return count == 1;
}

std::string DescribeEnd(int status) {
  if (WIFSIGNALED(status)) return std::string("died: ") + ::strsignal(WTERMSIG(status));
  return "ended with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

bool Supervisor::Run() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGCHLD, SIGTERM, SIGINT}) sigaddset(&signals, number);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  for (unsigned i = 0; i < plan_.servers; ++i) {
    const auto port = static_cast<unsigned short>(plan_.port == 0 ? 0 : plan_.port + i);
    servers_.emplace_back().port = std::make_unique<Listener>(plan_.address, port, -1);
  }
  for (Server& server : servers_) {
    Start(&server);
    std::puts(NameOf(server).c_str());
  }
  if (std::fflush(stdout) != 0) Throw("cannot write to standard output");
  int received = 0;
  while (!IsOver()) {
    const timespec tick{0, 10000000};
    received = ::sigtimedwait(&signals, nullptr, &tick);
    if (received == SIGTERM || received == SIGINT) break;
    Reap();
    StartDue();
  }
  for (const Server& server : servers_) {
    if (server.pid == 0) continue;
    ::kill(server.pid, SIGKILL);
    ::waitpid(server.pid, nullptr, 0);
  }
  return received == SIGTERM || received == SIGINT;
}

void Supervisor::Start(Server* server) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) Throw("cannot create a pipe");
  std::fflush(nullptr);
  const pid_t parent = ::getpid();
  server->pid = ::fork();
  if (server->pid < 0) Throw("cannot fork a server");
  if (server->pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(1);
    sigset_t none;
    sigemptyset(&none);
    ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
    try {
      plan_.serve(server->port->Port(), [&ends] { static_cast<void>(::write(ends[1], "", 1)); });
    } catch (const std::exception& error) {
      std::fprintf(stderr, "tikafault: %s\n", error.what());
    }
    ::_exit(1);
  }
  ::close(ends[1]);
  const bool isReady = IsReady(ends[0]);
  ::close(ends[0]);
  Say(*server, isReady ? "listens, process " + std::to_string(server->pid) : "did not start");
}

void Supervisor::Reap() {
  for (Server& server : servers_) {
    int status = 0;
    if (server.pid == 0 || ::waitpid(server.pid, &status, WNOHANG) <= 0) continue;
    Say(server, DescribeEnd(status));
    server.pid = 0;
    server.dueAt = Clock::now() + plan_.down;
  }
}

void Supervisor::StartDue() {
  for (Server& server : servers_) {
    if (plan_.restart && server.pid == 0 && Clock::now() >= server.dueAt) Start(&server);
  }
}

bool Supervisor::IsOver() const {
  return !plan_.restart && std::none_of(servers_.begin(), servers_.end(),
                                        [](const Server& server) { return server.pid != 0; });
}

std::string Supervisor::NameOf(const Server& server) const {
  return FormatHostPort({plan_.address, server.port->Port()});
}

void Supervisor::Say(const Server& server, const std::string& what) const {
  if (!plan_.verbose) return;
  std::fprintf(stderr, "tikafault: %s %s\n", NameOf(server).c_str(), what.c_str());
}
