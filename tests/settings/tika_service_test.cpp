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

std::string Describe(const SCA_TikaService& service, int withStatus = 1) {
  SCA_ConfigObj object("x", nullptr);
  EXPECT_EQ(service.Serialize(&object, withStatus), 1);
  return Describe(object);
}

constexpr char kAfterHost[] =
    "FileName=tika-server.jar;ControlPort=9500;DataPort=9980;NumOfServers=1;HeapSize=1024;"
    "PoolName=Default;ProcessCustomExtensions=0;FileExtensions=PDF DOC DOCX XLS XLSX;";
const std::string kDefaults = std::string("ServiceId=0;Enabled=1;HostName=localhost;") + kAfterHost;
const std::string kDefaultStatus =
    "Connected=0;ErrorServers=0;ActiveServers=0;ProcessStatus=10;MemoryUsage=0;UpTime=0;";
const std::string kDifferent =
    "ServiceId=4294967294;Enabled=0;HostName=host;FileName=/a b/t.jar;ControlPort=65535;DataPort=1;"
    "NumOfServers=3;HeapSize=4;PoolName=Pool;ProcessCustomExtensions=1;FileExtensions=odt;";
const std::string kDifferentStatus =
    "Connected=1;ErrorServers=5;ActiveServers=6;ProcessStatus=7;MemoryUsage=4294967297;"
    "UpTime=4294967297;";

TEST(TikaService, FieldsTravelInTheirOrderAndStatusOnlyOnDemand) {
  SCA_ConfigObj different("x", nullptr);
  std::istringstream fields(kDifferent + kDifferentStatus);
  std::string name;
  for (std::string value; std::getline(fields, name, '=') && std::getline(fields, value, ';');) {
    different.AddField(name.c_str(), value.c_str(), 0);
  }
  SCA_TikaService service;
  EXPECT_EQ(service.Deserialize(&different, 1), 1);
  for (const int withStatus : {0, 1}) {
    const std::string status = withStatus != 0 ? kDifferentStatus : kDefaultStatus;
    EXPECT_EQ(Describe(service, withStatus), kDifferent + (withStatus != 0 ? status : ""));
    SCA_TikaService copy;
    EXPECT_EQ(copy.SetContent(&service, withStatus), 1);
    EXPECT_EQ(Describe(copy), kDifferent + status);
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
  const std::string kLong(300, 'l');
  EXPECT_EQ(Add("alpha") + Add("ALPHA") + Add(kLong.c_str()), 3);
  EXPECT_EQ(Add("alpha") + Add((kLong + "cut off").c_str()), 0);
  EXPECT_EQ(AddOwn("Alpha"), -1);
  EXPECT_EQ(reports_.All().size(), 3U);
  // The node keeps its name when the record's host name changes: the two tests then differ.
  SCA_TikaService* service = nullptr;
  ASSERT_EQ(list_.GetService("alpha", &service), 1);
  service->SetHostName("beta");
  EXPECT_EQ(Add("alpha"), 0);
  EXPECT_EQ(AddOwn("BETA"), -1);
  EXPECT_EQ(list_.IsServiceExists("Beta"), 1);
}

TEST_F(ServiceList, LoadingTakesTheStoredIdsAndNeverWrapsTheNextOne) {
  const std::tuple<std::vector<const char*>, std::string, long> rows[] = {
      {{"5", "2"}, "5 2 ", 6},
      {{"5", "4294967295"}, "5 4294967295 ", 6},
      {{"4294967294"}, "4294967294 ", -1},
      {{"0"}, "0 ", 1},
      {{}, "", 0}};
  for (const auto& [stored, loaded, next] : rows) {
    SCOPED_TRACE(loaded);
    SCA_ConfigObj object("x", nullptr);
    object.AddField("ServicesStatusId", 77U, 0);
    SCA_ConfigObj* services = object.AddConfigObj("Services");
    for (const char* id : stored) services->AddConfigObj("whatever")->AddField("ServiceId", id, 0);
    Add("gone");
    EXPECT_EQ(list_.Deserialize(&object, 0), 1);
    EXPECT_EQ(Ids(), loaded);
    EXPECT_EQ(list_.GetServicesStatusId(), 77U);
    EXPECT_EQ(AddOwn("new"), next);
    EXPECT_EQ(list_.DeleteService(static_cast<unsigned long>(next)), next < 0 ? 0 : 1);
  }
}

TEST_F(ServiceList, HostileShapesAreRefusedAndReported) {
  Add("gone");
  EXPECT_EQ(list_.Deserialize(nullptr, 0), 0);
  EXPECT_EQ(list_.Count(), 0U) << "cleared whatever follows";
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
    service->SetActiveServers(9);
  }

  ReportCapture reports_;
  SCA_TikaConfigOrv settings_;
};

TEST_F(SavedSettings, EveryFieldSurvivesCopies) {
  const SCA_Owned<SCA_TikaConfigOrv> clone(settings_.Clone());
  ASSERT_NE(clone, nullptr);
  SCA_TikaService* service = nullptr;
  ASSERT_EQ(clone->GetServiceList()->GetService("a", &service), 1);
  EXPECT_EQ(service->GetActiveServers(), 0U) << "status is not copied";
  clone->ClearAll();  // does not share its services
  SCA_ConfigObj object("x", nullptr);
  SCA_ConfigObj again("x", nullptr);
  SCA_TikaConfigOrv other;
  EXPECT_EQ(settings_.Serialize(&object) + other.Deserialize(&object) + other.Serialize(&again), 3);
  EXPECT_EQ(Describe(again),
            "Mode=2;NetworkTimeout=4294967295;MaxPendingRequests=3;JavaOptions=-Da=b;"
            "FileExtensions=odt;ShowParseErrors=0;Services={ServicesStatusId=1;Services={0={"
            "ServiceId=0;Enabled=1;HostName=a;" +
                std::string(kAfterHost) + "};};};");
}

TEST_F(SavedSettings, WhatCannotBeReadLeavesTheRestAndIsReported) {
  EXPECT_EQ(settings_.Deserialize(nullptr), 0);
  EXPECT_EQ(settings_.GetServiceCount(), 1U) << "a null object changes nothing";
  SCA_ConfigObj object("x", nullptr);
  object.AddField("MaxPendingRequests", "4294967296", 0);
  EXPECT_EQ(settings_.Deserialize(&object), 1);
  EXPECT_EQ(settings_.GetServiceCount(), 0U) << "absent services go, absent fields stay";
  EXPECT_EQ(settings_.GetMaxPendingRequests(), 3U);
  EXPECT_EQ(settings_.GetMode(), 2U);
  object.AddField("Services", "plain", 0);
  EXPECT_EQ(settings_.Deserialize(&object), 0);
  EXPECT_EQ(reports_.All().back().text,
            "SCA_TikaConfigOrv::Deserialize: cannot deserialize the service list");
  settings_.SetJavaOptions("\x01");
  EXPECT_EQ(settings_.Clone(), nullptr);
}

TEST(Settings, MatchesWholeExtensionsInAnyCase) {
  const std::tuple<const char*, const char*, int> rows[] = {
      {"PDF XLS XLSX", "xlsx", 1}, {"PDF XLS XLSX", "XL", 0},    {"PDF XLS XLSX", "XLSXX", 0},
      {"PDF XLS XLSX", "", 0},     {"PDF XLS XLSX", nullptr, 0}, {"PDF XLS XLSX", ".pdf", 0},
      {"PDF DOC", "PDF DOC", 0},   {"  odt\t\trtf ", "RTF", 1},  {"odt,rtf", "rtf", 0}};
  SCA_TikaConfigOrv settings;
  SCA_TikaService service;
  for (const auto& [list, extension, matches] : rows) {
    settings.SetFileExtensions(list);
    service.SetFileExtensions(list);
    EXPECT_EQ(settings.MatchExtension(extension), matches) << list << ": " << extension;
    for (const int processes : {0, 1}) {
      service.SetProcessCustomExtensions(processes);
      EXPECT_EQ(service.MatchExtension(extension), processes * matches) << list;
    }
  }
}

}  // namespace
