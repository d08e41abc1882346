#include "faultlab/Document.h"

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <new>
#include <system_error>

#include "platform/SCA_Sha256.h"

namespace {

constexpr std::string_view kMarker = "tikafault:";
constexpr std::string_view kWordBytes = "abcdefghijklmnopqrstuvwxyz0123456789-=.,";

// A marker that says nothing of sense is part of a document like another.
bool FindMarker(std::string_view head, FaultSpec* fault) {
  for (std::size_t at = 0; (at = head.find(kMarker, at)) != std::string_view::npos;) {
    at += kMarker.size();
    std::string_view words = head.substr(at);
    words = words.substr(0, words.find_first_not_of(kWordBytes));
    // The end of a sentence.
    while (!words.empty() && (words.back() == '.' || words.back() == ',')) words.remove_suffix(1);
    if (ParseFault(words, fault).empty()) return true;
  }
  return false;
}

}  // namespace

std::uint64_t FaultPlan::Identify(const DocumentHead& head) const {
  SCA_Sha256 hash;
  const std::string numbers = std::to_string(seed_) + " " + std::to_string(head.size) + " ";
  hash.Update(numbers.data(), numbers.size());
  hash.Update(head.bytes.data(), head.bytes.size());
  const SCA_Digest digest = hash.Finish();
  std::uint64_t identity = 0;
  for (int i = 0; i < 8; ++i) identity = identity << 8 | digest[static_cast<std::size_t>(i)];
  return identity;
}

FaultSpec FaultPlan::Choose(const DocumentHead& head) const {
  FaultSpec fault;
  // As with Tika, an empty file is no document.
  if (head.size == 0) {
    ParseFault("status=422", &fault);
    return fault;
  }
  if (FindMarker(head.bytes, &fault)) return fault;
  double draw = static_cast<double>(Identify(head) >> 11) * 0x1p-53;
  for (const FaultSpec& candidate : faults_) {
    if (draw < candidate.rate) return candidate;
    draw -= candidate.rate;
  }
  const std::vector<FaultSpec>& mix = FaultMix();
  if (draw >= mixShare_) return {};
  const auto place = static_cast<std::size_t>(draw / mixShare_ * static_cast<double>(mix.size()));
  return mix[std::min(place, mix.size() - 1)];
}

DocumentText::DocumentText(std::string_view content)
    : DocumentText(content, sizeof "text of " - 1 + content.size()) {}

DocumentText::DocumentText(std::string_view content, unsigned long long length)
    : content_(content), length_(length), piece_("text of ") {}

std::string DocumentText::Next(std::size_t limit) {
  std::string text;
  text.reserve(std::min<unsigned long long>(limit, length_ - done_));
  while (text.size() < limit && done_ < length_) {
    const bool isTitle = place_ < piece_.size();
    const std::string_view source =
        isTitle ? std::string_view(piece_).substr(place_) : content_.substr(place_ - piece_.size());
    const auto room = std::min<unsigned long long>(limit - text.size(), length_ - done_);
    const std::string_view part = source.substr(0, static_cast<std::size_t>(room));
    text += part;
    place_ += part.size();
    done_ += part.size();
    if (place_ < piece_.size() + content_.size()) continue;
    piece_ = "page " + std::to_string(++page_) + " of ";
    place_ = 0;
  }
  return text;
}

DocumentText TextOf(std::string_view content, const FaultSpec& fault) {
  if (fault.Kind() == FaultKind::NoText) return {content, 0};
  if (fault.Kind() == FaultKind::Endless) return {content, DocumentText::kEndless};
  if (fault.textLength) return {content, *fault.textLength};
  return DocumentText(content);
}

// In memory that a fork shares: the servers of a lab are processes that die.
struct LabMemory::Table {
  struct Entry {
    std::atomic<std::uint64_t> identity;  // 0: free
    std::atomic<std::uint32_t> tries;
  };
  static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

  std::atomic<unsigned long long> answers;
  std::array<Entry, 1 << 16> entries;
};

LabMemory::LabMemory() {
  void* const memory =
      ::mmap(nullptr, sizeof(Table), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::system_error(errno, std::generic_category(), "cannot map memory");
  }
  table_ = new (memory) Table();
}

LabMemory::~LabMemory() {
  ::munmap(table_, sizeof(Table));
}

unsigned long LabMemory::CountTry(std::uint64_t identity) {
  identity = std::max<std::uint64_t>(identity, 1);
  const std::size_t size = table_->entries.size();
  for (std::size_t i = 0; i < size; ++i) {
    Table::Entry& entry = table_->entries[(identity + i) % size];
    std::uint64_t expected = 0;
    if (entry.identity.compare_exchange_strong(expected, identity) || expected == identity) {
      return entry.tries.fetch_add(1) + 1;
    }
  }
  return std::numeric_limits<std::uint32_t>::max();
}

void LabMemory::CountAnswer() {
  table_->answers.fetch_add(1);
}

unsigned long long LabMemory::Answers() const {
  return table_->answers.load();
}
