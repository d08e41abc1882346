#include "host/SCA_TikaJar.h"

#include <cctype>
#include <cstdlib>
#include <filesystem>

namespace {

constexpr int kFirstLineWithFolders = 4;

// The first number of the version, which begins after a hyphen; 0 without one.
int LineOf(const std::string& name) {
  for (const char* c = name.c_str(); *c != '\0'; ++c) {
    if (*c != '-' || std::isdigit(static_cast<unsigned char>(c[1])) == 0) continue;
    char* end = nullptr;
    const long line = std::strtol(c + 1, &end, 10);
    if (*end == '.' && std::isdigit(static_cast<unsigned char>(end[1])) != 0)
      return static_cast<int>(line);
  }
  return 0;
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
