#include "programs/tikaextract/PathPattern.h"

#include "programs/common/Utf8.h"

namespace {

constexpr char kAnyFolders[] = "**";

// A character, or a byte that begins none, as a number of its own.
char32_t TakeCharacter(std::string_view* text) {
  constexpr char32_t kStrayBytes = 0x110000;
  char32_t character = kStrayBytes + static_cast<unsigned char>(text->front());
  const std::size_t length = DecodeUtf8(*text, &character);
  text->remove_prefix(length > 0 ? length : 1);
  return character;
}

// As above, with a backslash before a character that is to be taken as it is.
char32_t TakeQuoted(std::string_view* pattern) {
  if (pattern->front() == '\\' && pattern->size() > 1) pattern->remove_prefix(1);
  return TakeCharacter(pattern);
}

// Takes a set from after its bracket on. @return Nothing when it has no end.
std::optional<bool> TakeSet(std::string_view* pattern, char32_t character) {
  std::string_view rest = *pattern;
  const bool isNegated = !rest.empty() && (rest.front() == '!' || rest.front() == '^');
  if (isNegated) rest.remove_prefix(1);
  bool isFound = false;
  // A bracket that comes first is one of the set.
  for (bool isFirst = true; !rest.empty() && (isFirst || rest.front() != ']'); isFirst = false) {
    const char32_t low = TakeQuoted(&rest);
    char32_t high = low;
    if (rest.size() > 1 && rest.front() == '-' && rest[1] != ']') {
      rest.remove_prefix(1);
      high = TakeQuoted(&rest);
    }
    isFound = isFound || (low <= character && character <= high);
  }
  if (rest.empty()) return std::nullopt;
  *pattern = rest.substr(1);
  return isFound != isNegated;
}

// Takes what stands for one character. @return Whether it stands for this one.
bool TakeOne(std::string_view* pattern, char32_t character) {
  if (pattern->front() == '?') {
    pattern->remove_prefix(1);
    return true;
  }
  if (pattern->front() == '[') {
    std::string_view rest = pattern->substr(1);
    const std::optional<bool> isInSet = TakeSet(&rest, character);
    // A bracket without an end stands for itself.
    if (isInSet) *pattern = rest;
    if (isInSet) return *isInSet;
  }
  return TakeQuoted(pattern) == character;
}

// A star that fails later is tried with one character more; only the last star can need it.
bool MatchesName(std::string_view pattern, std::string_view name) {
  std::optional<std::string_view> afterStar;
  std::string_view retryAt;
  for (;;) {
    if (!pattern.empty() && pattern.front() == '*') {
      pattern.remove_prefix(1);
      afterStar = pattern;
      retryAt = name;
      continue;
    }
    if (name.empty()) return pattern.empty();
    if (!pattern.empty()) {
      std::string_view rest = name;
      const char32_t character = TakeCharacter(&rest);
      if (TakeOne(&pattern, character)) {
        name = rest;
        continue;
      }
    }
    if (!afterStar) return false;
    TakeCharacter(&retryAt);
    pattern = *afterStar;
    name = retryAt;
  }
}

std::vector<std::string_view> Names(std::string_view path) {
  std::vector<std::string_view> names;
  while (!path.empty()) {
    const std::size_t end = path.find('/');
    if (end != 0) names.push_back(path.substr(0, end));
    path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
  }
  return names;
}

}  // namespace

std::optional<PathPattern> PathPattern::FromArgument(std::string_view text) {
  PathPattern pattern;
  pattern.isForFolders_ = !text.empty() && text.back() == '/';
  if (pattern.isForFolders_) text.remove_suffix(1);
  if (text.find('/') == std::string_view::npos) pattern.names_.emplace_back(kAnyFolders);
  for (const std::string_view name : Names(text)) pattern.names_.emplace_back(name);
  if (text.empty() || pattern.names_.empty()) return std::nullopt;
  return pattern;
}

std::optional<PathPattern> PathPattern::FromLine(std::string_view line) {
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  const auto endsInBlank = [&line] {
    const bool isQuoted = line.size() > 1 && line[line.size() - 2] == '\\';
    return !line.empty() && line.back() == ' ' && !isQuoted;
  };
  while (endsInBlank()) line.remove_suffix(1);
  if (line.empty() || line.front() == '#') return std::nullopt;
  const bool isNegated = line.front() == '!';
  if (isNegated) line.remove_prefix(1);
  std::optional<PathPattern> pattern = FromArgument(line);
  if (pattern) pattern->isNegated_ = isNegated;
  return pattern;
}

// As with a star in a name, with names in place of characters.
bool PathPattern::Matches(std::string_view path, bool isFolder) const {
  if (isForFolders_ && !isFolder) return false;
  const std::vector<std::string_view> names = Names(path);
  std::optional<std::size_t> afterAny;
  std::size_t retryAt = 0;
  std::size_t next = 0;
  for (std::size_t i = 0; i < names.size();) {
    if (next < names_.size() && names_[next] == kAnyFolders) {
      // At the end it stands for all that is in a folder.
      if (++next == names_.size()) return true;
      afterAny = next;
      retryAt = i;
    } else if (next < names_.size() && MatchesName(names_[next], names[i])) {
      ++next;
      ++i;
    } else if (afterAny) {
      next = *afterAny;
      i = ++retryAt;
    } else {
      return false;
    }
  }
  return next == names_.size();
}
