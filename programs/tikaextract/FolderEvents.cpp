#include "programs/tikaextract/FolderEvents.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "programs/common/Advice.h"
#include "programs/common/Escape.h"

namespace {

constexpr std::size_t kBlock = 64UL << 10;
// Each write to a file that stays open is none of these: there may be any number.
constexpr unsigned kGone = IN_MOVED_FROM | IN_DELETE;
constexpr unsigned kWatched =
    IN_CREATE | IN_CLOSE_WRITE | IN_MOVED_TO | kGone | IN_ATTRIB | IN_ONLYDIR | IN_EXCL_UNLINK;

FolderEvents::Kind KindOf(unsigned mask) {
  if ((mask & IN_ISDIR) != 0) return FolderEvents::Kind::FolderChanged;
  if ((mask & kGone) != 0) return FolderEvents::Kind::FileGone;
  return (mask & IN_CREATE) != 0 ? FolderEvents::Kind::FileAppeared
                                 : FolderEvents::Kind::FileWritten;
}

}  // namespace

std::string FolderEvents::Open() {
  Close();
  block_.resize(kBlock);
  fd_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd_ >= 0) return {};
  const std::string text = "cannot watch folders: ";
  return errno == EMFILE ? text +
                               "too many programs of this account do; raise "
                               "fs.inotify.max_user_instances with sysctl, or ulimit -n"
                         : text + Explain(static_cast<unsigned long>(errno));
}

void FolderEvents::Close() {
  const int fd = std::exchange(fd_, -1);
  if (fd >= 0) ::close(fd);
  folders_.clear();
  watches_.clear();
  next_ = end_ = 0;
}

std::string FolderEvents::Add(const std::string& root, const std::string& folder) {
  const std::string path = folder.empty() ? root : root + "/" + folder;
  // The root may be a link; those in it would lead to folders that have another place.
  const unsigned follow = folder.empty() ? 0 : IN_DONT_FOLLOW;
  const int watch = ::inotify_add_watch(fd_, path.c_str(), kWatched | follow);
  if (watch >= 0) {
    const auto former = folders_.find(watch);
    if (former != folders_.end()) watches_.erase(former->second);
    folders_[watch] = folder;
    watches_[folder] = watch;
    return {};
  }
  if (errno == ENOENT || errno == ENOTDIR) return {};
  const std::string text = "cannot watch the folder " + Quoted(path) + ": ";
  return errno == ENOSPC
             ? text + "the limit of watched folders is reached, with " + std::to_string(Count()) +
                   " of this run; raise fs.inotify.max_user_watches with sysctl"
             : text + Explain(static_cast<unsigned long>(errno));
}

// A folder that was moved keeps its watch, which would give it its former name.
void FolderEvents::Forget(const std::string& folder) {
  const std::string inside = folder + "/";
  for (auto entry = watches_.lower_bound(folder); entry != watches_.end();) {
    const auto& [path, watch] = *entry;
    if (path != folder && path.compare(0, inside.size(), inside) > 0) break;
    if (path != folder && path.rfind(inside, 0) != 0) {
      ++entry;
      continue;
    }
    ::inotify_rm_watch(fd_, watch);
    folders_.erase(watch);
    entry = watches_.erase(entry);
  }
}

bool FolderEvents::Read() {
  const ssize_t length = ::read(fd_, block_.data(), block_.size());
  next_ = 0;
  end_ = length > 0 ? static_cast<std::size_t>(length) : 0;
  return end_ > 0;
}

bool FolderEvents::Next(Event* event) {
  while (next_ < end_ || Read()) {
    inotify_event head{};
    std::memcpy(&head, block_.data() + next_, sizeof head);
    const char* const name = block_.data() + next_ + sizeof head;
    next_ += sizeof head + head.len;
    if ((head.mask & IN_Q_OVERFLOW) != 0) {
      *event = {Kind::Lost, {}};
      return true;
    }
    const auto folder = folders_.find(head.wd);
    if (folder == folders_.end()) continue;
    if ((head.mask & IN_IGNORED) != 0) {
      const auto watch = watches_.find(folder->second);
      if (watch != watches_.end() && watch->second == head.wd) watches_.erase(watch);
      folders_.erase(folder);
      continue;
    }
    // Of the folder itself.
    if (head.len == 0) continue;
    event->path = folder->second.empty() ? name : folder->second + "/" + name;
    if ((head.mask & IN_ISDIR) != 0 && (head.mask & kGone) != 0) {
      Forget(event->path);
      continue;
    }
    event->kind = KindOf(head.mask);
    return true;
  }
  return false;
}

void FolderEvents::Wait(int limitMs) {
  if (next_ < end_) return;
  pollfd entry{fd_, POLLIN, 0};
  ::poll(&entry, 1, limitMs);
}
