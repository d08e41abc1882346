#include "programs/tikasvc/Metrics.h"

#include <prometheus/collectable.h>
#include <prometheus/exposer.h>
#include <prometheus/metric_family.h>

#include <exception>
#include <utility>
#include <vector>

#include "control/SCA_ServiceStatusNames.h"
#include "platform/SCA_Time.h"
#include "programs/tikasvc/SelfFigures.h"

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using Families = std::vector<MetricFamily>;
using Labels = std::vector<ClientMetric::Label>;

MetricFamily* Family(Families* families, const char* name, const char* help, MetricType type) {
  MetricFamily family;
  family.name = name;
  family.help = help;
  family.type = type;
  families->push_back(std::move(family));
  return &families->back();
}

template <class Number>
void AddValue(MetricFamily* family, Number number, Labels labels = {}) {
  ClientMetric metric;
  metric.label = std::move(labels);
  metric.gauge.value = static_cast<double>(number);
  metric.counter.value = static_cast<double>(number);
  family->metric.push_back(std::move(metric));
}

// One family for each figure of the servers, with a value for each server.
struct ServerFigure {
  const char* name;
  const char* help;
  MetricType type;
  unsigned long long (*get)(const ServerState&);
};

constexpr ServerFigure kServerFigures[] = {
    {"tikasvc_server_ready", "1 when the server answered when it was asked last.",
     MetricType::Gauge, [](const ServerState& server) { return server.isReady ? 1ULL : 0ULL; }},
    {"tikasvc_server_memory_bytes", "Memory that the server's processes hold.", MetricType::Gauge,
     [](const ServerState& server) { return server.processId != 0 ? server.memoryUsage : 0; }},
    {"tikasvc_server_restarts_total", "Restarts since the server was started.", MetricType::Counter,
     [](const ServerState& server) { return static_cast<unsigned long long>(server.restarts); }},
    {"tikasvc_server_worker_deaths_total",
     "Worker processes that ended while the server ran on, since it was started.",
     MetricType::Counter,
     [](const ServerState& server) {
       return static_cast<unsigned long long>(server.workerDeaths);
     }},
    {"tikasvc_server_read_bytes_total", "Bytes that the server's processes have read.",
     MetricType::Counter, [](const ServerState& server) { return server.readData; }},
    {"tikasvc_server_written_bytes_total", "Bytes that the server's processes have written.",
     MetricType::Counter, [](const ServerState& server) { return server.writeData; }},
    {"tikasvc_server_read_operations_total", "Read operations of the server's processes.",
     MetricType::Counter, [](const ServerState& server) { return server.readOperations; }},
    {"tikasvc_server_write_operations_total", "Write operations of the server's processes.",
     MetricType::Counter, [](const ServerState& server) { return server.writeOperations; }},
};

Labels LabelsOf(const ServerState& server) {
  return {{"server", std::to_string(server.id)}, {"port", std::to_string(server.port)}};
}

void CollectServers(const std::vector<ServerState>& servers, Families* families) {
  for (const ServerFigure& figure : kServerFigures) {
    MetricFamily* family = Family(families, figure.name, figure.help, figure.type);
    for (const ServerState& server : servers) {
      AddValue(family, figure.get(server), LabelsOf(server));
    }
  }
}

void CollectStates(const ServersSummary& summary, Families* families) {
  MetricFamily* states =
      Family(families, "tikasvc_servers", "Servers by state.", MetricType::Gauge);
  const unsigned long others = summary.servers - summary.active - summary.error;
  AddValue(states, summary.ready, {{"state", "ready"}});
  AddValue(states, summary.active - summary.ready, {{"state", "not_ready"}});
  AddValue(states, summary.error, {{"state", "error"}});
  AddValue(states, others, {{"state", "stopped"}});
  AddValue(
      Family(families, "tikasvc_suspended", "1 while the service is suspended.", MetricType::Gauge),
      summary.isSuspended ? 1 : 0);
}

void CollectDeaths(const BlackBox& blackBox, BlackBox::Mortal mortal, const char* name,
                   const char* help, Families* families) {
  MetricFamily* deaths = Family(families, name, help, MetricType::Counter);
  const BlackBox::Counts counts = blackBox.CountByKind(mortal);
  // Every cause has its value from the beginning, or its first increase would go unseen.
  for (std::size_t kind = 0; kind < counts.size(); ++kind) {
    if (kind == static_cast<std::size_t>(SCA_DeathKind::Stopped)) continue;
    AddValue(deaths, counts[kind], {{"cause", SCA_DeathKindTexts[kind]}});
  }
}

void CollectRequests(const ControlService& control, Families* families) {
  MetricFamily* requests = Family(families, "tikasvc_control_requests_total",
                                  "Requests on the control port.", MetricType::Counter);
  for (const auto& [command, count] : control.Counts().ByCommand()) {
    AddValue(requests, count.requests - count.failed, {{"command", command}, {"result", "ok"}});
    AddValue(requests, count.failed, {{"command", command}, {"result", "failed"}});
  }
  AddValue(Family(families, "tikasvc_control_refused_logins_total",
                  "Wrong logins on the control port, and connections turned away for them.",
                  MetricType::Counter),
           control.RefusedLogins());
  AddValue(Family(families, "tikasvc_control_connections", "Connections to the control port.",
                  MetricType::Gauge),
           control.ConnectionCount());
}

void CollectSelf(const HostParts& parts, Families* families) {
  const SelfFigures self = GetSelfFigures();
  constexpr unsigned long long kUnixEpoch = 116444736000000000ULL;  // of 1970, in 100 ns since 1601
  AddValue(Family(families, "process_resident_memory_bytes", "Memory of the service host itself.",
                  MetricType::Gauge),
           self.memory);
  AddValue(Family(families, "process_open_fds", "Its open files.", MetricType::Gauge),
           self.descriptors);
  AddValue(Family(families, "process_threads", "Its threads.", MetricType::Gauge), self.threads);
  AddValue(Family(families, "process_start_time_seconds", "When it was started, as Unix time.",
                  MetricType::Gauge),
           (parts.startTime - kUnixEpoch) / SCA_AbsTimePerSecond);
}

}  // namespace

struct Metrics::Server {
  class Collector : public prometheus::Collectable {
   public:
    Collector(const HostParts& parts, const ControlService& control)
        : parts_(parts), control_(control) {}

    Families Collect() const override {
      Families families;
      CollectStates(parts_.servers->Summarize(), &families);
      CollectServers(parts_.servers->GetStates(), &families);
      CollectDeaths(*parts_.blackBox, BlackBox::Mortal::Server, "tikasvc_server_deaths_total",
                    "Unexpected ends of servers' processes by cause; each but the last of a server "
                    "that was given up is followed by a restart.",
                    &families);
      CollectDeaths(*parts_.blackBox, BlackBox::Mortal::Worker, "tikasvc_worker_deaths_total",
                    "Ends of servers' worker processes by cause, which the servers replace.",
                    &families);
      CollectRequests(control_, &families);
      CollectSelf(parts_, &families);
      return families;
    }

   private:
    const HostParts parts_;
    const ControlService& control_;
  };

  Server(const HostPort& address, const HostParts& parts, const ControlService& control)
      : collector(std::make_shared<Collector>(parts, control)), exposer(FormatHostPort(address)) {
    exposer.RegisterCollectable(collector);
  }

  std::shared_ptr<Collector> collector;  // the exposer keeps no hold of it
  prometheus::Exposer exposer;
};

Metrics::Metrics() = default;
Metrics::~Metrics() = default;

std::string Metrics::Open(const HostPort& address, const HostParts& parts,
                          const ControlService& control) {
  try {
    server_ = std::make_unique<Server>(address, parts, control);
    return {};
  } catch (const std::exception& error) {
    return "cannot serve metrics at " + FormatHostPort(address) + ": " + error.what() +
           "; the port may be taken, and the host must be an address of this machine";
  }
}
