#include "product/SCA_TikaFollowStates.h"

#include <algorithm>
#include <iterator>

namespace {

template <class State, class Event>
struct Row {
  State from;
  Event on;
  State to;
};

using Host = SCA_TikaHostState;
using HostEvent = SCA_TikaHostEvent;
constexpr Row<Host, HostEvent> kHostRows[] = {
    {Host::Connecting, HostEvent::Connects, Host::Connected},
    {Host::Connecting, HostEvent::FailsToConnect, Host::Unreachable},
    {Host::Connecting, HostEvent::IsDuplicate, Host::Duplicate},
    {Host::Unreachable, HostEvent::Connects, Host::Connected},
    {Host::Unreachable, HostEvent::IsDuplicate, Host::Duplicate},
    {Host::Lost, HostEvent::Connects, Host::Connected},
    {Host::Lost, HostEvent::FailsToConnect, Host::Unreachable},
    {Host::Lost, HostEvent::IsDuplicate, Host::Duplicate},
    {Host::Duplicate, HostEvent::Connects, Host::Connected},
    {Host::Duplicate, HostEvent::FailsToConnect, Host::Unreachable},
    {Host::Connected, HostEvent::Lists, Host::Following},
    {Host::Connected, HostEvent::Refuses, Host::Refusing},
    // A host that closes each connection before it says anything is of no more use than none.
    {Host::Connected, HostEvent::Loses, Host::Unreachable},
    {Host::Following, HostEvent::Refuses, Host::Refusing},
    {Host::Following, HostEvent::Loses, Host::Lost},
    {Host::Refusing, HostEvent::Lists, Host::Following},
    {Host::Refusing, HostEvent::Loses, Host::Lost},
};

using Server = SCA_TikaServerState;
using ServerEvent = SCA_TikaServerEvent;
constexpr Row<Server, ServerEvent> kServerRows[] = {
    {Server::Wanted, ServerEvent::Starts, Server::Starting},
    {Server::Wanted, ServerEvent::Fails, Server::Failed},
    {Server::Starting, ServerEvent::Answers, Server::Ready},
    {Server::Starting, ServerEvent::StaysSilent, Server::Silent},
    {Server::Starting, ServerEvent::Fails, Server::Failed},
    {Server::Starting, ServerEvent::Stops, Server::Stopped},
    {Server::Starting, ServerEvent::Errs, Server::InError},
    {Server::Starting, ServerEvent::Vanishes, Server::Deleted},
    {Server::Ready, ServerEvent::Dies, Server::Starting},
    {Server::Ready, ServerEvent::Stops, Server::Stopped},
    {Server::Ready, ServerEvent::Errs, Server::InError},
    {Server::Ready, ServerEvent::Vanishes, Server::Deleted},
    {Server::Silent, ServerEvent::Answers, Server::Ready},
    {Server::Silent, ServerEvent::Stops, Server::Stopped},
    {Server::Silent, ServerEvent::Errs, Server::InError},
    {Server::Silent, ServerEvent::Vanishes, Server::Deleted},
    {Server::Failed, ServerEvent::Starts, Server::Starting},
    {Server::Stopped, ServerEvent::Runs, Server::Starting},
    {Server::Stopped, ServerEvent::Vanishes, Server::Deleted},
    {Server::InError, ServerEvent::Runs, Server::Starting},
    {Server::InError, ServerEvent::Vanishes, Server::Deleted},
    {Server::Deleted, ServerEvent::Runs, Server::Starting},
};

template <class State, class Event, std::size_t size>
State Find(const Row<State, Event> (&rows)[size], State state, Event event) {
  const auto* const row = std::find_if(std::begin(rows), std::end(rows), [=](const auto& other) {
    return other.from == state && other.on == event;
  });
  return row != std::end(rows) ? row->to : state;
}

}  // namespace

SCA_TikaHostState SCA_NextState(SCA_TikaHostState state, SCA_TikaHostEvent event) {
  return event == HostEvent::Leaves ? Host::Left : Find(kHostRows, state, event);
}

SCA_TikaServerState SCA_NextState(SCA_TikaServerState state, SCA_TikaServerEvent event) {
  return Find(kServerRows, state, event);
}
