/// Patterns of paths, in the form of a line of .gitignore.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_PATHPATTERN_H
#define SCA_PROGRAMS_TIKAEXTRACT_PATHPATTERN_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// `*` stands for any characters of a name, `?` for one character of UTF-8, `[a-z]` and `[!a-z]`
/// for one of a set, `**` between slashes for any folders; a backslash takes the next character as
/// it is. A pattern without a slash, except at its end, is for names at any depth; any other one is
/// for paths from the folder on that it belongs to. With a slash at its end it is for folders only.
/// Letter case counts. Time grows with the product of the lengths of pattern and path.
class PathPattern {
 public:
  /// Reads an argument of the command line.
  /// @return Nothing when it names nothing, such as "" and "/".
  static std::optional<PathPattern> FromArgument(std::string_view text);
  /// Reads a line: blank ones and comments (#) give nothing; blanks at the end do not count, and a
  /// ! at the begin negates.
  static std::optional<PathPattern> FromLine(std::string_view line);

  bool IsNegated() const { return isNegated_; }
  bool IsForFolders() const { return isForFolders_; }
  /// @param path  From the pattern's folder on: names with single slashes between them.
  bool Matches(std::string_view path, bool isFolder) const;

 private:
  std::vector<std::string> names_;  // between slashes
  bool isNegated_ = false;
  bool isForFolders_ = false;
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_PATHPATTERN_H
