/// The name of a class-data archive, in which everything is that an archive depends on. Internal to
/// the library.
/// Threads: free functions without shared state; the environment must not change meanwhile.
#ifndef SCA_SUPERVISION_SCA_CLASSARCHIVENAME_H
#define SCA_SUPERVISION_SCA_CLASSARCHIVENAME_H

#include <string>
#include <vector>

#include "host/SCA_TikaServer.h"
#include "supervision/SCA_JavaRuntime.h"

/// @param words  All options in force, in their order.
/// @return Whether this Java can make archives while it runs, as HotSpot does from version 13 on,
///         and the options leave the choice of one to us.
bool SCA_CanArchive(const SCA_JavaRuntime& java, const std::vector<std::string>& words);

/// @return A file name: the jar's without its extension, a hyphen, 32 digits and ".jsa". Empty when
///         there is no such jar.
/// @throws std::bad_alloc
std::string SCA_ClassArchiveName(const SCA_JavaRuntime& java, const SCA_TikaLaunch& launch,
                                 const std::vector<std::string>& words);

#endif  // SCA_SUPERVISION_SCA_CLASSARCHIVENAME_H
