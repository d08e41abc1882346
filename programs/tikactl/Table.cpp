#include "programs/tikactl/Table.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/SCA_Text.h"
#include "platform/SCA_Time.h"
#include "programs/common/Escape.h"

namespace {

constexpr std::size_t kMaxCell = 40;
constexpr char kGap[] = "  ";

bool IsSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

bool ShowsColours() {
  static const bool shows = [] {
    const char* terminal = std::getenv("TERM");
    const bool isDumb = terminal == nullptr || std::string_view(terminal) == "dumb";
    return ::isatty(STDOUT_FILENO) != 0 && !isDumb && !IsSet("NO_COLOR");
  }();
  return shows;
}

const char* Sequence(Colour colour) {
  switch (colour) {
    case Colour::Bold:
      return "\x1b[1m";
    case Colour::Dim:
      return "\x1b[2m";
    case Colour::Green:
      return "\x1b[32m";
    case Colour::Yellow:
      return "\x1b[33m";
    case Colour::Red:
      return "\x1b[31m";
    default:
      return "";
  }
}

}  // namespace

std::string Paint(const std::string& text, Colour colour) {
  if (colour == Colour::None || text.empty() || !ShowsColours()) return text;
  return Sequence(colour) + text + "\x1b[0m";
}

void Table::Add(std::vector<Cell> cells) {
  for (std::size_t i = 0; i + 1 < cells.size(); ++i) {
    cells[i].text = ClipToWidth(cells[i].text, kMaxCell);
  }
  rows_.push_back(std::move(cells));
}

std::string Table::Line(const std::vector<Cell>& cells, const std::vector<std::size_t>& widths,
                        std::size_t width) const {
  std::string line;
  std::size_t at = 0;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const std::size_t padding = widths[i] - DisplayWidth(cells[i].text);
    const bool isRight = columns_[i].align == Align::Right;
    const std::size_t before = (i > 0 ? sizeof kGap - 1 : 0) + (isRight ? padding : 0);
    if (at + before >= width) break;
    const std::string text = ClipToWidth(cells[i].text, width - at - before);
    line += std::string(before, ' ') + Paint(text, cells[i].colour);
    at += before + DisplayWidth(text);
    if (isRight || i + 1 == cells.size()) continue;
    line += std::string(padding, ' ');
    at += padding;
  }
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

std::vector<std::string> Table::Lines(std::size_t width) const {
  std::vector<Cell> titles;
  std::vector<std::size_t> widths;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    titles.emplace_back(columns_[i].title, Colour::Bold);
    widths.push_back(DisplayWidth(columns_[i].title));
    for (const auto& row : rows_) widths[i] = std::max(widths[i], DisplayWidth(row[i].text));
  }
  std::vector<std::string> lines{Line(titles, widths, width)};
  for (const auto& row : rows_) lines.push_back(Line(row, widths, width));
  return lines;
}

std::string Size(unsigned long long bytes) {
  char text[32];
  SCA_FormatSize(bytes, text, sizeof text);
  std::string size = text;
  for (const auto& [part, shorter] : {std::pair(".0 ", " "), std::pair(" bytes", " B")}) {
    const std::size_t at = size.find(part);
    if (at != std::string::npos) size.replace(at, std::strlen(part), shorter);
  }
  return size;
}

std::string Duration(unsigned long long ms) {
  struct Unit {
    unsigned long long ms;
    const char* name;
  };
  static constexpr Unit kUnits[] = {
      {86400000, " d"}, {3600000, " h"}, {60000, " min"}, {1000, " s"}, {1, " ms"}};
  for (const Unit* unit = kUnits; unit != std::end(kUnits) - 1; ++unit) {
    if (ms < unit->ms) continue;
    std::string text = std::to_string(ms / unit->ms) + unit->name;
    const unsigned long long rest = ms % unit->ms / unit[1].ms;
    if (rest > 0 && unit->ms > 1000) text += " " + std::to_string(rest) + unit[1].name;
    return text;
  }
  return std::to_string(ms) + " ms";
}

std::string When(unsigned long long absTime) {
  char text[32];
  const bool isTime = SCA_FormatAbsTime(absTime, text, sizeof text) != 0 && *text != '\0';
  return isTime ? text : "-";
}

std::string Count(unsigned long long count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string BaseName(const std::string& path) {
  return path.substr(path.find_last_of('/') + 1);
}
