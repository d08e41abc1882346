#include "platform/posix/SCA_UnixAddress.h"

#include <fcntl.h>

#include <cstdio>
#include <cstring>

#include "platform/SCA_Error.h"
#include "platform/SCA_Path.h"

SCA_Result SCA_UnixAddress::Set(const char* path) {
  address_.sun_family = AF_UNIX;
  const std::size_t length = std::strlen(path);
  if (*path != '/' || length >= SCA_MaxPath) return SCA_Result(SCA_ErrorSocketPath);
  if (length < sizeof address_.sun_path) {
    std::memcpy(address_.sun_path, path, length + 1);
    return SCA_Done;
  }
  char directory[SCA_MaxPath];
  if (SCA_GetDirName(path, directory, sizeof directory) == 0) {
    return SCA_Result(SCA_ErrorSocketPath);
  }
  directory_.Reset(::open(directory, O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!directory_.IsOpen()) return SCA_SystemError();
  const int written =
      std::snprintf(address_.sun_path, sizeof address_.sun_path, "/proc/self/fd/%d%s",
                    directory_.Get(), std::strrchr(path, '/'));
  const bool fits = written > 0 && static_cast<std::size_t>(written) < sizeof address_.sun_path;
  return fits ? SCA_Done : SCA_Result(SCA_ErrorSocketPath);
}
