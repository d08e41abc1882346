#include "tests/client/decoder_model.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace {

constexpr unsigned long kInvalid = 100138;

class Model {
 public:
  Model(unsigned long variant, const std::vector<std::string>& pieces, std::size_t headerLength,
        std::size_t room)
      : variant_(variant),
        capacity_(variant == 1 ? 2047 : 511),
        position_(headerLength),
        room_(room) {
    for (const std::string& piece : pieces) {
      reply_ += piece;
      ends_.push_back(reply_.size());
    }
  }

  ModelOutcome Run() {
    while (end_ < position_ && Receive(capacity_ - end_)) {
    }
    while (!isOver_) {
      const std::size_t size = ReadSize();
      if (isOver_) break;
      const std::size_t dataEnd = position_ + size;
      GatherChunk(size, std::min(size, end_ - position_));
      if (size == 0) break;
      const bool wasHeld = dataEnd <= end_;
      // The second and third decoders receive the rest of a chunk with its CR LF.
      const std::size_t wanted = wasHeld || variant_ == 1 ? dataEnd : dataEnd + 2;
      while (end_ < wanted && Receive(wanted - end_)) {
      }
      if (isOver_) break;
      outcome_.text += reply_.substr(position_, size);
      position_ = wanted;
      if (wasHeld || variant_ == 1) FinishChunk();
    }
    return outcome_;
  }

 private:
  bool IsHeld(std::size_t position, std::size_t count) const { return position + count <= end_; }
  bool IsCrLf(std::size_t position) const { return reply_.compare(position, 2, "\r\n") == 0; }

  // Text that gathers in the data buffer, until it makes room for more.
  void Gather(std::size_t count, bool fits) {
    if (!fits && gathered_ > 0) {
      outcome_.blocks.push_back(gathered_);
      gathered_ = 0;
    }
    gathered_ += count;
  }

  void GatherChunk(std::size_t size, std::size_t held) {
    if (size == 0 || variant_ == 1) {
      Gather(size, size > 0 && size < room_ - gathered_);
    } else {
      Gather(held, held <= room_ - gathered_);
      if (held < size) Gather(size - held, size - held + 2 <= room_ - gathered_);
    }
  }

  void Fail(unsigned long code, bool keepsValid) {
    isOver_ = true;
    outcome_.code = code;
    outcome_.keepsValid = keepsValid;
  }

  bool Receive(std::size_t limit) {
    if (end_ == reply_.size()) {
      Fail(ECONNRESET, false);
      return false;
    }
    end_ = std::min(end_ + limit, *std::upper_bound(ends_.begin(), ends_.end(), end_));
    return true;
  }

  // Length of the line at the position, when it is held whole.
  bool HasLine(std::size_t* length) const {
    const std::size_t at = reply_.find("\r\n", position_);
    *length = at - position_;
    return at != std::string::npos && IsHeld(at, 2);
  }

  std::size_t ReadSize() {
    std::size_t length = 0;
    if (variant_ == 1) {
      if (!HasLine(&length) || length == 0) Fail(kInvalid, false);
    } else if (variant_ == 2) {
      const auto isSize = [&] { return HasLine(&length) && length > 0 && length <= 6; };
      if (!isSize()) {
        position_ = end_;
        if (Receive(capacity_) && !isSize()) Fail(kInvalid, false);
      }
    } else {
      for (;;) {
        while (!HasLine(&length)) {
          if (!Receive(512 - (end_ - position_))) return 0;
        }
        if (length > 0) break;
        position_ += 2;
      }
      if (length > 6) Fail(kInvalid, false);
    }
    if (isOver_) return 0;
    const char* line = reply_.c_str() + position_;
    char* end = nullptr;
    const std::size_t size = std::strtoul(line, &end, 16);
    // Blanks, a line end among them, may stand before a size but are none.
    if (end == line || end > line + length || *line == '\n') Fail(kInvalid, false);
    position_ += length + 2;
    return size;
  }

  void FinishChunk() {
    if (variant_ == 3) {
      if (IsHeld(position_, 2) && IsCrLf(position_)) position_ += 2;
      return;
    }
    const std::size_t held = end_ - position_;
    if (held == 0 && !Receive(variant_ == 1 ? capacity_ : 2)) return;
    // With one byte held the second decoder takes another and refuses the two, whatever they are.
    const bool isSplit = variant_ == 2 && held == 1;
    if (isSplit && !Receive(1)) return;
    if (isSplit || !IsHeld(position_, 2) || !IsCrLf(position_)) Fail(kInvalid, variant_ == 1);
    position_ += 2;
  }

  const unsigned long variant_;
  const std::size_t capacity_;
  std::string reply_;
  std::vector<std::size_t> ends_;
  std::size_t position_;
  std::size_t end_ = 0;  // of the bytes received
  const std::size_t room_;
  std::size_t gathered_ = 0;
  bool isOver_ = false;
  ModelOutcome outcome_;
};

}  // namespace

ModelOutcome PredictOutcome(unsigned long variant, const std::vector<std::string>& pieces,
                            std::size_t headerLength, std::size_t capacity) {
  return Model(variant, pieces, headerLength, capacity).Run();
}
