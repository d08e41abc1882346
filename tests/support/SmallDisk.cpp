#include "tests/support/SmallDisk.h"

#include <sched.h>
#include <sys/mount.h>

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
