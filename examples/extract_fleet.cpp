// Prints texts of documents, through the servers of service hosts: extract_fleet HOST,... FILE...

#include <cstdio>
#include <cstring>
#include <vector>

#include "product/SCA_TikaFleet.h"

struct Text : SCA_TikaTextSink {
  int Write(const char* block, unsigned long length, unsigned long) override {
    return text.append(block, length), 1;
  }
  int Restart() override { return text.clear(), 1; }  // another server sends the text again
  std::string text;
};

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  SCA_TikaConfigOrv settings;
  settings.SetMode(SCA_TikaModeEnabled);
  std::vector<SCA_TikaService*> hosts;
  for (char* name = std::strtok(argv[1], ","); name != nullptr; name = std::strtok(nullptr, ",")) {
    if (!settings.GetServiceList()->AddService(name, &hosts.emplace_back())) return 1;
    hosts.back()->SetNumOfServers(0);  // use those that the host has
  }
  unsigned long error = 0;
  std::vector<SCA_Owned<SCA_TikaExtractRequest>> requests;
  SCA_TikaDispatcher dispatcher(&settings, {});
  SCA_TikaFleet fleet(&dispatcher, nullptr);
  for (SCA_TikaService* host : hosts) fleet.Follow(host, "", &error);
  for (char** file = argv + 2; *file != nullptr; ++file) {
    requests.emplace_back(new SCA_TikaExtractRequest(*file, "pdf", "Default", new Text));
    if (!dispatcher.Submit(requests.back().get(), 1, &error)) return 1;
  }
  for (const auto& request : requests) {
    request->GetReady()->Wait(SCA_Infinite);
    std::printf("%s: %s\n%s\n", request->GetPath(), SCA_TikaOutcomeText(request->GetOutcome()),
                static_cast<Text*>(request->GetSink())->text.c_str());
  }
}
