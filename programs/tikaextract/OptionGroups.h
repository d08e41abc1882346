/// The options of the command line, group by group, as --help shows them.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_OPTIONGROUPS_H
#define SCA_PROGRAMS_TIKAEXTRACT_OPTIONGROUPS_H

#include <optional>
#include <string>
#include <vector>

#include "programs/tikaextract/Options.h"

namespace CLI {
class App;
}

/// What is given as words and becomes something else.
struct OptionWords {
  std::vector<std::string> servers;
  std::vector<std::string> services;
  std::vector<std::string> extensions;
  std::vector<std::string> addedExtensions;
  std::vector<std::string> removedExtensions;
  bool isPrivate = false;
  unsigned long timeoutSeconds = 0;
  std::optional<unsigned long> limitSeconds;
  bool checkComplete = false;
  bool meta = false;
  bool detect = false;
  bool markdown = false;
};

/// Defines all options; parsing fills in what the arguments point to.
void DefineOptions(CLI::App* app, Options* options, OptionWords* words);

#endif  // SCA_PROGRAMS_TIKAEXTRACT_OPTIONGROUPS_H
