// Service records, their list, and settings that are saved.

#include "settings/SCA_TikaService.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "platform/SCA_Error.h"
#include "settings/SCA_TikaConfigOrv.h"
#include "tests/support/ReportCapture.h"
#include "tests/support/TempDir.h"

namespace {

// The members of an object with their values, as one text; objects in braces.
std::string Describe(const SCA_ConfigObj& object) {
  std::string text;
  for (const SCA_Field* field = object.GetFields().GetHead(); field != nullptr;
       field = field->GetNext()) {
    const bool isObject = field->GetType() == SCA_FieldTypeObject;
    text += std::string(field->GetName()) + "=" +
            (isObject ? "{" + Describe(static_cast<const SCA_ConfigObj&>(*field)) + "}"
                      : std::string(field->GetValue())) +
            ";";
  }
  return text;
}

std::string Describe(const SCA_TikaService& service) {
  SCA_ConfigObj object("x", nullptr);
  EXPECT_EQ(service.Serialize(&object, 1), 1);
  return Describe(object);
}

constexpr char kAfterHost[] =
    "FileName=tika-server.jar;ControlPort=9500;DataPort=9980;NumOfServers=1;HeapSize=1024;"
    "PoolName=Default;ProcessCustomExtensions=0;FileExtensions=PDF DOC DOCX XLS XLSX;";
const std::string kDefaults = std::string("ServiceId=0;Enabled=1;HostName=localhost;") + kAfterHost;
constexpr char kDefaultStatus[] =
    "Connected=0;ErrorServers=0;ActiveServers=0;ProcessStatus=10;MemoryUsage=0;UpTime=0;";

constexpr char kDifferent[] =
    "ServiceId=4294967294;Enabled=0;HostName=host;FileName=/a b/t.jar;ControlPort=65535;DataPort=1;"
    "NumOfServers=3;HeapSize=4;PoolName=Pool;ProcessCustomExtensions=1;FileExtensions=odt;";
constexpr char kDifferentStatus[] =
    "Connected=1;ErrorServers=5;ActiveServers=6;ProcessStatus=7;MemoryUsage=4294967297;"
    "UpTime=4294967297;";

// The reverse of Describe.
void Fill(SCA_ConfigObj* object, const std::string& text) {
  std::istringstream fields(text);
  std::string name;
  for (std::string value; std::getline(fields, name, '=') && std::getline(fields, value, ';');) {
    object->AddField(name.c_str(), value.c_str(), 0);
  }
}

TEST(TikaService, FieldsTravelInTheirOrderAndStatusOnlyOnDemand) {
  SCA_TikaService service;
  EXPECT_EQ(Describe(service), kDefaults + kDefaultStatus);
  SCA_ConfigObj different("x", nullptr);
  Fill(&different, std::string(kDifferent) + kDifferentStatus);
  EXPECT_EQ(service.Deserialize(&different, 1), 1);
  EXPECT_EQ(service.GetErrorServers(), 5U);
  for (const int withStatus : {0, 1}) {
    SCA_ConfigObj object("x", nullptr);
    ASSERT_EQ(service.Serialize(&object, withStatus), 1);
    EXPECT_EQ(Describe(object),
              std::string(kDifferent) + (withStatus != 0 ? kDifferentStatus : ""));
    SCA_TikaService copy;
    EXPECT_EQ(copy.SetContent(&service, withStatus), 1);
    EXPECT_EQ(Describe(copy),
              std::string(kDifferent) + (withStatus != 0 ? kDifferentStatus : kDefaultStatus));
  }
}

TEST(TikaService, WhatIsAbsentOrUnfitLeavesTheMember) {
  SCA_ConfigObj object("x", nullptr);
  object.AddConfigObj("HostName");
  object.AddField("HeapSize", "2048 MB", 0);
  object.AddField("ControlPort", "65536", 0);
  object.AddField("UpTime", "-1", 0);
  object.AddField("PoolName", std::string(300, 'p').c_str(), 0);
  SCA_TikaService service;
  EXPECT_EQ(service.Deserialize(&object, 1), 1);
  EXPECT_EQ(service.GetPoolName(), std::string(259, 'p'));
  service.SetPoolName("Default");
  EXPECT_EQ(Describe(service), kDefaults + kDefaultStatus);
}

TEST(TikaService, StateShowsAsTextAndIcon) {
  const std::tuple<int, unsigned long, unsigned long, const char*, const char*> rows[] = {
      {0, 11, 0, "Disabled", "idle"},      {0, 0, 1, "Disabled", "idle"},
      {1, 0, 0, "Error", "error"},         {1, 10, 0, "Disconnected", "idle"},
      {1, 10, 1, "Disconnected", "error"}, {1, 11, 0, "Connected", "ready"},
      {1, 11, 1, "Connected", "error"},    {1, 12, 0, "Enabled", "idle"}};
  for (const auto& [enabled, status, errors, text, icon] : rows) {
    SCOPED_TRACE(::testing::Message() << enabled << ' ' << status << ' ' << errors);
    SCA_TikaService service;
    service.SetEnabled(enabled);
    service.SetProcessStatus(status);
    service.SetErrorServers(errors);
    EXPECT_STREQ(service.GetStatusString(), text);
    EXPECT_EQ(service.GetStatusIcon(), ":/images/" + std::string(icon) + "_16px.png");
  }
}

TEST(TikaService, TakesExtensionsOnlyWhenItProcessesCustomOnes) {
  SCA_TikaService service;
  for (const int processes : {0, 1}) {
    service.SetProcessCustomExtensions(processes);
    EXPECT_EQ(service.MatchExtension("docx"), processes);
  }
}

class ServiceList : public ::testing::Test {
 protected:
  int Add(const char* host) {
    SCA_TikaService* service = nullptr;
    return list_.AddService(host, &service);
  }
  /// @return The id given, -1 for a refusal.
  long AddOwn(const char* host) {
    SCA_Owned<SCA_TikaService> service(new SCA_TikaService);
    service->SetHostName(host);
    unsigned long id = 0;
    if (list_.AddService(service.get(), &id, &error_) == 0) return -1;
    EXPECT_EQ(service->GetServiceId(), id);
    service.release();
    return static_cast<long>(id);
  }
  std::string Ids() const {
    std::string ids;
    for (const auto* node = list_.GetHead(); node != nullptr; node = node->GetNext()) {
      ids += std::to_string(node->GetId()) + " ";
      EXPECT_EQ(node->GetId(), node->GetItem()->GetServiceId());
    }
    return ids;
  }

  ReportCapture reports_;
  SCA_TikaServiceList list_;
  unsigned long error_ = 0;
};

TEST_F(ServiceList, DuplicatesAreExactForNewHostsAndCaseBlindForRecords) {
  EXPECT_EQ(Add("alpha"), 1);
  EXPECT_EQ(Add("alpha"), 0);
  EXPECT_EQ(Add("ALPHA"), 1);
  EXPECT_EQ(AddOwn("Alpha"), -1);
  EXPECT_EQ(error_, 0U);
  // The node keeps its name when the record's host name changes: the two tests then differ.
  SCA_TikaService* service = nullptr;
  ASSERT_EQ(list_.GetService("alpha", &service), 1);
  service->SetHostName("beta");
  EXPECT_EQ(Add("alpha"), 0);
  EXPECT_EQ(AddOwn("BETA"), -1);
  EXPECT_EQ(list_.IsServiceExists("Beta"), 1);
  EXPECT_EQ(list_.GetService("beta", &service), 0);
  const std::string kLong(300, 'l');
  EXPECT_EQ(Add(kLong.c_str()), 1);
  EXPECT_EQ(Add((kLong + "x").c_str()), 0) << "both are cut to one name";
  ASSERT_EQ(reports_.All().size(), 5U);
  EXPECT_EQ(
      reports_.All().front(),
      (CapturedReport{5, "SCA_TikaServiceList",
                      "SCA_TikaServiceList::AddService: duplicate service host name - alpha"}));
}

TEST_F(ServiceList, IdsGrowAndEveryChangeIsCounted) {
  EXPECT_EQ(Add("a"), 1);
  EXPECT_EQ(AddOwn("b"), 1);
  EXPECT_EQ(Add("c"), 1);
  EXPECT_EQ(list_.GetServicesStatusId(), 3U);
  EXPECT_EQ(list_.DeleteService(1), 1);
  EXPECT_EQ(list_.DeleteService(1), 0);
  EXPECT_EQ(list_.GetServicesStatusId(), 4U);
  EXPECT_EQ(AddOwn("b"), 3);
  EXPECT_EQ(Ids(), "0 2 3 ");
  list_.ClearAll();
  EXPECT_EQ(list_.GetServicesStatusId(), 0U);
  EXPECT_EQ(AddOwn("b"), 0);
}

TEST_F(ServiceList, SumsAndListingCoverAllRecords) {
  testing::internal::CaptureStdout();
  list_.Show();
  SCA_TikaService* service = nullptr;
  ASSERT_EQ(list_.AddService("a", &service), 1);
  service->SetActiveServers(2);
  list_.Show();
  ASSERT_EQ(list_.AddService("b", &service), 1);
  service->SetEnabled(0);
  service->SetActiveServers(3);
  list_.Show();
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "No Tika Services to display.\n"
            "1 Tika Service:\n\n0 - a-10 - Disconnected - CS:1 - AS:2\n"
            "2 Tika Services:\n\n0 - a-10 - Disconnected - CS:1 - AS:2\n"
            "1 - b-10 - Disabled   - CS:1 - AS:3\n");
  EXPECT_EQ(list_.GetActiveServers(), 5U);
  EXPECT_EQ(list_.GetEnabledServices(), 1U);
}

TEST_F(ServiceList, LoadingTakesTheStoredIdsAndNeverWrapsTheNextOne) {
  struct Row {
    std::vector<const char*> stored;
    std::string loaded;
    long next;  ///< id of the next record, -1 when there is none left
  };
  const Row rows[] = {{{"0"}, "0 ", 1},
                      {{"5", "2"}, "5 2 ", 6},
                      {{"5", "4294967295"}, "5 4294967295 ", 6},
                      {{"4294967294"}, "4294967294 ", -1},
                      {{}, "", 0}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.loaded);
    SCA_ConfigObj object("x", nullptr);
    object.AddField("ServicesStatusId", 77U, 0);
    SCA_ConfigObj* services = object.AddConfigObj("Services");
    for (const char* id : row.stored) {
      SCA_ConfigObj* child = services->AddConfigObj("whatever");
      child->AddField("ServiceId", id, 0);
      child->AddField("HostName", "same", 0);
    }
    Add("gone");
    EXPECT_EQ(list_.Deserialize(&object, 0), 1);
    EXPECT_EQ(Ids(), row.loaded);
    EXPECT_EQ(list_.GetServicesStatusId(), 77U);
    error_ = 0;
    EXPECT_EQ(AddOwn("new"), row.next);
    EXPECT_EQ(error_, row.next < 0 ? SCA_ErrorCannotCreate : 0U);
  }
}

TEST_F(ServiceList, HostileShapesAreRefusedAndReported) {
  Add("gone");
  EXPECT_EQ(list_.Deserialize(nullptr, 0), 0);
  EXPECT_EQ(list_.Count(), 0U) << "cleared whatever follows";
  SCA_ConfigObj plain("x", nullptr);
  plain.AddField("Services", "plain", 0);
  EXPECT_EQ(list_.Deserialize(&plain, 0), 0);
  SCA_ConfigObj mixed("x", nullptr);
  SCA_ConfigObj* services = mixed.AddConfigObj("Services");
  services->AddConfigObj("0");
  services->AddField("1", "plain", 0);
  services->AddConfigObj("2");
  EXPECT_EQ(list_.Deserialize(&mixed, 0), 0);
  EXPECT_EQ(list_.Count(), 1U) << "what was read before the failure stays";

  SCA_TikaService* service = nullptr;
  list_.ClearAll();
  EXPECT_EQ(Add("good") + list_.AddService("bad", &service), 2);
  service->SetFileName("\x01");
  SCA_ConfigObj object("x", nullptr);
  reports_.Clear();
  EXPECT_EQ(list_.Serialize(&object, 0), 0);
  EXPECT_EQ(reports_.All().back().text,
            "SCA_TikaServiceList::Serialize: cannot serialize service - 1");
  EXPECT_EQ(object.GetConfigObj("Services")->GetFieldCount(), 1U) << "the one that failed is gone";
}

class SavedSettings : public ::testing::Test {
 protected:
  SavedSettings() {
    settings_.SetMode(2);
    settings_.SetNetworkTimeout(0xFFFFFFFF);
    settings_.SetMaxPendingRequests(3);
    settings_.SetJavaOptions("-Da=b");
    settings_.SetFileExtensions("odt");
    settings_.SetShowParseErrors(0);
    SCA_TikaService* service = nullptr;
    settings_.GetServiceList()->AddService("a", &service);
    settings_.GetServiceList()->AddService("b", &service);
    service->SetActiveServers(9);
    settings_.GetServiceList()->DeleteService(0);
  }
  static std::string Text(const SCA_TikaConfigOrv& settings) {
    SCA_ConfigObj object("x", nullptr);
    EXPECT_EQ(settings.Serialize(&object), 1);
    return Describe(object);
  }

  ReportCapture reports_;
  SCA_TikaConfigOrv settings_;
};

TEST_F(SavedSettings, EveryFieldSurvivesCopyFileAndClone) {
  EXPECT_EQ(Text(SCA_TikaConfigOrv()),
            "Mode=0;NetworkTimeout=10000;MaxPendingRequests=128;JavaOptions=;"
            "FileExtensions=PDF DOC DOCX XLS XLSX;ShowParseErrors=1;"
            "Services={ServicesStatusId=0;Services={};};");
  const std::string text = Text(settings_);
  EXPECT_EQ(text,
            "Mode=2;NetworkTimeout=4294967295;MaxPendingRequests=3;JavaOptions=-Da=b;"
            "FileExtensions=odt;ShowParseErrors=0;Services={ServicesStatusId=3;Services={1={"
            "ServiceId=1;Enabled=1;HostName=b;" +
                std::string(kAfterHost) + "};};};");
  const TempDir dir;
  SCA_ConfigObj saved(SCA_SettingsName, nullptr);
  SCA_ConfigObj loaded;
  unsigned long error = 0;
  ASSERT_EQ(settings_.Serialize(&saved), 1);
  ASSERT_EQ(saved.Save(dir.File("f").c_str(), SCA_FileTypeSettings, 1, &error), 1);
  ASSERT_EQ(loaded.Load(dir.File("f").c_str(), &error), 1);
  SCA_TikaConfigOrv other;
  EXPECT_EQ(other.Deserialize(&loaded), 1);
  EXPECT_EQ(Text(other), text);

  const SCA_Owned<SCA_TikaConfigOrv> clone(settings_.Clone());
  ASSERT_NE(clone, nullptr);
  EXPECT_EQ(Text(*clone), text);
  SCA_TikaService* service = nullptr;
  ASSERT_EQ(clone->GetServiceList()->GetService(1, &service), 1);
  EXPECT_EQ(service->GetActiveServers(), 0U) << "status is not copied";
  clone->ClearAll();
  EXPECT_EQ(Text(settings_), text) << "the source does not share its services";
}

TEST_F(SavedSettings, AbsentFieldsStayAndServicesGo) {
  SCA_ConfigObj object("x", nullptr);
  object.AddField("JavaOptions", "-Xss1m", 0);
  object.AddField("MaxPendingRequests", "4294967296", 0);
  EXPECT_EQ(settings_.Deserialize(&object), 1);
  EXPECT_EQ(settings_.GetServiceCount(), 0U);
  EXPECT_STREQ(settings_.GetJavaOptions(), "-Xss1m");
  EXPECT_EQ(settings_.GetMaxPendingRequests(), 3U);
  EXPECT_EQ(settings_.GetMode(), 2U);
}

TEST_F(SavedSettings, WhatCannotBeReadOrStoredIsReported) {
  EXPECT_EQ(settings_.Deserialize(nullptr), 0);
  EXPECT_EQ(settings_.GetServiceCount(), 1U) << "a null object changes nothing";
  SCA_ConfigObj plain("x", nullptr);
  plain.AddField("Services", "plain", 0);
  EXPECT_EQ(settings_.Deserialize(&plain), 0);
  EXPECT_EQ(reports_.All().back().text,
            "SCA_TikaConfigOrv::Deserialize: cannot deserialize the service list");
  settings_.SetJavaOptions("\x01");
  EXPECT_EQ(settings_.Clone(), nullptr);
}

TEST(Settings, TextsAreCutAtTheirFields) {
  SCA_TikaConfigOrv settings;
  for (const std::size_t length : {0U, 259U, 260U, 519U, 520U, 5000U}) {
    const std::string text(length, 'x');
    settings.SetJavaOptions(text.c_str());
    settings.SetFileExtensions(text.c_str());
    EXPECT_EQ(settings.GetJavaOptions(), text.substr(0, 259));
    EXPECT_EQ(settings.GetFileExtensions(), text.substr(0, 519));
  }
}

TEST(Settings, MatchesWholeExtensionsInAnyCaseWhateverTheMode) {
  constexpr char kDefault[] = "PDF DOC DOCX XLS XLSX";
  const std::tuple<const char*, const char*, int> rows[] = {
      {kDefault, "xlsx", 1},    {kDefault, "dOc", 1},
      {kDefault, "XL", 0},      {kDefault, "XLSXX", 0},
      {kDefault, nullptr, 0},   {kDefault, ".pdf", 0},
      {kDefault, "PDF DOC", 0}, {" odt\t\trtf ", "RTF", 1},
      {"odt,rtf", "rtf", 0},    {"", "", 0}};
  SCA_TikaConfigOrv settings;
  for (const auto& [list, extension, matches] : rows) {
    settings.SetFileExtensions(list);
    settings.SetMode(1 - settings.GetMode());
    EXPECT_EQ(settings.MatchExtension(extension), matches) << list << ": " << extension;
  }
}

}  // namespace
