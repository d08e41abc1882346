/// Configuration files: one object after a header line that names the format and holds a
/// checksum. docs/file-format.md describes the layout. Threads: free functions without shared
/// state; any number of threads and processes may save and load the same file, and each load sees
/// one save, whole.
#ifndef SCA_FOUNDATION_SCA_CONFIGFILE_H
#define SCA_FOUNDATION_SCA_CONFIGFILE_H

#include "foundation/SCA_ConfigBytes.h"

/// File types.
constexpr unsigned long SCA_FileTypeServiceRoot = 9000;  ///< root configuration of the service host
constexpr unsigned long SCA_FileTypeServiceUser = 9001;  ///< user configuration of the service host
constexpr unsigned long SCA_FileTypeHistory = 9003;      ///< history of deaths of a service host
constexpr unsigned long SCA_FileTypeReport = 1011;       ///< text-extraction report

/// The newest layout and format version that this library reads and writes.
constexpr unsigned long SCA_ConfigLayout = 1;
constexpr unsigned long SCA_ConfigFormatVersion = 9;

/// What a file says of itself, and what is wrong with it.
struct SCA_ConfigFileInfo {
  unsigned long layout = 0;
  unsigned long fileType = 0;
  unsigned long formatVersion = 0;
  unsigned long long fileSize = 0;  ///< bytes read; of a file that is too long not all
  SCA_ConfigFault fault;            ///< its offset counts from the file's start
};

/// Reads a file into an object. The file is read block by block.
/// @param object  Receives the file's root name and members in place of its own; without members
///                after a failure.
/// @param info    May be null. The numbers are those of the header, as far as it could be read.
/// @param error   `ENOENT`, `EACCES` and the like; `SCA_ErrorNotRegularFile`;
///                `SCA_ErrorFileForeign` when the file is of another kind;
///                `SCA_ErrorFileNewer` when a newer version wrote it;
///                `SCA_ErrorFileDamaged` when it is cut or changed;
///                `SCA_ErrorDataTooLarge` beyond the limits; `ENOMEM`.
SCA_API int SCA_LoadConfigFile(const char* fileName, SCA_ConfigObj* object,
                               SCA_ConfigFileInfo* info, unsigned long* error);

/// Writes an object into a file that only its owner can read. A temporary file is synced to the
/// disk and then replaces the old one, so that after a crash at any point the old or the new one is
/// there, complete. A link is replaced, not followed.
/// @param fileType       At most 32 bits.
/// @param formatVersion  At most `SCA_ConfigFormatVersion`, or no reader could load the file.
/// @param error          `EINVAL` for a number that does not fit; `SCA_ErrorDataTooLarge` and
///                       `SCA_ErrorInvalidData` as in `SCA_WriteConfigBytes`; `EACCES`,
///                       `ENOSPC` and the like. On failure the old file is untouched.
SCA_API int SCA_SaveConfigFile(const SCA_ConfigObj& object, const char* fileName,
                               unsigned long fileType, unsigned long formatVersion,
                               unsigned long* error);

#endif  // SCA_FOUNDATION_SCA_CONFIGFILE_H
