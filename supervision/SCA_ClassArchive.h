/// Class-data archives: files from which a JVM takes the classes of a Tika server ready-made. With
/// one a server is up in half the time, and its first documents take a fraction of theirs. An
/// archive belongs to one Java, one jar and some options, and is made by a training run: a server
/// that reads a few documents and writes down its classes as it ends.
/// Threads: any thread may call any operation; the destructor runs when no other thread uses the
/// object.
#ifndef SCA_SUPERVISION_SCA_CLASSARCHIVE_H
#define SCA_SUPERVISION_SCA_CLASSARCHIVE_H

#include <memory>
#include <string>

#include "host/SCA_TikaServer.h"
#include "platform/SCA_Sync.h"

/// Whether a server's JVMs begin with an archive.
enum class SCA_ClassArchiveState {
  Off,          ///< none was asked for
  Unsupported,  ///< Java is older than 13 or not known, or the options choose an archive themselves
  Missing,      ///< there is none yet
  Used,
  Refused  ///< the JVM did not take it, or crashed with it; it was thrown away
};

/// @return One or two words, static storage: "used", "none yet".
SCA_API const char* SCA_ClassArchiveText(SCA_ClassArchiveState state);

/// Who makes archives that are missing.
enum class SCA_ClassArchiveMaking {
  OnRequest,    ///< `Make` alone
  InBackground  ///< `MakeLater` as well, on a thread of the object's own
};

/// The archives in one directory, of which the four used last are kept. An archive takes about
/// 50 MB. That there is none, or none can be made, is never an error to a server.
class SCA_API SCA_ClassArchive : public SCA_Object {
 public:
  /// @param directory  Made when it is needed, for its owner only; copied. It is not used when
  ///                   others may write to it, because an archive is code.
  explicit SCA_ClassArchive(const char* directory,
                            SCA_ClassArchiveMaking making = SCA_ClassArchiveMaking::OnRequest);
  /// Ends a training run that is under way.
  ~SCA_ClassArchive() override;
  SCA_ClassArchive(const SCA_ClassArchive&) = delete;
  SCA_ClassArchive& operator=(const SCA_ClassArchive&) = delete;

  /// Looks for the archive of a server. Its name has a digest of the Java, of the jar's path, size
  /// and time, and of the options that matter; heap limits below 32 GB are alike.
  /// @param option  Receives the words for JAVA_TOOL_OPTIONS, quoted; empty unless it is `Used`.
  /// @return `Unsupported`, `Missing` or `Used`, without memory `Unsupported`.
  SCA_ClassArchiveState Find(const SCA_TikaLaunch& launch, std::string* option) const;

  /// Throws an archive away that the JVM does not take. The next is made an hour later at the
  /// earliest, except by `Make`.
  void Discard(const SCA_TikaLaunch& launch);

  /// @return Whether an archive is missing, could be made now, and has not failed within the last
  ///         hour. Makes the directory if it is missing.
  bool IsWanted(const SCA_TikaLaunch& launch) const;

  /// Makes the archive of a server when it `IsWanted`, on a thread of the object's own at the
  /// lowest priority, one after the other. Returns at once; a failure is reported at level info.
  /// Does nothing unless it makes archives in the background.
  void MakeLater(const SCA_TikaLaunch& launch);

  /// Makes the archive of a server unless there is one. Takes some seconds, two minutes at most.
  /// @param cancel  Ends the training run; not owned, may be null.
  /// @param error   `ENOTSUP` where `Find` says `Unsupported`; `EWOULDBLOCK` while another process
  ///                makes one in this directory; `EPERM` for a directory that others may write to;
  ///                `ENOSPC`; `SCA_ErrorProcessEnded` when no server came up;
  ///                `SCA_ErrorInvalidData` when the JVM wrote no archive that it takes;
  ///                `ETIMEDOUT`, `SCA_ErrorCancelled` or the system's code.
  /// @return 1 when there is one, else 0.
  int Make(const SCA_TikaLaunch& launch, SCA_Event* cancel, unsigned long* error);

 private:
  class Store;
  class Trainer;
  std::unique_ptr<Store> store_;
  std::unique_ptr<Trainer> trainer_;
};

/// @return Whether a line is one with which a JVM says that it goes without its archive.
SCA_API bool SCA_IsArchiveRefusal(const std::string& line);

/// The directory in which programs of this account keep archives: `sca_tika/class-archives` in the
/// user's cache directory.
/// @return 1, or 0 when there is no such directory or the path does not fit.
SCA_API int SCA_GetClassArchiveDir(char* directory, unsigned long size);

#endif  // SCA_SUPERVISION_SCA_CLASSARCHIVE_H
