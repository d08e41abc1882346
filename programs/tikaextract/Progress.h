/// A progress line on the terminal during a run, and a summary line after it.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_PROGRESS_H
#define SCA_PROGRAMS_TIKAEXTRACT_PROGRESS_H

#include <chrono>
#include <string>

/// Draws on standard error, and nothing unless that is a terminal that the text does not go to.
class Progress {
 public:
  explicit Progress(bool textGoesToFiles);
  /// Takes the line away.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  bool IsShown() const { return isShown_; }
  /// What there is to do, once it is known.
  void SetTotal(unsigned long long files, unsigned long long bytes);

  /// What follows the figures, such as the services' servers.
  void SetRemark(const std::string& remark) { remark_ = remark; }

  void AddExtracted(unsigned long long bytes);
  /// Of the extracted ones, one whose text may not be whole.
  void AddTruncated() { ++truncated_; }
  void AddFailed(unsigned long long bytes);
  void AddSkipped(unsigned long long bytes);
  /// Redraws the line, but not more often than an eye can read.
  void Show();
  /// Prints a line of its own to standard error.
  void PrintLine(const std::string& line);
  /// @return The whole run in one line.
  std::string Summary() const;

 private:
  using Clock = std::chrono::steady_clock;

  void Erase();
  double Seconds() const;
  unsigned long long Files() const { return extracted_ + failed_ + skipped_; }
  std::string TimeLeft() const;

  const bool isShown_;
  const Clock::time_point begin_ = Clock::now();
  Clock::time_point shownAt_;
  std::string remark_;
  unsigned long long totalFiles_ = 0;
  unsigned long long totalBytes_ = 0;
  unsigned long long extracted_ = 0;
  unsigned long long truncated_ = 0;
  unsigned long long failed_ = 0;
  unsigned long long skipped_ = 0;
  unsigned long long bytes_ = 0;         // of the documents tried
  unsigned long long skippedBytes_ = 0;  // of those that took no time
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_PROGRESS_H
