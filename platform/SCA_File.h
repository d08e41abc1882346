/// Files: reading a file of known size, adding lines to one, and replacing a file so that readers
/// see the old one or the new one, whole.
/// Threads: one thread at a time per object.
#ifndef SCA_PLATFORM_SCA_FILE_H
#define SCA_PLATFORM_SCA_FILE_H

#include <string>

#include "platform/SCA_Object.h"

class SCA_Result;

/// Open flags: an existing regular file, for reading from its start to its end.
/// @note Inherited: neither number has a meaning of its own.
constexpr unsigned long SCA_FileOpenRead = 0x60A;
/// Open flags: a regular file, for writing at its end; created for its owner only if missing.
constexpr unsigned long SCA_FileAppend = 0x60B;

/// An open file. Every operation gives 1, or 0 with the code in `*error`.
class SCA_API SCA_File : public SCA_Object {
 public:
  SCA_File();
  ~SCA_File() override;  ///< Closes.
  SCA_File(const SCA_File&) = delete;
  SCA_File& operator=(const SCA_File&) = delete;

  /// Opens a file, closing the one that was open. Never waits: a pipe or a device is refused with
  /// `SCA_ErrorNotRegularFile`, a directory with `EISDIR`.
  /// @param flags  `SCA_FileOpenRead` or `SCA_FileAppend`; others give `EINVAL`.
  int Open(const char* fileName, unsigned long flags, unsigned long* error);
  void Close();

  /// @param size  Receives the size in bytes.
  int GetSize(unsigned long long* size, unsigned long* error);

  /// @return The size in bytes that the file had when it was opened, without a call to the system.
  unsigned long long GetSizeAtOpen() const { return sizeAtOpen_; }

  /// @return 1 when only its owner may read or write the file, and the owner is this account
  ///         or root; else 0.
  int IsPrivate() const;

  /// Reads on from where the last read ended.
  /// @param count  Bytes wanted, at most 0x7FFFF000.
  /// @param read   Receives the bytes read: `count`, fewer at the end of the file, 0 after it.
  int Read(char* buffer, unsigned long count, unsigned long* read, unsigned long* error);

  /// The same with one call to the system, which may give less before the end too. Of a file on a
  /// disk it gives less only at the end.
  /// @param read  Receives 1 to `count`, or 0 at the end of the file.
  int ReadSome(char* buffer, unsigned long count, unsigned long* read, unsigned long* error);

  /// @return The system's descriptor, which stays the file's; -1 when none is open. Calls with it
  ///         move the place of the next read as reads do.
  int GetHandle() const { return fd_; }

  /// Moves the place of the next read. A write goes to the end wherever that place is.
  /// @param position  Bytes from the start.
  int SetPosition(unsigned long long position, unsigned long* error);

  /// Writes a text and a line end, by one call to the system: lines of several writers do not mix.
  int WriteString(const char* text, unsigned long* error);

 private:
  int fd_ = -1;
  unsigned long long sizeAtOpen_ = 0;
};

/// Permissions of a new file: for its owner only (configuration, logs), or by the process's umask
/// (results that a user asked for).
enum class SCA_FileAccess { Private, Default };

/// Whether a commit waits until the file is on the disk (settings, which exist once), or leaves
/// that to the system (results, which can be made again).
enum class SCA_FileCommit { Durable, Fast };

/// A temporary file in the directory of its target that replaces the target when it is committed.
/// Destroyed without a commit, it leaves nothing behind. A reader sees the old file or the new one,
/// complete; with a durable commit also after a crash at any point.
class SCA_API SCA_ReplacementFile : public SCA_Object {
 public:
  SCA_ReplacementFile();
  ~SCA_ReplacementFile() override;
  SCA_ReplacementFile(const SCA_ReplacementFile&) = delete;
  SCA_ReplacementFile& operator=(const SCA_ReplacementFile&) = delete;

  /// Creates the temporary file, dropping one that was not committed.
  /// @param mode  The permissions that default access gives at most.
  int Open(const char* targetName, SCA_FileAccess access, unsigned long* error,
           unsigned long mode = 0666);
  /// Appends `length` bytes, all of them or the operation fails.
  int Write(const char* data, unsigned long length, unsigned long* error);
  /// Puts the file in the target's place. On failure the target is what it was.
  int Commit(SCA_FileCommit commit, unsigned long* error);
  /// The same where there is no target yet.
  /// @param error  `EEXIST` when there is one, which stays.
  int CommitNew(SCA_FileCommit commit, unsigned long* error);

  /// @param name  Without its directory.
  /// @return 1 for the name of a file that is not committed yet. When no process writes any more,
  ///         such a file was left by one that was killed.
  static int IsAsideName(const char* name);

 private:
  SCA_Result Finish(SCA_FileCommit commit, bool replaces);
  void Discard();

  int fd_ = -1;
  std::string targetName_;
  std::string directory_;
  std::string asideName_;
};

/// Gives a file another name on the same file system once its content is on the disk, in place of
/// what has that name.
SCA_API int SCA_MoveWhole(const char* from, const char* to, unsigned long* error);

#endif  // SCA_PLATFORM_SCA_FILE_H
