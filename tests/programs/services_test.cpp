// tikaextract with service hosts, which are scripted here with all their Tika servers.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "control/SCA_ControlKey.h"
#include "settings/SCA_TikaConfigOrv.h"
#include "tests/support/FreePort.h"
#include "tests/support/Program.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/TempDir.h"

namespace {

class TikaExtractServices : public ::testing::Test {
 protected:
  TikaExtractServices() {
    const auto provide = [](void*, const char*, unsigned short, SCA_ControlKey* key,
                            unsigned long*) {
      std::memset(key->bytes, 0xAB, key->length = 16);
      return 1;
    };
    SCA_SetControlKeyProvider(provide, nullptr);
  }
  ~TikaExtractServices() override { SCA_SetControlKeyProvider(nullptr, nullptr); }

  // That of the hosts has 'a'.
  std::string KeyFile(char first) {
    std::string key;
    while (key.size() < 32) key += {first, 'b'};
    ::chmod(dir_.Write("key", key).c_str(), 0600);
    return dir_.File("key");
  }

  TempDir dir_;
  const std::string x_ = dir_.Write("x.pdf", "x");
};

TEST_F(TikaExtractServices, ServiceThatGoesIsLeftOutUntilItIsBack) {
  ScriptedHost staying("127.0.0.1", 1);
  ScriptedHost going("127.0.0.2", 1);
  const unsigned short foreign = staying.Keep(SCA_ServerActive);
  const std::string wanted = std::to_string(FreePort());
  std::vector<std::string> arguments{"-v", "--key", KeyFile('a'), "--timeout", "20"};
  arguments.insert(arguments.end(), {"--service", staying.Service(), "--service", going.Service(),
                                     "--service-jar", "wanted.jar", "--service-java-options=-Dx=y",
                                     "--service-heap", "77", "--service-first-port", wanted});
  std::string expected;
  for (int i = 100; i < 140; ++i) {
    arguments.push_back(dir_.Write(std::to_string(i) + ".pdf", std::to_string(i) + "\n"));
    expected += "text of " + std::to_string(i) + "\n";
  }
  staying.limit.store(5);
  going.limit.store(5);
  Program program("tikaextract", arguments);
  ASSERT_TRUE(Eventually([&] { return staying.served.load() + going.served.load() == 10; }))
      << program.Error();
  going.Die();
  ASSERT_TRUE(program.WaitForError("lost the connection")) << program.Error();
  staying.limit.store(10);
  ASSERT_TRUE(Eventually([&] { return staying.served.load() == 10; }));
  going.limit.store(ScriptedHost::kNoLimit);
  going.Open();
  ASSERT_TRUE(Eventually([&] { return going.served.load() > 5; })) << program.Error();
  staying.limit.store(ScriptedHost::kNoLimit);
  EXPECT_TRUE(Ends(program, 0, "is back"));
  EXPECT_EQ(program.Output(), expected);
  for (ScriptedHost* host : {&staying, &going}) {
    const std::vector<std::string> calls = host->Calls();
    EXPECT_EQ(
        std::count(calls.begin(), calls.end(), "AddServer wanted.jar|-Dx=y " + wanted + " 77"),
        host == &going ? 2 : 1);
    EXPECT_FALSE(host->Has(static_cast<unsigned short>(std::stoi(wanted))));
  }
  EXPECT_TRUE(staying.Has(foreign));
}

TEST_F(TikaExtractServices, ServersOfALostConnectionAreFoundAgainAndLeftToTheHost) {
  ScriptedHost host("127.0.0.1");
  host.closesAfterAdd = true;
  const unsigned short port = FreePort();
  // Keeps the run going until the service has had its document.
  FaultServerOptions waiting;
  waiting.choose = [&host](const DocumentHead&) {
    EXPECT_TRUE(Eventually([&host] { return host.served.load() > 0; }));
    return FaultSpec();
  };
  const FaultServer other(waiting);
  Program program(
      "tikaextract",
      {"-v", "--service", host.Service(), "--service-first-port", std::to_string(port), "--server",
       "localhost:" + std::to_string(other.Port()), x_, dir_.Write("y.pdf", "y")});
  ASSERT_TRUE(program.WaitForError("to start a server")) << program.Error();
  host.Open();
  EXPECT_TRUE(Ends(program, 0, "may run on"));
  EXPECT_EQ(program.Output(), "text of xtext of y");
  EXPECT_TRUE(host.Has(port));
}

TEST_F(TikaExtractServices, ServerThatJoinsGetsAsManyClientsAsTheOthers) {
  ScriptedHost host("127.0.0.1");
  host.Keep(SCA_ServerActive);
  host.limit.store(0);
  std::vector<std::string> arguments{"-j", "4", "--service", host.Service()};
  std::string expected;
  for (int i = 0; i < 8; ++i) {
    arguments.push_back(dir_.Write(std::to_string(i) + ".pdf", std::to_string(i)));
    expected += "text of " + std::to_string(i);
  }
  Program program("tikaextract", arguments);
  ASSERT_TRUE(Eventually([&] { return host.asked.load() == 4; })) << program.Error();
  host.Keep(SCA_ServerActive);
  ASSERT_TRUE(Eventually([&] { return host.asked.load() == 8; })) << host.asked.load();
  host.limit.store(ScriptedHost::kNoLimit);
  EXPECT_TRUE(Ends(program, 0));
  EXPECT_EQ(program.Output(), expected);
}

TEST_F(TikaExtractServices, ServiceWithoutServersSaysWhatToDo) {
  const struct {
    std::string complaint;  // "" for an extracted text
    unsigned long kept;     // status of the one server, 0xFFFF for none
    std::vector<std::string> arguments;
    unsigned long addCode = 0;
    unsigned long startCode = 0;
    char key = 'a';
    unsigned long mode = 1;
  } rows[] = {
      {"", SCA_ServerActive, {}},
      {"has no server", 0xFFFF, {}},
      {"is stopped there", SCA_ServerInactive, {}},
      {"is in error: in words; its last end: heap exhausted", SCA_ServerError, {}},
      {"", SCA_ServerInactive, {"--service-servers", "1"}},
      {"JAR file does not exist", 0xFFFF, {"--service-jar", "j"}, SCA_ErrorNoJar},
      {"JAR file does not exist", 0xFFFF, {"--service-jar", "j"}, 0, SCA_ErrorNoJar},
      {"the login was refused", SCA_ServerActive, {}, 0, 0, 'c'},
      {"asks for no login although", SCA_ServerActive, {}, 0, 0, 'a', 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.complaint + " " + std::to_string(row.kept));
    ScriptedHost host("127.0.0.1", row.mode);
    const unsigned short port = row.kept != 0xFFFF ? host.Keep(row.kept) : FreePort();
    host.addCode = row.addCode;
    host.startCode = row.startCode;
    std::vector<std::string> arguments = row.arguments;
    if (!arguments.empty()) {
      arguments.insert(arguments.end(), {"--service-first-port", std::to_string(port)});
    }
    // Two names of one machine are one service.
    arguments.insert(arguments.end(), {"--service", host.Service(), "--service",
                                       "localhost:" + std::to_string(host.ControlPort()), "--key",
                                       KeyFile(row.key), x_});
    Program program("tikaextract", arguments);
    EXPECT_TRUE(Ends(program, row.complaint.empty() ? 0 : 3, row.complaint));
    EXPECT_EQ(program.Output(), row.complaint.empty() ? "text of x" : "");
    EXPECT_EQ(Lines(program.Error()).size(), row.complaint.empty() ? 0U : 1U) << program.Error();
    EXPECT_EQ(host.Has(port), row.kept != 0xFFFF) << "what was there stays, nothing else does";
  }
}

TEST_F(TikaExtractServices, ServiceOfThisMachineNeedsNoKey) {
  const std::string socket = dir_.File("Tika Service/data/control.socket");
  std::filesystem::create_directories(dir_.File("Tika Service/data"));
  ScriptedHost host("127.0.0.1");
  host.Keep(SCA_ServerActive);
  for (const bool isOpen : {false, true}) {
    if (isOpen) host.OpenLocal(socket);
    for (const std::string& service : {std::string("local"), socket}) {
      Program program("tikaextract", {"--service", service, x_},
                      {"XDG_CONFIG_HOME=" + dir_.Path()});
      EXPECT_TRUE(Ends(program, isOpen ? 0 : 3, isOpen ? "" : socket));
      EXPECT_EQ(program.Output(), isOpen ? "text of x" : "");
    }
  }
}

// Without a host the run would have a private server, for which there is no jar here.
TEST_F(TikaExtractServices, RunWithoutServersAsksThisMachineFirst) {
  const std::string directory = dir_.File("Tika Service/data");
  const std::string socket = directory + "/control.socket";
  std::filesystem::create_directories(directory);
  ScriptedHost host("127.0.0.1");
  const auto run = [&](const std::vector<std::string>& options) {
    std::vector<std::string> arguments{"-v", x_};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const std::vector<std::string> empty{"XDG_CONFIG_HOME=" + dir_.Path(),
                                         "XDG_CACHE_HOME=" + dir_.Path(), "TIKA_SERVER_JAR="};
    return std::make_unique<Program>("tikaextract", arguments, empty);
  };
  const std::string noJar = "there is no Tika server jar";
  host.OpenLocal(socket);
  EXPECT_TRUE(Ends(*run({}), 3, "the service host at " + socket + " cannot be asked"));
  const unsigned short port = host.Keep(SCA_ServerActive);
  const std::size_t calls = host.Calls().size();
  const auto used = run({});
  EXPECT_TRUE(Ends(*used, 0, "using the service host at " + socket));
  EXPECT_EQ(used->Output(), "text of x");
  const std::vector<std::string> keepAway[] = {
      {"--private"}, {"--jar", dir_.File("none.jar")}, {"--java-heap", "64"}};
  for (const auto& options : keepAway) EXPECT_TRUE(Ends(*run(options), 3, noJar));
  EXPECT_TRUE(Ends(*run({"--private", "--service", "local"}), 2, "choose one"));
  // Whoever may write there may have put another program's socket there.
  ::chmod(directory.c_str(), 0777);
  const auto distrusting = run({});
  EXPECT_TRUE(Ends(*distrusting, 3, noJar));
  EXPECT_TRUE(Has(distrusting->Error(), socket + " (the host takes commands from its own account"));
  ::chmod(directory.c_str(), 0700);
  host.SetStatus(port, SCA_ServerInactive);
  EXPECT_TRUE(Ends(*run({}), 3, noJar));
  EXPECT_EQ(host.served.load(), 1);
  EXPECT_EQ(host.Calls().size(), calls) << "was asked to start a server";
}

TEST_F(TikaExtractServices, HungOrDeadHostOfThisMachineIsPassedOver) {
  const std::string directory = dir_.File("Tika Service/data");
  std::filesystem::create_directories(directory);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  SCA_CopyText(address.sun_path, (directory + "/control.socket").c_str(), SCA_TextFit::Cut);
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  for (const bool hangs : {false, true}) {
    ASSERT_EQ(hangs ? ::listen(socket, 1) : 0, 0);
    Program program(
        "tikaextract", {x_},
        {"XDG_CONFIG_HOME=" + dir_.Path(), "XDG_CACHE_HOME=" + dir_.Path(), "TIKA_SERVER_JAR="});
    EXPECT_TRUE(Ends(program, 3, "there is no Tika server jar"));
  }
  ::close(socket);
}

TEST_F(TikaExtractServices, SavedWishesComeBackAndFormerSettingsAreUnderstood) {
  ScriptedHost host("127.0.0.1");
  const std::string file = dir_.File("settings");
  Program save("tikaextract",
               {"--service", host.Service(), "--service-jar", "/j.jar", "--service-first-port",
                std::to_string(FreePort()), "--save-settings", file});
  ASSERT_TRUE(Ends(save, 0));
  Program wish("tikaextract", {"--settings", file, x_});
  EXPECT_TRUE(Ends(wish, 0));
  EXPECT_EQ(host.Calls().front().rfind("AddServer /j.jar| ", 0), 0U);
  // Before there were services, every record had a control port that nobody used.
  SCA_TikaConfigOrv settings;
  SCA_TikaService* service = nullptr;
  SCA_ConfigObj object(SCA_SettingsName, nullptr);
  unsigned long error = 0;
  settings.SetMode(SCA_TikaModeEnabled);
  ASSERT_EQ(settings.GetServiceList()->AddService("127.0.0.1", &service), 1);
  service->SetDataPort(host.Keep(SCA_ServerActive));
  ASSERT_EQ(settings.Serialize(&object), 1);
  ASSERT_EQ(object.Save(file.c_str(), SCA_FileTypeSettings, 1, &error), 1);
  Program use("tikaextract", {"--settings", file, x_});
  EXPECT_TRUE(Ends(use, 0));
  EXPECT_EQ(wish.Output() + use.Output(), "text of xtext of x");
}

TEST_F(TikaExtractServices, WrongUseSaysWhatIsWrong) {
  const std::pair<std::vector<std::string>, const char*> rows[] = {
      {{"--service", "127.0.0.1:1", "--service", "localhost:2", x_}, "two control ports"},
      {{"--service", "h:1", "--server", "h:2", x_}, "choose one"},
      {{"--service-jar", "j", x_}, "need --service"},
      {{"--service", "h", "--service-servers", "9", "--service-first-port", "65530", x_},
       "leaves no room"},
      {{"--service", "h", "--key", dir_.File("none"), x_}, "cannot use the key"},
  };
  for (const auto& [arguments, complaint] : rows) {
    Program program("tikaextract", arguments);
    EXPECT_TRUE(Ends(program, 2, complaint));
  }
}

}  // namespace
