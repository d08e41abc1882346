#include <string_view>

#include "platform/SCA_Time.h"
#include "programs/common/Escape.h"
#include "programs/common/Json.h"
#include "programs/tikactl/Commands.h"
#include "programs/tikactl/Fields.h"
#include "programs/tikactl/Health.h"
#include "programs/tikactl/Terminal.h"

namespace {

namespace ServerField = SCA_ServerFields;
namespace ServiceField = SCA_ServiceFields;

std::string OrDash(const std::string& text) {
  return text.empty() ? "-" : text;
}

std::string NumberOrDash(const Fields& fields, const char* name) {
  const auto number = fields.Number(name);
  return number ? std::to_string(*number) : "-";
}

std::string SizeOrDash(const Fields& fields, const char* name) {
  const auto number = fields.Number(name);
  return number ? Size(*number) : "-";
}

// Why it is not as it should be, else how it last died.
Cell Trouble(const Fields& server) {
  const unsigned long long time = server.NumberOr(ServerField::LastDeathTime, 0);
  const std::string reason = server.Text(ServerField::StatusCodeText);
  if (!reason.empty()) return {reason, Colour::Red};
  const std::string death = server.Text(ServerField::LastDeath);
  return death.empty() ? "-" : When(time) + " " + death;
}

std::string TikaVersion(const Fields& server) {
  constexpr std::string_view kProduct = "Apache Tika ";
  const std::string version = server.Text(ServerField::TikaVersion);
  return OrDash(version.rfind(kProduct, 0) == 0 ? version.substr(kProduct.size()) : version);
}

Table ServerTable(const SCA_ConfigObj& servers) {
  Table table({{"ID", Align::Right},
               {"PORT", Align::Right},
               {"STATE"},
               {"UP", Align::Right},
               {"MEMORY", Align::Right},
               {"HEAP", Align::Right},
               {"ANSWER", Align::Right},
               {"RESTARTS", Align::Right},
               {"TIKA"},
               {"JAR"},
               {"CLASS ARCHIVE"},
               {"OWNER"},
               {"LAST TROUBLE"}});
  ForEachServer(servers, [&table](const std::string& id, const Fields& server) {
    const bool isRunning = server.NumberOr(ServerField::ProcessId, 0) != 0;
    const bool hasAnswered = server.NumberOr(ServerField::Ready, 0) != 0;
    const auto heap = server.Number(ServerField::HeapSize);
    const auto figure = [](bool isKnown, const std::string& text) {
      return isKnown ? text : std::string("-");
    };
    table.Add({id, NumberOrDash(server, ServerField::Port), StateCell(server),
               figure(isRunning, Duration(server.NumberOr(ServerField::UpTime, 0))),
               figure(isRunning, SizeOrDash(server, ServerField::MemoryUsage)),
               heap ? std::to_string(*heap) + " MB" : "-",
               figure(hasAnswered, Duration(server.NumberOr(ServerField::AnswerTime, 0))),
               NumberOrDash(server, ServerField::Restarts), TikaVersion(server),
               OrDash(BaseName(server.Text(ServerField::FileName))),
               OrDash(server.Text(ServerField::ClassArchive)),
               OrDash(server.Text(ServerField::Owner)), Trouble(server)});
  });
  return table;
}

std::string LoginText(const Fields& service) {
  const auto mode = service.Number(ServiceField::LoginMode);
  if (!mode) return "";
  return *mode == 0 ? ", loopback only, no login" : ", login with the control key";
}

std::string RefusedLoginsText(const Fields& service) {
  const unsigned long long refused = service.NumberOr(ServiceField::RefusedLogins, 0);
  return refused == 0 ? "" : " (" + std::to_string(refused) + " refused)";
}

std::string RecyclingText(const Fields& service) {
  const unsigned long long recycled = service.NumberOr(ServiceField::RecycledServers, 0);
  const unsigned long long leaving = service.NumberOr(ServiceField::LeavingServers, 0);
  if (recycled == 0) return {};
  return "; replaced " + std::to_string(recycled) +
         (leaving > 0 ? ", finishing " + std::to_string(leaving) : "");
}

void PrintService(const Fields& service, Output* output) {
  const auto number = [&service](const char* name) { return NumberOrDash(service, name); };
  const unsigned long long startTime = service.NumberOr(ServiceField::StartTime, 0);
  const std::string rows[][2] = {
      {"Service", OrDash(service.Text(ServiceField::StatusText)) + " on " +
                      OrDash(service.Text(ServiceField::HostName)) + ", version " +
                      OrDash(service.Text(ServiceField::Version)) + ", process " +
                      number(ServiceField::ProcessId)},
      {"Up", Duration(service.NumberOr(ServiceField::UpTime, 0)) + ", since " + When(startTime)},
      {"Control", "port " + number(ServiceField::ControlPort) + LoginText(service) +
                      RefusedLoginsText(service) + "; connections " +
                      number(ServiceField::Connections) + ", requests " +
                      number(ServiceField::Requests) + ", failed " +
                      number(ServiceField::FailedRequests)},
      {"Servers", number(ServiceField::Servers) + ": active " +
                      number(ServiceField::ActiveServers) + ", ready " +
                      number(ServiceField::ReadyServers) + ", given up " +
                      number(ServiceField::ErrorServers) + "; deaths since the start " +
                      number(ServiceField::Deaths) + ", of workers " +
                      number(ServiceField::WorkerDeaths) + RecyclingText(service)},
      {"Memory", SizeOrDash(service, ServiceField::MemoryUsage) + " in servers; host " +
                     SizeOrDash(service, ServiceField::HostMemory) + ", threads " +
                     number(ServiceField::HostThreads) + ", open files " +
                     number(ServiceField::HostDescriptors)},
      {"Daily files",
       std::string(service.NumberOr(ServiceField::SaveTikaLog, 0) != 0 ? "on" : "off") + ", " +
           OrDash(service.Text(ServiceField::TikaLogDir))},
      {"Data", OrDash(service.Text(ServiceField::DataDirectory))},
      {"Socket", OrDash(service.Text(ServiceField::ControlSocket))},
  };
  for (const auto& [title, text] : rows) {
    output->Print(Paint(title + std::string(13 - title.size(), ' '), Colour::Bold) + text);
  }
}

}  // namespace

void ShowStatus(Call& call) {
  ConfigObject service;
  ConfigObject servers;
  call.host.GetStatus(&service, &servers);
  const Fields fields(service.get());
  const Health health = Judge(call.host, fields, *servers);
  if (call.options.json) {
    nlohmann::ordered_json record = call.Record();
    record["well"] = health.isWell;
    SetJsonText(&record, "summary", health.text);
    record["service"] = ToJson(*service);
    record["servers"] = ToJson(*servers);
    call.Print(record);
    return;
  }
  call.output.Print(Paint(health.text, health.isWell ? Colour::Green : Colour::Red));
  call.output.Print("");
  PrintService(fields, &call.output);
  if (servers->GetFieldCount() == 0) return;
  call.output.Print("");
  call.output.Print(ServerTable(*servers).Lines(Terminal::Width()));
}

void ShowServers(Call& call) {
  const ConfigObject servers = call.host.GetServiceStatus();
  if (call.options.json) {
    nlohmann::ordered_json record = call.Record();
    record["servers"] = ToJson(*servers);
    call.Print(record);
  } else if (servers->GetFieldCount() == 0) {
    call.output.Print("no servers; " + call.host.Hint("add --jar FILE --port PORT --start") +
                      " adds one");
  } else {
    call.output.Print(ServerTable(*servers).Lines(Terminal::Width()));
  }
}

void ShowVersion(Call& call) {
  char product[SCA_ServiceTextSize] = "";
  char version[SCA_ServiceTextSize] = "";
  char name[SCA_ServiceTextSize] = "";
  call.host.Ask("report its version", &Service::GetVersionInfo, product);
  call.host.Ask("report its version", &Service::GetServerInfo, version, name);
  if (call.options.json) {
    nlohmann::ordered_json record = call.Record();
    SetJsonText(&record, "version_info", product);
    SetJsonText(&record, "version", version);
    SetJsonText(&record, "host_name", name);
    call.Print(record);
  } else {
    call.output.Print(Printable(product) + ", control port " + Printable(version) + ", on " +
                      Printable(name));
  }
}
