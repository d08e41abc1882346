// What it costs to write a configuration object as bytes, and to read it back.

#include <google/protobuf/stubs/common.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "bench/Contest.h"
#include "foundation/SCA_ConfigBytes.h"
#include "node.pb.h"

namespace {

using Json = nlohmann::json;
using Node = sca_bench::Node;

constexpr char kCopy[] = "copy";
constexpr char kOurs[] = "ours";
constexpr char kProtobuf[] = "protobuf";
constexpr char kJson[] = "nlohmann-json";

// Ours as multiples of each peer's cost, at most.
struct Goal {
  double protobuf;
  double json;
};
constexpr Goal kWriteGoal{1 / 1.7, 1 / 5.0};
constexpr Goal kReadGoal{0.4, 1 / 3.0};

void AddMessages(SCA_ConfigObj* root) {
  for (unsigned int id = 0; id < 500; ++id) {
    SCA_ConfigObj* message = root->AddConfigObj(std::to_string(id).c_str());
    message->AddField("Id", id, 0);
    message->AddField("Level", 3, 0);
    message->AddField("Date", "2026-11-23", 0);
    message->AddField("Time", "14:03:12", 0);
    message->AddField("Text", "INFO  [qtp-17] 14:03:12,345 org.example.Server Started on port 9998",
                      0);
  }
}

void AddLog(SCA_ConfigObj* root) {
  for (int id = 0; id < 500; ++id) {
    root->AddField(std::to_string(id).c_str(),
                   "3 2026-11-23 14:03:12 INFO  [qtp-17] org.example.Server Started on port 9998",
                   0);
  }
}

void AddServers(SCA_ConfigObj* root) {
  for (unsigned int id = 0; id < 50; ++id) {
    SCA_ConfigObj* server = root->AddConfigObj(std::to_string(id).c_str());
    server->AddField("ServerId", id, 0);
    server->AddField("JarFile", "/usr/share/java/tika-server-standard.jar", 0);
    for (unsigned int i = 0; i < 20; ++i) {
      server->AddField(("Counter" + std::to_string(i)).c_str(), 1234567ULL * (i + 1), 0);
    }
  }
}

void AddFields(SCA_ConfigObj* root) {
  for (int id = 0; id < 10000; ++id) root->AddField(std::to_string(id).c_str(), id, 0);
}

Node ToNode(const SCA_Field& member) {
  Node node;
  node.set_name(member.GetName());
  const SCA_ConfigObj* object = SCA_ToConfigObj(&member);
  if (object == nullptr) {
    node.set_value(member.GetValue());
    return node;
  }
  for (const SCA_Field* child = object->GetFields().GetHead(); child != nullptr;
       child = child->GetNext()) {
    *node.add_members() = ToNode(*child);
  }
  return node;
}

Json ToJson(const SCA_Field& member) {
  const SCA_ConfigObj* object = SCA_ToConfigObj(&member);
  if (object == nullptr) return member.GetValue();
  Json json = Json::object();
  for (const SCA_Field* child = object->GetFields().GetHead(); child != nullptr;
       child = child->GetNext()) {
    json[child->GetName()] = ToJson(*child);
  }
  return json;
}

std::string Write(const SCA_ConfigObj& object) {
  std::string bytes(object.GetDataSize(), '\0');
  unsigned long written = 0;
  unsigned long error = 0;
  if (SCA_WriteConfigBytes(object, bytes.data(), bytes.size(), &written, &error) == 0) return {};
  bytes.resize(written);
  return bytes;
}

bool Read(const std::string& bytes) {
  SCA_ConfigObj object;
  unsigned long error = 0;
  return SCA_ReadConfigBytes(bytes.data(), bytes.size(), &object, nullptr, &error) != 0;
}

Contest::Work Repeat(int times, const std::function<bool()>& work) {
  return [=] {
    bool isDone = true;
    for (int i = 0; i < times; ++i) isDone = work() && isDone;
    return isDone;
  };
}

// The same work done by ours and by each peer.
struct Works {
  Contest::Work ours;
  Contest::Work protobuf;
  Contest::Work json;
  Contest::Work copy;
};

// A row for each peer, measured against it only, so the caches hold what these two need.
void AddRows(const std::string& name, const Works& works, const Goal& goal, int times,
             const BenchOptions& options, Results* results) {
  struct {
    const char* name;
    const Contest::Work& work;
    std::optional<double> limit;
  } const peers[] = {{kProtobuf, works.protobuf, goal.protobuf},
                     {kJson, works.json, goal.json},
                     {kCopy, works.copy, std::nullopt}};
  for (const auto& peer : peers) {
    Contest contest;
    const auto nothing = [] {};
    contest.Add(peer.name, nothing, Repeat(times, peer.work));
    contest.Add(kOurs, nothing, Repeat(times, works.ours));
    contest.Run(options.rounds);
    results->Add({name + " / " + peer.name, "CPU to peer's", contest.Cpu(kOurs), peer.limit, {}});
    std::printf("%s: %s takes %.1f us\n", name.c_str(), peer.name, contest.BaseCpu() * 1e6 / times);
  }
}

void Measure(const std::string& name, void (*add)(SCA_ConfigObj*), int times,
             const BenchOptions& options, Results* results) {
  SCA_ConfigObj root("Root", nullptr);
  add(&root);
  const std::string bytes = Write(root);
  const Node node = ToNode(root);
  const std::string nodeBytes = node.SerializeAsString();
  const Json json = ToJson(root);
  const std::string jsonBytes = json.dump();
  std::printf("%s: %zu bytes; protobuf %zu, nlohmann-json %zu\n", name.c_str(), bytes.size(),
              nodeBytes.size(), jsonBytes.size());
  const auto copy = [&] {
    const std::string target(bytes);
    // Nothing looks at the bytes, which the compiler may not know.
    asm volatile("" : : "g"(target.data()) : "memory");
    return !target.empty();
  };
  const Works write{[&] { return Write(root).size() == bytes.size(); },
                    [&] { return node.SerializeAsString().size() == nodeBytes.size(); },
                    [&] { return json.dump().size() == jsonBytes.size(); }, copy};
  const Works read{[&] { return Read(bytes); }, [&] { return Node().ParseFromString(nodeBytes); },
                   [&] { return Json::parse(jsonBytes).is_object(); }, copy};
  AddRows("write " + name, write, kWriteGoal, times, options, results);
  AddRows("read " + name, read, kReadGoal, times, options, results);
}

}  // namespace

int main(int argc, char** argv) try {
  const BenchOptions options = BeginBench(argc, argv, "config");
  std::printf(
      "Configuration objects as bytes, against protobuf %d.%d.%d and nlohmann-json %d.%d.%d\n",
      GOOGLE_PROTOBUF_VERSION / 1000000, GOOGLE_PROTOBUF_VERSION / 1000 % 1000,
      GOOGLE_PROTOBUF_VERSION % 1000, NLOHMANN_JSON_VERSION_MAJOR, NLOHMANN_JSON_VERSION_MINOR,
      NLOHMANN_JSON_VERSION_PATCH);
  const int times = options.quick ? 3 : 100;
  Results results;
  Measure("500 messages of 5 fields", AddMessages, times, options, &results);
  Measure("a log of 500 messages", AddLog, times, options, &results);
  Measure("50 servers of 22 fields", AddServers, times, options, &results);
  Measure("10000 fields in one object", AddFields, times / 3 + 1, options, &results);
  return results.Finish(options);
} catch (const std::exception& error) {
  std::fprintf(stderr, "bench_config: %s\n", error.what());
  return EXIT_FAILURE;
}
