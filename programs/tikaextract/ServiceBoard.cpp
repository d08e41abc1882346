#include "programs/tikaextract/ServiceBoard.h"

#include <algorithm>

#include "programs/common/Advice.h"
#include "programs/common/Escape.h"

namespace {

using HostState = SCA_TikaHostState;
using ServerState = SCA_TikaServerState;

std::string CountServers(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " server" : " servers");
}

std::string List(const std::set<unsigned short>& ports) {
  std::string text = ports.size() == 1 ? "port " : "ports ";
  for (const unsigned short port : ports) {
    text += (port == *ports.begin() ? "" : ", ") + std::to_string(port);
  }
  return text;
}

}  // namespace

void ServiceBoard::Add(unsigned long serviceId, const std::string& name, bool wantsServers) {
  const SCA_LockGuard guard(lock_);
  services_[serviceId].name = Printable(name);
  services_[serviceId].wantsServers = wantsServers;
}

void ServiceBoard::OnHost(const SCA_TikaHostNews& news) {
  const SCA_LockGuard guard(lock_);
  Service& service = services_[news.serviceId];
  service.state = news.state;
  switch (news.state) {
    case HostState::Connecting:
    case HostState::Following:
      break;
    case HostState::Connected:
      TellDetail(service,
                 (service.hasServed ? "is back: " : "connected: ") + std::string(news.text));
      service.hasServed = true;
      break;
    case HostState::Refusing:
      service.why = news.text;
      break;
    case HostState::Lost:
    case HostState::Unreachable:
    case HostState::Duplicate:
      if (news.code != 0) return HasBroken(&service, news);
      TellDetail(service, news.text);
      break;
    case HostState::Left:
      if (news.code != 0)
        return Tell(service, news.text + std::string("; look with 'tikactl servers'"));
      if (*news.text != '\0') TellDetail(service, news.text);
      break;
  }
}

void ServiceBoard::HasBroken(Service* service, const SCA_TikaHostNews& news) {
  service->servers.clear();
  service->toldReady.clear();
  service->why = news.text;
  if (news.state != HostState::Duplicate) {
    service->why += std::string("; ") + AdviceOn(news.code, ErrorOf::ServiceHost);
  }
  // A host that is not there when the run begins is worth a line in any case.
  service->hasServed ? TellDetail(*service, service->why) : Tell(*service, service->why);
}

void ServiceBoard::OnServer(const SCA_TikaServerNews& news) {
  const SCA_LockGuard guard(lock_);
  Service& service = services_[news.serviceId];
  const bool isHopeful = news.state == ServerState::Ready || SCA_IsComingUp(news.state);
  service.servers[news.port] = {news.state, isHopeful ? "" : news.text};
  if (SCA_IsGone(news.state)) clients_.erase({news.serviceId, news.port});
  const std::string port = "port " + std::to_string(news.port);
  if (news.code != 0) {
    Tell(service, "cannot use " + port + ": " + Explain(news.code));
  } else if (isHopeful && *news.text != '\0') {
    TellDetail(service, port + ": " + news.text);
  }
}

void ServiceBoard::OnLooked(unsigned long serviceId) {
  const SCA_LockGuard guard(lock_);
  Service& service = services_[serviceId];
  const Ports ready = Ready(service);
  service.why = Complaint(service);
  if (ready != service.toldReady) {
    TellDetail(service,
               "has " + CountServers(ready.size()) + (ready.empty() ? "" : " on " + List(ready)));
    service.toldReady = ready;
  }
  const bool isComingUp =
      std::any_of(service.servers.begin(), service.servers.end(),
                  [](const auto& entry) { return SCA_IsComingUp(entry.second.state); });
  if (isComingUp || service.why == service.toldComplaint) return;
  if (!service.why.empty()) Tell(service, service.why);
  service.toldComplaint = service.why;
}

ServiceBoard::Ports ServiceBoard::Ready(const Service& service) {
  Ports ready;
  for (const auto& [port, server] : service.servers) {
    if (server.state == ServerState::Ready) ready.insert(port);
  }
  return ready;
}

// @return Why something cannot be used; nothing when all is well.
std::string ServiceBoard::Complaint(const Service& service) {
  if (service.servers.empty()) {
    return "it has no server: add one there with 'tikactl add', or for this run with --service-jar";
  }
  const bool hasReady = !Ready(service).empty();
  std::string text;
  bool isStopped = false;
  for (const auto& [port, server] : service.servers) {
    const bool isStoppedHere = server.state == ServerState::Stopped;
    // A host may keep stopped servers beside others on purpose.
    if (server.state == ServerState::Ready ||
        (hasReady && !service.wantsServers && isStoppedHere)) {
      continue;
    }
    isStopped = isStopped || isStoppedHere;
    text += (text.empty() ? "" : "; ") + ("the server on port " + std::to_string(port) + " ") +
            (server.why.empty() ? "does not answer yet" : server.why);
  }
  return text + (isStopped ? ": start it there with 'tikactl start'" : "");
}

void ServiceBoard::Tell(const Service& service, const std::string& text) {
  notes_.push_back("service " + service.name + ": " + Printable(text));
}

void ServiceBoard::TellDetail(const Service& service, const std::string& text) {
  if (tellsDetails_) Tell(service, text);
}

unsigned long ServiceBoard::ClientsFor(unsigned long serviceId, unsigned short port) {
  unsigned long clients = clientsFor_();
  const SCA_LockGuard guard(lock_);
  // One that takes the place of another comes while that one still has its share.
  for (const auto& [server, share] : clients_) clients = std::max(clients, share);
  return clients_[{serviceId, port}] = clients;
}

unsigned long ServiceBoard::Clients() const {
  const SCA_LockGuard guard(lock_);
  unsigned long sum = 0;
  for (const auto& [server, clients] : clients_) sum += clients;
  return sum;
}

std::vector<std::string> ServiceBoard::Complaints() const {
  const SCA_LockGuard guard(lock_);
  std::vector<std::string> complaints;
  for (const auto& [id, service] : services_) {
    std::string why = service.why;
    if (why.empty()) {
      why =
          Ready(service).empty() ? "it has not answered yet" : "its servers do not answer any more";
    }
    complaints.push_back("service " + service.name + ": " + Printable(why));
  }
  return complaints;
}

std::vector<std::string> ServiceBoard::TakeNotes() {
  const SCA_LockGuard guard(lock_);
  return std::exchange(notes_, {});
}

std::string ServiceBoard::Summary() const {
  const SCA_LockGuard guard(lock_);
  std::string text;
  for (const auto& [id, service] : services_) {
    const bool isConnected = service.state == HostState::Connected ||
                             service.state == HostState::Following ||
                             service.state == HostState::Refusing;
    text += (text.empty() ? "" : ", ") + service.name + ": " +
            (isConnected ? CountServers(Ready(service).size()) : "no connection");
  }
  return text;
}
