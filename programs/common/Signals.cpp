#include "programs/common/Signals.h"

#include <pthread.h>
#include <unistd.h>

#include <csignal>

namespace {

constexpr int kStopThread = SIGUSR1;

sigset_t WatchedSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, kStopThread}) sigaddset(&set, number);
  return set;
}

}  // namespace

Signals::Signals(SCA_Event* cancel, SCA_Event* reload) : cancel_(cancel), reload_(reload) {
  const sigset_t set = WatchedSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  thread_ = std::thread([this] { Wait(); });
}

Signals::~Signals() {
  isEnding_.store(true);
  pthread_kill(thread_.native_handle(), kStopThread);
  thread_.join();
}

void Signals::Wait() {
  const sigset_t set = WatchedSignals();
  for (;;) {
    int number = 0;
    if (sigwait(&set, &number) != 0) continue;
    if (number == kStopThread) {
      if (isEnding_.load()) return;
      continue;  // another process sent it
    }
    if (number == SIGHUP && reload_ != nullptr) {
      reload_->Set();
      continue;
    }
    if (received_.load() != 0) ::_exit(128 + number);
    received_.store(number);
    cancel_->Set();
  }
}
