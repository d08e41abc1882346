/// A small disk, which the calling thread and its children alone see, in the place of a directory.
#ifndef SCA_TESTS_SUPPORT_SMALLDISK_H
#define SCA_TESTS_SUPPORT_SMALLDISK_H

#include <string>

class SmallDisk {
 public:
  SmallDisk(std::string directory, int kilobytes);
  ~SmallDisk();
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  /// @return False where the machine does not allow one.
  bool IsMounted() const { return isMounted_; }

 private:
  const std::string directory_;
  bool isMounted_ = false;
};

#endif  // SCA_TESTS_SUPPORT_SMALLDISK_H
