/// The list of --files-from.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_DOCUMENTLIST_H
#define SCA_PROGRAMS_TIKAEXTRACT_DOCUMENTLIST_H

#include <string>
#include <vector>

#include "platform/SCA_Sync.h"

/// Reads a file, a pipe or standard input as entries come, a block at a time.
class DocumentList {
 public:
  enum class Result { Entry, End, Failed };

  /// @param name       Of the file, "-" for standard input.
  /// @param separator  Ends each entry; the last one may lack it. Lines may end in CR LF, and a
  ///                   list of lines may begin with the mark of UTF-8; neither is part of a name.
  /// @param cancel     Ends the waits for more, which then read as the end; not owned.
  DocumentList(std::string name, char separator, SCA_Event* cancel);
  ~DocumentList();
  DocumentList(const DocumentList&) = delete;
  DocumentList& operator=(const DocumentList&) = delete;

  /// Takes the next entry that is not empty.
  /// @param text  Receives the entry, or why the list cannot be read any further.
  Result Next(std::string* text);

 private:
  Result Fail(const std::string& why, std::string* text);
  Result TakeRaw(std::string* text);
  bool Open();

  const std::string name_;
  const char separator_;
  SCA_Event* const cancel_;
  int fd_ = -1;
  std::vector<char> block_;
  std::size_t next_ = 0;  // in the block
  std::size_t end_ = 0;   // of what was read into it
  bool isFirst_ = true;   // no entry was taken
  bool isOver_ = false;
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_DOCUMENTLIST_H
