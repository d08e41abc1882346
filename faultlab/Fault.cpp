#include "faultlab/Fault.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace {

constexpr FaultEffect kHarmless = FaultEffect::Harmless;
constexpr FaultEffect kBreaks = FaultEffect::Breaks;
constexpr FaultEffect kFails = FaultEffect::Fails;

// Those that end a document for good, those that pass with a further try, and those that cost
// nothing but time, in numbers that give each kind of them a good share. None that costs time takes
// long beside the pauses between kills from outside: three of those on one document make it look
// like one that kills its servers.
constexpr const char* kMixed[] = {
    "die",         "die=2000",        "die-early",
    "die,tries=1", "reset",           "reset=300",
    "reset-early", "reset,tries=1",   "reset=300,tries=1",
    "close",       "close=100",       "close=100,tries=1",
    "cut=700",     "cut=700,tries=1", "cut,tries=1",
    "hang=100",    "hang-early",      "trickle=3",
    "slow=300",    "hang-up",         "hang-up=20",
    "no-text",     "continue",        "length-too",
    "status=422",  "status=500",      "status=503",
    "refuse=413",  "size-long",       "size-short",
    "size-word",   "size-huge",       "plain",
    "gzip",        "garbage",         "endless",
};

bool ParseNumber(std::string_view text, unsigned long long* number) {
  const std::string digits(text);
  if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos) return false;
  errno = 0;
  *number = std::strtoull(digits.c_str(), nullptr, 10);
  return errno == 0;
}

bool ParseRate(std::string_view text, double* rate) {
  const std::string digits(text);
  if (digits.empty() || digits.find_first_not_of("0123456789.") != std::string::npos) return false;
  char* end = nullptr;
  *rate = std::strtod(digits.c_str(), &end);
  return *end == '\0' && *rate <= 1;
}

// @return Whether the word is one that goes with every fault, its value being sound.
bool TakeSetting(std::string_view name, std::string_view value, FaultSpec* fault) {
  unsigned long long number = 0;
  if (name == "rate") return ParseRate(value, &fault->rate);
  if (name != "tries" && name != "text") return false;
  if (!ParseNumber(value, &number)) return false;
  if (name == "text") {
    fault->textLength = number;
  } else {
    fault->tries = static_cast<unsigned long>(number);
  }
  return true;
}

bool TakeFault(std::string_view name, bool hasValue, std::string_view value, FaultSpec* fault) {
  const auto& table = FaultTable();
  const auto row =
      std::find_if(table.begin(), table.end(), [&](const FaultRow& r) { return name == r.name; });
  if (row == table.end() || fault->row != nullptr || (hasValue && row->unit == nullptr)) {
    return false;
  }
  fault->row = &*row;
  if (!hasValue) return true;
  unsigned long long number = 0;
  if (!ParseNumber(value, &number)) return false;
  fault->value = number;
  // A number that is no code would be no HTTP.
  const bool isCode = row->kind == FaultKind::Status || row->kind == FaultKind::Refuse;
  return !isCode || (number >= 100 && number <= 999);
}

}  // namespace

const std::vector<FaultRow>& FaultTable() {
  using Kind = FaultKind;
  static const std::vector<FaultRow> table = {
      {Kind::Slow, "slow", "MS", 1000, false, kHarmless, "answers MS later"},
      {Kind::Trickle, "trickle", "MS", 100, false, kHarmless,
       "sends the text in 100 pieces, one every MS"},
      {Kind::After, "after", "N", 1, false, kHarmless,
       "answers after N other documents have been answered"},
      {Kind::HangUp, "hang-up", "MS", 0, false, kHarmless,
       "closes the connection MS after the reply"},
      {Kind::NoText, "no-text", nullptr, 0, false, kHarmless, "answers that there is no text"},
      {Kind::Continue, "continue", nullptr, 0, false, kHarmless,
       "sends 100 Continue and 102 Processing first"},
      {Kind::LengthToo, "length-too", nullptr, 0, false, kHarmless,
       "adds \"Content-Length: 0\" to a chunked reply"},
      {Kind::Die, "die", "BYTES", 0, true, kBreaks,
       "kills its own process after BYTES of the text"},
      {Kind::DieEarly, "die-early", nullptr, 0, false, kBreaks,
       "kills its own process during the upload"},
      {Kind::Reset, "reset", "BYTES", 0, true, kBreaks,
       "resets the connection after BYTES of the text"},
      {Kind::ResetEarly, "reset-early", nullptr, 0, false, kBreaks,
       "resets the connection during the upload"},
      {Kind::Close, "close", "BYTES", 0, true, kBreaks,
       "closes between two chunks after BYTES of the text"},
      {Kind::Cut, "cut", "BYTES", 0, true, kBreaks,
       "closes within a chunk after BYTES of the text"},
      {Kind::Busy, "busy", "S", 1, false, kBreaks,
       "answers 429: all workers are busy, try again after S seconds"},
      {Kind::Crash, "crash", "S", 1, false, kBreaks,
       "answers 503: the worker crashed, try again after S seconds"},
      {Kind::Hang, "hang", "BYTES", 0, true, kFails, "sends nothing more after BYTES of the text"},
      {Kind::HangEarly, "hang-early", nullptr, 0, false, kFails, "stops reading during the upload"},
      {Kind::Status, "status", "CODE", 500, false, kFails, "answers with this HTTP code"},
      {Kind::Refuse, "refuse", "CODE", 413, false, kFails,
       "answers with this HTTP code during the upload and closes"},
      {Kind::SizeLong, "size-long", nullptr, 0, false, kFails,
       "writes a chunk size that is one too large"},
      {Kind::SizeShort, "size-short", nullptr, 0, false, kFails,
       "writes a chunk size that is one too small"},
      {Kind::SizeWord, "size-word", nullptr, 0, false, kFails,
       "writes a chunk size that is not a number"},
      {Kind::SizeHuge, "size-huge", nullptr, 0, false, kFails,
       "writes a chunk size of 2^64 or more"},
      {Kind::Plain, "plain", nullptr, 0, false, kFails,
       "sends the text with its length, not chunked"},
      {Kind::Gzip, "gzip", nullptr, 0, false, kFails,
       "claims that the text is compressed with gzip"},
      {Kind::Garbage, "garbage", nullptr, 0, false, kFails,
       "answers with something that is not HTTP"},
      {Kind::Endless, "endless", "MS", 5, false, kFails, "sends chunks without end, one every MS"},
  };
  return table;
}

std::string ParseFault(std::string_view words, FaultSpec* fault) {
  *fault = {};
  if (words.empty()) return "a fault is missing";
  while (!words.empty()) {
    const std::string_view word = words.substr(0, words.find(','));
    words.remove_prefix(std::min(words.size(), word.size() + 1));
    const std::size_t equals = word.find('=');
    const bool hasValue = equals != std::string_view::npos;
    const std::string_view name = word.substr(0, equals);
    const std::string_view value = hasValue ? word.substr(equals + 1) : std::string_view();
    if (!TakeSetting(name, value, fault) && !TakeFault(name, hasValue, value, fault)) {
      return "'" + std::string(word) + "' is no fault, or not with this value";
    }
  }
  return {};
}

std::string FaultWords(const FaultSpec& fault) {
  std::string words = fault.row != nullptr ? fault.row->name : "none";
  if (fault.row != nullptr && fault.value) words += "=" + std::to_string(*fault.value);
  if (fault.row != nullptr && fault.tries != 0) words += ",tries=" + std::to_string(fault.tries);
  if (fault.textLength) words += ",text=" + std::to_string(*fault.textLength);
  return words;
}

FaultPrognosis Foretell(const FaultSpec& fault) {
  const FaultEffect effect = fault.row != nullptr ? fault.row->effect : FaultEffect::Harmless;
  if (effect == FaultEffect::Harmless) return FaultPrognosis::Text;
  if (fault.tries == 0) return FaultPrognosis::Fails;
  return effect == FaultEffect::Breaks && fault.tries == 1 ? FaultPrognosis::Text
                                                           : FaultPrognosis::Either;
}

const std::vector<FaultSpec>& FaultMix() {
  static const std::vector<FaultSpec> mix = [] {
    std::vector<FaultSpec> faults;
    for (const char* words : kMixed) ParseFault(words, &faults.emplace_back());
    return faults;
  }();
  return mix;
}
