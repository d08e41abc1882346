// Keeps a Tika server running and prints what happens to it, until it is interrupted:
// watched_server JAR PORT

#include <cstdio>
#include <cstdlib>

#include "platform/SCA_Error.h"
#include "supervision/SCA_TikaWatch.h"

// Called on threads of the library.
struct Reports : SCA_TikaWatchObserver {
  void OnReady(const SCA_TikaServer&, const char* version) override {
    std::printf("ready: %s\n", version);
    std::fflush(stdout);
  }
  void OnDeath(const SCA_TikaServer&, const SCA_TikaDeath& death, const char*) override {
    std::printf("%s: %s\n", SCA_DeathKindText(death.kind), death.cause.c_str());
    std::fflush(stdout);
  }
};

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  SCA_TikaConfigUser config(nullptr, nullptr);
  SCA_TikaServer server(&config);
  Reports reports;
  SCA_TikaWatchRules rules;
  rules.silenceLimitMs = 60000;  // a server that is silent for a minute is restarted
  SCA_TikaWatch watch(&server, rules, nullptr, &reports);
  unsigned long error = SCA_ErrorInvalidData;
  const auto port = static_cast<unsigned short>(std::atoi(argv[2]));
  if (!server.SetBindAddress("127.0.0.1") || !server.SetConfig(argv[1], port, 1024, "", &error) ||
      !watch.Start(&error)) {
    std::fprintf(stderr, "%s: %s\n", argv[1], SCA_ErrorText(error));
    return 1;
  }
  SCA_Event never(1, 0);
  never.Wait(SCA_Infinite);  // whatever ends this program ends the server too
}
