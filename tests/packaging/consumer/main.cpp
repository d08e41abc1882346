// Prints the text of one document: consumer HOST PORT FILE
#include <cstdio>
#include <cstdlib>

#include "client/SCA_TikaClient.h"
#include "platform/SCA_Error.h"

static int Print(const char* text, unsigned long length, unsigned long, void*) {
  return std::fwrite(text, 1, length, stdout) == length ? 1 : 0;
}

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  SCA_TikaConfigOrv settings;
  settings.SetNetworkTimeout(60000);
  SCA_TikaClient client(&settings, argv[1], static_cast<unsigned short>(std::atoi(argv[2])));
  unsigned long error = SCA_ErrorCannotCreate;
  unsigned long length = 0;
  if (client.InitDataBuffer() != 0 && client.Connect(10000, &error) != 0 &&
      client.GetFileText(3, argv[3], nullptr, Print, nullptr, nullptr, &length, &error) != 0) {
    return 0;
  }
  std::fprintf(stderr, "consumer: %s: %s\n", argv[3], SCA_ErrorText(error));
  return 1;
}
