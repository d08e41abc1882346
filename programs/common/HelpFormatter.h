/// The form of --help, the same for every program. Manual pages and completion read it too.
#ifndef SCA_PROGRAMS_COMMON_HELPFORMATTER_H
#define SCA_PROGRAMS_COMMON_HELPFORMATTER_H

#include <CLI/CLI.hpp>
#include <cstddef>
#include <string>

/// Breaks text into lines of at most 79 characters, at blanks. Each line of the text is a paragraph
/// of its own. Its continuation lines begin where its last column does: after the last run of two
/// or more blanks, if there is one.
/// @param text  ASCII; a longer word is not broken.
/// @return The text, each line terminated.
std::string WrapText(const std::string& text);

/// Usage, description, arguments, options, commands and footer. The value of an option is the
/// plain word given as its type name; its limits and its default follow its help in words.
class HelpFormatter : public CLI::Formatter {
 public:
  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override;
  std::string make_option(const CLI::Option* option, bool isPositional) const override;
  std::string make_subcommand(const CLI::App* command) const override;
};

#endif  // SCA_PROGRAMS_COMMON_HELPFORMATTER_H
