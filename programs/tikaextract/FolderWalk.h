/// The documents of a folder, found one by one.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_FOLDERWALK_H
#define SCA_PROGRAMS_TIKAEXTRACT_FOLDERWALK_H

#include <filesystem>
#include <functional>
#include <string>

#include "programs/tikaextract/Document.h"
#include "programs/tikaextract/FolderFilter.h"

/// Goes through a folder, and with -r through those in it. Links to folders are not followed.
class FolderWalk {
 public:
  /// Told of each folder before its content is looked at, the first one included.
  /// @param folder  Its path from the root on.
  /// @return A complaint about the folder, which then is passed over; or nothing.
  using OnFolder = std::function<std::string(const std::string& folder)>;

  /// @param onFolder  May be empty.
  FolderWalk(const Options& options, const Setup& setup, OnFolder onFolder = {});

  /// @param output  Where the folder's content goes, below the output directory.
  /// @param start   The folder in it to begin with, from the root on; empty for all of it.
  /// @return A complaint, or nothing.
  std::string Begin(const std::string& root, const std::string& output,
                    const std::string& start = "");
  /// Finds the next document, or something to complain about. @return False after the last one.
  bool Next(Document* document);
  bool IsOver() const { return walk_ == Walk(); }
  void Stop() { walk_ = Walk(); }

  /// @return What to say of the walk that is over, when it has taken nothing and passed over files.
  std::string Note() const;

 private:
  using Walk = std::filesystem::recursive_directory_iterator;

  std::string EnterFolder(const std::filesystem::path& path, const std::string& folder);
  bool IsOutputDir(const std::filesystem::path& path) const;
  bool IsText(const std::filesystem::path& path) const;

  const Options& options_;
  const Setup& setup_;
  const OnFolder onFolder_;
  FolderFilter filter_;
  Walk walk_;  // at its end when there is none
  std::string root_;
  std::string output_;
  unsigned long long taken_ = 0;
  unsigned long long ofOtherKinds_ = 0;
  unsigned long long excluded_ = 0;  // folders count once
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_FOLDERWALK_H
