#include "programs/tikaextract/Journal.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>

namespace fs = std::filesystem;

namespace {

constexpr char kName[] = ".tikaextract.journal";
constexpr char kHeader[] = "tikaextract journal 1";
constexpr char kText = 'T';
constexpr char kRefused = 'R';

// A path on one line.
std::string Escape(const std::string& path) {
  std::string text;
  for (const char c : path) {
    if (c == '\n') {
      text += "%0A";
    } else if (c == '%') {
      text += "%25";
    } else {
      text += c;
    }
  }
  return text;
}

bool Holds(const std::vector<std::uint64_t>& hashes, std::uint64_t hash) {
  return std::binary_search(hashes.begin(), hashes.end(), hash);
}

}  // namespace

std::string Journal::Open(const std::string& outputDir, bool resume) {
  const std::string path = (fs::path(outputDir) / kName).string();
  std::string complaint = resume ? Read(path) : std::string();
  if (!complaint.empty()) return complaint;
  file_.reset(std::fopen(path.c_str(), resume ? "a" : "w"));
  if (file_ == nullptr) return "cannot write '" + path + "': " + std::strerror(errno);
  if (!resume || std::ftell(file_.get()) == 0) std::fprintf(file_.get(), "%s\n", kHeader);
  std::fflush(file_.get());
  return {};
}

std::string Journal::Read(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream.is_open()) return {};
  std::string line;
  if (std::getline(stream, line) && line != kHeader) return "'" + path + "' is no journal";
  auto complete = static_cast<std::uintmax_t>(line.size() + 1);
  while (std::getline(stream, line) && !stream.eof()) {
    complete += line.size() + 1;
    if (line.size() < 2) continue;
    const std::uint64_t hash = std::hash<std::string>()(line.substr(2));
    (line[0] == kText ? texts_ : refusals_).push_back(hash);
  }
  // A run that was killed may have left half a line.
  std::error_code error;
  if (fs::file_size(path, error) > complete) fs::resize_file(path, complete, error);
  std::sort(texts_.begin(), texts_.end());
  std::sort(refusals_.begin(), refusals_.end());
  return error ? "cannot mend '" + path + "': " + error.message() : std::string();
}

Journal::Entry Journal::Describe(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return {};
  Entry entry;
  entry.line = std::to_string(status.st_size) + " " + std::to_string(status.st_mtim.tv_sec) + "." +
               std::to_string(status.st_mtim.tv_nsec) + " " +
               Escape(fs::absolute(path).lexically_normal().string());
  entry.hash = std::hash<std::string>()(entry.line);
  return entry;
}

bool Journal::IsDone(const Entry& entry, const std::string& outputPath) const {
  if (entry.line.empty()) return false;
  return Holds(refusals_, entry.hash) || (Holds(texts_, entry.hash) && fs::exists(outputPath));
}

void Journal::Add(const Entry& entry, bool hasText) {
  if (file_ == nullptr || entry.line.empty()) return;
  std::fprintf(file_.get(), "%c %s\n", hasText ? kText : kRefused, entry.line.c_str());
  // One write for each line: it is there whatever ends the program.
  std::fflush(file_.get());
}
