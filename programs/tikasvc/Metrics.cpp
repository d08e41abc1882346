#include "programs/tikasvc/Metrics.h"

#include <prometheus/collectable.h>
#include <prometheus/exposer.h>
#include <prometheus/metric_family.h>

#include <exception>
#include <utility>
#include <vector>

#include "platform/SCA_Time.h"

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

// Fields of a status that are metrics: a row each, and a family with a value for each server.
template <class Status>
struct Figure {
  unsigned long long Status::*field;
  const char* name;
  const char* help;
  MetricType type;
};

constexpr Figure<ServerStatus> kServerFigures[] = {
    {&ServerStatus::Ready, "tikasvc_server_ready", "1 if the server answered the last probe.",
     MetricType::Gauge},
    {&ServerStatus::MemoryUsage, "tikasvc_server_memory_bytes", "Memory of the server's processes.",
     MetricType::Gauge},
    {&ServerStatus::Restarts, "tikasvc_server_restarts_total",
     "Restarts since the server was started.", MetricType::Counter},
    {&ServerStatus::WorkerDeaths, "tikasvc_server_worker_deaths_total",
     "Worker processes that ended while the server ran on, since it was started.",
     MetricType::Counter},
    {&ServerStatus::Documents, "tikasvc_server_documents_total",
     "Documents that the running process has begun, as its log tells.", MetricType::Counter},
    {&ServerStatus::ReadData, "tikasvc_server_read_bytes_total",
     "Bytes that the server's processes have read.", MetricType::Counter},
    {&ServerStatus::WriteData, "tikasvc_server_written_bytes_total",
     "Bytes that the server's processes have written.", MetricType::Counter},
    {&ServerStatus::ReadIops, "tikasvc_server_read_operations_total",
     "Read operations of the server's processes.", MetricType::Counter},
    {&ServerStatus::WriteIops, "tikasvc_server_write_operations_total",
     "Write operations of the server's processes.", MetricType::Counter},
};

constexpr Figure<ServiceStatus> kServiceFigures[] = {
    {&ServiceStatus::RefusedLogins, "tikasvc_control_refused_logins_total",
     "Wrong logins on the control port, and connections refused because of them.",
     MetricType::Counter},
    {&ServiceStatus::RecycledServers, "tikasvc_recycled_servers_total",
     "Servers that a successor has replaced since the start of the host.", MetricType::Counter},
    {&ServiceStatus::LeavingServers, "tikasvc_leaving_servers",
     "Servers that were replaced and finish their documents.", MetricType::Gauge},
    {&ServiceStatus::Connections, "tikasvc_control_connections", "Connections to the control port.",
     MetricType::Gauge},
    {&ServiceStatus::HostMemory, "process_resident_memory_bytes",
     "Memory of the service host itself.", MetricType::Gauge},
    {&ServiceStatus::HostDescriptors, "process_open_fds", "Open files of the service host.",
     MetricType::Gauge},
    {&ServiceStatus::HostThreads, "process_threads", "Threads of the service host.",
     MetricType::Gauge},
};

void CollectServers(const std::vector<ServerStatus>& servers, Families* families) {
  for (const auto& figure : kServerFigures) {
    MetricFamily* family = Family(families, figure.name, figure.help, figure.type);
    for (const ServerStatus& server : servers) {
      AddValue(
          family, server.*figure.field,
          {{"server", std::to_string(server.ServerId)}, {"port", std::to_string(server.Port)}});
    }
  }
}

void CollectService(const ServiceStatus& service, Families* families) {
  for (const auto& figure : kServiceFigures) {
    AddValue(Family(families, figure.name, figure.help, figure.type), service.*figure.field);
  }
  constexpr unsigned long long kUnixEpoch = 116444736000000000ULL;  // of 1970, in 100 ns since 1601
  AddValue(Family(families, "process_start_time_seconds",
                  "Start time of the service host, as Unix time.", MetricType::Gauge),
           (service.StartTime - kUnixEpoch) / SCA_AbsTimePerSecond);
  MetricFamily* states =
      Family(families, "tikasvc_servers", "Servers by state.", MetricType::Gauge);
  AddValue(states, service.ReadyServers, {{"state", "ready"}});
  AddValue(states, service.ActiveServers - service.ReadyServers, {{"state", "not_ready"}});
  AddValue(states, service.ErrorServers, {{"state", "error"}});
  AddValue(states, service.Servers - service.ActiveServers - service.ErrorServers,
           {{"state", "stopped"}});
  AddValue(
      Family(families, "tikasvc_suspended", "1 while the service is suspended.", MetricType::Gauge),
      service.Status == SCA_ServerInactive ? 1 : 0);
}

void CollectDeaths(const SCA_TikaDeathHistory& history, SCA_DeathOf who, const char* name,
                   const char* help, Families* families) {
  MetricFamily* deaths = Family(families, name, help, MetricType::Counter);
  // Every cause has its value from the beginning, or its first increase would go unseen.
  for (std::size_t i = 0; i < std::size(SCA_DeathKindTexts); ++i) {
    const auto kind = static_cast<SCA_DeathKind>(i);
    if (kind == SCA_DeathKind::Stopped) continue;
    AddValue(deaths, history.GetCount(who, kind), {{"cause", SCA_DeathKindText(kind)}});
  }
}

void CollectRequests(const ControlService& control, Families* families) {
  MetricFamily* requests = Family(families, "tikasvc_control_requests_total",
                                  "Requests on the control port.", MetricType::Counter);
  for (const auto& [command, count] : control.Counts().ByCommand()) {
    AddValue(requests, count.requests - count.failed, {{"command", command}, {"result", "ok"}});
    AddValue(requests, count.failed, {{"command", command}, {"result", "failed"}});
  }
}

}  // namespace

struct Metrics::Server {
  class Collector : public prometheus::Collectable {
   public:
    Collector(const HostParts& parts, const ControlService& control)
        : parts_(parts), control_(control) {}

    Families Collect() const override {
      Families families;
      CollectService(control_.GetStatus(), &families);
      CollectServers(parts_.servers->GetStatuses(), &families);
      CollectDeaths(*parts_.history, SCA_DeathOf::Server, "tikasvc_server_deaths_total",
                    "Unexpected ends of servers' processes by cause; a restart follows "
                    "unless the host gave up on the server.",
                    &families);
      CollectDeaths(*parts_.history, SCA_DeathOf::Worker, "tikasvc_worker_deaths_total",
                    "Ends of servers' worker processes by cause; the servers replace them.",
                    &families);
      CollectRequests(control_, &families);
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
