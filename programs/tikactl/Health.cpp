#include "programs/tikactl/Health.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "host/SCA_ProcessStatus.h"
#include "platform/SCA_Time.h"

namespace {

namespace ServerField = SCA_ServerFields;
namespace ServiceField = SCA_ServiceFields;

constexpr unsigned long long kRecentMs = 3600000;  // a death that is still worth a word

struct Problem {
  std::string text;
  std::string command;  // tells more
};

std::string Named(const std::string& id, const Fields& server) {
  const auto port = server.Number(ServerField::Port);
  return "server " + id + (port ? " (port " + std::to_string(*port) + ")" : "");
}

struct Survey {
  std::optional<Problem> givenUp;  // the first of each kind
  std::optional<Problem> waiting;
  unsigned long problems = 0;
  std::string stopped;  // ids, a blank before each
  unsigned long ready = 0;
  unsigned long all = 0;
};

Problem GivenUp(const std::string& id, const Fields& server) {
  const std::string reason = TroubleOf(server);
  const std::string because = reason.empty() ? "" : ": " + reason;
  if (server.Text(ServerField::LastDeath).empty()) {
    return {Named(id, server) + " could not be started" + because, "debug-log"};
  }
  return {Named(id, server) + " was given up" + because, "history " + id};
}

Problem NotReady(const std::string& id, const Fields& server) {
  const std::string word = server.Text(ServerField::StatusText);
  const auto silence = server.Number(ServerField::Silence);
  return {Named(id, server) + (word.empty() ? " does not answer" : " is " + word) +
              (silence.value_or(0) >= 1000 ? ", without an answer for " + Duration(*silence) : "") +
              RestartsOf(server),
          (RestartsOf(server).empty() ? "logs " : "history ") + id};
}

void Note(std::optional<Problem>* first, Problem problem, Survey* survey) {
  ++survey->problems;
  if (!*first) *first = std::move(problem);
}

void Look(const std::string& id, const Fields& server, Survey* survey) {
  ++survey->all;
  switch (StateOf(server)) {
    case ServerState::GivenUp:
      return Note(&survey->givenUp, GivenUp(id, server), survey);
    case ServerState::Waiting:
      return Note(&survey->waiting, NotReady(id, server), survey);
    case ServerState::Ready:
      ++survey->ready;
      return;
    case ServerState::Stopped:
    case ServerState::NotStarted:
      survey->stopped += " " + id;
      return;
    case ServerState::Unknown:
      return Note(&survey->waiting,
                  {"the state of " + Named(id, server) + " is unknown", "--json status"}, survey);
  }
}

// Problems that are over.
std::string PastTrouble(const Host& host, const Fields& service, const SCA_ConfigObj& servers) {
  unsigned long long last = 0;
  ForEachServer(servers, [&last](const std::string& /*id*/, const Fields& server) {
    last = std::max(last, server.NumberOr(ServerField::LastDeathTime, 0));
  });
  const unsigned long long now = SCA_GetAbsTime();
  const unsigned long long agoMs = now > last ? (now - last) / SCA_AbsTimePerMs : 0;
  const unsigned long long deaths =
      service.NumberOr(ServiceField::Deaths, 0) + service.NumberOr(ServiceField::WorkerDeaths, 0);
  if (deaths == 0 || last == 0 || agoMs > kRecentMs) return {};
  return " A server or its worker died " + Duration(agoMs) + " ago, " + Count(deaths, "death") +
         " since the host's start: see " + host.Hint("history") + ".";
}

std::string StartCommand(const Survey& survey) {
  return "start" + (survey.stopped.empty() ? " ID" : survey.stopped);
}

Health Ill(const Host& host, const std::string& text, const std::string& command) {
  return {false, text + "; see " + host.Hint(command) + "."};
}

}  // namespace

ServerState StateOf(const Fields& server) {
  const auto status = server.Number(ServerField::Status);
  if (!status) return ServerState::Unknown;
  switch (*status) {
    case SCA_ServerError:
      return ServerState::GivenUp;
    case SCA_ServerInactive:
      return ServerState::Stopped;
    case SCA_ServerIdle:
      return ServerState::NotStarted;
    case SCA_ServerActive:
    case SCA_ServerPending:
      return server.NumberOr(ServerField::Ready, 0) != 0 ? ServerState::Ready
                                                         : ServerState::Waiting;
    default:
      return ServerState::Unknown;
  }
}

Cell StateCell(const Fields& server) {
  static constexpr Colour kColours[] = {Colour::Red,    Colour::Dim,   Colour::Dim,
                                        Colour::Yellow, Colour::Green, Colour::Red};
  const ServerState state = StateOf(server);
  const Colour colour = kColours[static_cast<std::size_t>(state)];
  const std::string word = server.Text(ServerField::StatusText);
  if (!word.empty()) return {word, colour};
  if (state == ServerState::Waiting) return {"not answering", colour};
  const auto status = server.NumberOr(ServerField::Status, SCA_UnknownProcessStatus.value);
  return {SCA_FindProcessStatus(status).serverWord, colour};
}

std::string TroubleOf(const Fields& server) {
  const std::string reason = server.Text(ServerField::StatusCodeText);
  return reason.empty() ? server.Text(ServerField::LastDeath) : reason;
}

std::string RestartsOf(const Fields& server) {
  const unsigned long long restarts = server.NumberOr(ServerField::Restarts, 0);
  const std::string death = server.Text(ServerField::LastDeath);
  if (restarts == 0) return {};
  return ", after " + Count(restarts, "restart") + (death.empty() ? "" : ": " + death);
}

Health Judge(const Host& host, const Fields& service, const SCA_ConfigObj& servers) {
  Survey survey;
  ForEachServer(servers, [&survey](const std::string& id, const Fields& server) {
    Look(id, server, &survey);
  });
  const auto status = service.Number(ServiceField::Status);
  if (status == SCA_ServerInactive) {
    return {false, "The service is suspended and all its servers are stopped; " +
                       host.Hint(StartCommand(survey)) + " starts them."};
  }
  if (survey.problems > 0) {
    const Problem& worst = survey.givenUp ? *survey.givenUp : *survey.waiting;
    const unsigned long others = survey.problems - 1;
    return Ill(host,
               "Not well: " + worst.text + (others > 0 ? ", and " + Count(others, "other") : ""),
               worst.command);
  }
  if (survey.all == 0) {
    return {false, "There are no servers; " + host.Hint("add --jar FILE --port PORT --start") +
                       " adds one."};
  }
  if (survey.ready == 0) {
    return {false, "No server is started; " + host.Hint(StartCommand(survey)) + " starts them."};
  }
  if (status != SCA_ServerActive) {
    const std::string word = service.Text(ServiceField::StatusText);
    return Ill(
        host,
        "Not well: the service says that it is " + (word.empty() ? "in an unknown state" : word),
        "debug-log");
  }
  const bool areMany = survey.ready != 1;
  return {true, "All is well: " + Count(survey.ready, "server") +
                    (areMany ? " answer" : " answers") +
                    (survey.stopped.empty() ? "" : ", not started:" + survey.stopped) + "." +
                    PastTrouble(host, service, servers)};
}
