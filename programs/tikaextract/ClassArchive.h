/// The class-data archive of private servers, in the user's cache directory.
/// Threads: one at a time.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_CLASSARCHIVE_H
#define SCA_PROGRAMS_TIKAEXTRACT_CLASSARCHIVE_H

#include <string>

#include "programs/tikaextract/Options.h"
#include "supervision/SCA_ClassArchive.h"

/// @return The directory of the archives; empty where the account has no cache directory, and then
///         there are none.
std::string ClassArchiveDirectory();

/// Makes the archive, unless there is one, and says why when it cannot.
/// @param launch  What the private server is started with.
/// @return The exit status of the program.
ExitStatus MakeClassArchive(const Options& options, const SCA_TikaLaunch& launch,
                            SCA_Event* cancel);

/// Starts this program once more, at the lowest priority, to make the archive, if one is wanted. It
/// runs on when this one has ended, for two and a half minutes at most, with nothing of its input
/// and output.
/// @return Whether it was started.
bool StartMakingClassArchive(const SCA_ClassArchive& archive, const SCA_TikaLaunch& launch);

#endif  // SCA_PROGRAMS_TIKAEXTRACT_CLASSARCHIVE_H
