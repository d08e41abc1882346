/// Who listens on a port: two programs may want the same.
#ifndef SCA_PROGRAMS_TIKASVC_PORTHOLDER_H
#define SCA_PROGRAMS_TIKASVC_PORTHOLDER_H

enum class PortHolder {
  Ours,      ///< a process of the group
  Stranger,  ///< another program
  Unknown    ///< nobody does, or the system does not tell
};

/// @param group  A process group of this account, by its leader's id.
PortHolder FindPortHolder(unsigned short port, unsigned long group);

#endif  // SCA_PROGRAMS_TIKASVC_PORTHOLDER_H
