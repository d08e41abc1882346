/// Who listens on a port, which two programs may want, and how many are connected to it. Internal
/// to the library.
/// Threads: any thread may ask.
#ifndef SCA_PLATFORM_SCA_PORTHOLDER_H
#define SCA_PLATFORM_SCA_PORTHOLDER_H

#include <optional>

enum class SCA_PortHolder {
  Ours,      ///< a process of the group
  Stranger,  ///< another program
  Unknown    ///< nobody does, or the system does not tell
};

/// @param group  A process group of this account, by its leader's id.
/// Throws `std::bad_alloc`.
SCA_PortHolder SCA_FindPortHolder(unsigned short port, unsigned long group);

/// @return How many TCP connections to the port of this machine are open at its end, idle ones as
///         well, and those whose peer sends nothing more but may wait for a reply; nothing when the
///         system does not tell, for want of a file descriptor, say. Throws `std::bad_alloc`.
std::optional<unsigned long> SCA_CountConnections(unsigned short port);

#endif  // SCA_PLATFORM_SCA_PORTHOLDER_H
