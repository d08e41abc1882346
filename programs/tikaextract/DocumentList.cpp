#include "programs/tikaextract/DocumentList.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

#include "programs/common/Input.h"

namespace {

constexpr std::size_t kBlock = 64UL << 10;
constexpr char kUtf8Mark[] = "\xEF\xBB\xBF";

}  // namespace

DocumentList::DocumentList(std::string name, char separator, SCA_Event* cancel)
    : name_(std::move(name)), separator_(separator), cancel_(cancel), block_(kBlock) {}

DocumentList::~DocumentList() {
  if (fd_ > STDIN_FILENO) ::close(fd_);
}

DocumentList::Result DocumentList::Next(std::string* text) {
  for (;;) {
    const Result result = TakeRaw(text);
    if (result != Result::Entry || separator_ == '\0') return result;
    // Programs of other systems put them there.
    if (std::exchange(isFirst_, false)) {
      if (text->rfind(kUtf8Mark, 0) == 0) text->erase(0, std::strlen(kUtf8Mark));
      if (text->rfind("\xFF\xFE", 0) == 0 || text->rfind("\xFE\xFF", 0) == 0) {
        return Fail("it is encoded as UTF-16; save it as UTF-8", text);
      }
    }
    if (!text->empty() && text->back() == '\r') text->pop_back();
    if (!text->empty()) return result;
  }
}

// An entry as it stands there, not empty.
DocumentList::Result DocumentList::TakeRaw(std::string* text) {
  text->clear();
  while (!isOver_) {
    if (next_ == end_) {
      const bool isOpen = fd_ >= 0 || Open();
      const long length =
          isOpen ? ReadUnlessCancelled(fd_, block_.data(), block_.size(), cancel_) : -1;
      if (length < 0) return Fail(std::strerror(errno), text);
      if (length == 0) {
        isOver_ = true;
        break;
      }
      next_ = 0;
      end_ = static_cast<std::size_t>(length);
    }
    const char* const begin = block_.data() + next_;
    const auto* const separator =
        static_cast<const char*>(std::memchr(begin, separator_, end_ - next_));
    const std::size_t length =
        separator != nullptr ? static_cast<std::size_t>(separator - begin) : end_ - next_;
    // Whatever is given for a list, it does not fill the memory.
    if (text->size() + length > PATH_MAX) {
      return Fail("an entry is longer than a path may be, " + std::to_string(PATH_MAX) + " bytes",
                  text);
    }
    text->append(begin, length);
    next_ += length + (separator != nullptr ? 1 : 0);
    if (separator != nullptr && !text->empty()) return Result::Entry;
  }
  // What a cancelled wait has cut off may be no name at all.
  return text->empty() || cancel_->Wait(0) != 0 ? Result::End : Result::Entry;
}

DocumentList::Result DocumentList::Fail(const std::string& why, std::string* text) {
  isOver_ = true;
  *text = why;
  return Result::Failed;
}

// Opening a named pipe must not wait for its writer, which nothing could interrupt.
bool DocumentList::Open() {
  fd_ = name_ == "-" ? STDIN_FILENO : ::open(name_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  return fd_ >= 0;
}
