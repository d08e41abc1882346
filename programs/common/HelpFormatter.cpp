#include "programs/common/HelpFormatter.h"

#include <algorithm>
#include <regex>

namespace {

constexpr std::size_t kLineWidth = 79;
constexpr std::size_t kTextColumn = 28;
// Limits from here on only catch slips: nobody needs to read them.
constexpr double kNoLimit = 1000000;

// Where a paragraph's continuation lines begin.
std::size_t HangingIndent(const std::string& paragraph) {
  const std::size_t gap = paragraph.rfind("  ");
  return gap == std::string::npos ? 0 : gap + 2;
}

std::string WrapParagraph(std::string rest) {
  const std::size_t indent = HangingIndent(rest);
  std::string lines;
  while (rest.size() > kLineWidth) {
    std::size_t end = rest.rfind(' ', kLineWidth);
    if (end == std::string::npos || end <= indent) end = rest.find(' ', indent + 1);
    if (end == std::string::npos) break;
    lines += rest.substr(0, end) + "\n";
    rest.replace(0, end + 1, indent, ' ');
  }
  return lines + rest + "\n";
}

// A name in the left column, and what is said of it in the right one.
std::string Row(const std::string& name, const std::string& text) {
  const std::string left = "  " + name;
  const std::string right = std::string(kTextColumn, ' ') + text;
  const bool fits = left.size() + 2 <= kTextColumn;
  return fits ? WrapText(left + right.substr(left.size())) : left + "\n" + WrapText(right);
}

// "N:UINT in [1 - 256]": the type name, and the limits that a check adds to it.
struct Value {
  std::string name;
  std::string limits;
};

std::string Limits(const std::string& least, const std::string& most) {
  if (std::stod(most) < kNoLimit) return least + " to " + most;
  return std::stod(least) > 1 ? "at least " + least : "";
}

Value ValueOf(const CLI::Option& option) {
  static const std::regex range(R"((.*):\w+ in \[(\S+) - (\S+)\])");
  static const std::regex choice(R"((.*):\{(.*)\})");
  const std::string type = option.get_type_size() == 0 ? "" : option.get_type_name();
  std::smatch parts;
  if (std::regex_match(type, parts, range)) {
    return {parts[1].str(), Limits(parts[2].str(), parts[3].str())};
  }
  return {std::regex_match(type, parts, choice) ? parts[1].str() : type, ""};
}

// "-j, --jobs=N"
std::string Names(const CLI::Option& option, const Value& value) {
  std::string names = option.get_snames().empty() ? "    " : "-" + option.get_snames().front();
  for (const std::string& name : option.get_lnames()) {
    names += (option.get_snames().empty() ? "--" : ", --") + name;
  }
  return names + (value.name.empty() ? "" : "=" + value.name);
}

std::string Notes(const CLI::Option& option, const Value& value) {
  std::string notes;
  const auto add = [&notes](const std::string& note) {
    notes += (notes.empty() ? " (" : "; ") + note;
  };
  if (option.get_required() && !option.get_positional()) add("required");
  for (const CLI::Option* needed : option.get_needs()) add("needs " + needed->get_name());
  if (!value.limits.empty()) add(value.limits);
  if (!option.get_default_str().empty()) add("default: " + option.get_default_str());
  const bool isMany = option.get_expected_max() == CLI::detail::expected_max_vector_size;
  if (isMany && !option.get_positional()) add("repeatable");
  return notes.empty() ? "" : notes + ")";
}

}  // namespace

std::string WrapText(const std::string& text) {
  std::string lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    lines += WrapParagraph(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

std::string HelpFormatter::make_help(const CLI::App* app, std::string name,
                                     CLI::AppFormatMode mode) const {
  std::string text = make_usage(app, name) + "\n" + WrapText(app->get_description()) +
                     make_positionals(app) + make_groups(app, mode);
  // A hidden group leaves an empty line.
  while (text.compare(text.size() - 2, 2, "\n\n") == 0) text.pop_back();
  text += make_subcommands(app, mode);
  const std::string footer = app->get_footer();
  return footer.empty() ? text : text + "\n" + WrapText(footer);
}

std::string HelpFormatter::make_option(const CLI::Option* option, bool isPositional) const {
  const Value value = ValueOf(*option);
  const std::string names = isPositional ? option->get_name(true) : Names(*option, value);
  return Row(names, option->get_description() + Notes(*option, value));
}

std::string HelpFormatter::make_subcommand(const CLI::App* command) const {
  return Row(command->get_name(), command->get_description());
}
