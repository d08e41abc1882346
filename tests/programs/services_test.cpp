// tikaextract with service hosts, which are scripted here with all their Tika servers.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>

#include "control/SCA_ControlKey.h"
#include "control/SCA_ServiceStatusNames.h"
#include "control/SCA_TikaServiceServer.h"
#include "faultlab/FaultServer.h"
#include "host/SCA_TikaServerList.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Text.h"
#include "settings/SCA_TikaConfigOrv.h"
#include "tests/support/Program.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

class TikaExtractServices : public ::testing::Test {
 protected:
  TikaExtractServices() {
    SCA_SetControlKeyProvider(
        [](void*, const char*, unsigned short, SCA_ControlKey* key, unsigned long*) {
          std::memset(key->bytes, 0xAB, key->length = 16);
          return 1;
        },
        nullptr);
  }
  ~TikaExtractServices() override { SCA_SetControlKeyProvider(nullptr, nullptr); }

  std::string KeyFile(const char* byte) {
    std::string text;
    for (int i = 0; i < 16; ++i) text += byte;
    const std::string file = dir_.Write(std::string("key") + byte, text);
    ::chmod(file.c_str(), 0600);
    return file;
  }

  TempDir dir_;
};

TEST_F(TikaExtractServices, ServiceThatGoesIsLeftOutUntilItIsBack) {
  ScriptedHost staying("127.0.0.1");
  ScriptedHost going("127.0.0.2");
  const unsigned short foreign = staying.Keep(SCA_ServerActive);
  SCA_TikaConfigOrv settings;
  settings.SetMode(SCA_TikaModeEnabled);
  settings.SetJavaOptions("-Dx=y");
  std::map<const ScriptedHost*, unsigned short> wanted;
  for (const ScriptedHost* host : {&staying, &going}) {
    SCA_TikaService* service = nullptr;
    ASSERT_EQ(settings.GetServiceList()->AddService(host->Address().c_str(), &service), 1);
    service->SetControlPort(host->ControlPort());
    service->SetDataPort(wanted[host] = host->FreePort());
    service->SetFileName("wanted.jar");
    service->SetHeapSize(77);
  }
  SCA_ConfigObj object(SCA_SettingsName, nullptr);
  unsigned long error = 0;
  ASSERT_EQ(settings.Serialize(&object), 1);
  ASSERT_EQ(object.Save(dir_.File("settings").c_str(), SCA_FileTypeSettings, 2, &error), 1);
  std::vector<std::string> arguments{
      "-v", "--settings", dir_.File("settings"), "--key", KeyFile("ab"), "--timeout", "20"};
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
  EXPECT_EQ(program.Wait(), 0) << program.Error();
  EXPECT_EQ(program.Output(), expected);
  EXPECT_TRUE(Has(program.Error(), "is back"));
  for (ScriptedHost* host : {&staying, &going}) {
    const std::vector<std::string> calls = host->Calls();
    const std::string added = "AddServer wanted.jar|-Dx=y " + std::to_string(wanted[host]) + " 77";
    EXPECT_EQ(std::count(calls.begin(), calls.end(), added), host == &going ? 2 : 1);
    EXPECT_FALSE(host->Has(wanted[host]));
  }
  EXPECT_TRUE(staying.Has(foreign));
}

TEST_F(TikaExtractServices, ServersOfALostConnectionAreFoundAgainAndLeftToTheHost) {
  ScriptedHost host("127.0.0.1");
  host.closesAfterAdd = true;
  const unsigned short port = host.FreePort();
  // Keeps the run going until the service has had its document.
  FaultServerOptions waiting;
  waiting.choose = [&host](const DocumentHead&) {
    EXPECT_TRUE(Eventually([&host] { return host.served.load() > 0; }));
    return FaultSpec();
  };
  const FaultServer other(waiting);
  Program program("tikaextract",
                  {"-v", "--service", host.Service(), "--service-first-port", std::to_string(port),
                   "--server", "localhost:" + std::to_string(other.Port()), "--key", KeyFile("ab"),
                   dir_.Write("x.pdf", "x"), dir_.Write("y.pdf", "y")});
  ASSERT_TRUE(program.WaitForError("to start a server")) << program.Error();
  host.Open();
  EXPECT_EQ(program.Wait(), 0) << program.Error();
  EXPECT_EQ(program.Output(), "text of xtext of y");
  EXPECT_TRUE(host.Has(port));
  EXPECT_TRUE(Has(program.Error(), "may run on"));
}

TEST_F(TikaExtractServices, ServiceWithoutServersSaysWhatToDo) {
  const std::string text = dir_.Write("x.pdf", "x");
  struct Row {
    std::string complaint;  // "" for an extracted text
    unsigned long kept;     // status of the one server, 0xFFFF for none
    std::vector<std::string> arguments;
    unsigned long addCode = 0;
    unsigned long startCode = 0;
    const char* key = "ab";
    unsigned long mode = 1;
  };
  constexpr unsigned long kNone = 0xFFFF;
  const Row rows[] = {
      {"", SCA_ServerActive, {}},
      {"has no server", kNone, {}},
      {"is stopped there", SCA_ServerInactive, {}},
      {"is in error: in words; its last end: heap exhausted", SCA_ServerError, {}},
      {"", SCA_ServerInactive, {"--service-servers", "1"}},
      {"JAR file does not exist", kNone, {"--service-jar", "j"}, SCA_ErrorNoJar},
      {"JAR file does not exist", kNone, {"--service-jar", "j"}, 0, SCA_ErrorNoJar},
      {"the login was refused", SCA_ServerActive, {}, 0, 0, "cd"},
      {"asks for no login although", SCA_ServerActive, {}, 0, 0, "ab", 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.complaint + " " + std::to_string(row.kept));
    ScriptedHost host("127.0.0.1", row.mode);
    const unsigned short port = row.kept != kNone ? host.Keep(row.kept) : host.FreePort();
    host.addCode = row.addCode;
    host.startCode = row.startCode;
    std::vector<std::string> arguments = row.arguments;
    if (!arguments.empty()) {
      arguments.insert(arguments.end(), {"--service-first-port", std::to_string(port)});
    }
    // Two names of one machine are one service.
    arguments.insert(arguments.end(), {"--service", host.Service(), "--service",
                                       "localhost:" + std::to_string(host.ControlPort()), "--key",
                                       KeyFile(row.key), text});
    Program program("tikaextract", arguments);
    EXPECT_EQ(program.Wait(), row.complaint.empty() ? 0 : 3);
    EXPECT_EQ(program.Output(), row.complaint.empty() ? "text of x" : "");
    const std::string error = program.Error();
    EXPECT_EQ(std::count(error.begin(), error.end(), '\n'), row.complaint.empty() ? 0 : 1) << error;
    EXPECT_TRUE(Has(error, row.complaint));
    EXPECT_EQ(host.Has(port), row.kept != kNone) << "what was there stays, nothing else does";
  }
}

TEST_F(TikaExtractServices, ServiceOfThisMachineNeedsNoKey) {
  const std::string text = dir_.Write("x.pdf", "x");
  const std::string socket = dir_.File("Tika Service/data/control.socket");
  std::filesystem::create_directories(dir_.File("Tika Service/data"));
  ScriptedHost host("127.0.0.1");
  host.Keep(SCA_ServerActive);
  for (const bool isOpen : {false, true}) {
    if (isOpen) host.OpenLocal(socket);
    for (const std::string& service : {std::string("local"), socket}) {
      Program program("tikaextract", {"--service", service, text},
                      {"XDG_CONFIG_HOME=" + dir_.Path()});
      EXPECT_EQ(program.Wait(), isOpen ? 0 : 3);
      EXPECT_EQ(program.Output(), isOpen ? "text of x" : "");
      EXPECT_EQ(program.Error().find(socket) != std::string::npos, !isOpen) << program.Error();
    }
  }
}

TEST_F(TikaExtractServices, WishesAreSavedAndWrongUseSaysWhatIsWrong) {
  const std::string file = dir_.File("settings");
  Program save("tikaextract", {"--service", "tika1", "--service-servers", "2", "--service-jar",
                               "/j.jar", "--server", "tika2:9998", "--save-settings", file});
  ASSERT_EQ(save.Wait(), 0) << save.Error();
  SCA_ConfigObj object;
  SCA_TikaConfigOrv settings;
  unsigned long error = 0;
  ASSERT_EQ(object.Load(file.c_str(), &error), 1);
  ASSERT_EQ(settings.Deserialize(&object), 1);
  SCA_TikaService* service = nullptr;
  ASSERT_EQ(settings.GetServiceList()->GetService("tika1", &service), 1);
  EXPECT_EQ(service->GetControlPort(), 9500);
  EXPECT_EQ(service->GetNumOfServers(), 2U);
  EXPECT_STREQ(service->GetFileName(), "/j.jar");
  ASSERT_EQ(settings.GetServiceList()->GetService("tika2", &service), 1);
  EXPECT_EQ(service->GetControlPort(), 0);
  // Before there were services, every record had a control port that nobody used.
  ScriptedHost host("127.0.0.1");
  settings.ClearAll();
  ASSERT_EQ(settings.GetServiceList()->AddService("127.0.0.1", &service), 1);
  service->SetDataPort(host.Keep(SCA_ServerActive));
  SCA_ConfigObj former(SCA_SettingsName, nullptr);
  settings.SetMode(SCA_TikaModeEnabled);
  ASSERT_EQ(settings.Serialize(&former), 1);
  ASSERT_EQ(former.Save(file.c_str(), SCA_FileTypeSettings, 1, &error), 1);
  const std::string text = dir_.Write("x.pdf", "x");
  Program use("tikaextract", {"--settings", file, text});
  EXPECT_EQ(use.Wait(), 0) << use.Error();
  EXPECT_EQ(use.Output(), "text of x");

  const std::pair<std::vector<std::string>, const char*> rows[] = {
      {{"--service", "h:1", "--service", "h:2", text}, "two control ports"},
      {{"--service", "127.0.0.1:1", "--service", "localhost:2", text}, "two control ports"},
      {{"--service", "h:1", "--server", "h:2", text}, "choose one"},
      {{"--service-jar", "j", text}, "need --service"},
      {{"--service", "h", "--service-servers", "9", "--service-first-port", "65530", text},
       "leaves no room"},
      {{"--service", "h", "--key", dir_.File("none"), text}, "cannot use the key"},
  };
  for (const auto& [arguments, complaint] : rows) {
    SCOPED_TRACE(complaint);
    Program program("tikaextract", arguments);
    EXPECT_TRUE(Ends(program, 2, complaint));
  }
}

}  // namespace
