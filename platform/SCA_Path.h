/// Paths, directories, and where programs and accounts keep their files. Paths are bytes with
/// slashes; what comes from another system with backslashes is normalised.
/// Threads: free functions without shared state; the environment must not change meanwhile.
#ifndef SCA_PLATFORM_SCA_PATH_H
#define SCA_PLATFORM_SCA_PATH_H

#include "platform/SCA_Object.h"

/// Capacity in bytes that holds every path of the system, the terminating zero included.
constexpr unsigned long SCA_MaxPath = 4096;

/// int results are 1 for success and 0 for failure; a result that does not fit its buffer is a
/// failure (`ENAMETOOLONG`), the buffer then being empty: a cut path is another path.

/// The full path of the program that runs.
SCA_API int SCA_GetExeFileName(char* path, unsigned long size, unsigned long* error);

/// The directory part of a path: "/" for a file in the root, "." for a bare name.
SCA_API int SCA_GetDirName(const char* path, char* directory, unsigned long size);

/// Turns backslashes into slashes and runs of them into one. The buffers may be the same.
SCA_API int SCA_NormalizePath(const char* path, char* normalized, unsigned long size);

/// Formats a path as printf does and normalises it.
SCA_API int SCA_FormatPath(char* path, unsigned long size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/// @return 1 for a path that begins with a slash or a backslash, or with a drive and a colon.
SCA_API int SCA_IsAbsolutePath(const char* path);

/// @return 1 when there is something of that name that is not a directory.
SCA_API int SCA_FileExists(const char* path);
SCA_API int SCA_DirectoryExists(const char* path);

/// Creates a directory for its owner only, with missing parents. An existing one is a success.
SCA_API int SCA_CreateDirectory(const char* path, unsigned long* error);

/// The name of the account: the environment's LOGNAME, else the password database's, else its
/// number.
SCA_API int SCA_GetUserName(char* name, unsigned long size);

/// The name of this machine.
SCA_API int SCA_GetHostName(char* name, unsigned long size);

/// The directory in which the account's programs keep their settings: XDG_CONFIG_HOME when it is
/// absolute, else .config in HOME, else in the home of the password database. It need not exist.
SCA_API int SCA_GetUserAppConfDir(char* directory, unsigned long size);

/// The directory in which the account's programs keep what they can make again: XDG_CACHE_HOME when
/// it is absolute, else .cache in HOME, else in the home of the password database. It need not
/// exist.
SCA_API int SCA_GetUserCacheDir(char* directory, unsigned long size);

/// Finds a program as a shell does: a name without a slash in the directories that PATH names, or
/// in the system's own when it is not set. An empty entry of PATH, the current directory, is passed
/// over: what lies there may be anybody's.
/// @param path  Receives a name with a slash as it is, else the file's path.
/// @return 0 when there is none.
SCA_API int SCA_FindProgram(const char* name, char* path, unsigned long size);

/// @return 1 when nobody but root and this account may change what the path names: it belongs to
///         one of them, and neither its group nor others may write.
SCA_API int SCA_IsOwnPath(const char* path);

#endif  // SCA_PLATFORM_SCA_PATH_H
