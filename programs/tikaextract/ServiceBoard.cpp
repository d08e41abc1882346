#include "programs/tikaextract/ServiceBoard.h"

#include <algorithm>

#include "programs/common/Escape.h"

namespace {

constexpr unsigned long kLookMs = 100;  // between two looks at the cancel event

}  // namespace

std::string CountServers(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " server" : " servers");
}

void ServiceBoard::Add(unsigned long serviceId, const std::string& name, std::size_t expected) {
  const SCA_LockGuard guard(lock_);
  services_[serviceId].name = Printable(name);
  services_[serviceId].expected = expected;
}

std::string ServiceBoard::Claim(unsigned long serviceId, const std::string& host) {
  const SCA_LockGuard guard(lock_);
  for (const auto& [id, other] : services_) {
    if (id != serviceId && other.host == host) return other.name;
  }
  services_[serviceId].host = host;
  return {};
}

void ServiceBoard::Publish(unsigned long serviceId, const Ports& usable, std::size_t expected,
                           const std::string& why, bool isSettled) {
  Ports added;
  {
    const SCA_LockGuard guard(lock_);
    Service& service = services_[serviceId];
    service.usable = usable;
    service.expected = expected;
    service.why = why;
    service.isConnected = true;
    service.isSettled = isSettled;
    for (const unsigned short port : usable) {
      if (service.welcomed.insert(port).second) added.insert(port);
    }
  }
  for (const unsigned short port : added) onServer_(serviceId, port);
  changed_.Set();
}

void ServiceBoard::Disconnected(unsigned long serviceId, const std::string& why, bool isSettled) {
  {
    const SCA_LockGuard guard(lock_);
    Service& service = services_[serviceId];
    service.why = why;
    service.host.clear();
    service.isConnected = false;
    service.isSettled = isSettled;
  }
  changed_.Set();
}

void ServiceBoard::Tell(unsigned long serviceId, const std::string& text) {
  const SCA_LockGuard guard(lock_);
  notes_.push_back("service " + services_[serviceId].name + ": " + Printable(text));
}

void ServiceBoard::TellDetail(unsigned long serviceId, const std::string& text) {
  if (tellsDetails_) Tell(serviceId, text);
}

bool ServiceBoard::Knows(unsigned long serviceId) const {
  const SCA_LockGuard guard(lock_);
  return services_.count(serviceId) != 0;
}

bool ServiceBoard::IsUsable(unsigned long serviceId, unsigned short port) const {
  const SCA_LockGuard guard(lock_);
  const auto service = services_.find(serviceId);
  return service != services_.end() && service->second.usable.count(port) != 0;
}

std::size_t ServiceBoard::Expected() const {
  const SCA_LockGuard guard(lock_);
  std::size_t sum = 0;
  for (const auto& [id, service] : services_) sum += service.expected;
  return sum;
}

bool ServiceBoard::WaitForServer(SCA_Event* cancel) {
  while (cancel->Wait(0) == 0) {
    {
      const SCA_LockGuard guard(lock_);
      bool areSettled = true;
      for (const auto& [id, service] : services_) {
        if (!service.usable.empty()) return true;
        areSettled = areSettled && service.isSettled;
      }
      if (areSettled) return false;
    }
    changed_.Wait(kLookMs);
  }
  return false;
}

std::vector<std::string> ServiceBoard::Complaints() const {
  const SCA_LockGuard guard(lock_);
  std::vector<std::string> complaints;
  for (const auto& [id, service] : services_) {
    std::string why = service.why;
    if (why.empty()) {
      why =
          service.usable.empty() ? "it has not answered yet" : "its servers do not answer any more";
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
    text += (text.empty() ? "" : ", ") + service.name + ": " +
            (service.isConnected ? CountServers(service.usable.size()) : "no connection");
  }
  return text;
}
