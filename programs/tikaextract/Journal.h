/// What a run with -o has done, so that a later one can go on.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_JOURNAL_H
#define SCA_PROGRAMS_TIKAEXTRACT_JOURNAL_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

/// The file `.tikaextract.journal` in the output directory: one line for each document that needs
/// no further try, because its text is there or because it was refused. A document that has changed
/// since counts as another one. In memory a former run's document is eight bytes.
class Journal {
 public:
  /// A document in its present state; made before it is extracted.
  struct Entry {
    std::string line;  ///< size, time of change and full path
    std::uint64_t hash = 0;
  };

  /// @param resume  Goes on with the journal that is there; else a new one is begun.
  /// @return A complaint, or nothing.
  std::string Open(const std::string& outputDir, bool resume);

  static Entry Describe(const std::string& path);
  /// @param outputPath  Where the document's text is expected, unless it was refused.
  bool IsDone(const Entry& entry, const std::string& outputPath) const;
  void Add(const Entry& entry, bool hasText);

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  std::string Read(const std::string& path);

  std::unique_ptr<std::FILE, Closer> file_;
  std::vector<std::uint64_t> texts_;     // hashes of the documents whose text was written; sorted
  std::vector<std::uint64_t> refusals_;  // of those that were refused; sorted
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_JOURNAL_H
