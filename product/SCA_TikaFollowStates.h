/// How the states of followed service hosts and of their servers change. Internal to the library.
#ifndef SCA_PRODUCT_SCA_TIKAFOLLOWSTATES_H
#define SCA_PRODUCT_SCA_TIKAFOLLOWSTATES_H

#include "product/SCA_TikaFleet.h"

/// What happens to the connection to a service host.
enum class SCA_TikaHostEvent {
  Connects,
  FailsToConnect,
  IsDuplicate,  ///< it answers, as another service of the fleet does
  Lists,        ///< gives its list of servers
  Refuses,      ///< does not give it
  Loses,        ///< the connection breaks
  Leaves
};

/// What happens to a server of a service host.
enum class SCA_TikaServerEvent {
  Starts,    ///< it was added and started as wanted
  Fails,     ///< it could not be, or did not come up
  Runs,      ///< the host says that it runs
  Dies,      ///< the host says that its process has ended and runs again
  Stops,     ///< the host says that it is stopped
  Errs,      ///< the host says that it could not start it
  Vanishes,  ///< the host no longer has it
  Answers,
  StaysSilent  ///< it has not answered in time
};

/// @return The next state: the same one where an event means nothing to a state.
SCA_TikaHostState SCA_NextState(SCA_TikaHostState state, SCA_TikaHostEvent event);
SCA_TikaServerState SCA_NextState(SCA_TikaServerState state, SCA_TikaServerEvent event);

#endif  // SCA_PRODUCT_SCA_TIKAFOLLOWSTATES_H
