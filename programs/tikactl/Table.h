/// Tables, colours and figures for people.
#ifndef SCA_PROGRAMS_TIKACTL_TABLE_H
#define SCA_PROGRAMS_TIKACTL_TABLE_H

#include <string>
#include <utility>
#include <vector>

enum class Colour { None, Bold, Dim, Green, Yellow, Red };

/// @return The text in a colour; as it is unless standard output is a terminal that shows colours
///         and NO_COLOR is unset.
std::string Paint(const std::string& text, Colour colour);

struct Cell {
  Cell(std::string theText) : text(std::move(theText)) {}  // NOLINT(google-explicit-constructor)
  Cell(const char* theText) : text(theText) {}             // NOLINT(google-explicit-constructor)
  Cell(std::string theText, Colour theColour) : text(std::move(theText)), colour(theColour) {}

  std::string text;  ///< fit for a terminal
  Colour colour = Colour::None;
};

enum class Align { Left, Right };
struct Column {
  const char* title;
  Align align = Align::Left;
};

/// Aligned columns. Cells wider than 40 columns of the terminal are cut, except the last one.
class Table {
 public:
  explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}
  /// @param cells  As many as columns.
  void Add(std::vector<Cell> cells);
  /// @return The title line and the rows.
  /// @param width  At which lines are cut.
  std::vector<std::string> Lines(std::size_t width) const;

 private:
  std::string Line(const std::vector<Cell>& cells, const std::vector<std::size_t>& widths,
                   std::size_t width) const;

  std::vector<Column> columns_;
  std::vector<std::vector<Cell>> rows_;
};

/// @return "512 MB", "1.5 KB", "0 B"
std::string Size(unsigned long long bytes);
/// @return "850 ms", "12 s", "4 min 12 s", "3 h 4 min", "3 d 4 h"
std::string Duration(unsigned long long ms);
/// @return Local "2026-11-23 05:12:33"; "-" for never.
std::string When(unsigned long long absTime);
/// @return "1 server", "2 servers"
std::string Count(unsigned long long count, const std::string& what);
/// @return The last part of a path.
std::string BaseName(const std::string& path);

#endif  // SCA_PROGRAMS_TIKACTL_TABLE_H
