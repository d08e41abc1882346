#include "programs/tikaextract/ReadyHost.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>

#include "control/SCA_TikaInterface.h"
#include "host/SCA_ProcessStatus.h"
#include "host/SCA_TikaServerList.h"
#include "platform/SCA_Error.h"
#include "programs/common/LocalHost.h"
#include "supervision/SCA_TikaProbe.h"

namespace {

constexpr unsigned long kConnectMs = 1000;
constexpr unsigned long kReplyMs = 2000;
constexpr unsigned long kAnswerMs = 1000;
constexpr std::chrono::seconds kLookLimit{3};  // for all servers together

// Documents are not given to just any account: to root, this one, or the one that the directory was
// made for. Nobody else may have put the socket there.
unsigned long CheckAccount(const std::string& path) {
  struct stat socket {};
  struct stat directory {};
  if (::lstat(path.c_str(), &socket) != 0) return static_cast<unsigned long>(errno);
  const std::string parent = std::filesystem::path(path).parent_path();
  if (::stat(parent.c_str(), &directory) != 0) return static_cast<unsigned long>(errno);
  const bool isTrusted =
      socket.st_uid == 0 || socket.st_uid == ::geteuid() || socket.st_uid == directory.st_uid;
  const bool isShared = (directory.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  return isTrusted && !isShared ? 0 : SCA_ErrorPeerAccount;
}

bool HasReadyServer(const SCA_TikaServerList& list) {
  const auto end = std::chrono::steady_clock::now() + kLookLimit;
  for (const auto* node = list.GetHead(); node != nullptr; node = node->GetNext()) {
    if (node->GetItem()->GetProcessStatus() != SCA_ServerActive) continue;
    if (std::chrono::steady_clock::now() >= end) return false;
    SCA_TikaAnswer answer;
    unsigned long ignored = 0;
    const SCA_TikaProbe probe("127.0.0.1", node->GetItem()->GetPortNumber(), kAnswerMs);
    if (probe.Ask(nullptr, &answer, &ignored) != 0) return true;
  }
  return false;
}

unsigned long TryHost(const std::string& path) {
  unsigned long error = CheckAccount(path);
  if (error != 0) return error;
  SCA_TikaInterface link;
  if (link.Connect(path.c_str(), 0, kConnectMs, &error) == 0) return error;
  link.SetReplyTimeout(kReplyMs);
  SCA_TikaServerList list;
  if (link.GetServerList(&list) == 0) {
    return link.GetLastStatusCode() != 0 ? link.GetLastStatusCode() : SCA_ErrorNoServer;
  }
  return HasReadyServer(list) ? 0 : SCA_ErrorNoServer;
}

}  // namespace

std::string FindReadyHost(std::string* path) {
  return FindLocalHost(TryHost, path);
}
