/// What a figure depends on beside the code: the machine, and how its kernel sends.
#ifndef SCA_BENCH_MACHINE_H
#define SCA_BENCH_MACHINE_H

#include <string>
#include <vector>

/// Prints the library's version, the machine (processor, cores, kernel) and the compiler.
void PrintMachine();

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
