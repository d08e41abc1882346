#include "client/SCA_TikaMetadataReader.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

#include "platform/SCA_Error.h"

namespace {

constexpr unsigned kMostDepth = 16;  // Tika sends 3
// Text is handed out in pieces of about this size: a line feed is an escape, and there are many.
constexpr std::size_t kPiece = 16UL << 10;
constexpr std::size_t kMostLiteral = 64;
constexpr unsigned long kNoCharacter = 0xFFFD;
// The room that a name and a value take besides their bytes.
constexpr unsigned long kFieldBytes = 2 * sizeof(std::string);

constexpr const char* kTextNames[] = {"X-TIKA:content", "tk:content"};

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool IsHigh(unsigned unit) {
  return unit >= 0xD800 && unit < 0xDC00;
}

bool IsLow(unsigned unit) {
  return unit >= 0xDC00 && unit < 0xE000;
}

// What a single letter after a backslash means; 0 for none.
char Meaning(char letter) {
  constexpr char kLetters[] = "\"\\/bfnrt";
  constexpr char kMeanings[] = "\"\\/\b\f\n\r\t";
  const char* const found = letter != '\0' ? std::strchr(kLetters, letter) : nullptr;
  return found != nullptr ? kMeanings[found - kLetters] : '\0';
}

bool IsLiteral(const std::string& token) {
  if (token == "true" || token == "false" || token == "null") return true;
  if (token.find_first_not_of("0123456789+-.eE") != std::string::npos) return false;
  char* end = nullptr;
  std::strtod(token.c_str(), &end);
  return *end == '\0' && end != token.c_str();
}

}  // namespace

SCA_TikaMetadataReceiver::~SCA_TikaMetadataReceiver() = default;

SCA_TikaMetadataReader::SCA_TikaMetadataReader(SCA_TikaMetadataReceiver* receiver,
                                               unsigned long metadataBytes)
    : receiver_(receiver), metadataBytes_(metadataBytes) {}

int SCA_TikaMetadataReader::Take(const char* bytes, unsigned long length) {
  try {
    std::string_view rest(bytes, length);
    while (error_ == 0 && !rest.empty()) rest = TakeSome(rest);
    if (error_ == 0 && isText_) static_cast<void>(FlushText());
  } catch (const std::bad_alloc&) {
    Fail(ENOMEM);
  }
  return error_ == 0 ? 1 : 0;
}

int SCA_TikaMetadataReader::Finish() {
  if (error_ == 0 && (expects_ != Expects::Nothing || documents_ == 0)) Fail(SCA_ErrorInvalidData);
  return error_ == 0 ? 1 : 0;
}

// @return What is left of the bytes; anything after a failure.
std::string_view SCA_TikaMetadataReader::TakeSome(std::string_view bytes) {
  const char c = bytes.front();
  switch (state_) {
    case State::String:
      return TakeString(bytes);
    case State::Escape:
      static_cast<void>(TakeEscape(c));
      break;
    case State::Literal:
      // What ends it belongs to the structure.
      if (!TakeLiteral(c)) return bytes;
      break;
    case State::Structure:
      static_cast<void>(TakeStructure(c));
      break;
  }
  return bytes.substr(1);
}

bool SCA_TikaMetadataReader::Fail(unsigned long error) {
  error_ = error;
  return false;
}

bool SCA_TikaMetadataReader::TakeStructure(char c) {
  if (IsBlank(c)) return true;
  const bool takesValue = expects_ == Expects::Value || expects_ == Expects::ValueOrEnd;
  const bool takesKey = expects_ == Expects::Key || expects_ == Expects::KeyOrEnd;
  switch (c) {
    case '{':
    case '[':
      return takesValue ? Begin(c == '{') : Fail(SCA_ErrorInvalidData);
    case '}':
    case ']':
      return End(c == '}');
    case '"':
      return takesValue || takesKey ? BeginString() : Fail(SCA_ErrorInvalidData);
    case ':':
      if (expects_ != Expects::Colon) return Fail(SCA_ErrorInvalidData);
      expects_ = Expects::Value;
      return true;
    case ',':
      if (expects_ != Expects::CommaOrEnd) return Fail(SCA_ErrorInvalidData);
      expects_ = (areObjects_ & 1U) != 0 ? Expects::Key : Expects::Value;
      return true;
    default:
      if (!takesValue || depth_ == 0) return Fail(SCA_ErrorInvalidData);
      state_ = State::Literal;
      token_.assign(1, c);
      return true;
  }
}

// A document is the object that is the whole reply, or an element of the list that is.
bool SCA_TikaMetadataReader::Begin(bool isObject) {
  if (depth_ == kMostDepth) return Fail(SCA_ErrorDataTooLarge);
  const bool isPlain = documentDepth_ == 0 && depth_ == 1 && !isObject;
  if (isPlain) return Fail(SCA_ErrorInvalidData);
  ++depth_;
  areObjects_ = areObjects_ << 1U | (isObject ? 1U : 0U);
  expects_ = isObject ? Expects::KeyOrEnd : Expects::ValueOrEnd;
  if (documentDepth_ == 0 && isObject) {
    documentDepth_ = depth_;
    metadata_.fields.clear();
    held_ = 0;
  }
  return true;
}

bool SCA_TikaMetadataReader::End(bool isObject) {
  const bool isInnermost = depth_ > 0 && ((areObjects_ & 1U) != 0) == isObject;
  const bool mayEnd = expects_ == Expects::CommaOrEnd ||
                      expects_ == (isObject ? Expects::KeyOrEnd : Expects::ValueOrEnd);
  if (!isInnermost || !mayEnd) return Fail(SCA_ErrorInvalidData);
  const bool isDocument = depth_ == documentDepth_;
  --depth_;
  areObjects_ >>= 1U;
  if (isDocument) {
    documentDepth_ = 0;
    ++documents_;
    if (receiver_->TakeDocument(metadata_) == 0) return Fail(SCA_ErrorCancelled);
  }
  return EndValue();
}

bool SCA_TikaMetadataReader::EndValue() {
  expects_ = depth_ == 0 ? Expects::Nothing : Expects::CommaOrEnd;
  return true;
}

bool SCA_TikaMetadataReader::BeginString() {
  if (!IsInDocument()) return Fail(SCA_ErrorInvalidData);
  isKey_ = expects_ == Expects::Key || expects_ == Expects::KeyOrEnd;
  isText_ = !isKey_ && IsValueOfDocument() &&
            std::any_of(std::begin(kTextNames), std::end(kTextNames),
                        [this](const char* name) { return name_ == name; });
  token_.clear();
  state_ = State::String;
  return true;
}

bool SCA_TikaMetadataReader::EndString() {
  if (!EndHalf()) return false;
  state_ = State::Structure;
  if (isKey_) {
    if (depth_ == documentDepth_) name_ = token_;
    expects_ = Expects::Colon;
    return true;
  }
  if (!isText_) return AddValue() && EndValue();
  const bool isTaken = FlushText();
  isText_ = false;
  return isTaken && EndValue();
}

// @return False when the literal ended before the character, or is none.
bool SCA_TikaMetadataReader::TakeLiteral(char c) {
  if (IsBlank(c) || c == ',' || c == '}' || c == ']') {
    state_ = State::Structure;
    static_cast<void>(EndLiteral());
    return false;
  }
  if (token_.size() == kMostLiteral) return Fail(SCA_ErrorInvalidData);
  token_ += c;
  return true;
}

bool SCA_TikaMetadataReader::EndLiteral() {
  if (!IsLiteral(token_) || !IsInDocument()) return Fail(SCA_ErrorInvalidData);
  return (token_ == "null" || AddValue()) && EndValue();
}

// One value of a name, or an element of a list of them. What is in deeper objects is neither.
bool SCA_TikaMetadataReader::IsValueOfDocument() const {
  return depth_ == documentDepth_ || (depth_ == documentDepth_ + 1 && (areObjects_ & 1U) == 0);
}

bool SCA_TikaMetadataReader::AddValue() {
  if (!IsValueOfDocument()) return true;
  held_ += name_.size() + token_.size() + kFieldBytes;
  if (held_ > metadataBytes_) return Fail(SCA_ErrorDataTooLarge);
  metadata_.fields.emplace_back(name_, token_);
  return true;
}

// @return What is left of the bytes.
std::string_view SCA_TikaMetadataReader::TakeString(std::string_view bytes) {
  const std::size_t length = std::min(bytes.find_first_of("\"\\"), bytes.size());
  if (length > 0) {
    if (!EndHalf() || !Append(bytes.substr(0, length))) return {};
    bytes.remove_prefix(length);
    if (bytes.empty()) return {};
  }
  if (bytes.front() == '"') {
    static_cast<void>(EndString());
  } else {
    state_ = State::Escape;
    escape_.clear();
  }
  return bytes.substr(1);
}

bool SCA_TikaMetadataReader::TakeEscape(char c) {
  escape_ += c;
  if (escape_.front() == 'u') {
    const bool isDigit = std::isxdigit(static_cast<unsigned char>(c)) != 0;
    if (escape_.size() > 1 && !isDigit) return Fail(SCA_ErrorInvalidData);
    if (escape_.size() < 5) return true;
    state_ = State::String;
    return TakeUnit(static_cast<unsigned>(std::strtoul(escape_.c_str() + 1, nullptr, 16)));
  }
  const char meaning = Meaning(c);
  if (meaning == '\0') return Fail(SCA_ErrorInvalidData);
  state_ = State::String;
  return EndHalf() && Append(std::string_view(&meaning, 1));
}

// Takes a unit of UTF-16: a character, or half of one.
bool SCA_TikaMetadataReader::TakeUnit(unsigned unit) {
  if (highUnit_ != 0 && IsLow(unit)) {
    const unsigned long high = highUnit_ - 0xD800UL;
    highUnit_ = 0;
    return AppendCharacter(0x10000UL + (high << 10U) + unit - 0xDC00);
  }
  if (!EndHalf()) return false;
  if (!IsHigh(unit)) return AppendCharacter(IsLow(unit) ? kNoCharacter : unit);
  highUnit_ = unit;
  return true;
}

// A first half that no second one follows is no character.
bool SCA_TikaMetadataReader::EndHalf() {
  if (highUnit_ == 0) return true;
  highUnit_ = 0;
  return AppendCharacter(kNoCharacter);
}

bool SCA_TikaMetadataReader::AppendCharacter(unsigned long character) {
  char bytes[4];
  std::size_t length = 0;
  const auto add = [&](unsigned long byte) { bytes[length++] = static_cast<char>(byte); };
  if (character < 0x80) {
    add(character);
  } else if (character < 0x800) {
    add(0xC0 | character >> 6U);
  } else if (character < 0x10000) {
    add(0xE0 | character >> 12U);
    add(0x80 | (character >> 6U & 0x3F));
  } else {
    add(0xF0 | character >> 18U);
    add(0x80 | (character >> 12U & 0x3F));
    add(0x80 | (character >> 6U & 0x3F));
  }
  if (character >= 0x80) add(0x80 | (character & 0x3F));
  return Append({bytes, length});
}

bool SCA_TikaMetadataReader::Append(std::string_view text) {
  if (!isText_) {
    if (held_ + token_.size() + text.size() > metadataBytes_) return Fail(SCA_ErrorDataTooLarge);
    token_ += text;
    return true;
  }
  token_ += text;
  return token_.size() < kPiece || FlushText();
}

bool SCA_TikaMetadataReader::FlushText() {
  if (token_.empty()) return true;
  const bool isTaken = receiver_->TakeText(token_.data(), token_.size()) != 0;
  token_.clear();
  return isTaken || Fail(SCA_ErrorCancelled);
}
