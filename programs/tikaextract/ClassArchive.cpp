#include "programs/tikaextract/ClassArchive.h"

#include <unistd.h>

#include <cerrno>

#include "platform/SCA_Error.h"
#include "platform/SCA_Path.h"
#include "platform/SCA_Process.h"
#include "programs/common/Escape.h"

namespace {

// Longer than a training run may take. Should this process hang, the alarm ends it, and with it
// everything that it has started.
constexpr unsigned kMostSeconds = 150;

std::string Why(unsigned long error) {
  switch (error) {
    case ENOTSUP:
      return "this needs a Java from version 13 on that tells its version, and no other choice of "
             "an archive in JAVA_TOOL_OPTIONS";
    case EWOULDBLOCK:
      return "another process is making one";
    case ENOMEM:
      return "this takes 512 MB of free memory";
    case EPERM:
      return "others may write to the directory, or it belongs to another account";
    default:
      return SCA_ErrorText(error);
  }
}

}  // namespace

std::string ClassArchiveDirectory() {
  char directory[SCA_MaxPath];
  return SCA_GetClassArchiveDir(directory, sizeof directory) != 0 ? directory : "";
}

ExitStatus MakeClassArchive(const Options& options, const SCA_TikaLaunch& launch,
                            SCA_Event* cancel) {
  ::alarm(kMostSeconds);
  const std::string directory = ClassArchiveDirectory();
  SCA_ClassArchive archive(directory.c_str());
  unsigned long error = 0;
  if (archive.Make(launch, cancel, &error) != 0) {
    if (options.verbose) {
      PrintErrorLine("tikaextract: the class archive is in " + Printable(directory));
    }
    return kAllExtracted;
  }
  PrintErrorLine("tikaextract: cannot make a class archive in " + Quoted(directory) + ": " +
                 Why(error));
  return kSomeFailed;
}

bool StartMakingClassArchive(const SCA_ClassArchive& archive, const SCA_TikaLaunch& launch) {
  char program[SCA_MaxPath];
  unsigned long error = 0;
  if (!archive.IsWanted(launch) || SCA_GetExeFileName(program, sizeof program, &error) == 0) {
    return false;
  }
  const std::string heap = std::to_string(launch.heapSize);
  const char* const words[] = {
      program,       "--make-class-archive", "--jar", launch.fileName.c_str(),
      "--java-heap", heap.c_str(),           nullptr};
  return SCA_StartDetached(words, SCA_ProcessPriority::Idle, &error) != 0;
}
