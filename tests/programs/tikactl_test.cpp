#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sstream>
#include <tuple>

#include "control/SCA_ControlKey.h"
#include "control/SCA_ServiceStatusNames.h"
#include "host/SCA_ProcessStatus.h"
#include "platform/SCA_Error.h"
#include "tests/control/fake_host.h"
#include "tests/support/Program.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

namespace Death = SCA_DeathFields;
namespace Server = SCA_ServerFields;
namespace Service = SCA_ServiceFields;
using Json = nlohmann::json;
using Texts = std::vector<std::string>;

// A host with the servers 0, which answers once it has been asked `readyAfter` times, and 4, which
// was given up.
class StatusHost : public FakeService {
 public:
  int GetServiceStatusEx(SCA_ConfigObj** service, SCA_ConfigObj** servers) override {
    *service = Make([this](SCA_ConfigObj* object) {
      object->AddField(Service::Status, isSuspended ? SCA_ServerInactive : SCA_ServerError, 0);
      object->AddField(Service::UpTime, 273600000ULL, 0);
    });
    *servers = MakeServers();
    return 1;
  }
  int GetServiceStatus(unsigned long*, unsigned long*, unsigned long*, unsigned long long*,
                       unsigned long long*, SCA_ConfigObj** servers) override {
    *servers = MakeServers();
    return 1;
  }
  int GetServerStatusEx(unsigned long id, SCA_ConfigObj** status) override {
    *status = Make(nullptr);
    (*status)->AddField(Server::LogSession, session.load(), 0);
    AddDeath((*status)->AddConfigObj(Server::History));
    return id == 0 ? 1 : 0;
  }
  int GetServerLog(unsigned long id, unsigned long last, unsigned long count,
                   SCA_ConfigObj** log) override {
    *log = Make(nullptr);
    const std::lock_guard<std::mutex> guard(mutex_);
    auto first = last == SCA_NoServerId ? messages_.begin() : messages_.upper_bound(last);
    while (count != 0 && std::distance(first, messages_.end()) > static_cast<long>(count)) ++first;
    for (; first != messages_.end(); ++first) {
      const std::string value = "5 2026-11-23 05:12:33 " + first->second;
      (*log)->AddField(std::to_string(first->first).c_str(), value.c_str(), 0);
    }
    return id == 0 ? 1 : 0;
  }
  int AddServer(const char* file, unsigned short, unsigned long, const char*, unsigned long* id,
                unsigned long*, unsigned long* code) override {
    *code = std::string(file) == "/no.jar" ? SCA_ErrorNoJar : 0;
    *id = *code != 0 ? SCA_NoServerId : 4;
    return 1;
  }
  int StartServer(unsigned long id, unsigned long*, unsigned long* code) override {
    *code = id == 4 ? SCA_ErrorNotStarted : 0;
    return id == 0 || id == 4 ? 1 : 0;
  }
  int DeleteServer(unsigned long id) override { return id == 0 ? 1 : 0; }
  int SaveTikaLog(unsigned long, const char* directory, unsigned long* code) override {
    *code = *directory != '\0' ? EACCES : 0;
    return 1;
  }
  int Suspend() override { return isSuspended = true, 1; }
  int StopServer() override { return stop.Set(), 1; }

  // Replaces the log.
  void SetLog(std::map<unsigned long, std::string> log, unsigned long newSession) {
    const std::lock_guard<std::mutex> guard(mutex_);
    messages_ = std::move(log);
    session.store(newSession);
  }

  // Replaces what objects hold.
  using Fill = std::function<void(SCA_ConfigObj*)>;
  void SetFill(Fill other) {
    const std::lock_guard<std::mutex> guard(mutex_);
    fill_ = std::move(other);
  }

  std::atomic<int> readyAfter{0};
  std::atomic<bool> isSuspended{false};
  std::atomic<unsigned long> session{7};
  SCA_Event stop{1, 0};

 private:
  SCA_ConfigObj* Make(const Fill& usual) {
    const std::lock_guard<std::mutex> guard(mutex_);
    auto* object = new SCA_ConfigObj("Object", nullptr);
    if (fill_ || usual) (fill_ ? fill_ : usual)(object);
    return object;
  }
  SCA_ConfigObj* MakeServers() {
    return Make([this](SCA_ConfigObj* servers) {
      SCA_ConfigObj* server = servers->AddConfigObj("0");
      server->AddField(Server::Status, isSuspended ? SCA_ServerInactive : SCA_ServerActive, 0);
      server->AddField(Server::Ready, ++asked_ > readyAfter ? 1 : 0, 0);
      server->AddField(Server::FileName, "/opt/Ünï \x1b[31m.jar", 0);
      SCA_ConfigObj* other = servers->AddConfigObj("4");
      other->AddField(Server::Status, SCA_ServerError, 0);
      other->AddField(Server::Port, 9998, 0);
      other->AddField(Server::StatusCodeText, "the jar is gone", 0);
    });
  }
  static void AddDeath(SCA_ConfigObj* history) {
    SCA_ConfigObj* death = history->AddConfigObj("0");
    death->AddField(Death::Kind, "heap exhausted", 0);
    death->AddField(Death::RunTime, 11045000ULL, 0);
    death->AddField(Death::ExitCode, 137, 0);
    death->AddField(Death::Worker, 1, 0);
    SCA_ConfigObj* memory = death->AddConfigObj(Death::Memory);
    for (const char* before : {"3000", "2000", "1000"}) {
      memory->AddField(before, (4ULL - (*before - '0')) << 20, 0);
    }
    SCA_ConfigObj* lines = death->AddConfigObj(Death::Lines);
    for (const char* line : {"0", "1", "2", "3"}) lines->AddField(line, line, 0);
  }

  std::atomic<int> asked_{0};
  std::mutex mutex_;
  Fill fill_;
  std::map<unsigned long, std::string> messages_;
};

Texts Words(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), {}};
}

class TikaCtl : public ::testing::Test {
 protected:
  std::string Name() const { return "127.0.0.1:" + std::to_string(port_); }
  std::unique_ptr<Program> Start(const std::string& command) const {
    return StartBare("-H " + Name() + " " + command);
  }
  std::unique_ptr<Program> StartBare(const std::string& command) const {
    return std::make_unique<Program>("tikactl", Words(command),
                                     Texts{"XDG_CONFIG_HOME=" + dir_.Path(), "TERM=xterm"});
  }

  TempDir dir_;
  FakeHost<StatusHost> fake_;
  StatusHost& host_ = fake_.service;
  const unsigned short port_ = fake_.Port();
};

// Line breaks and printable UTF-8 alone.
bool IsFitForTerminal(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return c == '\n' || static_cast<unsigned char>(c) >= 0x20; }) &&
         text.find("\x7f") == std::string::npos && text.find("\xC2\x9B") == std::string::npos &&
         text.find("\xE2\x80\xAE") == std::string::npos;
}

TEST_F(TikaCtl, SaysWhatWasDoneAndWhyNot) {
  host_.SetLog({{0, "first"}, {1, "\tsecond"}}, 7);
  const std::string jar = dir_.Write("x.jar", "");
  const std::string hint = "'tikactl -H " + Name() + " debug-log'";
  const std::string line = "2026-11-23 05:12:33 error   ";
  const struct {
    std::string command;
    int status;
    Texts said;
  } rows[] = {
      {"status",
       0,
       {"Not well: server 4 (port 9998) could not be started: the jar is gone; see " + hint + ".\n",
        "Up           3 d 4 h"}},
      {"servers", 0, {"Ünï \\x1B[31m.jar", "\n 4  9998  error"}},
      {"add --jar /no.jar --port 9998", 1, {": no server was added: /no.jar, port 9998: "}},
      {"add --jar " + jar + " --port 9998", 1, {"port 9998 belongs to server 4"}},
      {"start 4 0", 1, {"server 4 was not started: the Java", "server 0 started\n"}},
      {"start 9", 1, {"there is no server 9; there are: 0, 4\n"}},
      {"delete 4 9", 1, {"refused to delete server 4; " + hint, "there is no server 9"}},
      {"delete 0 --wait 1", 1, {"server 0 is still there after 1 s"}},
      {"logs 0", 0, {line + "first\n" + line + "    second\n"}},
      {"logs 0 -n 1", 0, {line + "    second\n"}},
      {"logs 9", 1, {"there is no server 9"}},
      {"clear-log", 0, {"the host's debug log is cleared"}},
      {"save-log off", 0, {"are off\n"}},
      {"save-log on /x", 1, {"/x: Permission denied"}},
      {"save-log on x", 2, {"DIR is a directory on the host"}},
      {"history 0",
       0,
       {"a worker of server ", "heap exhausted", "ran 3 h 4 min", "| 1\n",
        "exit code 137; the server ran on", "▁▅█ min 1 MB, max 3 MB, over 2 s"}},
      {"ping -c 1", 0, {"request 1 answered in ", "1 request, 1 answered; min "}},
      {"version", 0, {"text 1 of GetVersionInfo"}},
      {"top -n 1", 0, {"READ/s", "\n 4  9998  error"}},
      {"shutdown --wait 1", 1, {"still there after 1 s"}},
      {"", 2, {"subcommand is required"}},
      {"logs", 2, {"ID is required"}},
      {"start -1", 2, {}},
      {"status --wait 1", 2, {}},
      {"status --key /no/key", 4, {"--key /no/key: No such file"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.command);
    const auto program = Start(row.command);
    EXPECT_EQ(program->Wait(), row.status);
    const std::string said = program->Output() + program->Error();
    for (const std::string& text : row.said) EXPECT_TRUE(Has(said, text));
    EXPECT_TRUE(IsFitForTerminal(said)) << said;
    EXPECT_TRUE(row.status != 1 || program->Error().find("tikactl: " + Name()) == 0) << said;
  }
  // Neither a log too many nor one too few was cleared.
  const Texts calls = host_.Calls();
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "ClearDebugLog"), 1);
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "ClearServerLog 0"), 0);
}

TEST_F(TikaCtl, WaitsUntilTheServersAnswerOrTheHostIsGone) {
  host_.readyAfter = 3;
  EXPECT_EQ(Start("start 0 --wait 60")->Wait(), 0);
  EXPECT_EQ(Start("suspend --wait 60")->Wait(), 0);
  EXPECT_TRUE(Ends(*Start("start 0 --wait 60"), 1, "server 0 was stopped meanwhile"));
  const auto shutdown = Start("shutdown --wait 60");
  ASSERT_EQ(host_.stop.Wait(kDeadlineMs), 1);
  fake_.server.reset();
  EXPECT_EQ(shutdown->Wait(), 0);
  EXPECT_TRUE(Has(shutdown->Output(), "the service host is gone"));
}

TEST_F(TikaCtl, JsonKeepsEverythingUnderFriendlyNames) {
  host_.SetFill([](SCA_ConfigObj* object) {
    object->AddField("Up Time", 18446744073709551615ULL, 0);
    object->AddField("Up Time", -1, 0);
    object->AddField("Java Options", "123", 0);
    object->AddField("Odd", "007", 0);
    object->AddField("Bytes", "\xff\xC2\x9B", 0);
    object->AddConfigObj("Nested")->AddField("A B", "c\x1b", 0);
  });
  const auto program = Start("servers --json");
  EXPECT_EQ(program->Wait(), 0);
  const Json expected = {{"up_time", 18446744073709551615ULL},
                         {"up_time_2", -1},
                         {"java_options", "123"},
                         {"odd", "007"},
                         {"bytes", "\xEF\xBF\xBD\xC2\x9B"},
                         {"bytesBase64", "/8Kb"},
                         {"nested", {{"a_b", "c\x1b"}}}};
  EXPECT_EQ(Json::parse(program->Output()), (Json{{"host", Name()}, {"servers", expected}}));
  EXPECT_TRUE(IsFitForTerminal(program->Output()));

  const auto starts = Start("start 4 0 --json");
  EXPECT_EQ(starts->Wait(), 1);
  Json results = Json::parse(starts->Output())["results"];
  EXPECT_FALSE(results[0]["error"].empty());
  results[0].erase("error");
  EXPECT_EQ(results, Json::array({{{"server_id", 4}, {"error_code", SCA_ErrorNotStarted}},
                                  {{"done", "server 0 started"}, {"server_id", 0}}}));
}

TEST_F(TikaCtl, HostsAreShownInTheirOrderAndADeadOneHidesNoOther) {
  ScriptedServer web([](ServerConnection& connection) {
    connection.Send("HTTP/1.1 400 Bad Request\r\n\r\n");
    connection.WaitForEnd();
  });
  // A socket's path names a host too, and nobody is there.
  const std::string webName = "localhost:" + std::to_string(web.Port());
  const Texts names{Name(), "/no/socket", webName, Name()};
  const std::string command = "-H /no/socket -H " + webName + " -H " + Name() + " version";
  const auto program = Start(command);
  EXPECT_EQ(program->Wait(), 3);
  const std::string output = program->Output();
  std::size_t at = 0;
  for (const std::string& name : names) {
    at = output.find("== " + name + " ==", at);
    ASSERT_NE(at, std::string::npos) << output;
    ++at;
  }
  EXPECT_TRUE(Has(program->Error(), "/no/socket: cannot connect: No such file"));
  EXPECT_TRUE(Has(program->Error(), webName + ": cannot connect: the peer does not speak"));

  const auto records = Start(command + " --json");
  EXPECT_EQ(records->Wait(), 3);
  Texts told;
  for (const std::string& line : Lines(records->Output())) {
    const Json record = Json::parse(line);
    told.push_back(record["host"]);
    EXPECT_EQ(record.contains("error"), record["host"] != Name()) << line;
  }
  EXPECT_EQ(told, names);
}

TEST_F(TikaCtl, RefusedLoginHasAStatusOfItsOwn) {
  const std::string right = dir_.Write("right", std::string(64, 'a'));
  const std::string wrong = dir_.Write("wrong", std::string(64, 'b'));
  for (const std::string& file : {right, wrong}) ASSERT_EQ(::chmod(file.c_str(), 0600), 0);
  SCA_SetControlKeyProvider(
      [](void*, const char*, unsigned short, SCA_ControlKey* key, unsigned long*) {
        key->length = SCA_ControlKeySize;
        return std::memset(key->bytes, 0xaa, SCA_ControlKeySize) != nullptr ? 1 : 0;
      },
      nullptr);
  const FakeHost<StatusHost> guarded(1);
  SCA_SetControlKeyProvider(nullptr, nullptr);
  const std::string host = "version -H 127.0.0.1:" + std::to_string(guarded.Port());
  const std::tuple<std::string, int, const char*> rows[] = {
      {host + " --key " + right, 0, ""},
      {host + " --key " + wrong, 4, "the control keys of both ends differ"},
      {host, 4, "there is no control key for it; copy the host's control.key to "},
      {"version -H " + Name() + " --key " + right, 4, "asks for no login although a control key"}};
  for (const auto& [command, status, said] : rows) {
    EXPECT_TRUE(Ends(*StartBare(command), status, said));
  }
}

TEST_F(TikaCtl, FindsTheHostOfThisMachineWithoutAKey) {
  const std::string own = dir_.File("Tika Service/data/control.socket");
  const std::string moved = dir_.File("elsewhere/control.socket");
  const auto none = StartBare("version");
  EXPECT_TRUE(Ends(*none, 3, own));
  EXPECT_TRUE(Has(none->Error(), "/var/lib/tikasvc/"));
  std::filesystem::create_directories(dir_.File("Tika Service/data"));
  std::filesystem::create_directories(dir_.File("elsewhere"));
  unsigned long error = 0;
  for (const std::string& place : {own, moved}) {
    if (place == moved) {  // where the account's configuration has its data directory
      SCA_ConfigObj user("User", nullptr);
      user.AddField("DataDirectory", dir_.File("elsewhere").c_str(), 0);
      ASSERT_EQ(user.Save(dir_.File("Tika Service/tika_service.trv").c_str(), 9001, 9, &error), 1);
      fake_.Open();
    }
    ASSERT_EQ(fake_.server->OpenLocal(place.c_str(), nullptr, &error), 1) << SCA_ErrorText(error);
    const auto program = StartBare("--json version");
    EXPECT_EQ(program->Wait(), 0) << program->Error();
    EXPECT_EQ(Json::parse(program->Output())["host"], "local");
  }
  // A host that is there and full is not passed over for another one.
  TestClient other(0, moved);
  EXPECT_EQ(other.Ask(), 0U);
  fake_.server->SetMaxConnections(1);
  const auto refused = StartBare("version");
  EXPECT_TRUE(Ends(*refused, 3, moved + " cannot be asked"));
  EXPECT_EQ(refused->Error().find("/var/lib/tikasvc/"), std::string::npos) << refused->Error();
}

TEST_F(TikaCtl, FollowsALogThatIsClearedOutrunAndLost) {
  host_.SetLog({{0, "a"}, {1, "b"}, {2, "c"}}, 7);
  const auto program = Start("logs 0 -f -n 2");
  const auto printed = [&program](const std::string& texts) {
    return Eventually([&] {
      std::string found;
      for (const std::string& line : Lines(program->Output())) found += line.back();
      return found == texts;
    });
  };
  EXPECT_TRUE(printed("bc")) << program->Output();
  host_.SetLog({{2, "c"}, {3, "d"}}, 7);
  EXPECT_TRUE(printed("bcd")) << program->Output();
  host_.SetLog({{9, "e"}}, 7);
  EXPECT_TRUE(program->WaitForError("grew too fast: 5 lines lost"));
  // Cleared, with as many new lines as there were: ids alone would not tell.
  host_.SetLog({{0, "f"}, {9, "g"}, {10, "h"}}, 8);
  EXPECT_TRUE(program->WaitForError("the log of server 0 was cleared"));
  EXPECT_TRUE(printed("bcdefgh")) << program->Output();
  fake_.server.reset();
  EXPECT_TRUE(program->WaitForError("trying again until it is back"));
  host_.SetLog({{0, "i"}}, 8);
  fake_.Open(port_);
  EXPECT_TRUE(program->WaitForError("the service host was restarted"));
  EXPECT_TRUE(printed("bcdefghi")) << program->Output();
  program->Signal(SIGINT);
  EXPECT_EQ(program->Wait(), 130);
}

TEST_F(TikaCtl, HostileAnswersNeitherCrashItNorReachTheTerminal) {
  const std::string evil =
      "\x1b]0;x\x07\xC2\x9B"
      "31m\xE2\x80\xAE\xff\xC3\x7f\r";
  Texts names{"0", "1", evil};
  for (const auto& row : SCA_ServiceFieldRows) names.emplace_back(row.name);
  for (const auto& row : SCA_ServerFieldRows) names.emplace_back(row.name);
  for (const auto& row : SCA_DeathFieldRows) names.emplace_back(row.name);
  const std::function<void(SCA_ConfigObj*, const char*)> fills[] = {
      [](SCA_ConfigObj*, const char*) {},
      [&](SCA_ConfigObj* object, const char* name) { object->AddField(name, evil.c_str(), 0); },
      [](SCA_ConfigObj* object, const char* name) { object->AddField(name, ~0ULL, 0); },
      [&](SCA_ConfigObj* object, const char* name) {
        SCA_ConfigObj* child = object->AddConfigObj(name);
        for (const char* inner : {"0", evil.c_str(), Server::Status, Server::Port, Death::Memory}) {
          child->AddField(inner, evil.c_str(), 0);
          child->AddConfigObj(inner)->AddField(evil.c_str(), ("5 " + evil).c_str(), 0);
        }
      }};
  for (const auto& fill : fills) {
    host_.SetFill([&](SCA_ConfigObj* object) {
      for (const auto& name : names) fill(object, name.c_str());
    });
    for (const std::string command : {"status", "servers", "history", "history 0", "logs 0",
                                      "debug-log", "top -n 1", "start 0 --wait 1", "delete 7"}) {
      for (const bool isJson : {false, true}) {
        SCOPED_TRACE(command);
        const auto program = Start(command + (isJson ? " --json" : ""));
        const int status = program->Wait();
        EXPECT_TRUE(status == 0 || status == 1) << status << program->Error();
        EXPECT_TRUE(IsFitForTerminal(program->Output() + program->Error()));
        EXPECT_TRUE(!isJson || Json::accept(program->Output())) << program->Output();
      }
    }
  }
  fake_.server.reset();  // its threads use what is local here
}

}  // namespace
