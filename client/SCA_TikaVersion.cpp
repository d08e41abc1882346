#include "client/SCA_TikaVersion.h"

#include <algorithm>
#include <string_view>

namespace {

constexpr unsigned long kLastLine = 4;
constexpr unsigned long kMaxNumber = 9999;

constexpr std::string_view kName = "Tika ";

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// Takes a number from the start of a text. @return False when there is none, or a huge one.
bool TakeNumber(std::string_view* text, unsigned long* number) {
  if (text->empty() || !IsDigit(text->front())) return false;
  unsigned long value = 0;
  while (!text->empty() && IsDigit(text->front())) {
    value = value * 10 + static_cast<unsigned long>(text->front() - '0');
    if (value > kMaxNumber) return false;
    text->remove_prefix(1);
  }
  *number = value;
  return true;
}

bool TakeDot(std::string_view* text) {
  if (text->empty() || text->front() != '.') return false;
  text->remove_prefix(1);
  return true;
}

// From which version on servers follow an option, up to which, and what the others make of it.
struct Row {
  SCA_TikaOption option;
  unsigned long firstMajor;
  unsigned long firstMinor;
  unsigned long lastMajor;
  SCA_TikaSupport otherwise;
};

constexpr Row kRows[] = {
    {SCA_TikaOptionMarkdown, 3, 3, kLastLine, SCA_TikaSupport::Refused},
    {SCA_TikaOptionPassword, 1, 0, 3, SCA_TikaSupport::Refused},
    {SCA_TikaOptionOcr, 1, 0, 3, SCA_TikaSupport::Ignored},
    {SCA_TikaOptionOcrLanguage, 1, 0, 3, SCA_TikaSupport::Ignored},
    {SCA_TikaOptionNoEmbedded, 1, 0, 3, SCA_TikaSupport::Ignored},
    {SCA_TikaOptionServerTimeout, 2, 0, 3, SCA_TikaSupport::Ignored},
    {SCA_TikaOptionFileName, 1, 0, kLastLine, SCA_TikaSupport::Ignored},
    {SCA_TikaOptionContentType, 1, 0, kLastLine, SCA_TikaSupport::Ignored},
};

}  // namespace

SCA_TikaVersion SCA_TikaVersion::Parse(const char* text) {
  std::string_view rest(text != nullptr ? text : "");
  const std::size_t name = rest.find(kName);
  if (name == std::string_view::npos) return {};
  rest.remove_prefix(name + kName.size());
  SCA_TikaVersion version;
  if (!TakeNumber(&rest, &version.major_) || version.major_ == 0 || !TakeDot(&rest) ||
      !TakeNumber(&rest, &version.minor_)) {
    return {};
  }
  if (TakeDot(&rest)) TakeNumber(&rest, &version.patch_);
  version.line_ = std::min(version.major_, kLastLine);
  return version;
}

SCA_TikaSupport SCA_TikaVersion::GetSupport(SCA_TikaOption option) const {
  if (!IsKnown()) return SCA_TikaSupport::Refused;
  const auto* const row = std::find_if(std::begin(kRows), std::end(kRows),
                                       [&](const Row& r) { return r.option == option; });
  if (row == std::end(kRows)) return SCA_TikaSupport::Refused;
  const bool isOldEnough = line_ <= row->lastMajor;
  const bool isNewEnough =
      line_ > row->firstMajor || (line_ == row->firstMajor && minor_ >= row->firstMinor);
  return isOldEnough && isNewEnough ? SCA_TikaSupport::Followed : row->otherwise;
}

unsigned long SCA_TikaVersion::Choose(unsigned long options, SCA_TikaSupport support) const {
  unsigned long chosen = 0;
  for (const Row& row : kRows) {
    if ((options & row.option) != 0 && GetSupport(row.option) == support) chosen |= row.option;
  }
  return chosen;
}
