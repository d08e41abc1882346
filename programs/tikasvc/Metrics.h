/// The figures of the service host for Prometheus, over HTTP.
#ifndef SCA_PROGRAMS_TIKASVC_METRICS_H
#define SCA_PROGRAMS_TIKASVC_METRICS_H

#include <memory>
#include <string>

#include "programs/common/Address.h"
#include "programs/tikasvc/ControlService.h"

/// Collected for each scrape, on threads of its own, and answered at "/metrics".
class Metrics {
 public:
  Metrics();
  ~Metrics();
  Metrics(const Metrics&) = delete;
  Metrics& operator=(const Metrics&) = delete;

  /// @param parts    Not owned, with what they point to; outlive the metrics.
  /// @param control  Not owned.
  /// @return A complaint, or nothing.
  std::string Open(const HostPort& address, const HostParts& parts, const ControlService& control);

 private:
  struct Server;
  std::unique_ptr<Server> server_;
};

#endif  // SCA_PROGRAMS_TIKASVC_METRICS_H
