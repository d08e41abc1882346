// Nothing aborts, throws, hangs, leaks or succeeds falsely when an allocation or a call of the
// system fails.
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <vector>

#include "control/SCA_ControlKey.h"
#include "control/SCA_TikaInterface.h"
#include "control/SCA_TikaServiceServer.h"
#include "faultlab/FaultServer.h"
#include "foundation/SCA_ConfigObj.h"
#include "host/SCA_TikaServerList.h"
#include "product/SCA_TikaDispatcher.h"
#include "tests/control/fake_service.h"
#include "tests/support/Environment.h"
#include "tests/support/FreePort.h"
#include "tests/support/Program.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"
#include "tests/support/Worker.h"
#include "tests/torture/Ordeal.h"

namespace {

namespace fs = std::filesystem;

// An operation gives 1, or 0 and says why; its code is looked at after it.
bool Judge(int result, const unsigned long& error, const char* operation) {
  BlameUnless(result != 0 || error != 0, operation);
  return result != 0;
}

FaultServerOptions SmallChunks() {
  FaultServerOptions options;
  options.chunkSize = 1000;
  return options;
}

void SaveAndLoad(const CallPlan& plan) {
  const TempDir dir;
  const std::string name = dir.File("settings.trv");
  SCA_TikaConfigOrv former;
  former.SetJavaOptions("former");
  SCA_ConfigObj old(SCA_SettingsName, nullptr);
  unsigned long error = 0;
  former.Serialize(&old);
  BlameUnless(old.Save(name.c_str(), SCA_FileTypeSettings, 1, &error) != 0, "the first save");
  SCA_ConfigObj written(SCA_SettingsName, nullptr);
  bool isSaved = false;
  {
    const ExposedToFailure exposed(plan);
    SCA_TikaConfigOrv settings;
    SCA_TikaService* service = nullptr;
    for (const char* host : {"one", "two"}) {
      if (settings.GetServiceList()->AddService(host, &service) != 0) service->SetEnabled(1);
    }
    bool isMade = settings.Serialize(&written) != 0;
    const SCA_Owned<SCA_TikaConfigOrv> copy(settings.Clone());
    const SCA_Owned<SCA_Field> clone(written.Clone());
    isMade = isMade && clone != nullptr && written.Compare(clone.get()) != 0;
    unsigned long code = 0;
    isSaved =
        isMade && Judge(written.Save(name.c_str(), SCA_FileTypeSettings, 1, &code), code, "Save");
    SCA_ConfigObj loaded;
    code = 0;
    if (Judge(loaded.Load(name.c_str(), &code), code, "Load") && isSaved) {
      BlameUnless(loaded.Compare(&written) != 0, "another object than was saved is loaded");
      SCA_TikaConfigOrv read;
      if (read.Deserialize(&loaded) != 0) {
        BlameUnless(read.GetServiceCount() == settings.GetServiceCount(), "services are lost");
      }
    }
  }
  SCA_ConfigObj found;
  BlameUnless(found.Load(name.c_str(), &error) != 0, "the file is not whole");
  const bool isNew = found.Compare(&written) != 0;
  BlameUnless(isNew || (!isSaved && found.Compare(&old) != 0), "the file is neither old nor new");
  BlameUnless(EntriesIn(dir.Path()) == 1, "a file is left aside");
  // The first is that of the file, the second that of its directory.
  BlameUnless(!isSaved || plan.call != kSync || plan.nth != 1, "what was not synced is saved");
}

// Keeps a text in memory that it has from the start.
class Sheet : public SCA_TikaTextSink {
 public:
  Sheet() { text.reserve(20000); }
  int Write(const char* block, unsigned long length, unsigned long offset) override {
    if (offset != text.size() || offset + length > text.capacity()) return 0;
    text.append(block, length);
    return 1;
  }
  int Restart() override {
    text.clear();
    return 1;
  }

  std::string text;
};

void ServeFiles(const CallPlan& plan) {
  const TempDir dir;
  const std::string content(9000, 'd');
  const std::string text = "text of " + content;
  const std::string file = dir.Write("document", content);
  const FaultServer one(SmallChunks());
  const FaultServer two(SmallChunks());
  SCA_TikaConfigOrv settings;
  settings.SetMode(SCA_TikaModeEnabled);
  SCA_TikaService* service = nullptr;
  settings.GetServiceList()->AddService("one", &service);
  std::vector<Sheet*> sheets;
  std::vector<SCA_Owned<SCA_TikaExtractRequest>> requests;
  std::vector<bool> isSubmitted(4);
  for (std::size_t i = 0; i < isSubmitted.size(); ++i) {
    sheets.push_back(new Sheet);
    requests.emplace_back(
        new SCA_TikaExtractRequest(file.c_str(), "pdf", "Default", sheets.back()));
  }
  {
    const ExposedToFailure exposed(plan);
    SCA_TikaDispatchLimits limits;
    limits.firstDelayMs = 1;
    limits.lastDelayMs = 20;
    limits.noServerMs = 2000;
    SCA_TikaDispatcher dispatcher(&settings, limits);
    unsigned long error = 0;
    int servers = 0;
    for (const FaultServer* server : {&one, &two}) {
      servers +=
          Judge(dispatcher.AddServer("localhost", server->Port(), 0, &error), error, "AddServer");
    }
    for (std::size_t i = 0; i < requests.size(); ++i) {
      isSubmitted[i] =
          servers > 0 && Judge(dispatcher.Submit(requests[i].get(), 1, &error), error, "Submit");
    }
    for (std::size_t i = 0; i < requests.size(); ++i) {
      if (isSubmitted[i])
        BlameUnless(requests[i]->GetReady()->Wait(kDeadlineMs) != 0, "no outcome");
    }
    SCA_ConfigObj status;
    dispatcher.GetStatus(&status);
    dispatcher.Stop();
    for (std::size_t i = 0; i < requests.size(); ++i) {
      const SCA_TikaOutcome outcome = requests[i]->GetOutcome();
      BlameUnless(isSubmitted[i] == (outcome != SCA_TikaOutcome::None), "no outcome, or too many");
      if (outcome == SCA_TikaOutcome::Extracted) {
        BlameUnless(sheets[i]->text == text, "a text is cut or changed");
      } else if (isSubmitted[i]) {
        BlameUnless(requests[i]->GetCause()[0] != '\0', "a failure without a cause");
      }
    }
  }
}

// What the hosting program does is not in question here.
class Service : public FakeService {
 public:
  int GetVersionInfo(char* text) override {
    const SparedFromFailure spared;
    return FakeService::GetVersionInfo(text);
  }
  int GetStatusObj(SCA_ConfigObj** status) override {
    const SparedFromFailure spared;
    return FakeService::GetStatusObj(status);
  }
};

class Factory : public FakeFactory {
 public:
  using FakeFactory::FakeFactory;
  int OnConnect(SCA_NetServerAgent* agent) override {
    const SparedFromFailure spared;
    return FakeFactory::OnConnect(agent);
  }
};

void Command(const CallPlan& plan) {
  const auto giveKey = [](void* /*context*/, const char* /*host*/, unsigned short /*port*/,
                          SCA_ControlKey* key, unsigned long* /*error*/) {
    key->length = SCA_ControlKeySize;
    return 1;
  };
  SCA_SetControlKeyProvider(giveKey, nullptr);
  const TempDir dir;
  const std::string socket = dir.File("control.socket");
  Service service;
  Factory factory(&service, 1);
  const ExposedToFailure exposed(plan);
  unsigned long error = 0;
  SCA_TikaServiceServer server(&factory, 0, &error);
  if (!Judge(server.IsValid(), error, "the command server")) return;
  Judge(server.OpenLocal(socket.c_str(), nullptr, &error), error, "OpenLocal");
  for (const char* host : {"127.0.0.1", socket.c_str()}) {
    SCA_TikaInterface client;
    client.SetReplyTimeout(5000);
    error = 0;
    if (!Judge(client.Connect(host, server.GetPort(), 5000, &error), error, "Connect")) {
      continue;
    }
    char version[SCA_ServiceTextSize] = "";
    if (client.GetVersionInfo(version) != 0) {
      BlameUnless(std::strcmp(version, "text 1 of GetVersionInfo") == 0, "another version");
    }
    SCA_ConfigObj* status = nullptr;
    if (client.GetStatusObj(&status) != 0) {
      const SCA_Owned<SCA_ConfigObj> owner(status);
      int mark = 0;
      BlameUnless(status->GetField("Mark", &mark) != 0 && mark == 1, "another object");
    }
  }
}

void WatchAServer(const CallPlan& plan) {
  const TempDir dir;
  const std::string jar = dir.Write("tika.jar", "");
  fs::permissions(dir.Write("java", "#!/bin/sh\necho INFO ready >&2\nexec sleep 60\n"),
                  fs::perms::owner_all);
  const ScopedVariable path("PATH", dir.Path() + ":" + std::getenv("PATH"));
  const ExposedToFailure exposed(plan);
  SCA_TikaConfigUser config(nullptr, nullptr);
  config.SetTikaLogDir(dir.Path().c_str());
  config.SetSaveTikaLog(1);
  SCA_TikaServerList list;
  SCA_TikaServer* server = nullptr;
  unsigned long error = 0;
  if (!Judge(list.AddServer(&config, jar.c_str(), 1, 64, "", &server, &error), error,
             "AddServer") ||
      !Judge(server->StartProcess(&error), error, "StartProcess")) {
    return;
  }
  const auto hasRun = [&](unsigned long session) {
    return Eventually([&] {
      return server->GetProcessStatus() == SCA_ServerError ||
             (server->GetSessionId() >= session && server->GetProcessId() != 0);
    });
  };
  BlameUnless(hasRun(0), "the server neither runs nor fails");
  if (server->RequestRestart("torture") != 0) BlameUnless(hasRun(1), "the server does not restart");
  if (server->GetProcessStatus() == SCA_ServerError) {
    BlameUnless(server->GetStatusCode() != 0, "a server fails without a code");
  }
  SCA_ConfigObj status;
  list.Serialize(&status);
  server->StopAll();
  BlameUnless(!server->IsActive() && server->GetProcessId() == 0, "a process is left");
}

#ifdef SCA_FAILING_PROGRAM
// A program that runs under a plan.
class FailingProgram {
 public:
  FailingProgram(const CallPlan& plan, const std::string& name,
                 const std::vector<std::string>& arguments, std::vector<std::string> environment)
      : plan_(plan), program_(name, arguments, With(plan, std::move(environment))) {}

  Program* operator->() { return &program_; }
  /// Waits for the end, which it judges. @return True for success.
  bool Succeeds() {
    const int status = program_.Wait();
    std::ifstream file(dir_.File("counts"));
    CallCounts counts{};
    for (unsigned long& count : counts) file >> count;
    CountCalls(counts);
    BlameUnless(status >= 0, "the program hangs");
    BlameUnless(status < 100, ("the program dies: " + program_.Error()).c_str());
    // Words are written, too.
    BlameUnless(status == 0 || !program_.Error().empty() || plan_.call == kWrite,
                "the program fails without a word");
    return status == 0;
  }

 private:
  std::vector<std::string> With(const CallPlan& plan, std::vector<std::string> environment) {
    environment.push_back("LD_PRELOAD=" SCA_FAILING_PROGRAM);
    environment.push_back("SCA_TORTURE_PLAN=" + PlanText(plan));
    environment.push_back("SCA_TORTURE_COUNTS=" + dir_.File("counts"));
    return environment;
  }

  const CallPlan plan_;
  TempDir dir_;
  Program program_;
};

// Documents, one of which has a text that does not stay in memory.
struct Documents {
  Documents() {
    for (const std::size_t size : {1000, 3000, 400000}) {
      const std::string name = std::to_string(size) + ".pdf";
      const std::string content(size, 'd');
      names.push_back(dir.Write(name, content));
      whole += texts[name + ".txt"] = "text of " + content;
    }
  }
  std::vector<std::string> Arguments(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> words = {"--server", "127.0.0.1:" + std::to_string(server.Port())};
    words.insert(words.end(), more.begin(), more.end());
    words.insert(words.end(), names.begin(), names.end());
    return words;
  }

  TempDir dir;
  std::vector<std::string> names;
  std::map<std::string, std::string> texts;
  std::string whole;
  FaultServer server{SmallChunks()};
};

void ExtractIntoAFolder(const CallPlan& plan) {
  const Documents documents;
  const std::string out = documents.dir.File("out");
  FailingProgram program(plan, "tikaextract", documents.Arguments({"-o", out}), {});
  const bool isDone = program.Succeeds();
  std::size_t texts = 0;
  std::error_code none;
  for (const fs::directory_entry& entry : fs::directory_iterator(out, none)) {
    const auto text = documents.texts.find(entry.path().filename().string());
    if (entry.path().filename().string().rfind(".tikaextract.", 0) == 0) continue;
    BlameUnless(text != documents.texts.end(), entry.path().c_str());
    if (text == documents.texts.end()) continue;
    BlameUnless(ReadFile(entry.path()) == text->second, "a text is cut or changed");
    ++texts;
  }
  BlameUnless(!isDone || texts == documents.texts.size(), "a text is missing");
  Program again("tikaextract", documents.Arguments({"-o", out, "--resume"}));
  BlameUnless(again.Wait() == 0, ("the next run fails: " + again.Error()).c_str());
  for (const auto& [name, text] : documents.texts) {
    BlameUnless(fs::exists(out + "/" + name) && ReadFile(out + "/" + name) == text,
                "a text is missing after the next run, or changed");
  }
}

void ExtractToStandardOutput(const CallPlan& plan) {
  const Documents documents;
  FailingProgram program(plan, "tikaextract", documents.Arguments(), {});
  if (program.Succeeds()) {
    BlameUnless(program->Output() == documents.whole, "a text is missing, cut or changed");
  }
}

void HostStartsAndStops(const CallPlan& plan) {
  const TempDir dir;
  const std::string jar = dir.Write("tika.jar", "");
  fs::permissions(dir.Write("java", "#!/bin/sh\n: >\"$0.runs\"\nexec sleep 60\n"),
                  fs::perms::owner_all);
  FailingProgram program(
      plan, "tikasvc",
      {"--config", dir.File("root.trv"), "--control-port", "0", "--jar", jar, "--first-port",
       std::to_string(FreePort())},
      {"XDG_CONFIG_HOME=" + dir.Path(), "PATH=" + dir.Path() + ":" + std::getenv("PATH")});
  BlameUnless(Eventually([&] {
                return fs::exists(dir.File("java.runs")) || program->Wait(0) >= 0 ||
                       program->Error().find("Cannot start") != std::string::npos;
              }),
              "the host neither runs nor ends");
  program->Signal(SIGTERM);
  program.Succeeds();
  BlameUnless(program->FamilyEndsWithin(10), "a process is left");
}
TEST(Torture, ProgramExtractsIntoAFolder) {
  Torture(&ExtractIntoAFolder);
}
TEST(Torture, ProgramExtractsToStandardOutput) {
  Torture(&ExtractToStandardOutput);
}
TEST(Torture, ProgramHostsAServer) {
  Torture(&HostStartsAndStops);
}
#endif

TEST(Torture, SavesAndLoadsSettings) {
  Torture(&SaveAndLoad);
}
TEST(Torture, DispatcherServesFiles) {
  Torture(&ServeFiles);
}
TEST(Torture, CommandsAreAnswered) {
  Torture(&Command);
}
TEST(Torture, WatchedServerRestarts) {
  Torture(&WatchAServer);
}

}  // namespace
