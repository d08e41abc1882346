/// The content of a configuration file, for people and for programs.
#ifndef SCA_PROGRAMS_SCACONF_PRINT_H
#define SCA_PROGRAMS_SCACONF_PRINT_H

#include <nlohmann/json.hpp>
#include <string>

#include "foundation/SCA_ConfigFile.h"

/// "file type 9001 (user configuration of the service host), format version 9, 412 bytes"
std::string Summary(const SCA_ConfigFileInfo& info);

/// Writes an object and its members to standard output, a line each: objects in brackets, fields as
/// "name = value", escaped, members two blanks further in than their object.
void PrintText(const SCA_ConfigObj& object);

/// {"name": ..., "members": [{"name": ..., "value": ...}, {"name": ..., "members": [...]}, ...]}:
/// a list, since names may stand there twice and their order counts.
nlohmann::ordered_json ToJson(const SCA_ConfigObj& object);

#endif  // SCA_PROGRAMS_SCACONF_PRINT_H
