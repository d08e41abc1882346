#include "platform/posix/SCA_ProcessGroup.h"

#include <dirent.h>
#include <fcntl.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <string>

namespace {

constexpr std::chrono::seconds kScanInterval{1};

// Reads a small file of /proc from its start; gives its length.
std::size_t ReadText(int fd, char* text, std::size_t size) {
  const ssize_t length = SCA_Retry([&] { return ::pread(fd, text, size - 1, 0); });
  text[length > 0 ? length : 0] = '\0';
  return length > 0 ? static_cast<std::size_t>(length) : 0;
}

SCA_Fd OpenProc(pid_t pid, const char* name) {
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%d/%s", static_cast<int>(pid), name);
  return SCA_Fd(::open(path, O_RDONLY | O_CLOEXEC));
}

// The number after a label, or 0.
unsigned long long NumberAfter(const char* text, const char* label) {
  const char* found = std::strstr(text, label);
  unsigned long long number = 0;
  if (found != nullptr) {
    const char* begin = found + std::strlen(label);
    std::from_chars(begin, begin + std::strlen(begin), number);
  }
  return number;
}

// The program that a process runs; empty when it cannot be told.
std::string ProgramOf(pid_t pid) {
  char link[64];
  char program[4096];
  std::snprintf(link, sizeof link, "/proc/%d/exe", static_cast<int>(pid));
  const ssize_t length = ::readlink(link, program, sizeof program);
  return length > 0 ? std::string(program, static_cast<std::size_t>(length)) : "";
}

pid_t ParentOf(pid_t pid) {
  char text[512];
  const SCA_Fd file = OpenProc(pid, "stat");
  if (!file.IsOpen() || ReadText(file.Get(), text, sizeof text) == 0) return 0;
  // "PID (NAME) STATE PARENT ...", and a name may hold anything.
  const char* end = std::strrchr(text, ')');
  pid_t parent = 0;
  if (end != nullptr && std::strlen(end) > 4) {
    std::from_chars(end + 4, end + std::strlen(end), parent);
  }
  return parent;
}

// Which processes are in which group, read for all groups at once: the cost of a scan grows with
// the processes of the machine, not with the children that are watched.
class Memberships {
 public:
  // Gives the members of a group when there has been a scan since the one that was seen.
  bool GetNew(pid_t group, unsigned long* seenScan, std::vector<pid_t>* pids) SCA_EXCLUDES(lock_) {
    const SCA_LockGuard guard(lock_);
    const Clock::time_point now = Clock::now();
    if (scan_ == 0 || now - scannedAt_ >= kScanInterval) {
      Scan();
      scannedAt_ = now;
      ++scan_;
    }
    if (*seenScan == scan_) return false;
    *seenScan = scan_;
    for (const Entry& entry : entries_) {
      if (entry.group == group) pids->push_back(entry.pid);
    }
    return true;
  }

 private:
  using Clock = std::chrono::steady_clock;
  struct Entry {
    pid_t group;
    pid_t pid;
  };

  void Scan() SCA_REQUIRES(lock_) {
    entries_.clear();
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir("/proc"), ::closedir);
    if (directory == nullptr) return;
    while (const dirent* item = ::readdir(directory.get())) {
      const char* end = item->d_name + std::strlen(item->d_name);
      pid_t pid = 0;
      if (std::from_chars(item->d_name, end, pid).ptr != end) continue;
      // One cheap call, where the file of the process's state would take three and be dear to read.
      if (const pid_t group = ::getpgid(pid); group > 0) entries_.push_back({group, pid});
    }
  }

  SCA_Lock lock_;
  std::vector<Entry> entries_ SCA_GUARDED_BY(lock_);
  Clock::time_point scannedAt_ SCA_GUARDED_BY(lock_);
  unsigned long scan_ SCA_GUARDED_BY(lock_) = 0;
};

// Never destroyed: a worker may still watch its child while the process exits.
Memberships& GetMemberships() {
  static Memberships& memberships = *new Memberships;
  return memberships;
}

void AddCounts(const SCA_ProcessFigures& from, SCA_ProcessFigures* to) {
  to->readOperationCount += from.readOperationCount;
  to->writeOperationCount += from.writeOperationCount;
  to->readTransferCount += from.readTransferCount;
  to->writeTransferCount += from.writeTransferCount;
}

}  // namespace

void SCA_ProcessGroup::Add(pid_t pid) {
  const auto known = std::find_if(members_.begin(), members_.end(),
                                  [pid](const Member& member) { return member.pid == pid; });
  if (known != members_.end()) {
    // A process that is about to run another program still has its parent's at first.
    if (known->isWorker && !known->isWorkerForSure) {
      known->isWorker = known->isWorkerForSure = IsWorker(pid);
    }
    return;
  }
  Member member{pid,         OpenProc(pid, "statm"), OpenProc(pid, "io"), {}, IsWorker(pid), false,
                Clock::now()};
  // Asked once the files are open: the number may have been given to another since the scan.
  if (member.memory.IsOpen() && ::getpgid(pid) == group_) members_.push_back(std::move(member));
}

void SCA_ProcessGroup::UpdateMembers() {
  // The leader is the child: in the group before the first scan sees it, and there as a zombie
  // when it has gone.
  if (seenScan_ == 0) Add(group_);
  std::vector<pid_t> pids;
  if (!GetMemberships().GetNew(group_, &seenScan_, &pids)) return;
  for (const pid_t pid : pids) Add(pid);
}

bool SCA_ProcessGroup::IsWorker(pid_t pid) const {
  if (pid == group_ || ParentOf(pid) != group_) return false;
  const std::string program = ProgramOf(pid);
  return !program.empty() && program == ProgramOf(group_);
}

void SCA_ProcessGroup::NoteEnd(const Member& member) {
  if (!member.isWorker) return;
  const auto runTime =
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - member.addedAt);
  ended_.push_back({{static_cast<unsigned long>(member.pid), member.figures.workingSetSize,
                     static_cast<unsigned long long>(runTime.count())},
                    seenScan_});
}

int SCA_ProcessGroup::TakeEndedWorker(SCA_ProcessWorker* worker) {
  if (ended_.empty() || seenScan_ < ended_.front().scan + 2) return 0;
  *worker = ended_.front().worker;
  ended_.pop_front();
  return 1;
}

// False when the process has exited.
bool SCA_ProcessGroup::Read(Member* member) {
  static const auto pageSize = static_cast<unsigned long long>(::sysconf(_SC_PAGESIZE));
  char text[512];
  // "size resident ...", in pages; nothing is resident of a zombie.
  if (ReadText(member->memory.Get(), text, sizeof text) == 0) return false;
  const unsigned long long resident = NumberAfter(text, " ");
  if (resident == 0) return false;
  SCA_ProcessFigures& figures = member->figures;
  figures.workingSetSize = resident * pageSize;
  // Another user's counts are not shown to everybody.
  if (ReadText(member->transfers.Get(), text, sizeof text) == 0) return true;
  figures.readTransferCount = NumberAfter(text, "rchar: ");
  figures.writeTransferCount = NumberAfter(text, "wchar: ");
  figures.readOperationCount = NumberAfter(text, "syscr: ");
  figures.writeOperationCount = NumberAfter(text, "syscw: ");
  return true;
}

int SCA_ProcessGroup::GetFigures(SCA_ProcessFigures* figures) try {
  UpdateMembers();
  SCA_ProcessFigures sum;
  for (auto member = members_.begin(); member != members_.end();) {
    if (Read(&*member)) {
      AddCounts(member->figures, &sum);
      sum.workingSetSize += member->figures.workingSetSize;
      ++member;
    } else {
      NoteEnd(*member);
      AddCounts(member->figures, &gone_);
      member = members_.erase(member);
    }
  }
  if (members_.empty()) return 0;
  AddCounts(gone_, &sum);
  *figures = sum;
  return 1;
} catch (const std::exception&) {  // of memory; the next look may have it
  return 0;
}
