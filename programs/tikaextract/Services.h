/// The service hosts of a run.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_SERVICES_H
#define SCA_PROGRAMS_TIKAEXTRACT_SERVICES_H

#include <functional>
#include <memory>
#include <string>

#include "product/SCA_TikaFleet.h"
#include "programs/tikaextract/ServiceBoard.h"
#include "programs/tikaextract/Setup.h"

/// Threads: used by one thread, except for `Expected`.
class Services {
 public:
  /// As in `ServiceBoard`.
  Services(std::function<unsigned long()> clientsFor, bool tellsDetails)
      : board_(std::move(clientsFor), tellsDetails) {}

  /// Connects to the services; the dispatcher gets their servers from now on.
  /// @param dispatcher  Without servers; must outlive this.
  /// @return False without memory.
  bool Start(const Setup& setup, SCA_TikaDispatcher* dispatcher);
  /// Waits until a server can be used. @return False when none can, or after the cancel event.
  bool WaitForServer(SCA_Event* cancel);
  /// @return How many servers of services there are, as far as they are known.
  unsigned long Expected() const { return fleet_ != nullptr ? fleet_->GetExpectedServers() : 0; }
  /// @return How many clients their servers have.
  unsigned long Clients() const { return board_.Clients(); }
  /// Stops the dispatcher, gives back what was added for this run, at all services at once, and
  /// disconnects.
  void Leave();

  ServiceBoard& Board() { return board_; }

 private:
  ServiceBoard board_;
  std::unique_ptr<SCA_TikaFleet> fleet_;  // null unless there are services
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_SERVICES_H
