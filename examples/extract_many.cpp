// Extracts documents over several Tika servers of a host, and prints how each of them ended:
// extract_many HOST PORT,PORT,... FILE...

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "platform/SCA_Error.h"
#include "product/SCA_TikaDispatcher.h"

struct Text : SCA_TikaTextSink {
  int Write(const char* text, unsigned long length, unsigned long) override {
    return content.append(text, length), 1;
  }
  // The server was lost: another one sends the document's text again, from the beginning.
  int Restart() override { return content.clear(), 1; }
  std::string content;
};

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  SCA_TikaConfigOrv settings;
  SCA_TikaService* service = nullptr;
  settings.SetMode(SCA_TikaModeEnabled);
  if (!settings.GetServiceList()->AddService(argv[1], &service)) return 1;
  std::vector<SCA_Owned<SCA_TikaExtractRequest>> requests;
  SCA_TikaDispatcher dispatcher(&settings, {});  // ends before the requests do
  unsigned long error = 0;
  char* port = argv[2];
  do {
    const auto number = static_cast<unsigned short>(std::strtoul(port, &port, 10));
    if (!dispatcher.AddServer(argv[1], number, service->GetServiceId(), &error)) return 1;
  } while (*port++ == ',');
  for (int i = 3; i < argc; ++i) {
    const std::string type = std::filesystem::path(argv[i]).extension();  // ".pdf"
    requests.emplace_back(new SCA_TikaExtractRequest(argv[i], type.empty() ? "" : type.c_str() + 1,
                                                     service->GetPoolName(), new Text));
    if (dispatcher.Submit(requests.back().get(), 1, &error)) continue;
    std::printf("%s: %s\n", argv[i], SCA_ErrorText(error));
    requests.pop_back();
  }
  for (const auto& request : requests) {
    request->GetReady()->Wait(SCA_Infinite);
    std::printf("%s: %s, %zu bytes of text %s\n", request->GetPath(),
                SCA_TikaOutcomeText(request->GetOutcome()),
                static_cast<Text*>(request->GetSink())->content.size(), request->GetCause());
  }
}
