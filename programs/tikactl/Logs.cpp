// Showing and following logs.

#include <cstdint>
#include <functional>

#include "platform/SCA_Report.h"
#include "programs/common/Escape.h"
#include "programs/common/Json.h"
#include "programs/tikactl/Commands.h"
#include "programs/tikactl/Fields.h"

namespace {

constexpr unsigned long kNoMessage = 0xFFFFFFFF;
constexpr unsigned long kPollMs = 500;
constexpr unsigned long kReconnectMs = 1000;
constexpr std::size_t kLevelColumns = 7;  // of the longest level, "warning"

struct Message {
  unsigned long id = 0;
  unsigned long level = 0;
  std::string when;
  std::string text;
};

// Where messages come from: a server's log, or the host's debug log.
struct Source {
  std::string name;
  std::function<ConfigObject(Host&, unsigned long lastId, unsigned long count)> fetch;
  std::function<std::optional<unsigned long long>(Host&)> session;
};

std::string TakeWord(std::string* text) {
  const std::size_t end = text->find(' ');
  const std::string word = text->substr(0, end);
  text->erase(0, end == std::string::npos ? end : end + 1);
  return word;
}

// Named by its id: "level date time text". What is none is passed over.
std::vector<Message> Messages(const SCA_ConfigObj& log) {
  std::vector<Message> messages;
  ForEachMember(&log, [&messages](const SCA_Field& member) {
    Message message;
    message.text = ValueOf(member);
    const auto id = ReadNumber<std::uint32_t>(NameOf(member));
    const auto level = ReadNumber<std::uint32_t>(TakeWord(&message.text));
    if (!id || *id == kNoMessage || !level) return;
    message.id = *id;
    message.level = *level;
    message.when = TakeWord(&message.text);
    message.when += " " + TakeWord(&message.text);
    messages.push_back(std::move(message));
  });
  return messages;
}

Colour ColourOf(unsigned long level) {
  if (level >= SCA_LevelError) return Colour::Red;
  if (level == SCA_LevelWarning) return Colour::Yellow;
  return level == SCA_LevelDebug ? Colour::Dim : Colour::None;
}

nlohmann::ordered_json ToJson(const Message& message) {
  nlohmann::ordered_json json = NewJsonObject();
  json["id"] = message.id;
  json["level"] = message.level;
  SetJsonText(&json, "time", message.when);
  SetJsonText(&json, "text", message.text);
  return json;
}

std::string Line(const Message& message) {
  std::string level = SCA_LevelText(message.level);
  level.resize(kLevelColumns, ' ');
  return Printable(message.when) + " " +
         Paint(level + " " + Printable(message.text), ColourOf(message.level));
}

// Prints what is in the log and then what comes into it, across everything that may happen to the
// host.
class Follower {
 public:
  Follower(Call& call, const Source& source) : call_(call), source_(source) {}

  void Run() {
    for (;; call_.Sleep(kPollMs)) {
      try {
        Poll();
      } catch (const Failure& failure) {
        Recover(failure);
      }
    }
  }

 private:
  // The session is asked for again after the messages: when it is still the same, they are of it.
  void Poll() {
    if (!hasSession_) session_ = source_.session(call_.host);
    hasSession_ = true;
    const bool wantsNone = isFirst_ && call_.options.count == 0UL;
    const unsigned long count = isFirst_ ? call_.options.count.value_or(0) : 0;
    const std::vector<Message> messages =
        Messages(*source_.fetch(call_.host, lastId_, wantsNone ? 1 : count));
    if (source_.session(call_.host) != session_) {
      Note("was cleared");
      return BeginAnew();
    }
    if (isMissing_) Note("is back");
    isMissing_ = false;
    for (const Message& message : messages) Take(message, wantsNone);
    isFirst_ = false;
  }

  void Take(const Message& message, bool isSilent) {
    const unsigned long expected = lastId_ == kNoMessage ? 0 : lastId_ + 1;
    if (!isFirst_ && message.id > expected) {
      Note("grew too fast: " + Count(message.id - expected, "line") + " lost");
    }
    lastId_ = message.id;
    if (isSilent) return;
    if (call_.options.json) {
      nlohmann::ordered_json record = call_.Record();
      record.update(ToJson(message));
      call_.Print(record);
    } else {
      call_.output.Print(Line(message));
    }
  }

  void BeginAnew() {
    hasSession_ = false;
    lastId_ = kNoMessage;
    isFirst_ = false;
  }

  // A host may come back after a restart, with new logs. A
  // server may be added again.
  void Recover(const Failure& failure) {
    if (failure.status == kFailed && !isFirst_) {
      if (!isMissing_) call_.Note(failure.text + "; waiting for it");
      isMissing_ = true;
      return BeginAnew();
    }
    if (failure.status != kNoConnection) throw failure;
    call_.Note(failure.text + "; trying again until it is back");
    const unsigned long long startTime = call_.host.StartTime();
    while (!TryConnect()) {
    }
    const bool isSame = call_.host.StartTime() == startTime;
    call_.Note(isSame ? "reconnected" : "reconnected; the service host was restarted");
    if (!isSame) BeginAnew();
  }

  bool TryConnect() {
    call_.Sleep(kReconnectMs);
    try {
      call_.host.Connect();
      return true;
    } catch (const Failure& failure) {
      if (failure.status != kNoConnection) throw;
      return false;
    }
  }

  void Note(const std::string& text) { call_.Note(source_.name + " " + text); }

  Call& call_;
  const Source& source_;
  std::optional<unsigned long long> session_;
  unsigned long lastId_ = kNoMessage;
  bool hasSession_ = false;
  bool isFirst_ = true;
  bool isMissing_ = false;
};

void ShowLog(Call& call, const Source& source) {
  if (call.options.follow) return Follower(call, source).Run();
  const ConfigObject log = source.fetch(call.host, kNoMessage, call.options.count.value_or(0));
  const std::vector<Message> messages =
      call.options.count == 0UL ? std::vector<Message>() : Messages(*log);
  if (!call.options.json) {
    for (const Message& message : messages) call.output.Print(Line(message));
    if (log->GetFieldCount() == 0) call.Note(source.name + " is empty");
    return;
  }
  nlohmann::ordered_json record = call.Record();
  nlohmann::ordered_json& list = record["messages"] = nlohmann::ordered_json::array();
  for (const Message& message : messages) list.push_back(ToJson(message));
  call.Print(record);
}

}  // namespace

void ShowServerLog(Call& call) {
  const unsigned long id = call.options.ids.front();
  const std::string name = "the log of server " + std::to_string(id);
  ShowLog(call, {name,
                 [id, name](Host& host, unsigned long lastId, unsigned long count) {
                   return host.GetOfServer("send " + name, &Service::GetServerLog, id, lastId,
                                           count);
                 },
                 [id](Host& host) {
                   const ConfigObject status = host.GetServerStatus(id);
                   return Fields(status.get()).Number(SCA_ServerFields::LogSession);
                 }});
}

void ShowDebugLog(Call& call) {
  ShowLog(call, {"the debug log",
                 [](Host& host, unsigned long lastId, unsigned long count) {
                   return host.Get("send its debug log", &Service::GetDebugLog, lastId, count);
                 },
                 [](Host& host) {
                   const ConfigObject status =
                       host.Get("report its status", &Service::GetStatusObj);
                   return Fields(status.get()).Number(SCA_ServiceFields::DebugLogSession);
                 }});
}
