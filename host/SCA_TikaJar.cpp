#include "host/SCA_TikaJar.h"

#include <cctype>
#include <cstdlib>
#include <filesystem>

namespace {

constexpr int kFirstLineWithFolders = 4;
constexpr long kFirstDate = 1000;  // of a snapshot, which follows its version

// The first number of the version, which begins after a hyphen; 0 without one. Of several the last
// counts: what stands before it is the name.
int LineOf(const std::string& name) {
  int line = 0;
  for (const char* c = name.c_str(); *c != '\0'; ++c) {
    if (*c != '-' || std::isdigit(static_cast<unsigned char>(c[1])) == 0) continue;
    char* end = nullptr;
    const long number = std::strtol(c + 1, &end, 10);
    const bool isVersion = *end == '.' && std::isdigit(static_cast<unsigned char>(end[1])) != 0;
    if (isVersion && number < kFirstDate) {
      line = static_cast<int>(number);
    }
  }
  return line;
}

}  // namespace

SCA_TikaJar SCA_LookAtTikaJar(const char* fileName) {
  std::error_code error;
  // What a link leads to has the name and the folders.
  const std::filesystem::path path = std::filesystem::weakly_canonical(fileName, error);
  const std::filesystem::path directory = path.parent_path();
  const auto hasFolder = [&](const char* name) {
    return std::filesystem::is_directory(directory / name, error);
  };
  const int line = LineOf(path.filename().native());
  const bool needsFolders = line != 0 ? line >= kFirstLineWithFolders : hasFolder("plugins");
  if (!needsFolders) return {fileName, "", true};
  return {path.native(), directory.native(), hasFolder("lib") && hasFolder("plugins")};
}
