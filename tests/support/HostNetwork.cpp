#include "tests/support/HostNetwork.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <thread>

#include "platform/SCA_Error.h"
#include "platform/SCA_Process.h"
#include "tests/support/Timing.h"

namespace {

int OwnNamespace() {
  return ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
}

std::string PathOf(int file) {
  return "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(file);
}

void Ip(const std::string& arguments) {
  const SCA_Owned<SCA_Process> ip(SCA_CreateProcess());
  const std::string command = "ip " + arguments;
  unsigned long error = 0;
  ASSERT_EQ(ip->Start(command.c_str(), 0, SCA_ProcessReadOutput, &error), 1)
      << command << ": " << SCA_ErrorText(error) << "; scripts/setup installs iproute2";
  std::string output;
  char line[256];
  unsigned long length = 0;
  while (ip->WaitForOutput(kDeadlineMs, 0) != 0 &&
         ip->ReadOutputLine(line, sizeof line, &length, &error) != 0) {
    output += line;
  }
  SCA_ProcessExit exit;
  ASSERT_TRUE(Eventually([&ip] { return ip->IsRunning() == 0; }));
  ASSERT_EQ(ip->GetExit(&exit), 1);
  EXPECT_EQ(exit.exitCode, 0) << command << ": " << output;
}

}  // namespace

HostNetwork::HostNetwork(int hosts) {
  if (!MakeNamespaces(hosts)) return;
  Ip("link set lo up");
  for (int host = 0; host < hosts; ++host) Wire(host);
}

HostNetwork::~HostNetwork() {
  if (HasWires()) {
    EXPECT_EQ(::setns(home_, CLONE_NEWNET), 0);
  }
  for (const int file : hosts_) ::close(file);
  if (client_ >= 0) ::close(client_);
  if (home_ >= 0) ::close(home_);
}

bool HostNetwork::MakeNamespaces(int hosts) {
  const int home = OwnNamespace();
  if (::unshare(CLONE_NEWNET) != 0) {
    ::close(home);
    return false;
  }
  home_ = home;
  client_ = OwnNamespace();
  for (int host = 0; host < hosts; ++host) {
    std::thread([this] {
      EXPECT_EQ(::unshare(CLONE_NEWNET), 0);
      hosts_.push_back(OwnNamespace());
    }).join();
  }
  return true;
}

void HostNetwork::Wire(int host) const {
  const std::string name = "host" + std::to_string(host);
  const std::string net = "10.99." + std::to_string(host);
  Ip("link add " + name + " type veth peer name wire netns " +
     PathOf(hosts_[static_cast<std::size_t>(host)]));
  Ip("address add " + net + ".1/30 dev " + name);
  Ip("link set " + name + " up");
  On(host, [&net] {
    Ip("address add " + net + ".2/30 dev wire");
    Ip("link set wire up");
    Ip("link set lo up");
  });
}

std::string HostNetwork::Address(int host) const {
  return HasWires() ? "10.99." + std::to_string(host) + ".2"
                    : "127.0.0." + std::to_string(host + 1);
}

void HostNetwork::On(int host, const std::function<void()>& action) const {
  if (HasWires()) {
    ASSERT_EQ(::setns(hosts_[static_cast<std::size_t>(host)], CLONE_NEWNET), 0);
  }
  action();
  if (HasWires()) {
    ASSERT_EQ(::setns(client_, CLONE_NEWNET), 0);
  }
}

// The host's end goes down: the client's would lose its address, and say so to whoever sends.
void HostNetwork::Switch(int host, const std::string& state) const {
  if (!HasWires()) return;
  On(host, [&state] { Ip("link set wire " + state); });
}

SmallDisk::SmallDisk(std::string directory, int kilobytes) : directory_(std::move(directory)) {
  if (::unshare(CLONE_NEWNS) != 0) return;
  // Nobody else is to see it.
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return;
  const std::string size = "size=" + std::to_string(kilobytes) + "k,mode=700";
  isMounted_ = ::mount("tmpfs", directory_.c_str(), "tmpfs", 0, size.c_str()) == 0;
}

SmallDisk::~SmallDisk() {
  if (isMounted_) ::umount2(directory_.c_str(), MNT_DETACH);
}
