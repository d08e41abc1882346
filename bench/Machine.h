/// What a figure depends on beside the code: the machine, and how its kernel sends.
#ifndef SCA_BENCH_MACHINE_H
#define SCA_BENCH_MACHINE_H

#include <optional>
#include <string>
#include <vector>

/// Prints the library's version, the machine (processor, cores, kernel) and the compiler.
void PrintMachine();

/// Says on standard error that figures cannot be trusted when the load of the machine is above 0.5.
void WarnOfLoad();

/// Tells how much of the machine's processors went elsewhere: not to this program, its children and
/// theirs, and not unused.
class Others {
 public:
  /// More than this share of all processors spoils a measurement.
  static constexpr double kMost = 0.05;

  /// Begins.
  Others();
  /// @return The share, from 0 to 1, since it began or last told; nothing when that was so short
  ///         that the system's clock ticks (10 ms) cannot tell.
  std::optional<double> Take();

 private:
  struct Ticks {
    double passed = 0;  // of all processors
    double unused = 0;
    double ours = 0;
  };
  static Ticks Now();

  Ticks since_;
};

/// @return The congestion control that new sockets get; empty when the system does not tell.
std::string DefaultCongestionControl();

/// @return The congestion controls to measure a sender with: the default, and "cubic", which most
///         systems have for it.
std::vector<std::string> CongestionControls();

/// @return Whether this user may choose it for a socket.
bool MayChoose(const std::string& congestionControl);

/// Gives the sockets that this process makes from now on, in whatever library, another congestion
/// control: before they connect, since a paced connection stays paced. Empty for the default.
void ChooseCongestionControl(const std::string& name);

/// @return The congestion controls of this process's connections: one name, or several with
///         blanks between them; empty without a connection.
std::string CongestionControlInUse();

/// A directory of its own for the files that are sent, removed with its content.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  /// Writes a file of that many bytes, which so lies in the page cache.
  std::string MakeFile(const std::string& name, unsigned long long size) const;

 private:
  std::string path_;
};

#endif  // SCA_BENCH_MACHINE_H
