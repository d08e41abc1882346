/// Text from outside on a terminal: what would break a line, move the cursor or turn the direction
/// of writing is shown, never sent.
#ifndef SCA_PROGRAMS_COMMON_ESCAPE_H
#define SCA_PROGRAMS_COMMON_ESCAPE_H

#include <cstddef>
#include <string>
#include <string_view>

/// @return True for control characters, line and paragraph separators and directions of writing.
bool IsControl(char32_t character);

/// Puts a backslash before a backslash and before what would break a line or a terminal: \n, \t,
/// and \xNN for the bytes of other control characters (directions of writing included) and of what
/// is not UTF-8. Nothing is lost.
std::string Escape(std::string_view text);

/// As `Escape`, for people: a backslash stays as it is and a tab becomes four blanks.
std::string Printable(std::string_view text);

/// @return A name or an argument as messages show it: printable, between single quotes.
std::string Quoted(std::string_view name);

/// Prints a printable form of the text to standard error, as one line or, where it has line breaks,
/// several. What comes from outside may hold line breaks too: within a longer text it must be
/// `Printable` or `Quoted` already.
void PrintErrorLine(std::string_view text);

/// @return The columns that a printable text takes on a terminal.
std::size_t DisplayWidth(std::string_view text);

/// @return As much of a printable text as fits into `width` columns; the last one is "…" when
///         something was cut off.
std::string ClipToWidth(std::string_view text, std::size_t width);

#endif  // SCA_PROGRAMS_COMMON_ESCAPE_H
