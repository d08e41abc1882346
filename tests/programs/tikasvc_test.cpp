// The service host as a process, with a java of the tests' own that behaves as its jar is called.

#include <gtest/gtest.h>
#include <poll.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "control/SCA_ServiceStatusNames.h"
#include "control/SCA_TikaInterface.h"
#include "faultlab/ServerConnection.h"
#include "foundation/SCA_ConfigFile.h"
#include "host/SCA_TikaServerList.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_TcpSock.h"
#include "platform/SCA_Time.h"
#include "tests/support/FreePort.h"
#include "tests/support/Program.h"
#include "tests/support/Timing.h"

namespace {

namespace fs = std::filesystem;

void Print(const std::string& text) {
  static_cast<void>(::write(STDERR_FILENO, (text + "\n").data(), text.size() + 1));
}

// As Tika does for so many times, -1 being for ever; then in another way.
template <class Otherwise>
[[noreturn]] void Answer(int listener, int times, Otherwise otherwise) {
  constexpr char kReply[] = "HTTP/1.1 200 OK\r\nContent-Length: 15\r\n\r\nApache Tika 3.9";
  for (;;) {
    const int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    char request[4096];
    if (::read(fd, request, sizeof request) > 0) {
      if (times == 0) otherwise(fd);
      if (times != 0) static_cast<void>(::write(fd, kReply, sizeof kReply - 1));
      if (times > 0) --times;
    }
    ::close(fd);
  }
}

// Its command line is "... -jar FILE -h ADDRESS -port PORT".
[[noreturn]] void PlayJava(int count, char** words) {
  const std::string part = fs::path(words[count - 5]).stem();
  const int port = std::atoi(words[count - 1]);
  const auto die = [](const char* lastWords, int status) {
    Print(lastWords);
    ::_exit(status);
  };
  if (std::string(words[count - 3]) != "127.0.0.1") die("ERROR open to the network", 99);
  if (part == "heap") die("java.lang.OutOfMemoryError: Java heap space", 3);
  if (part == "corrupt") die("Error: Invalid or corrupt jarfile x.jar", 1);
  if (part == "options") die("Unrecognized option: -Xwrong", 1);
  if (part == "brief") die("INFO  nothing to do", 7);
  if (part == "leaves") {
    const pid_t worker = ::fork();
    if (worker == 0) {
      for (;;) ::pause();
    }
    std::thread([worker] {
      int status = 0;
      ::waitpid(worker, &status, 0);
      Print("INFO  forked process exited with exit value " +
            std::to_string(128 + WTERMSIG(status)));
    }).detach();
  }
  const int listener = ListenOnLoopback(static_cast<unsigned short>(port));
  while (listener < 0 && part == "patient") ::pause();
  if (listener < 0) die("java.net.BindException: Address already in use", 1);
  if (part == "chatty") {
    for (int i = 0; i < 40; ++i) Print("INFO  line " + std::to_string(i));
  }
  if (part == "busy") {
    // As Tika 1, 3 and 4 log documents, among other lines.
    Print("INFO  [qtp1-15] 18:41:47,489 org.apache.tika.server.resource.TikaResource tika (a/b)");
    Print(
        "INFO  [qtp1-14] 18:41:32,485 org.apache.tika.server.core.resource.TikaResource /tika "
        "(autodetecting type)");
    Print(
        "INFO  [qtp1-24] 18:43:16,120 org.apache.tika.server.core.resource."
        "RecursiveMetadataResource /rmeta (autodetecting type)");
    Print(
        "WARN  [qtp1-17] 18:41:34,426 org.apache.tika.server.core.resource.TikaResource tika: "
        "Text extraction failed (null)");
    Print("INFO  [main] 18:42:41,217 [fork] org.pf4j.Provider Enabled plugins: (none)");
  }
  Answer(listener, part == "mute" ? 1 : -1, [](int) {
    for (;;) ::pause();
  });
}

// Before the test framework sees the arguments.
__attribute__((constructor)) void BecomeJava(int count, char** words) {
  if (fs::path(words[0]).filename() == "java" && count > 5) PlayJava(count, words);
}

unsigned long long Number(const SCA_ConfigObj* object, const char* name) {
  unsigned long long value = 0;
  EXPECT_TRUE(object != nullptr && object->GetField(name, &value) != 0) << name;
  return value;
}

std::string Text(const SCA_ConfigObj* object, const char* name) {
  char value[4096] = "";
  EXPECT_TRUE(object != nullptr && object->GetField(name, value, sizeof value) != 0) << name;
  return value;
}

const SCA_ConfigObj* Last(const SCA_ConfigObj* object) {
  return object != nullptr ? SCA_ToConfigObj(object->GetFields().GetTail()) : nullptr;
}

int KillChildren(unsigned long long parent, const std::string& wanted) {
  int count = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
    std::ifstream file(entry.path() / "stat");
    std::string pid;
    std::string name;
    char state = ' ';
    unsigned long long itsParent = 0;
    if (!(file >> pid >> name >> state >> itsParent) || itsParent != parent) continue;
    if (name == wanted && ::kill(std::stoi(pid), SIGKILL) == 0) ++count;
  }
  return count;
}

class TikaSvc : public ::testing::Test {
 protected:
  TikaSvc() { fs::create_symlink(fs::read_symlink("/proc/self/exe"), dir_.File("java")); }

  std::string Jar(const std::string& part) const { return dir_.Write(part + ".jar", ""); }
  std::string Home() const { return dir_.File("Tika Service"); }

  std::unique_ptr<Program> Launch(std::vector<std::string> arguments,
                                  std::vector<std::string> environment = {}) {
    arguments.insert(arguments.begin(), {"--config", dir_.File("root.trv"), "--control-port", "0"});
    environment.push_back("XDG_CONFIG_HOME=" + dir_.Path());
    environment.push_back("PATH=" + dir_.Path() + ":" + std::getenv("PATH"));
    return std::make_unique<Program>("tikasvc", arguments, environment);
  }

  // Starts a host and remembers its control port.
  void Start(const std::vector<std::string>& arguments = {},
             const std::vector<std::string>& environment = {}) {
    host_ = Launch(arguments, environment);
    port_ = host_->NumberBehind("listens on control port ");
    ASSERT_NE(port_, 0) << host_->Error();
  }

  // As an operator of this machine, who needs no key.
  std::unique_ptr<SCA_TikaInterface> Connect() {
    auto client = std::make_unique<SCA_TikaInterface>();
    unsigned long error = 0;
    const std::string socket = Home() + "/data/control.socket";
    EXPECT_EQ(client->Connect(socket.c_str(), port_, 5000, &error), 1) << SCA_ErrorText(error);
    return client;
  }

  unsigned long Add(SCA_TikaInterface& client, const std::string& jar, unsigned short port) {
    unsigned long id = 0;
    unsigned long status = 0;
    unsigned long code = 0;
    EXPECT_EQ(client.AddServer(jar.c_str(), port, 64, "", &id, &status, &code), 1);
    EXPECT_EQ(code, 0UL) << SCA_ErrorText(code);
    return id;
  }

  unsigned long Begin(SCA_TikaInterface& client, unsigned long id) {
    unsigned long status = 0;
    unsigned long code = 0;
    EXPECT_EQ(client.StartServer(id, &status, &code), 1);
    return code;
  }

  bool ComesTo(SCA_TikaInterface& client, unsigned long wanted) {
    return Eventually([&] {
      unsigned long status = 99;
      return client.GetStatus(&status) != 0 && status == wanted;
    });
  }

  SCA_Owned<SCA_ConfigObj> StatusOf(SCA_TikaInterface& client, unsigned long id) {
    SCA_ConfigObj* status = nullptr;
    EXPECT_EQ(client.GetServerStatusEx(id, &status), 1);
    return SCA_Owned<SCA_ConfigObj>(status);
  }

  SCA_Owned<SCA_ConfigObj> ServiceStatus(SCA_TikaInterface& client) {
    SCA_ConfigObj* status = nullptr;
    EXPECT_EQ(client.GetStatusObj(&status), 1);
    return SCA_Owned<SCA_ConfigObj>(status);
  }

  std::vector<unsigned long> Ids(SCA_TikaInterface& client) {
    SCA_TikaServerList list;
    EXPECT_EQ(client.GetServerList(&list), 1);
    std::vector<unsigned long> ids;
    for (auto* node = list.GetHead(); node != nullptr; node = node->GetNext()) {
      ids.push_back(node->GetItem()->GetServerId());
    }
    return ids;
  }

  bool IsReady(SCA_TikaInterface& client, unsigned long long restarts,
               SCA_Owned<SCA_ConfigObj>* status) {
    return Eventually([&] {
      *status = StatusOf(client, 0);
      return Number(status->get(), SCA_ServerFields::Restarts) == restarts &&
             Number(status->get(), SCA_ServerFields::Ready) == 1;
    });
  }

  // Kills the process of server 0 and waits until the next one is ready.
  void KillServer(SCA_TikaInterface& client, SCA_Owned<SCA_ConfigObj>* status) {
    ASSERT_TRUE(IsReady(client, 0, status)) << host_->Error();
    const auto pid = Number(status->get(), SCA_ServerFields::ProcessId);
    EXPECT_EQ(::kill(static_cast<pid_t>(pid), SIGKILL), 0);
    ASSERT_TRUE(IsReady(client, 1, status)) << host_->Error();
    const SCA_ConfigObj* death = Last((*status)->GetConfigObj(SCA_ServerFields::History));
    EXPECT_EQ(Number(death, SCA_DeathFields::ProcessId), pid);
  }

  TempDir dir_;
  std::unique_ptr<Program> host_;
  unsigned short port_ = 0;
};

TEST_F(TikaSvc, KeepsServersRunningAndRemembersWhyTheyDied) {
  const unsigned short port = FreePort();
  Start({"--jar", Jar("chatty"), "--first-port", std::to_string(port)});
  auto client = Connect();
  SCA_Owned<SCA_ConfigObj> status;
  KillServer(*client, &status);
  EXPECT_EQ(Text(status.get(), SCA_ServerFields::TikaVersion), "Apache Tika 3.9");
  EXPECT_EQ(Text(status.get(), SCA_ServerFields::StatusText), "ready");
  EXPECT_EQ(Text(status.get(), SCA_ServerFields::Owner), "host");
  const SCA_ConfigObj* death = Last(status->GetConfigObj(SCA_ServerFields::History));
  EXPECT_EQ(Text(death, SCA_DeathFields::Kind), SCA_DeathKindText(SCA_DeathKind::Killed));
  EXPECT_EQ(Number(death, SCA_DeathFields::Signal), static_cast<unsigned long long>(SIGKILL));
  EXPECT_EQ(Number(death, SCA_DeathFields::Port), port);
  const SCA_ConfigObj* lines = death->GetConfigObj(SCA_DeathFields::Lines);
  ASSERT_EQ(lines->GetFieldCount(), 40UL);
  EXPECT_EQ(Text(lines, "39"), "INFO  line 39");

  // Killed as well, the host leaves nothing and, back again, still knows.
  const std::string file = Home() + "/data/history.trv";
  ASSERT_TRUE(Eventually([&] { return ReadFile(file).find("(Killed)") != std::string::npos; }));
  host_->Signal(SIGKILL);
  EXPECT_TRUE(host_->FamilyEndsWithin(10));
  EXPECT_EQ(host_->Wait(), 128 + SIGKILL);
  Start();
  client = Connect();
  const auto service = ServiceStatus(*client);
  EXPECT_EQ(Number(service.get(), SCA_ServiceFields::Servers), 0ULL);
  const SCA_ConfigObj* history = service->GetConfigObj(SCA_ServiceFields::History);
  ASSERT_EQ(history->GetFieldCount(), 1UL);
  EXPECT_EQ(Number(Last(history), SCA_DeathFields::Number), 1ULL);
  EXPECT_EQ(client->StopServer(), 1);
  EXPECT_EQ(host_->Wait(), 0) << host_->Error();
  EXPECT_TRUE(host_->FamilyEndsWithin(10));
}

TEST_F(TikaSvc, TellsCausesOfDeathApart) {
  struct Row {
    const char* jar;
    SCA_DeathKind kind;
    const char* words;
  };
  const Row rows[] = {
      {"heap", SCA_DeathKind::HeapExhausted, "OutOfMemoryError: Java heap space"},
      {"corrupt", SCA_DeathKind::JarRefused, "the jar is damaged"},
      {"options", SCA_DeathKind::OptionsRefused, "-Xwrong"},
      {"brief", SCA_DeathKind::Exited, "exit status 7"},
      {"mute", SCA_DeathKind::Silent, "it had not answered for "},
  };
  // A parent that ignores its children passes that on; how a server ended must be seen
  // nevertheless.
  std::signal(SIGCHLD, SIG_IGN);
  Start({"--silence-limit", "1"});
  std::signal(SIGCHLD, SIG_DFL);
  auto client = Connect();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.jar);
    const unsigned long id = Add(*client, Jar(row.jar), FreePort());
    ASSERT_EQ(Begin(*client, id), 0UL);
    SCA_Owned<SCA_ConfigObj> status;
    ASSERT_TRUE(Eventually([&] {
      status = StatusOf(*client, id);
      return status->GetConfigObj(SCA_ServerFields::History)->GetFieldCount() > 0;
    })) << host_->Error();
    const SCA_ConfigObj* death = Last(status->GetConfigObj(SCA_ServerFields::History));
    EXPECT_EQ(Text(death, SCA_DeathFields::Kind), SCA_DeathKindText(row.kind));
    EXPECT_NE(Text(death, SCA_DeathFields::Cause).find(row.words), std::string::npos)
        << Text(death, SCA_DeathFields::Cause);
    EXPECT_EQ(client->DeleteServer(id), 1);
  }
}

TEST_F(TikaSvc, DoesNotTakeAStrangerForItsServer) {
  const unsigned short port = FreePort();
  const int listener = ListenOnLoopback(port);
  const pid_t stranger = ::fork();
  if (stranger == 0) {
    ::alarm(120);  // should the test fail
    Answer(listener, -1, [](int) {});
  }
  ::close(listener);
  Start({"--jar", Jar("patient"), "--first-port", std::to_string(port)});
  auto client = Connect();
  SCA_Owned<SCA_ConfigObj> status;
  const SCA_ConfigObj* history = nullptr;
  ASSERT_TRUE(Eventually([&] {
    status = StatusOf(*client, 0);
    history = status->GetConfigObj(SCA_ServerFields::History);
    EXPECT_EQ(Number(status.get(), SCA_ServerFields::Ready), 0ULL);
    return history->GetFieldCount() >= 3;
  })) << host_->Error();
  std::vector<unsigned long long> times;
  for (const SCA_Field* death = history->GetFields().GetHead(); death; death = death->GetNext()) {
    EXPECT_EQ(Text(SCA_ToConfigObj(death), SCA_DeathFields::Kind),
              SCA_DeathKindText(SCA_DeathKind::PortTaken));
    times.push_back(Number(SCA_ToConfigObj(death), SCA_DeathFields::Time));
  }
  // Delays of 200 and 400 ms lie between three deaths.
  EXPECT_GE(times[2] - times[0], 550 * SCA_AbsTimePerMs);
  EXPECT_EQ(host_->Error().find(" answers: "), std::string::npos) << host_->Error();
  ::kill(stranger, SIGKILL);
  ::waitpid(stranger, nullptr, 0);
  EXPECT_TRUE(ComesTo(*client, SCA_ServerActive)) << host_->Error();
}

TEST_F(TikaSvc, LetsTwoProductsShareServers) {
  Start({"--jar", Jar("good"), "--first-port", std::to_string(FreePort())});
  const unsigned short shared = FreePort();
  auto first = Connect();
  auto second = Connect();
  const unsigned long mine = Add(*first, Jar("good"), FreePort());
  const unsigned long ours = Add(*first, Jar("good"), shared);
  EXPECT_EQ(Add(*second, Jar("brief"), shared), ours);
  EXPECT_EQ(Add(*second, Jar("good"), FreePort()), ours + 1);

  EXPECT_EQ(first->DeleteAllServers(), 1);
  EXPECT_EQ(Ids(*first), (std::vector<unsigned long>{0, ours, ours + 1}));
  EXPECT_EQ(first->DeleteAllServers(), 1);
  EXPECT_EQ(Ids(*first), (std::vector<unsigned long>{0, ours, ours + 1})) << mine;
  EXPECT_EQ(second->DeleteAllServers(), 1);
  EXPECT_EQ(Ids(*first), (std::vector<unsigned long>{0}));

  // Whoever goes without leave, leaves its servers to the host.
  const unsigned long left = Add(*second, Jar("good"), shared);
  EXPECT_EQ(Add(*first, Jar("good"), shared), left);
  second.reset();
  ASSERT_TRUE(Eventually(
      [&] { return Text(StatusOf(*first, left).get(), SCA_ServerFields::Owner) == "host"; }));
  EXPECT_EQ(first->DeleteAllServers(), 1);
  EXPECT_EQ(Ids(*first), (std::vector<unsigned long>{0, left}));
  EXPECT_EQ(first->DeleteServer(left), 1);
  EXPECT_EQ(first->DeleteServer(left), 0);
}

TEST_F(TikaSvc, SuspendsResumesAndRefusesInWords) {
  Start({"--jar", Jar("good"), "--first-port", std::to_string(FreePort())});
  auto client = Connect();
  ASSERT_TRUE(ComesTo(*client, SCA_ServerActive)) << host_->Error();
  ASSERT_EQ(client->Suspend(), 1);
  ASSERT_TRUE(ComesTo(*client, SCA_ServerInactive));
  EXPECT_EQ(Number(StatusOf(*client, 0).get(), SCA_ServerFields::ProcessId), 0ULL);
  EXPECT_EQ(Begin(*client, 0), 0UL);
  EXPECT_EQ(Begin(*client, 0), SCA_ErrorAlreadyActive);
  EXPECT_TRUE(ComesTo(*client, SCA_ServerActive));

  unsigned long id = 0;
  unsigned long status = 0;
  unsigned long code = 0;
  EXPECT_EQ(client->AddServer("/no/such.jar", FreePort(), 64, "", &id, &status, &code), 1);
  EXPECT_EQ(Begin(*client, id), SCA_ErrorNoJar);
  EXPECT_EQ(client->AddServer(Jar("good").c_str(), 0, 64, "", &id, &status, &code), 1);
  EXPECT_EQ(code, static_cast<unsigned long>(EINVAL));
  SCA_ConfigObj* object = nullptr;
  EXPECT_EQ(client->StartServer(77, &status, &code) + client->GetServerStatusEx(77, &object) +
                client->GetServer(77, &object) + client->GetServerLog(77, 0, 0, &object) +
                client->ClearServerLog(77),
            0);
  EXPECT_EQ(client->GetLastStatusCode(), 0UL);
}

TEST_F(TikaSvc, HandsOutTheMessagesThatAreAskedFor) {
  Start({"--jar", Jar("chatty"), "--first-port", std::to_string(FreePort())});
  auto client = Connect();
  ASSERT_TRUE(ComesTo(*client, SCA_ServerActive)) << host_->Error();
  SCA_TikaLog log(nullptr, 500, 0);
  const auto count = [&](unsigned long last, unsigned long limit) {
    EXPECT_EQ(client->GetServerLog(0, last, limit, &log), 1);
    return log.GetMessageCount();
  };
  unsigned long all = 0;
  ASSERT_TRUE(Eventually([&] {
    all = count(SCA_NoItemId, 0);
    tagSCA_ERROR_DESCR* newest = nullptr;
    return log.GetMessageByPos(all - 1, &newest) != 0 &&
           std::string(newest->text) == "INFO  line 39";
  }));
  EXPECT_EQ(count(SCA_NoItemId, 10), 10UL);
  EXPECT_EQ(count(all - 6, 10), 5UL);
  EXPECT_EQ(count(all - 6, 3), 3UL);
  EXPECT_EQ(count(all - 1, 0), 0UL);
  EXPECT_EQ(count(all + 100, 0), 0UL);
  EXPECT_EQ(client->ClearServerLog(0), 1);
  EXPECT_EQ(count(SCA_NoItemId, 0), 0UL);

  unsigned long code = 1;
  EXPECT_EQ(client->SaveTikaLog(SCA_TikaLogOn, "relative", &code), 1);
  EXPECT_EQ(code, static_cast<unsigned long>(EINVAL));
  EXPECT_EQ(client->SaveTikaLog(SCA_TikaLogOn, "", &code), 1);
  EXPECT_EQ(code, 0UL);
  auto status = StatusOf(*client, 0);
  ::kill(static_cast<pid_t>(Number(status.get(), SCA_ServerFields::ProcessId)), SIGTERM);
  EXPECT_TRUE(Eventually([&] { return !fs::is_empty(Home() + "/data/logs"); }));

  // What was switched on stays on.
  host_->Signal(SIGTERM);
  ASSERT_EQ(host_->Wait(), 0);
  Start();
  client = Connect();
  const auto service = ServiceStatus(*client);
  EXPECT_EQ(Number(service.get(), SCA_ServiceFields::SaveTikaLog), 1ULL);
  EXPECT_EQ(Text(service.get(), SCA_ServiceFields::TikaLogDir), Home() + "/data/logs");
}

TEST_F(TikaSvc, ReplacesServersThatHaveServedForLong) {
  const unsigned short port = FreePort();
  Start({"--jar", Jar("busy"), "--first-port", std::to_string(port), "--heap", "64",
         "--recycle-after", "3", "--recycle-after", "9h"});
  auto client = Connect();
  SCA_Owned<SCA_ConfigObj> status;
  ASSERT_TRUE(IsReady(*client, 0, &status)) << host_->Error();
  ASSERT_TRUE(Eventually(
      [&] { return Number(StatusOf(*client, 0).get(), SCA_ServerFields::Documents) == 3; }));
  const auto process = static_cast<pid_t>(Number(status.get(), SCA_ServerFields::ProcessId));
  ASSERT_TRUE(host_->WaitForError("it has begun 3 documents: server 1 starts on port ")) << port;
  SCA_TcpSock held;
  unsigned long error = 0;
  ASSERT_EQ(held.Connect("127.0.0.1", port, 5000, &error), 1) << SCA_ErrorText(error);
  const std::vector<unsigned long> both = Ids(*client);
  EXPECT_TRUE(both.size() == 2 || Has(host_->Error(), "has taken the place"))
      << "clients move over";
  // The first leaves the list, but not its process while it has a connection.
  ASSERT_TRUE(Eventually([&] { return Ids(*client).front() == 1; })) << host_->Error();
  auto service = ServiceStatus(*client);
  EXPECT_EQ(Number(service.get(), SCA_ServiceFields::LeavingServers), 1ULL);
  EXPECT_EQ(Number(service.get(), SCA_ServiceFields::RecycledServers), 1ULL);
  Program tikactl("tikactl", {"-H", Home() + "/data/control.socket", "status"});
  EXPECT_EQ(tikactl.Wait(), 0) << tikactl.Error();
  EXPECT_TRUE(Has(tikactl.Output(), "; replaced 1, finishing 1"));
  status = StatusOf(*client, 1);
  EXPECT_EQ(Text(status.get(), SCA_ServerFields::FileName), Jar("busy"));
  EXPECT_EQ(Number(status.get(), SCA_ServerFields::HeapSize), 64ULL);
  const auto successor = static_cast<unsigned short>(Number(status.get(), SCA_ServerFields::Port));
  EXPECT_GT(successor, port);
  unsigned long id = 0;
  unsigned long ignored = 0;
  unsigned long code = 0;
  EXPECT_EQ(client->AddServer(Jar("busy").c_str(), port, 64, "", &id, &ignored, &code), 1);
  EXPECT_EQ(code, static_cast<unsigned long>(EADDRINUSE)) << "the first has that port still";
  EXPECT_EQ(id, SCA_NoServerId);
  // A client that asks for a server by its port keeps it.
  EXPECT_EQ(Add(*client, Jar("busy"), successor), 1UL);
  EXPECT_EQ(::kill(process, 0), 0);
  held.Shutdown();
  ASSERT_TRUE(Eventually([&] { return ::kill(process, 0) != 0; })) << host_->Error();
  EXPECT_EQ(Ids(*client), (std::vector<unsigned long>{1})) << host_->Error();
  client.reset();
  ASSERT_TRUE(host_->WaitForError("server 2 starts on port " + std::to_string(port)));
  client = Connect();
  ASSERT_EQ(client->Suspend(), 1);
  EXPECT_TRUE(host_->WaitForError("server 1 is not replaced"));
  EXPECT_EQ(client->StopServer(), 1);
  EXPECT_EQ(host_->Wait(), 0) << host_->Error();
  EXPECT_TRUE(host_->FamilyEndsWithin(10));
}

TEST_F(TikaSvc, KillsWhatAFormerLifeHasLeft) {
  Start({"--jar", Jar("leaves"), "--first-port", std::to_string(FreePort())});
  auto client = Connect();
  ASSERT_TRUE(ComesTo(*client, SCA_ServerActive)) << host_->Error();
  // Without its guardian, which must die first, a grandchild outlives the host.
  const auto service = ServiceStatus(*client);
  const auto host = Number(service.get(), SCA_ServiceFields::ProcessId);
  ASSERT_TRUE(Eventually([&] { return KillChildren(host, "(sh)") == 1; }));
  const std::unique_ptr<Program> former = std::move(host_);
  former->Signal(SIGKILL);
  former->Wait();
  ASSERT_TRUE(Eventually([&] { return former->Family().size() <= 1; }));
  ASSERT_EQ(former->Family().size(), 1U);
  Start();
  ASSERT_TRUE(host_->WaitForError("killed 1 process"));
  EXPECT_TRUE(former->FamilyEndsWithin(10));
}

TEST_F(TikaSvc, SaysWhyItDoesNotStart) {
  std::ofstream(dir_.File("damaged.trv")) << "SCA-CONFIG 1 9000 9 12 00000000\nnonsense";
  Start();
  const std::string taken = std::to_string(port_);
  struct Row {
    std::vector<std::string> arguments;
    int status;
    const char* words;
  };
  const Row rows[] = {
      {{"--jar", "x", "--first-port", "65535", "--servers", "2"}, 2, "exceed port 65535"},
      {{"--metrics", "nowhere"}, 2, "is not host:port"},
      {{"--tika-bind", "127.0.0.1 "}, 2, "is not an address"},
      {{"--control-address", ""}, 2, "--control-address '' is not an address"},
      {{"--recycle-after", "12x"}, 2, "'12x' is no limit"},
      {{"--recycle-after", "0"}, 2, "'0' is no limit"},
      {{"--recycle-after", "9h", "--recycle-after", "2d"}, 2, "'2d' is a second limit"},
      {{"--no-login"}, 2, "--no-login was removed"},
      {{}, 5, "another service host (process "},
  };
  for (const Row& row : rows) EXPECT_TRUE(Ends(*Launch(row.arguments), row.status, row.words));
  // With a home of its own.
  const TempDir home;
  const Row others[] = {
      {{"--check-config", "--config", dir_.File("damaged.trv")}, 3, "restore it, or remove it"},
      {{"--control-port", taken}, 4, "cannot open the control port"},
      {{"--control-address", "localhost"}, 4, "on 'localhost': Invalid argument; choose"},
      {{"--control-address", "192.0.2.7"}, 4, "Cannot assign requested address; choose"},
      {{"--metrics", taken}, 4, "cannot serve metrics"},
      {{"--jar", "/no/such.jar"}, 3, "cannot start a server from /no/such.jar"},
      {{"--control-socket", "/no/socket"}, 3, "cannot open the control socket /no/socket: No such"},
      {{"--control-group", "no such group"}, 3, "there is no such group"},
  };
  const auto launch = [&](std::vector<std::string> arguments, const std::string& path) {
    if (arguments.size() <= 2) arguments.insert(arguments.end(), {"--config", home.File("r.trv")});
    if (arguments[0] != "--control-port") {
      arguments.insert(arguments.end(), {"--control-port", "0"});
    }
    return std::make_unique<Program>(
        "tikasvc", arguments,
        std::vector<std::string>{"XDG_CONFIG_HOME=" + home.Path(), "PATH=" + path});
  };
  for (const Row& row : others) {
    EXPECT_TRUE(Ends(*launch(row.arguments, "/bin"), row.status, row.words));
  }
  // Without a java, the host runs on and says what is missing.
  const auto bare = launch({"--jar", Jar("good")}, home.Path());
  EXPECT_TRUE(bare->WaitForError("(ERR:2, No such file or directory)")) << bare->Error();
  bare->Signal(SIGTERM);
  EXPECT_EQ(bare->Wait(), 0);

  const std::string lock = home.File("Tika Service/data/tikasvc.lock");
  fs::rename(lock, home.File("victim"));
  fs::create_symlink(home.File("victim"), lock);
  const std::string former = ReadFile(home.File("victim"));
  EXPECT_TRUE(Ends(*launch({"--tika-bind", "127.0.0.1"}, "/bin"), 3, "cannot lock " + lock));
  EXPECT_EQ(ReadFile(home.File("victim")), former) << "a file that the lock leads to stays";

  fs::permissions(Home() + "/control.key", fs::perms::others_read, fs::perm_options::add);
  host_->Signal(SIGINT);
  EXPECT_EQ(host_->Wait(), 0);
  EXPECT_TRUE(Ends(*Launch({}), 3, "cannot use the control key"));
}

TEST_F(TikaSvc, RunsForAnAccountThatIsABareNumber) {
  constexpr uid_t kNumber = 12345;
  ASSERT_EQ(::getpwuid(kNumber), nullptr);
  if (::geteuid() != 0) GTEST_SKIP() << "not root";
  const TempDir home;
  ASSERT_EQ(::chown(home.Path().c_str(), kNumber, 0), 0);
  struct Row {
    std::string config;  // where the root configuration lies, if it is named
    std::string xdg;
    std::string home;
    int status;
    std::string said;
  };
  const std::string data = "Tika Service/data,";
  const Row rows[] = {
      {home.File("a.trv"), home.File("xdg"), "", 0, "data directory " + home.File("xdg/") + data},
      {home.File("b.trv"), "", home.Path(), 0, "data directory " + home.File(".config/") + data},
      {home.File("c.trv"), "", "", 0, "data directory " + home.File(data)},
      {"", "", "", 3, "set XDG_CONFIG_HOME, or name a root configuration with --config"}};
  for (const Row& row : rows) {
    std::vector<std::string> arguments = {"--reuid=" + std::to_string(kNumber), "--clear-groups",
                                          SCA_BIN_DIR "/tikasvc", "--check-config"};
    if (!row.config.empty()) arguments.insert(arguments.end(), {"--config", row.config});
    Program program("/usr/bin/setpriv", arguments,
                    {"XDG_CONFIG_HOME=" + row.xdg, "HOME=" + row.home, "LOGNAME="});
    EXPECT_EQ(program.Wait(), row.status) << program.Error();
    EXPECT_TRUE(Has(program.Output() + program.Error(), row.said));
  }
}

TEST_F(TikaSvc, TalksToTheServiceManagerAndReloads) {
  const std::string name = dir_.File("notify");
  const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, name.c_str(), name.size() + 1);
  ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  const auto hears = [fd](const std::string& wanted) {
    return Eventually([&] {
      char text[4096] = "";
      const auto length = ::recv(fd, text, sizeof text - 1, MSG_DONTWAIT);
      return length > 0 && std::string(text).find(wanted) != std::string::npos;
    });
  };
  Start({}, {"NOTIFY_SOCKET=" + name, "WATCHDOG_USEC=200000"});
  EXPECT_TRUE(hears("READY=1"));
  EXPECT_TRUE(hears("WATCHDOG=1"));
  host_->Signal(SIGUSR1);  // from a stranger
  host_->Signal(SIGHUP);
  EXPECT_TRUE(host_->WaitForError("reread "));
  host_->Signal(SIGTERM);
  EXPECT_TRUE(hears("STOPPING=1"));
  EXPECT_EQ(host_->Wait(), 0);
  ::close(fd);
}

TEST_F(TikaSvc, ServesItsFigures) {
  const unsigned short metrics = FreePort();
  const unsigned short port = FreePort();
  Start({"--jar", Jar("leaves"), "--first-port", std::to_string(port), "--metrics",
         std::to_string(metrics)});
  auto client = Connect();
  SCA_ConfigObj* object = nullptr;
  EXPECT_EQ(client->GetServer(9, &object), 0);
  SCA_Owned<SCA_ConfigObj> status;
  KillServer(*client, &status);
  const auto parent = Number(status.get(), SCA_ServerFields::ProcessId);
  // A worker is seen at one of the looks, which are a second apart.
  const auto upTime = Number(status.get(), SCA_ServerFields::UpTime);
  ASSERT_TRUE(Eventually([&] {
    status = StatusOf(*client, 0);
    return Number(status.get(), SCA_ServerFields::UpTime) > upTime + 2500;
  }));
  ASSERT_EQ(KillChildren(parent, "(java)"), 1);
  ASSERT_TRUE(Eventually([&] {
    status = StatusOf(*client, 0);
    return Number(status.get(), SCA_ServerFields::WorkerDeaths) == 1 &&
           Number(status.get(), SCA_ServerFields::Ready) == 1;
  }));
  const SCA_ConfigObj* death = Last(status->GetConfigObj(SCA_ServerFields::History));
  EXPECT_EQ(Number(death, SCA_DeathFields::Worker), 1ULL);
  EXPECT_EQ(Number(death, SCA_DeathFields::ExitCode), 137ULL);
  EXPECT_TRUE(Has(Text(death, SCA_DeathFields::Cause),
                  "its worker process ended with exit status 137, as it says: signal 9 "));
  EXPECT_EQ(Number(status.get(), SCA_ServerFields::ProcessId), parent);
  const StopSignal stop;
  ServerConnection connection(ConnectToLoopback(metrics), stop);
  ASSERT_TRUE(connection.Send("GET /metrics HTTP/1.0\r\n\r\n"));
  std::string reply;
  for (std::string piece = " "; !piece.empty(); reply += piece) piece = connection.Receive();
  const std::string server = "{server=\"0\",port=\"" + std::to_string(port) + "\"}";
  for (const std::string& value :
       {"tikasvc_servers{state=\"ready\"}" + std::string(), "tikasvc_server_ready" + server,
        "tikasvc_server_restarts_total" + server, "tikasvc_server_worker_deaths_total" + server,
        "tikasvc_server_deaths_total{cause=\"killed\"}" + std::string(),
        "tikasvc_worker_deaths_total{cause=\"killed\"}" + std::string(),
        "{command=\"GetServer\",result=\"failed\"}" + std::string()}) {
    EXPECT_TRUE(Has(reply, value + " 1\n"));
  }
}

}  // namespace
