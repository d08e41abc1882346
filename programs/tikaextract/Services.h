/// The service hosts of a run, each followed on a thread of its own.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_SERVICES_H
#define SCA_PROGRAMS_TIKAEXTRACT_SERVICES_H

#include <memory>
#include <string>
#include <vector>

#include "product/SCA_TikaStatusList.h"
#include "programs/tikaextract/ServiceBoard.h"
#include "programs/tikaextract/ServiceHost.h"
#include "programs/tikaextract/Setup.h"

/// Threads: used by one thread, but for the board.
class Services {
 public:
  Services(ServiceBoard::OnServer onServer, bool tellsDetails)
      : board_(std::move(onServer), tellsDetails) {}
  /// Leaves.
  ~Services() { Leave(); }
  Services(const Services&) = delete;
  Services& operator=(const Services&) = delete;

  /// Connects to the services; `onServer` is called from now on.
  /// @return False without memory.
  bool Start(const Setup& setup);
  /// Gives back what was added for this run, at all services at once, and disconnects.
  void Leave();

  ServiceBoard& Board() { return board_; }

 private:
  ServiceBoard board_;
  SCA_TikaStatusList statuses_;
  std::vector<std::unique_ptr<ServiceHost>> hosts_;
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_SERVICES_H
