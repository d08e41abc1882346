/// Options of the JVMs of a Tika server, chosen by what the server is for.
/// Threads: free functions; the environment must not change meanwhile.
#ifndef SCA_SUPERVISION_SCA_JVMOPTIONS_H
#define SCA_SUPERVISION_SCA_JVMOPTIONS_H

#include <string>

#include "host/SCA_TikaServer.h"

/// What a server is for.
enum class SCA_JvmPurpose {
  Unknown,  ///< the JVM's own choices
  Run,      ///< some documents, up to a folder of thousands: the server ends with them
  Service   ///< a host that runs for months
};

/// The options for a purpose, from the table in SCA_JvmOptions.cpp. None of them lets a JVM take
/// more memory than without it.
/// @param launch  Where its options, or the environment (JAVA_TOOL_OPTIONS, JDK_JAVA_OPTIONS,
///                _JAVA_OPTIONS), choose a garbage collector or name a file of options, none is
///                chosen here: a JVM refuses two. Any other option of the user wins by standing
///                last.
/// @return Words with blanks between them, for JAVA_TOOL_OPTIONS; may be empty.
/// @throws std::bad_alloc
SCA_API std::string SCA_JvmOptions(SCA_JvmPurpose purpose, const SCA_TikaLaunch& launch);

#endif  // SCA_SUPERVISION_SCA_JVMOPTIONS_H
