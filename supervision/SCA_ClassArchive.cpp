#include "supervision/SCA_ClassArchive.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <deque>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "platform/SCA_Error.h"
#include "platform/SCA_File.h"
#include "platform/SCA_FileLock.h"
#include "platform/SCA_Lock.h"
#include "platform/SCA_Memory.h"
#include "platform/SCA_Path.h"
#include "platform/SCA_Process.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Result.h"
#include "supervision/SCA_ClassArchiveName.h"
#include "supervision/SCA_ClassTraining.h"

namespace {

namespace fs = std::filesystem;

constexpr char kSource[] = "SCA_ClassArchive";
constexpr char kLockName[] = "lock";
constexpr char kWorkName[] = "work";
constexpr char kArchiveExtension[] = ".jsa";
constexpr char kFailedExtension[] = ".failed";
constexpr std::size_t kKept = 4;
constexpr std::chrono::hours kRetryAfter{1};
constexpr unsigned long kTrainingMs = 120000;
// An archive with what the JVM needs while it writes it, rounded up.
constexpr std::uintmax_t kSpace = 200UL << 20;
// A training run takes about 350 MB with Tika 3.3.2, which leaves some to others.
constexpr unsigned long long kMemory = 512ULL << 20;

bool HasHappened(const fs::path& file, std::chrono::hours within) {
  std::error_code error;
  const auto time = fs::last_write_time(file, error);
  const auto now = fs::file_time_type::clock::now();
  return !error && time <= now && now - time < within;
}

void Touch(const fs::path& file) {
  std::error_code ignored;
  fs::last_write_time(file, fs::file_time_type::clock::now(), ignored);
}

}  // namespace

const char* SCA_ClassArchiveText(SCA_ClassArchiveState state) {
  switch (state) {
    case SCA_ClassArchiveState::Off:
      return "off";
    case SCA_ClassArchiveState::Unsupported:
      return "not supported";
    case SCA_ClassArchiveState::Missing:
      return "none yet";
    case SCA_ClassArchiveState::Used:
      return "used";
    case SCA_ClassArchiveState::Refused:
      return "refused";
  }
  return "";
}

bool SCA_IsArchiveRefusal(const std::string& line) {
  // "[0.005s][error  ][cds] Not a valid shared archive file (...)", "[...][warning][cds,dynamic]
  // ..."
  const std::string begin = line.substr(0, line.find("] "));
  return begin.rfind('[', 0) == 0 && begin.find("[cds") != std::string::npos &&
         (begin.find("[error") != std::string::npos || begin.find("[warning") != std::string::npos);
}

int SCA_GetClassArchiveDir(char* directory, unsigned long size) {
  char cache[SCA_MaxPath];
  return SCA_GetUserCacheDir(cache, sizeof cache) != 0 &&
                 SCA_FormatPath(directory, size, "%s/sca_tika/class-archives", cache) != 0
             ? 1
             : 0;
}

// The files. Constant after construction.
class SCA_ClassArchive::Store {
 public:
  explicit Store(const char* directory) : directory_(directory) {}

  SCA_ClassArchiveState Find(const SCA_TikaLaunch& launch, std::string* option) const {
    const fs::path file = PathOf(launch);
    if (file.empty()) return SCA_ClassArchiveState::Unsupported;
    if (!IsUsable(file)) return SCA_ClassArchiveState::Missing;
    Touch(file);
    // Quotes group in JAVA_TOOL_OPTIONS; a path with one in it is not made.
    *option = SCA_ClassArchiveOptions(file.native());
    return SCA_ClassArchiveState::Used;
  }

  void Discard(const SCA_TikaLaunch& launch) const {
    const fs::path file = PathOf(launch);
    if (file.empty()) return;
    NoteFailure(file);
    std::error_code ignored;
    fs::remove(file, ignored);
  }

  bool IsWanted(const SCA_TikaLaunch& launch) const {
    const fs::path file = PathOf(launch);
    if (file.empty() || IsUsable(file) || HasHappened(FailureOf(file), kRetryAfter)) return false;
    SCA_FileLock lock;
    return !Prepare(&lock).HasFailed();
  }

  SCA_Result Make(const SCA_TikaLaunch& launch, SCA_Event* cancel,
                  SCA_ProcessPriority priority) const {
    const fs::path file = PathOf(launch);
    if (file.empty()) return SCA_Result(ENOTSUP);
    if (IsUsable(file)) return SCA_Done;
    SCA_FileLock lock;
    if (const SCA_Result ready = Prepare(&lock); ready.HasFailed()) return ready;
    // The process that held the lock until now may have made it.
    if (IsUsable(file)) return SCA_Done;
    const SCA_Result made = MakeAlone(launch, file, cancel, priority);
    const bool isForGood = made.Code() == SCA_ErrorProcessEnded ||
                           made.Code() == SCA_ErrorInvalidData || made.Code() == ETIMEDOUT;
    std::error_code ignored;
    if (isForGood) NoteFailure(file);
    if (!made.HasFailed()) fs::remove(FailureOf(file), ignored);
    return made;
  }

 private:
  // Empty where there can be none.
  fs::path PathOf(const SCA_TikaLaunch& launch) const {
    SCA_JavaRuntime java;
    const std::vector<std::string> words = SCA_JavaWordsInForce(launch.javaOptions);
    if (!SCA_FindJava(&java) || !SCA_CanArchive(java, words)) return {};
    const std::string name = SCA_ClassArchiveName(java, launch, words);
    const bool isFit =
        !name.empty() && (directory_ / name).native().find_first_of("\"'") == std::string::npos;
    return isFit && directory_.is_absolute() ? directory_ / name : fs::path();
  }

  static fs::path FailureOf(fs::path file) { return file.replace_extension(kFailedExtension); }
  static void NoteFailure(const fs::path& file) { std::ofstream(FailureOf(file)) << '\n'; }

  bool IsUsable(const fs::path& file) const {
    std::error_code error;
    return fs::is_regular_file(fs::symlink_status(file, error)) && !error &&
           SCA_IsOwnPath(file.c_str()) != 0 && SCA_IsOwnPath(directory_.c_str()) != 0;
  }

  // Sees to it that nothing is in the way, and that nobody else makes an archive here.
  SCA_Result Prepare(SCA_FileLock* lock) const {
    unsigned long code = 0;
    if (SCA_CreateDirectory(directory_.c_str(), &code) == 0) return SCA_Result(code);
    if (SCA_IsOwnPath(directory_.c_str()) == 0) return SCA_Result(EPERM);
    std::error_code error;
    const fs::space_info space = fs::space(directory_, error);
    if (!error && space.available < kSpace) return SCA_Result(ENOSPC);
    if (SCA_GetAvailableMemory() < kMemory) return SCA_Result(ENOMEM);
    return lock->Take((directory_ / kLockName).c_str());
  }

  // What a run that was killed has left may be removed: the lock was its.
  SCA_Result MakeAlone(const SCA_TikaLaunch& launch, const fs::path& file, SCA_Event* cancel,
                       SCA_ProcessPriority priority) const {
    std::error_code error;
    const fs::path work = directory_ / kWorkName;
    fs::remove_all(work, error);
    if (!error) fs::create_directory(work, error);
    if (error) return SCA_Result(static_cast<unsigned long>(error.value()));
    const fs::path made = work / file.filename();
    const SCA_TrainingRun run{launch, work.native(), made.native(), priority, kTrainingMs, cancel};
    SCA_Result result = SCA_TrainClasses(run);
    unsigned long code = 0;
    if (!result.HasFailed() && SCA_MoveWhole(made.c_str(), file.c_str(), &code) == 0) {
      result = SCA_Result(code);
    }
    fs::remove_all(work, error);
    if (!result.HasFailed()) RemoveOldest();
    return result;
  }

  // Each use renews the time of an archive; one that a JVM has open stays whole for it.
  void RemoveOldest() const {
    std::vector<std::pair<fs::file_time_type, fs::path>> files;
    std::error_code error;
    for (fs::directory_iterator entry(directory_, error);
         !error && entry != fs::directory_iterator(); entry.increment(error)) {
      const fs::path path = entry->path();
      const bool isFailure = path.extension() == kFailedExtension;
      std::error_code ignored;
      if (isFailure && !HasHappened(path, kRetryAfter)) fs::remove(path, ignored);
      if (path.extension() != kArchiveExtension) continue;
      files.emplace_back(fs::last_write_time(path, ignored), path);
    }
    std::sort(files.rbegin(), files.rend());
    for (std::size_t i = kKept; i < files.size(); ++i) fs::remove(files[i].second, error);
  }

  const fs::path directory_;
};

// Makes archives one after the other, on a thread that runs while there is one to make.
class SCA_ClassArchive::Trainer {
 public:
  explicit Trainer(const Store& store) : store_(store) {
    if (cancel_.IsValid() == 0) throw std::bad_alloc();
  }

  ~Trainer() {
    cancel_.Set();
    if (thread_.joinable()) thread_.join();
  }
  Trainer(const Trainer&) = delete;
  Trainer& operator=(const Trainer&) = delete;

  void Add(const SCA_TikaLaunch& launch) SCA_EXCLUDES(lock_) {
    const SCA_LockGuard guard(lock_);
    if (queue_.size() >= kKept) return;  // more archives than that are not kept
    queue_.push_back(launch);
    if (isRunning_) return;
    if (thread_.joinable()) thread_.join();  // it has taken its last look, and ends
    thread_ = std::thread([this] { Run(); });
    isRunning_ = true;
  }

 private:
  void Run() SCA_EXCLUDES(lock_) {
    for (;;) {
      SCA_TikaLaunch launch;
      {
        const SCA_LockGuard guard(lock_);
        isRunning_ = !queue_.empty() && cancel_.Wait(0) == 0;
        if (!isRunning_) return;
        launch = std::move(queue_.front());
        queue_.pop_front();
      }
      Make(launch);
    }
  }

  void Make(const SCA_TikaLaunch& launch) {
    const SCA_Result made = SCA_Guarded([&] {
      // Several servers that start alike ask alike.
      return store_.IsWanted(launch) ? store_.Make(launch, &cancel_, SCA_ProcessPriority::Idle)
                                     : SCA_Done;
    });
    if (made.HasFailed() && made.Code() != SCA_ErrorCancelled) {
      SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelInfo,
                                               "no class archive was made for %s: %s",
                                               launch.fileName.c_str(), SCA_ErrorText(made.Code()));
    }
  }

  const Store& store_;
  SCA_Event cancel_{1, 0};
  SCA_Lock lock_;
  std::deque<SCA_TikaLaunch> queue_ SCA_GUARDED_BY(lock_);
  bool isRunning_ SCA_GUARDED_BY(lock_) = false;
  std::thread thread_ SCA_GUARDED_BY(lock_);
};

SCA_ClassArchive::SCA_ClassArchive(const char* directory, SCA_ClassArchiveMaking making) {
  const SCA_Result made = SCA_Guarded([&] {
    store_ = std::make_unique<Store>(directory);
    if (making == SCA_ClassArchiveMaking::InBackground) {
      trainer_ = std::make_unique<Trainer>(*store_);
    }
    return SCA_Done;
  });
  SetValid(made.HasFailed() ? 0 : 1);
}

SCA_ClassArchive::~SCA_ClassArchive() = default;

SCA_ClassArchiveState SCA_ClassArchive::Find(const SCA_TikaLaunch& launch,
                                             std::string* option) const {
  option->clear();
  SCA_ClassArchiveState state = SCA_ClassArchiveState::Unsupported;
  if (IsValid() == 0) return state;
  const SCA_Result found = SCA_Guarded([&] {
    state = store_->Find(launch, option);
    return SCA_Done;
  });
  return found.HasFailed() ? SCA_ClassArchiveState::Unsupported : state;
}

void SCA_ClassArchive::Discard(const SCA_TikaLaunch& launch) {
  if (IsValid() == 0) return;
  static_cast<void>(SCA_Guarded([&] {
    store_->Discard(launch);
    return SCA_Done;
  }));
}

bool SCA_ClassArchive::IsWanted(const SCA_TikaLaunch& launch) const {
  bool isWanted = false;
  if (IsValid() == 0) return false;
  static_cast<void>(SCA_Guarded([&] {
    isWanted = store_->IsWanted(launch);
    return SCA_Done;
  }));
  return isWanted;
}

void SCA_ClassArchive::MakeLater(const SCA_TikaLaunch& launch) {
  if (IsValid() == 0 || trainer_ == nullptr) return;
  static_cast<void>(SCA_Guarded([&] {
    trainer_->Add(launch);
    return SCA_Done;
  }));
}

int SCA_ClassArchive::Make(const SCA_TikaLaunch& launch, SCA_Event* cancel, unsigned long* error) {
  if (IsValid() == 0) return SCA_Fail(ENOMEM, error);
  return SCA_Guarded([&] { return store_->Make(launch, cancel, SCA_ProcessPriority::Inherited); })
      .Store(error);
}
