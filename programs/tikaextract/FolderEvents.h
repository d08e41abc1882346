/// What happens in folders, as the system tells it.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_FOLDEREVENTS_H
#define SCA_PROGRAMS_TIKAEXTRACT_FOLDEREVENTS_H

#include <cstddef>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

/// Watches folders of one tree, each for itself. Takes memory for each folder watched, and none for
/// what happens in them: what is not taken in time is lost, which is told. Threads: one.
class FolderEvents {
 public:
  enum class Kind {
    FileWritten,    ///< a file was closed by a writer, moved here, or got other permissions
    FileGone,       ///< a file was removed, or moved away
    FileAppeared,   ///< a file was made, and may be written to now
    FolderChanged,  ///< a folder was made, moved here, or got other permissions
    Lost            ///< too much has happened: what exactly is not known; without a path
  };
  struct Event {
    Kind kind = Kind::Lost;
    std::string path;  ///< from the root of the tree on
  };

  FolderEvents() = default;
  ~FolderEvents() { Close(); }
  FolderEvents(const FolderEvents&) = delete;
  FolderEvents& operator=(const FolderEvents&) = delete;

  /// Begins, with no folder watched; ends what was before.
  /// @return A complaint, or nothing.
  std::string Open();
  void Close();

  /// Watches a folder; those in it are not watched. One that has gone meanwhile is no failure.
  /// @param folder  From the root on; empty for the root itself.
  /// @return A complaint, or nothing.
  std::string Add(const std::string& root, const std::string& folder);
  /// @return How many folders are watched.
  std::size_t Count() const { return folders_.size(); }

  /// Takes the next event. @return False when there is none now.
  bool Next(Event* event);
  /// Waits until there is one.
  void Wait(int limitMs);

 private:
  bool Read();
  void Forget(const std::string& folder);

  int fd_ = -1;
  std::unordered_map<int, std::string> folders_;  // by the numbers of their watches
  std::map<std::string, int> watches_;            // the other way round
  std::vector<char> block_;
  std::size_t next_ = 0;  // in the block
  std::size_t end_ = 0;   // of what was read into it
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_FOLDEREVENTS_H
