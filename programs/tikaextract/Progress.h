/// One line on the terminal that says how far a run is.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_PROGRESS_H
#define SCA_PROGRAMS_TIKAEXTRACT_PROGRESS_H

#include <cstddef>
#include <string>

/// Draws on standard error, and nothing unless that is a terminal that the text does not go to.
class Progress {
 public:
  Progress(std::size_t files, bool textGoesToFiles);
  /// Takes the line away.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// Shows a file, counted from 1.
  void Show(std::size_t number, const std::string& file);
  /// Prints a line of its own to standard error.
  void PrintLine(const std::string& line);

 private:
  void Erase();

  const std::size_t files_;
  const bool isShown_;
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_PROGRESS_H
