/// Documents as a server of the lab sees them: which fault each has, and what its text is.
#ifndef SCA_FAULTLAB_DOCUMENT_H
#define SCA_FAULTLAB_DOCUMENT_H

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "faultlab/Fault.h"

/// By its size and its first bytes a document is known, before all of it is there.
struct DocumentHead {
  static constexpr std::size_t kSize = 4096;

  unsigned long long size = 0;
  std::string bytes;  ///< the first `kSize`, or all
};

/// Chooses the fault of each document: that of a marker in its head, "tikafault:" and the fault's
/// words, else by chance. The chance depends only on the seed and the head, so a run can be
/// repeated, and all servers with one seed agree.
/// Threads: any, once it is made.
class FaultPlan {
 public:
  /// Knows only markers.
  FaultPlan() = default;
  /// @param faults    Each with its share of documents.
  /// @param mixShare  Share of documents that have a fault of the mix, beside those.
  FaultPlan(std::vector<FaultSpec> faults, double mixShare, unsigned long long seed)
      : faults_(std::move(faults)), mixShare_(mixShare), seed_(seed) {}

  FaultSpec Choose(const DocumentHead& head) const;
  /// @return A number that tells documents, by their heads, apart.
  std::uint64_t Identify(const DocumentHead& head) const;

 private:
  std::vector<FaultSpec> faults_;
  double mixShare_ = 0;
  unsigned long long seed_ = 0;
};

/// The text of a document, made piece by piece: "text of " and the document; a longer one goes on
/// with "page 2 of ", the document again, and so on.
class DocumentText {
 public:
  static constexpr unsigned long long kEndless = ~0ULL;

  explicit DocumentText(std::string_view content);
  DocumentText(std::string_view content, unsigned long long length);

  unsigned long long Length() const { return length_; }
  /// @return The next bytes, `limit` or all that are left.
  std::string Next(std::size_t limit);

 private:
  std::string_view content_;
  unsigned long long length_;
  unsigned long long done_ = 0;
  unsigned long long page_ = 1;
  std::string piece_;  // the title of the page, and the rest of what was made of it
  std::size_t place_ = 0;
};

/// @return The text that a document with this fault has.
DocumentText TextOf(std::string_view content, const FaultSpec& fault);

/// What servers remember together, those of other processes that were forked from this one
/// included. Threads: any.
class LabMemory {
 public:
  /// Throws std::system_error.
  LabMemory();
  ~LabMemory();
  LabMemory(const LabMemory&) = delete;
  LabMemory& operator=(const LabMemory&) = delete;

  /// @return How many tries of a document there have been, this one included. Documents beyond the
  ///         65 536th are taken for new ones at no time.
  unsigned long CountTry(std::uint64_t identity);
  void CountAnswer();
  unsigned long long Answers() const;

 private:
  struct Table;

  Table* table_;
};

#endif  // SCA_FAULTLAB_DOCUMENT_H
