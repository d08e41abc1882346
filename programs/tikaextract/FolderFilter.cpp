#include "programs/tikaextract/FolderFilter.h"

#include <algorithm>
#include <cerrno>

#include "platform/SCA_File.h"
#include "programs/common/Advice.h"
#include "programs/common/Escape.h"

namespace {

constexpr unsigned long kMostRules = 1UL << 20;  // bytes

// The journal of a run, its lock, and files that are not finished: none is a document.
bool IsOwnName(const std::string& name) {
  return name.rfind(".tikaextract.", 0) == 0 || SCA_ReplacementFile::IsAsideName(name.c_str()) != 0;
}

// @return 0, or an error code; `EFBIG` for a file that cannot be one of rules.
unsigned long ReadRules(const std::string& path, std::string* text) {
  SCA_File file;
  unsigned long error = 0;
  unsigned long long size = 0;
  if (file.Open(path.c_str(), SCA_FileOpenRead, &error) == 0) return error == ENOENT ? 0 : error;
  if (file.GetSize(&size, &error) == 0) return error;
  if (size > kMostRules) return EFBIG;
  text->resize(static_cast<std::size_t>(size));
  unsigned long length = 0;
  if (file.Read(text->data(), text->size(), &length, &error) == 0) return error;
  text->resize(length);
  return 0;
}

std::vector<PathPattern> ParseRules(std::string_view text) {
  constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
  if (text.substr(0, kUtf8Mark.size()) == kUtf8Mark) text.remove_prefix(kUtf8Mark.size());
  std::vector<PathPattern> patterns;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    if (auto pattern = PathPattern::FromLine(text.substr(0, end))) {
      patterns.push_back(std::move(*pattern));
    }
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return patterns;
}

std::vector<PathPattern> ParseArguments(const std::vector<std::string>& texts) {
  std::vector<PathPattern> patterns;
  for (const std::string& text : texts) {
    if (auto pattern = PathPattern::FromArgument(text)) patterns.push_back(std::move(*pattern));
  }
  return patterns;
}

}  // namespace

FolderFilter::FolderFilter(const Options& options, const Setup& setup)
    : setup_(setup),
      chooseByExtension_(options.includes.empty() || !options.extensions.empty() ||
                         !options.addedExtensions.empty()),
      includes_(ParseArguments(options.includes)),
      excludes_(ParseArguments(options.excludes)) {}

std::string FolderFilter::Enter(const std::string& folder, const std::string& path) {
  const std::string prefix = folder.empty() ? std::string() : folder + "/";
  const auto isElsewhere = [&](const Level& level) {
    return folder.empty() || prefix.rfind(level.prefix, 0) != 0 || prefix == level.prefix;
  };
  levels_.erase(std::find_if(levels_.begin(), levels_.end(), isElsewhere), levels_.end());
  const std::string file = path + "/" + kIgnoreFile;
  std::string text;
  const unsigned long error = ReadRules(file, &text);
  if (error != 0) {
    return "cannot read the rules of the folder, " + Quoted(file) + ": " + Explain(error);
  }
  std::vector<PathPattern> patterns = ParseRules(text);
  if (!patterns.empty()) levels_.push_back({prefix, std::move(patterns)});
  return {};
}

bool FolderFilter::EnterFrom(const std::string& root, const std::string& folder) {
  if (!Enter("", root).empty()) return false;
  for (std::size_t end = 0; end < folder.size();) {
    end = std::min(folder.find('/', end + 1), folder.size());
    const std::string part = folder.substr(0, end);
    if (!IsOpen(part) || !Enter(part, root + "/" + part).empty()) return false;
  }
  return true;
}

FolderFilter::Verdict FolderFilter::Judge(const std::string& file,
                                          const std::string& extension) const {
  const std::size_t slash = file.rfind('/');
  const std::string name = slash == std::string::npos ? file : file.substr(slash + 1);
  if (name == kIgnoreFile || IsOwnName(name)) return Verdict::Excluded;
  if (IsExcluded(file, false) || !IsIncluded(file)) return Verdict::Excluded;
  const bool isTaken = !chooseByExtension_ || setup_.IsTaken(extension);
  return isTaken ? Verdict::Taken : Verdict::OtherKind;
}

bool FolderFilter::IsExcluded(std::string_view path, bool isFolder) const {
  const auto matches = [&](const PathPattern& pattern) { return pattern.Matches(path, isFolder); };
  if (std::any_of(excludes_.begin(), excludes_.end(), matches)) return true;
  for (auto level = levels_.rbegin(); level != levels_.rend(); ++level) {
    const std::string_view inside = path.substr(std::min(level->prefix.size(), path.size()));
    const auto& patterns = level->patterns;
    const auto last =
        std::find_if(patterns.rbegin(), patterns.rend(),
                     [&](const PathPattern& pattern) { return pattern.Matches(inside, isFolder); });
    if (last != patterns.rend()) return !last->IsNegated();
  }
  return false;
}

// A pattern for folders includes all that is in them.
bool FolderFilter::IsIncluded(const std::string& file) const {
  if (includes_.empty()) return true;
  for (std::size_t end = file.find('/');; end = file.find('/', end + 1)) {
    const bool isFolder = end != std::string::npos;
    const std::string_view part = std::string_view(file).substr(0, end);
    for (const PathPattern& pattern : includes_) {
      if (pattern.IsForFolders() == isFolder && pattern.Matches(part, isFolder)) return true;
    }
    if (!isFolder) return false;
  }
}
