/// The training run that makes a class-data archive. Internal to the library.
#ifndef SCA_SUPERVISION_SCA_CLASSTRAINING_H
#define SCA_SUPERVISION_SCA_CLASSTRAINING_H

#include <string>

#include "host/SCA_TikaServer.h"
#include "platform/SCA_Process.h"
#include "platform/SCA_Result.h"
#include "platform/SCA_Sync.h"

/// A document for the training run.
struct SCA_TrainingDocument {
  const char* name;
  const unsigned char* bytes;
  unsigned long length;
};

/// A few small documents of the most common formats, which are part of the library. The last has no
/// name.
extern const SCA_TrainingDocument SCA_TrainingDocuments[];

struct SCA_TrainingRun {
  SCA_TikaLaunch launch;  ///< of the servers that are to use the archive
  std::string workPlace;  ///< an empty directory for the documents, which stay there
  std::string archive;    ///< the file to write
  SCA_ProcessPriority priority = SCA_ProcessPriority::Idle;
  unsigned long limitMs = 0;    ///< for all of it
  SCA_Event* cancel = nullptr;  ///< may be null
};

/// The words, for JAVA_TOOL_OPTIONS and for a command line, with which a JVM begins with an
/// archive. It compares the checksums first: from damaged classes it would crash, or read a
/// document wrongly. The path must have no double quote in it.
/// @throws std::bad_alloc
std::string SCA_ClassArchiveOptions(const std::string& archive);

/// Runs a server, lets it read the documents, stops it, and makes sure that the JVM takes the
/// archive that it wrote. The server and all its processes are gone at the end, and when the
/// calling thread ends.
/// @return `SCA_ErrorProcessEnded` when no server came up, `SCA_ErrorInvalidData` without an
/// archive
///         that the JVM takes, `ETIMEDOUT`, `SCA_ErrorCancelled`, or the code of a start or a file.
/// @throws std::bad_alloc
SCA_Result SCA_TrainClasses(const SCA_TrainingRun& run);

#endif  // SCA_SUPERVISION_SCA_CLASSTRAINING_H
