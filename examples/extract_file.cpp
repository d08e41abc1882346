// Prints the text of one document: extract_file HOST PORT FILE

#include <cstdio>
#include <cstdlib>

#include "client/SCA_TikaClient.h"
#include "platform/SCA_Error.h"

// Called with each block of the text as it arrives; 0 would stop the extraction.
static int Print(const char* text, unsigned long length, unsigned long, void*) {
  return std::fwrite(text, 1, length, stdout) == length;
}

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  SCA_TikaConfigOrv settings;  // a time-out of ten seconds, unless it is set
  SCA_TikaClient client(&settings, argv[1], static_cast<unsigned short>(std::atoi(argv[2])));
  unsigned long length = 0;
  unsigned long error = SCA_ErrorCannotCreate;
  if (!client.InitDataBuffer() || !client.Connect(5000, &error) ||
      !client.GetFileText(3, argv[3], nullptr, Print, nullptr, nullptr, &length, &error)) {
    std::fprintf(stderr, "%s: %s\n", argv[3], SCA_ErrorText(error));
    return 1;
  }
}
