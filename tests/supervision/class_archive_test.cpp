// What an archive's name depends on, which options servers get, and what a JVM says of an archive.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "supervision/SCA_ClassArchive.h"
#include "supervision/SCA_ClassArchiveName.h"
#include "supervision/SCA_JvmOptions.h"
#include "tests/support/Environment.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;

struct Ingredients {
  SCA_JavaRuntime java{"/opt/jdk/bin/java", "JAVA_VERSION=\"17.0.15\"\n", 17};
  SCA_TikaLaunch launch;
  std::vector<std::string> words;

  std::string Name() const { return SCA_ClassArchiveName(java, launch, words); }
};

TEST(ClassArchive, NameChangesWithAllThatAnArchiveDependsOnAndNothingElse) {
  const TempDir dir;
  Ingredients usual;
  usual.launch.fileName = dir.Write("tika-server.jar", "jar");
  usual.launch.heapSize = 512;
  const std::string name = usual.Name();
  EXPECT_EQ(name.find("tika-server-"), 0U);
  const struct {
    const char* what;
    bool changes;
    std::function<void(Ingredients*)> change;
  } rows[] = {
      {"nothing", false, [](Ingredients*) {}},
      {"Java's version", true, [](Ingredients* i) { i->java.version += "IMPLEMENTOR=\"x\"\n"; }},
      {"Java's place", true, [](Ingredients* i) { i->java.program = "/opt/other/bin/java"; }},
      {"the jar's path", true,
       [&](Ingredients* i) {
         i->launch.fileName = dir.File("other/tika-server.jar");
         fs::create_directory(dir.File("other"));
         fs::copy_file(usual.launch.fileName, i->launch.fileName);
         fs::last_write_time(i->launch.fileName, fs::last_write_time(usual.launch.fileName));
       }},
      {"another spelling of the path", false,
       [&](Ingredients* i) { i->launch.fileName = dir.Path() + "/./tika-server.jar"; }},
      {"an option", true, [](Ingredients* i) { i->words = {"-XX:+UseZGC"}; }},
      {"the order of options", true,
       [](Ingredients* i) {
         i->words = {"-XX:+UseG1GC", "-XX:-UseG1GC"};
       }},
      {"that order, reversed", true,
       [](Ingredients* i) {
         i->words = {"-XX:-UseG1GC", "-XX:+UseG1GC"};
       }},
      {"one word instead of two", true,
       [](Ingredients* i) { i->words = {"-XX:-UseG1GC-XX:+UseG1GC"}; }},
      {"a property", false,
       [](Ingredients* i) {
         i->words = {"-Dx=y", "-Xss1m"};
       }},
      {"a larger heap", false, [](Ingredients* i) { i->launch.heapSize = 32767; }},
      {"a heap with wide references", true, [](Ingredients* i) { i->launch.heapSize = 32768; }},
      // The last two change the jar itself.
      {"the jar's time", true,
       [](Ingredients* i) {
         const auto time = fs::last_write_time(i->launch.fileName);
         fs::last_write_time(i->launch.fileName, time - std::chrono::seconds(1));
       }},
      {"the jar's size", true,
       [](Ingredients* i) {
         const auto time = fs::last_write_time(i->launch.fileName);
         std::ofstream(i->launch.fileName, std::ios::app) << "more";
         fs::last_write_time(i->launch.fileName, time);
       }},
  };
  std::vector<std::string> names{name};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    Ingredients changed = usual;
    row.change(&changed);
    const std::string other = changed.Name();
    EXPECT_FALSE(other.empty());
    const bool isKnown = std::find(names.begin(), names.end(), other) != names.end();
    EXPECT_EQ(isKnown, !row.changes);
    names.push_back(other);
  }
  usual.launch.fileName = dir.File("missing.jar");
  EXPECT_EQ(usual.Name(), "");
}

TEST(ClassArchive, JavaAndItsOptionsDecideWhetherThereCanBeOne) {
  const struct {
    const char* version;
    int major;
    std::vector<std::string> words;
    bool can;
  } rows[] = {
      {"JAVA_VERSION=\"17.0.15\"", 17, {}, true},
      {"IMPLEMENTOR=\"A\"\nJAVA_VERSION=\"25.0.3\"\n", 25, {"-Xmx1g"}, true},
      {"JAVA_VERSION=\"13\"", 13, {}, true},
      {"openjdk version \"21\" 2023-09-19", 21, {}, true},
      {"JAVA_VERSION=\"11.0.2\"", 11, {}, false},
      {"java version \"1.8.0_402\"", 8, {}, false},
      {"JAVA_VERSION=17", 0, {}, false},
      {"", 0, {}, false},
      {"JAVA_VERSION=\"17\"", 17, {"-Xshare:off"}, false},
      {"JAVA_VERSION=\"17\"", 17, {"-XX:SharedArchiveFile=/x"}, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.version);
    EXPECT_EQ(SCA_JavaMajor(row.version), row.major);
    EXPECT_EQ(SCA_CanArchive({"java", row.version, row.major}, row.words), row.can);
  }
}

TEST(ClassArchive, LinesOfAJvmAreToldApart) {
  const struct {
    const char* line;
    bool isRefusal;
  } rows[] = {
      {"[0.011s][error][cds] Not a valid shared archive file (/a.jsa)", true},
      {"[0.005s][warning][cds] Unable to read generic CDS file map header", true},
      {"[0.005s][error  ][cds] Not a valid shared archive file (/a.jsa)", true},
      {"[0.039s][warning][cds,dynamic] Unable to use shared archive.", true},
      {"[0.006s][info][cds] trying to map /a.jsa", false},
      {"[0.006s][warning][gc] Unable to use [cds", false},
      {"INFO  [main] 18:32:23 org.apache.Tika [cds] [error] in a text", false},
      {"Picked up JAVA_TOOL_OPTIONS: \"-XX:SharedArchiveFile=/[cds [error/a.jsa\"", false},
  };
  for (const auto& row : rows) EXPECT_EQ(SCA_IsArchiveRefusal(row.line), row.isRefusal) << row.line;
}

TEST(JvmOptions, PurposeChoosesAndTheUserWins) {
  const struct {
    SCA_JvmPurpose purpose;
    const char* userOptions;
    const char* environment;
    unsigned long heapMb;
    const char* expected;
  } rows[] = {
      {SCA_JvmPurpose::Unknown, "", "", 512, ""},
      {SCA_JvmPurpose::Run, "", "", 512, "-XX:TieredStopAtLevel=1 -XX:+UseSerialGC"},
      {SCA_JvmPurpose::Run, "", "", 8192, "-XX:TieredStopAtLevel=1"},
      {SCA_JvmPurpose::Run, "-Dx=y -XX:+UseZGC", "", 512, "-XX:TieredStopAtLevel=1"},
      {SCA_JvmPurpose::Service, "", "", 1024, "-XX:+UseSerialGC"},
      {SCA_JvmPurpose::Service, "-XX:+UseNUMA -Dc=-XX:+UseG1GC", "", 1024, "-XX:+UseSerialGC"},
      {SCA_JvmPurpose::Service, "", "'-XX:+UseParallelGC'", 1024, ""},
      {SCA_JvmPurpose::Service, "@/etc/java.args", "", 1024, ""},
      {SCA_JvmPurpose::Service, "", "-XX:Flags=/etc/flags", 1024, ""},
      {SCA_JvmPurpose::Service, "", "-XX:VMOptionsFile=/etc/options", 1024, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.userOptions) + row.environment);
    const ScopedVariable variable("JAVA_TOOL_OPTIONS", row.environment);
    EXPECT_EQ(SCA_JvmOptions(row.purpose, {"a.jar", row.userOptions, row.heapMb}), row.expected);
  }
}

}  // namespace
