/// A small disk, which the calling thread and its children alone see, in the place of a directory.
#ifndef SCA_TESTS_SUPPORT_SMALLDISK_H
#define SCA_TESTS_SUPPORT_SMALLDISK_H

#include <sched.h>
#include <sys/mount.h>

#include <string>

class SmallDisk {
 public:
  SmallDisk(std::string directory, int kilobytes) : directory_(std::move(directory)) {
    const std::string size = "size=" + std::to_string(kilobytes) + "k,mode=700";
    // Nobody else is to see it.
    isMounted_ = ::unshare(CLONE_NEWNS) == 0 &&
                 ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                 ::mount("tmpfs", directory_.c_str(), "tmpfs", 0, size.c_str()) == 0;
  }
  ~SmallDisk() {
    if (isMounted_) ::umount2(directory_.c_str(), MNT_DETACH);
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  /// @return False where the machine does not allow one.
  bool IsMounted() const { return isMounted_; }

 private:
  const std::string directory_;
  bool isMounted_ = false;
};

#endif  // SCA_TESTS_SUPPORT_SMALLDISK_H
