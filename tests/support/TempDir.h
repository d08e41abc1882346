/// A directory of a test's own, removed with all it holds.
#ifndef SCA_TESTS_SUPPORT_TEMPDIR_H
#define SCA_TESTS_SUPPORT_TEMPDIR_H

#include <string>

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& Path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }
  /// Writes a file and gives its path.
  std::string Write(const std::string& name, const std::string& content) const;

 private:
  std::string path_;
};

/// The content of a file; fails the test when it cannot be read.
std::string ReadFile(const std::string& path);

#endif  // SCA_TESTS_SUPPORT_TEMPDIR_H
