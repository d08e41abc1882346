// Prints the text of one document through a Tika server of its own: private_server JAR FILE

#include <cstdio>

#include "client/SCA_TikaClient.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_FreePort.h"
#include "supervision/SCA_TikaWatch.h"

static int Print(const char* text, unsigned long length, unsigned long, void*) {
  return std::fwrite(text, 1, length, stdout) == length;
}

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const unsigned short port = SCA_FindFreePort();
  SCA_TikaConfigUser config(nullptr, nullptr);
  SCA_TikaServer server(&config);
  SCA_TikaWatchRules rules;
  rules.vainEnd = SCA_TikaVainEnd::GiveUp;  // one that does not come up is not tried again
  SCA_TikaWatch watch(&server, rules);      // stops the server when it goes out of scope
  unsigned long error = SCA_ErrorInvalidData;
  if (!server.SetBindAddress("127.0.0.1") || !server.SetConfig(argv[1], port, 512, "", &error) ||
      !watch.Start(&error) || !watch.WaitReady(60000, nullptr, &error)) {
    SCA_TikaDeath death;
    watch.GetLastDeath(&death);
    std::fprintf(stderr, "%s: %s %s\n", argv[1], SCA_ErrorText(error), death.cause.c_str());
    return 1;
  }
  SCA_TikaConfigOrv settings;
  SCA_TikaClient client(&settings, "127.0.0.1", port);
  unsigned long length = 0;
  error = SCA_ErrorCannotCreate;
  if (!client.InitDataBuffer() || !client.Connect(5000, &error) ||
      !client.GetFileText(3, argv[2], nullptr, Print, nullptr, nullptr, &length, &error)) {
    std::fprintf(stderr, "%s: %s\n", argv[2], SCA_ErrorText(error));
    return 1;
  }
}
