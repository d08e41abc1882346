#include "programs/tikasvc/ServerOwners.h"

#include <algorithm>
#include <utility>

void ServerOwners::Claim(unsigned long agent) {
  if (owner_ == agent) return;
  if (agent == kHost) std::swap(agent, owner_);
  if (std::find(claims_.begin(), claims_.end(), agent) == claims_.end()) claims_.push_back(agent);
}

void ServerOwners::Withdraw(unsigned long agent) {
  claims_.erase(std::remove(claims_.begin(), claims_.end(), agent), claims_.end());
}

bool ServerOwners::Leave(unsigned long agent) {
  Withdraw(agent);
  if (owner_ != agent) return false;
  if (claims_.empty()) return true;
  owner_ = claims_.front();
  claims_.pop_front();
  return false;
}

void ServerOwners::Forget(unsigned long agent) {
  Withdraw(agent);
  if (owner_ == agent) owner_ = kHost;
}

std::string ServerOwners::TextOf(unsigned long agent) {
  return agent == kHost ? "host" : "connection " + std::to_string(agent);
}
