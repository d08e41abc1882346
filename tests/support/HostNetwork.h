/// Several "hosts" on one machine, in network namespaces where the machine allows it.
#ifndef SCA_TESTS_SUPPORT_HOSTNETWORK_H
#define SCA_TESTS_SUPPORT_HOSTNETWORK_H

#include <functional>
#include <string>
#include <vector>

/// The thread that makes it becomes the client's host, which has a wire to each of the others; all
/// is as before at the end. Where namespaces are not allowed, the hosts are addresses of the
/// loopback interface, and no wire can be cut.
class HostNetwork {
 public:
  explicit HostNetwork(int hosts);
  ~HostNetwork();
  HostNetwork(const HostNetwork&) = delete;
  HostNetwork& operator=(const HostNetwork&) = delete;

  /// @return False for mere addresses.
  bool HasWires() const { return home_ >= 0; }
  std::string Address(int host) const;
  /// Does something as a host: programs started by it live there.
  void On(int host, const std::function<void()>& action) const;
  /// What is sent over a wire that is cut gets lost, without a word.
  void Cut(int host) const { Switch(host, "down"); }
  void Mend(int host) const { Switch(host, "up"); }

 private:
  bool MakeNamespaces(int hosts);
  void Wire(int host) const;
  void Switch(int host, const std::string& state) const;

  int home_ = -1;           // the thread's former namespace
  int client_ = -1;         // the client's
  std::vector<int> hosts_;  // the hosts'
};

/// A small disk, which the calling thread and its children alone see, in the place of a directory.
class SmallDisk {
 public:
  SmallDisk(std::string directory, int kilobytes);
  ~SmallDisk();
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  /// @return False where the machine does not allow one.
  bool IsMounted() const { return isMounted_; }

 private:
  const std::string directory_;
  bool isMounted_ = false;
};

#endif  // SCA_TESTS_SUPPORT_HOSTNETWORK_H
