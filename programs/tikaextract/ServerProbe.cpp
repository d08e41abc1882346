#include "programs/tikaextract/ServerProbe.h"

#include "supervision/SCA_TikaProbe.h"

namespace {

constexpr unsigned long kAnswerMs = 2000;

}  // namespace

std::string AskTikaVersion(const char* host, unsigned short port, SCA_Event* cancel) {
  SCA_TikaAnswer answer;
  unsigned long error = 0;
  const SCA_TikaProbe probe(host, port, kAnswerMs);
  return probe.Ask(cancel, &answer, &error) != 0 ? answer.version : "";
}
