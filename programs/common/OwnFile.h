/// Files that a program makes for itself: journals, locks, and temporary files without a name.
#ifndef SCA_PROGRAMS_COMMON_OWNFILE_H
#define SCA_PROGRAMS_COMMON_OWNFILE_H

#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

/// An open file, read at any place and written at its end. Every operation that can fail gives 0,
/// or a code for `SCA_ErrorText`. Threads: one at a time.
class OwnFile {
 public:
  OwnFile() = default;
  ~OwnFile() { Close(); }
  OwnFile(const OwnFile&) = delete;
  OwnFile& operator=(const OwnFile&) = delete;

  /// Opens a file, and makes it when there is none. Its directory may be writable for others: what
  /// is a link (`ELOOP`) or no regular file (`SCA_ErrorNotRegularFile`) is refused, and nothing
  /// that is there is changed.
  /// @param mode  Permissions of a new file, without those of the umask.
  [[nodiscard]] unsigned long Open(const std::string& name, unsigned mode);
  /// Makes a file without a name in the directory for temporary files, `TemporaryDirectory()`.
  [[nodiscard]] unsigned long OpenTemporary();
  static std::string TemporaryDirectory();
  /// @return A path at which this process can open the file for reading while it is open here,
  ///         whether it has a name or not.
  std::string PathInProcess() const { return "/proc/self/fd/" + std::to_string(fd_); }
  void Close();
  bool IsOpen() const { return fd_ >= 0; }

  /// @return `EWOULDBLOCK` when another process has locked the file. The lock ends with `Close`.
  [[nodiscard]] unsigned long Lock();
  /// Writes all bytes at the end.
  [[nodiscard]] unsigned long Append(std::string_view bytes);
  /// @param read  Receives the bytes read: `count`, or fewer at the end of the file.
  [[nodiscard]] unsigned long ReadAt(unsigned long long place, char* buffer, std::size_t count,
                                     std::size_t* read) const;
  [[nodiscard]] unsigned long GetSize(unsigned long long* size) const;
  [[nodiscard]] unsigned long Truncate(unsigned long long size);
  /// Sets the modification time to the file system's present.
  [[nodiscard]] unsigned long Touch(timespec* present);
  /// Waits until the content is on the disk.
  [[nodiscard]] unsigned long Sync();

 private:
  int fd_ = -1;
};

/// A file that one process at a time holds, and that says which one.
class LockFile {
 public:
  /// @param owner  Receives the process that holds it, as it says itself, when another one does.
  /// @return 0; `EWOULDBLOCK` when another process holds it; `EEXIST` for a file with
  ///         other content, which stays; or another code.
  [[nodiscard]] unsigned long Take(const std::string& name, std::string* owner);

 private:
  OwnFile file_;
};

#endif  // SCA_PROGRAMS_COMMON_OWNFILE_H
