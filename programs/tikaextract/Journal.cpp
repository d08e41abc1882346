#include "programs/tikaextract/Journal.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "platform/SCA_File.h"
#include "programs/common/Advice.h"
#include "programs/common/Escape.h"

namespace fs = std::filesystem;

namespace {

constexpr char kName[] = ".tikaextract.journal";
constexpr char kLockName[] = ".tikaextract.lock";
constexpr char kHeader[] = "tikaextract journal 2\n";
constexpr char kFormerHeader[] = "tikaextract journal 1\n";
constexpr unsigned kHashBits = 28;
constexpr unsigned kOffsetBits = 36;
constexpr std::size_t kFields = 5;

// A path as a field of a line.
std::string OnOneLine(const std::string& path) {
  std::string text;
  for (const char c : path) {
    if (c == '\n') {
      text += "%0A";
    } else if (c == '\t') {
      text += "%09";
    } else if (c == '%') {
      text += "%25";
    } else {
      text += c;
    }
  }
  return text;
}

std::string FromOneLine(const std::string& text) {
  std::string path;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      path += text[i];
    } else {
      path += static_cast<char>(std::strtoul(text.substr(i + 1, 2).c_str(), nullptr, 16));
      i += 2;
    }
  }
  return path;
}

std::uint64_t HashOf(const std::string& output) {
  return std::hash<std::string>()(output);
}

// Leftovers of killed runs, except in directories with a journal of their own: there
// another run may be under way.
void RemoveLeftovers(const std::string& directory) {
  std::error_code error;
  fs::recursive_directory_iterator entry(directory, error);
  while (!error && entry != fs::recursive_directory_iterator()) {
    const fs::path path = entry->path();
    std::error_code ignored;
    if (entry->is_directory(ignored) && fs::exists(path / kName, ignored)) {
      entry.disable_recursion_pending();
    } else if (SCA_ReplacementFile::IsAsideName(path.filename().c_str()) != 0) {
      fs::remove(path, ignored);
    }
    entry.increment(error);
  }
}

}  // namespace

// Hashes of 28 bits, spread over a table of any size.
std::size_t OffsetTable::FirstPlace(std::uint64_t slot) const {
  return static_cast<std::size_t>((slot >> kOffsetBits) * slots_.size() >> kHashBits);
}

std::uint64_t* OffsetTable::Find(std::uint64_t hash,
                                 const std::function<bool(unsigned long long)>& isOfKey) {
  if (slots_.empty()) return nullptr;
  const std::uint64_t key = hash << kOffsetBits;
  for (std::size_t i = FirstPlace(key); slots_[i] != 0; i = (i + 1) % slots_.size()) {
    if ((slots_[i] & ~kMaxOffset) == key && isOfKey(OffsetOf(slots_[i]))) return &slots_[i];
  }
  return nullptr;
}

void OffsetTable::Add(std::uint64_t hash, unsigned long long offset) {
  if ((used_ + 1) * 8 > slots_.size() * 7) {
    std::vector<std::uint64_t> former(std::max<std::size_t>(1024, slots_.size() * 2));
    former.swap(slots_);
    for (const std::uint64_t slot : former) {
      if (slot != 0) Insert(slot);
    }
  }
  Insert(hash << kOffsetBits | offset);
  ++used_;
}

void OffsetTable::Insert(std::uint64_t slot) {
  std::size_t i = FirstPlace(slot);
  while (slots_[i] != 0) i = (i + 1) % slots_.size();
  slots_[i] = slot;
}

std::string Journal::Open(const std::string& outputDir, const Terms& terms, Killers* killers) {
  directory_ = outputDir;
  terms_ = terms;
  std::string complaint = TakeLock();
  if (complaint.empty()) complaint = Begin(killers);
  if (!complaint.empty()) return complaint;
  // Under the lock they are nobody's.
  if (isContinued_) RemoveLeftovers(outputDir);
  return {};
}

std::string Journal::TakeLock() {
  const std::string name = (fs::path(directory_) / kLockName).string();
  std::string owner;
  const unsigned long error = lock_.Take(name, &owner);
  if (error == 0) return {};
  if (error == EWOULDBLOCK) {
    return "another run (" + owner + ") writes to " + Quoted(directory_) +
           ": wait for its end, or choose another directory";
  }
  return "cannot lock " + Quoted(name) + ": " + Explain(error);
}

std::string Journal::Begin(Killers* killers) {
  unsigned long error = file_.Open(Name(), 0666);
  if (error != 0) return Complain("open", error);
  std::string complaint = CheckHeader();
  if (!complaint.empty()) return complaint;
  unsigned long long complete = 0;
  error = Load(killers, &complete);
  if (error == 0) error = file_.GetSize(&size_);
  if (error != 0) return Complain("read", error);
  // A run that was killed may have left half a line.
  if (size_ > complete) error = file_.Truncate(complete);
  size_ = complete;
  if (error == 0) error = file_.Touch(&beginTime_);
  if (error != 0) return Complain("write", error);
  ownRecords_ = size_;
  if (!isContinued_) lines_ = kHeader;
  return Write();
}

std::string Journal::CheckHeader() {
  char text[sizeof kHeader] = "";
  std::size_t length = 0;
  const unsigned long error = file_.ReadAt(0, text, sizeof kHeader - 1, &length);
  if (error != 0) return Complain("read", error);
  const std::string_view header(text, length);
  isContinued_ = header == kHeader;
  // A run that was killed may have left the begin of it.
  if (std::string_view(kHeader).substr(0, length) == header) return {};
  if (header != kFormerHeader) return Quoted(Name()) + " is not a journal";
  return Quoted(Name()) +
         " is of an earlier version, which lacks needed data: choose another "
         "directory, or delete it to have everything extracted again";
}

unsigned long Journal::Load(Killers* killers, unsigned long long* complete) {
  std::map<std::string, Record> killings;  // by their outputs
  const unsigned long error = ReadLines(0, [&](std::string_view line, unsigned long long offset) {
    *complete = offset + line.size() + 1;
    const std::optional<Record> record = terms_.resume ? Parse(line) : std::nullopt;
    if (!record) return true;
    Index(record->entry.output, offset);
    killings.erase(record->entry.output);
    if (record->kind == Kind::Killer) killings.emplace(record->entry.output, *record);
    return true;
  });
  for (const auto& [output, record] : killings) {
    if (terms_.retryRefused) break;
    killers->Add(std::strtoull(record.entry.state.c_str(), nullptr, 10),
                 {record.detail, FromOneLine(record.entry.path)});
  }
  return error;
}

std::string Journal::Name() const {
  return (fs::path(directory_) / kName).string();
}

// Lines that have no end yet are left out.
unsigned long Journal::ReadLines(unsigned long long from, const TakeLine& take) const {
  std::size_t block = 1UL << 10;
  std::string held;
  std::size_t begin = 0;  // of the first line in it
  for (;;) {
    held.erase(0, begin);
    from += begin;
    begin = 0;
    const std::size_t kept = held.size();
    std::size_t length = 0;
    held.resize(kept + block);
    const unsigned long error = file_.ReadAt(from + kept, held.data() + kept, block, &length);
    held.resize(kept + length);
    if (error != 0 || length == 0) return error;
    for (std::size_t end = held.find('\n', kept); end != std::string::npos;
         end = held.find('\n', begin)) {
      if (!take(std::string_view(held).substr(begin, end - begin), from + begin)) return 0;
      begin = end + 1;
    }
    // One line is a short read; many are read in large blocks.
    block = std::min<std::size_t>(block * 2, 1UL << 20);
  }
}

std::optional<Journal::Record> Journal::Parse(std::string_view line) {
  std::array<std::string, kFields> fields;
  for (std::size_t i = 0; i < kFields; ++i) {
    const std::size_t end = i + 1 < kFields ? line.find('\t') : line.size();
    if (end == std::string_view::npos) return std::nullopt;
    fields[i] = line.substr(0, end);
    line.remove_prefix(std::min(end + 1, line.size()));
  }
  const std::string& kind = fields[0];
  if (kind.size() != 1 || kind.find_first_of("TCXRKF") != 0) return std::nullopt;
  return Record{static_cast<Kind>(kind[0]), {fields[1], fields[4], fields[3]}, fields[2]};
}

Journal::Entry Journal::Describe(const std::string& path, const struct stat& status,
                                 const std::string& output) {
  std::error_code error;
  const fs::path full = fs::absolute(path, error);
  return {std::to_string(status.st_size) + " " + std::to_string(status.st_mtim.tv_sec) + "." +
              std::to_string(status.st_mtim.tv_nsec),
          OnOneLine((error ? fs::path(path) : full).lexically_normal().string()),
          OnOneLine(output)};
}

std::uint64_t* Journal::FindPlace(const std::string& output, Record* newest) {
  return offsets_.Find(HashOf(output), [&](unsigned long long offset) {
    bool isFound = false;
    const unsigned long error = ReadLines(offset, [&](std::string_view line, unsigned long long) {
      const std::optional<Record> record = Parse(line);
      isFound = record && record->entry.output == output;
      if (isFound) *newest = *record;
      return false;
    });
    if (error != 0) readError_ = error;
    return error == 0 && isFound;
  });
}

void Journal::Index(const std::string& output, unsigned long long offset) {
  Record ignored;
  std::uint64_t* const place = FindPlace(output, &ignored);
  if (place != nullptr) {
    OffsetTable::SetOffset(place, offset);
  } else {
    offsets_.Add(HashOf(output), offset);
  }
}

Journal::Verdict Journal::Claim(const Entry& entry, std::string* owner) {
  const auto claimed = claims_.find(entry.output);
  if (claimed != claims_.end()) {
    *owner = FromOneLine(claimed->second);
    return claimed->second == entry.path ? Verdict::Repeated : Verdict::Taken;
  }
  Verdict verdict = Verdict::Extract;
  Record newest;
  if (const std::uint64_t* const place = FindPlace(entry.output, &newest)) {
    const bool isOwn = OffsetTable::OffsetOf(*place) >= ownRecords_;
    // In a run that lasts, an ended document is as one of an earlier run.
    const bool isOfThisRun = isOwn && !isLasting_;
    *owner = FromOneLine(newest.entry.path);
    if (newest.entry.path != entry.path) {
      if (isOfThisRun || (IsIntact(newest) && IsUnchanged(newest.entry))) return Verdict::Taken;
    } else if (isOfThisRun) {
      return Verdict::Repeated;
    } else if (newest.entry.state == entry.state) {
      const Verdict former = JudgeFormer(newest, isOwn);
      if (former != Verdict::Extract) return former;
    }
    verdict = isOwn && newest.entry.path == entry.path ? Verdict::Renew : Verdict::Extract;
  }
  claims_.emplace(entry.output, entry.path);
  return verdict;
}

// What to do with a document that has not changed since.
// @param isOwn  The line is of this run, whose terms it has met.
Journal::Verdict Journal::JudgeFormer(const Record& record, bool isOwn) const {
  const Terms terms = isOwn ? Terms() : terms_;
  const bool isIntact = IsIntact(record);
  switch (record.kind) {
    case Kind::Text:
      return isIntact && !terms.checksTexts ? Verdict::Done : Verdict::Extract;
    case Kind::Checked:
      return isIntact ? Verdict::Done : Verdict::Extract;
    case Kind::Truncated:
      return isIntact && !terms.retryRefused && !terms.hasPassword ? Verdict::Truncated
                                                                   : Verdict::Extract;
    case Kind::Refused:
      return terms.retryRefused ||
                     (terms.hasPassword && (record.detail == kLocked || record.detail.empty()))
                 ? Verdict::Extract
                 : Verdict::Refused;
    case Kind::Killer:
    case Kind::Failed:
      break;
  }
  return Verdict::Extract;
}

// A text of another length is not the one that was written.
bool Journal::IsIntact(const Record& record) const {
  const bool isText =
      record.kind == Kind::Text || record.kind == Kind::Checked || record.kind == Kind::Truncated;
  if (!isText) return false;
  struct stat status {};
  const std::string path = (fs::path(directory_) / FromOneLine(record.entry.output)).string();
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         std::to_string(status.st_size) == record.detail;
}

bool Journal::IsUnchanged(const Entry& entry) {
  struct stat status {};
  const std::string path = FromOneLine(entry.path);
  return ::stat(path.c_str(), &status) == 0 && Describe(path, status, "").state == entry.state;
}

void Journal::Add(const Entry& entry, Kind kind, const std::string& detail) {
  if (!entry.IsKnown()) return;
  lines_ += std::string(1, static_cast<char>(kind)) + "\t" + entry.state + "\t" + detail + "\t" +
            entry.output + "\t" + entry.path + "\n";
  outputs_.push_back(entry.output);
}

std::string Journal::Write() {
  // Nobody knows then whose the outputs are.
  if (readError_ != 0) return Complain("read", readError_);
  unsigned long error = size_ + lines_.size() > OffsetTable::kMaxOffset ? EFBIG : 0;
  if (error == 0) error = file_.Append(lines_);
  if (error != 0) {
    // Half a line would be taken for one together with the next.
    static_cast<void>(file_.Truncate(size_));
    return Complain("write", error);
  }
  std::size_t begin = lines_.size();
  size_ += begin;
  for (auto output = outputs_.rbegin(); output != outputs_.rend(); ++output) {
    begin = lines_.rfind('\n', begin - 2) + 1;
    Index(*output, size_ - lines_.size() + begin);
    claims_.erase(*output);
  }
  lines_.clear();
  outputs_.clear();
  return {};
}

std::string Journal::Sync() {
  const unsigned long error = file_.IsOpen() ? file_.Sync() : 0;
  return error != 0 ? Complain("write", error) : std::string();
}

std::string Journal::Complain(const char* what, unsigned long error) const {
  return std::string("cannot ") + what + " the journal " + Quoted(Name()) + ": " + Explain(error);
}
