/// Which files of a folder are documents of a run: by their extensions, --include, --exclude and
/// the .tikaignore files of the folders that they are in.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_FOLDERFILTER_H
#define SCA_PROGRAMS_TIKAEXTRACT_FOLDERFILTER_H

#include <string>
#include <string_view>
#include <vector>

#include "programs/tikaextract/Options.h"
#include "programs/tikaextract/PathPattern.h"
#include "programs/tikaextract/Setup.h"

/// Holds the rules of one folder and of those above it, up to the one that a walk began with.
class FolderFilter {
 public:
  enum class Verdict {
    Taken,
    OtherKind,  ///< not for its extension
    Excluded    ///< not for a pattern
  };
  static constexpr char kIgnoreFile[] = ".tikaignore";

  /// @param setup  Tells which extensions are taken; outlives this object, as the options.
  FolderFilter(const Options& options, const Setup& setup);

  /// Reads the rules of a folder, and drops those of folders that it is not in.
  /// @param folder  Its path from the folder on that the walk began with, empty for that one
  /// itself,
  ///                which drops all rules.
  /// @param path    Where it is.
  /// @return A complaint, or nothing. What is in a folder whose rules are not known is not taken.
  std::string Enter(const std::string& folder, const std::string& path);
  /// As `Enter` for all folders from the root down to one.
  /// @return False when one of them is excluded or its rules cannot be read.
  bool EnterFrom(const std::string& root, const std::string& folder);

  /// @return False when nothing in a folder is taken, of whose parent the rules are read.
  bool IsOpen(std::string_view folder) const { return !IsExcluded(folder, true); }
  /// @param file       As a folder of `Enter`.
  /// @param extension  Its extension without the dot.
  Verdict Judge(const std::string& file, const std::string& extension) const;

 private:
  struct Level {
    std::string prefix;                 // of the paths in this folder
    std::vector<PathPattern> patterns;  // the last that matches counts
  };

  bool IsExcluded(std::string_view path, bool isFolder) const;
  bool IsIncluded(const std::string& file) const;

  const Setup& setup_;
  const bool chooseByExtension_;
  std::vector<PathPattern> includes_;
  std::vector<PathPattern> excludes_;
  std::vector<Level> levels_;  // from the root down
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_FOLDERFILTER_H
