/// A directory of a test's own, removed with all it holds.
#ifndef SCA_TESTS_SUPPORT_TEMPDIR_H
#define SCA_TESTS_SUPPORT_TEMPDIR_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

class TempDir {
 public:
  TempDir() {
    if (::mkdtemp(path_.data()) == nullptr) std::abort();
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& Path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }
  /// Writes a file and gives its path.
  std::string Write(const std::string& name, const std::string& content) const {
    std::ofstream(File(name), std::ios::binary) << content;
    return File(name);
  }

 private:
  std::string path_ = (std::filesystem::temp_directory_path() / "sca-test-XXXXXX").string();
};

/// The content of a file; fails the test when it cannot be read.
inline std::string ReadFile(const std::string& path) {
  const std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << path;
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

#endif  // SCA_TESTS_SUPPORT_TEMPDIR_H
