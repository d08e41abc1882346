/// What the runs with -o have done: which document each text is of, and what need not be tried
/// again.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_JOURNAL_H
#define SCA_PROGRAMS_TIKAEXTRACT_JOURNAL_H

#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "programs/common/OwnFile.h"
#include "programs/tikaextract/Killers.h"

/// Finds what was put in under a key, by the key's hash. A key takes eight bytes, and with the room
/// that the table keeps free 9 to 18.
class OffsetTable {
 public:
  static constexpr unsigned long long kMaxOffset = (1ULL << 36U) - 1;

  /// @param isOfKey  Whether an offset was put in under this key and not under one of a similar
  ///                 hash.
  /// @return The place of the key's offset, or null when it has none.
  std::uint64_t* Find(std::uint64_t hash, const std::function<bool(unsigned long long)>& isOfKey);
  /// Puts in an offset of a key that has none.
  /// @param offset  1 to `kMaxOffset`.
  void Add(std::uint64_t hash, unsigned long long offset);

  static unsigned long long OffsetOf(std::uint64_t slot) { return slot & kMaxOffset; }
  static void SetOffset(std::uint64_t* slot, unsigned long long offset) {
    *slot = (*slot & ~kMaxOffset) | offset;
  }

 private:
  std::size_t FirstPlace(std::uint64_t slot) const;
  void Insert(std::uint64_t slot);

  std::vector<std::uint64_t> slots_;  // 28 bits of the hash above 36 bits of the offset; 0 is free
  std::size_t used_ = 0;
};

/// The file `.tikaextract.journal` in the output directory: one line for each document that a run
/// has ended, appended; the newest of an output counts. In memory an output takes some 9 to 18
/// bytes: those of this run, and with --resume those of all earlier ones, which then count as one
/// with it.
class Journal {
 public:
  /// How a document ended; the letter of its line.
  enum class Kind : char {
    Text = 'T',       ///< its text is on the disk; whether that is whole was not asked
    Checked = 'C',    ///< the same, and it is whole by what its server told
    Truncated = 'X',  ///< the same, and it may not be whole
    Refused = 'R',    ///< its server refused it, as any other would
    Killer = 'K',     ///< servers died of it
    Failed = 'F'      ///< otherwise; it is to be tried again
  };
  /// The detail of a refused document that a password opens.
  static constexpr char kLocked[] = "locked";

  /// What a run makes of the lines of earlier ones.
  struct Terms {
    bool resume = false;        ///< they count, ...
    bool retryRefused = false;  ///< ... except for what was refused or is not whole, ...
    bool checksTexts = false;   ///< ... or was not checked, ...
    bool hasPassword = false;   ///< ... or may be locked, it or a part of it
  };

  /// A document in its present state.
  struct Entry {
    std::string state;   ///< size and time of change; empty for one that is not there
    std::string path;    ///< full, on one line
    std::string output;  ///< below the output directory, on one line
    bool IsKnown() const { return !state.empty(); }
  };

  /// What is to be done with a document.
  enum class Verdict {
    Extract,  ///< its text is to be made; the output is its own until the run has written its line
    Renew,    ///< the same; the text in its place, if any, is one that this run has made of it
    Done,     ///< an earlier run has made its text
    Truncated,  ///< the same, and that may not be whole
    Refused,    ///< an earlier run's server has refused it
    Repeated,   ///< this run already has it
    Taken       ///< the output is another document's
  };

  /// Has documents that change during the run extracted again. Before `Open`.
  void SetLasting() { isLasting_ = true; }
  /// Takes the output directory for this run, under its lock `.tikaextract.lock`, and removes what
  /// killed runs have left aside.
  /// @param killers  Receives the contents that servers have died of in runs that count.
  /// @return A complaint, or nothing.
  std::string Open(const std::string& outputDir, const Terms& terms, Killers* killers);
  /// The time on the output directory's file system at which this run began.
  const timespec& BeginTime() const { return beginTime_; }

  static Entry Describe(const std::string& path, const struct stat& status,
                        const std::string& output);
  /// @param owner  Receives the path of the document that has the output, when it is taken.
  Verdict Claim(const Entry& entry, std::string* owner);
  /// Gives back what was claimed and not extracted.
  void Withdraw(const Entry& entry) { claims_.erase(entry.output); }
  /// Adds a line, which `Write` writes.
  /// @param detail  Of a text its length in bytes, of a killer the digest of its content, of a
  ///                refused document the reason where that is known, such as `kLocked`.
  void Add(const Entry& entry, Kind kind, const std::string& detail);
  /// Writes what was added. @return A complaint, or nothing.
  std::string Write();
  /// Waits until all of it is on the disk.
  std::string Sync();

 private:
  struct Record {
    Kind kind = Kind::Failed;
    Entry entry;
    std::string detail;
  };
  using TakeLine = std::function<bool(std::string_view line, unsigned long long offset)>;

  std::string TakeLock();
  std::string Begin(Killers* killers);
  std::string CheckHeader();
  unsigned long Load(Killers* killers, unsigned long long* complete);
  unsigned long ReadLines(unsigned long long from, const TakeLine& take) const;
  static std::optional<Record> Parse(std::string_view line);
  std::uint64_t* FindPlace(const std::string& output, Record* newest);
  void Index(const std::string& output, unsigned long long offset);
  Verdict JudgeFormer(const Record& record, bool isOwn) const;
  bool IsIntact(const Record& record) const;
  static bool IsUnchanged(const Entry& entry);
  std::string Name() const;
  std::string Complain(const char* what, unsigned long error) const;

  std::string directory_;
  bool isLasting_ = false;
  Terms terms_;
  bool isContinued_ = false;  // an earlier run was here
  timespec beginTime_{};
  LockFile lock_;
  OwnFile file_;
  unsigned long long size_ = 0;        // of the file
  unsigned long long ownRecords_ = 0;  // where those of this run begin
  unsigned long readError_ = 0;
  OffsetTable offsets_;                        // of the newest line of each output
  std::map<std::string, std::string> claims_;  // paths by outputs that have no line yet
  std::string lines_;                          // to be written, ...
  std::vector<std::string> outputs_;           // ... and the output of each
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_JOURNAL_H
