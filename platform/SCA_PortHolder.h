/// Who listens on a port: two programs may want the same. Internal to the library.
/// Threads: any thread may ask.
#ifndef SCA_PLATFORM_SCA_PORTHOLDER_H
#define SCA_PLATFORM_SCA_PORTHOLDER_H

enum class SCA_PortHolder {
  Ours,      ///< a process of the group
  Stranger,  ///< another program
  Unknown    ///< nobody does, or the system does not tell
};

/// @param group  A process group of this account, by its leader's id.
/// Throws `std::bad_alloc`.
SCA_PortHolder SCA_FindPortHolder(unsigned short port, unsigned long group);

#endif  // SCA_PLATFORM_SCA_PORTHOLDER_H
