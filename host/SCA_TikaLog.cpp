#include "host/SCA_TikaLog.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string_view>

#include "foundation/SCA_ConfigFile.h"
#include "foundation/SCA_NewField.h"
#include "host/SCA_TikaServer.h"
#include "platform/SCA_File.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Result.h"
#include "platform/SCA_Text.h"
#include "platform/SCA_Time.h"

namespace {

constexpr char kSource[] = "SCA_TikaLog";
constexpr unsigned long kRecordSize = sizeof(tagSCA_ERROR_DESCR);

// Level, date, time and text with their separators, or a whole line.
constexpr std::size_t kLineSize = kRecordSize + 16;

// Public operations give 32-bit ids in an unsigned long, which may hold more.
std::uint32_t Narrow(unsigned long id) {
  return static_cast<std::uint32_t>(id);
}

const char* LevelLabel(unsigned long level) {
  switch (level) {
    case SCA_LevelDebug:
      return " D ";
    case SCA_LevelInfo:
      return " I ";
    case SCA_LevelWarning:
      return " W ";
    case SCA_LevelError:
      return "ERR";
    default:
      return "UNN";
  }
}

void FormatText(const char* format, va_list values, tagSCA_ERROR_DESCR* message) {
  constexpr std::size_t kLongest = sizeof message->text - 1;
  // One byte more than is kept tells whether a character ends there.
  char text[kLongest + 2];
  const int wanted = std::vsnprintf(text, sizeof text, format, values);
  std::size_t length = wanted < 0 ? 0 : static_cast<std::size_t>(wanted);
  if (length > kLongest) length = SCA_CutLength(text, kLongest);
  SCA_BlankControls(text, length);
  std::memcpy(message->text, text, length);
  message->text[length] = '\0';
}

// A word of a record that comes from elsewhere: readers tell words apart by blanks.
template <std::size_t N>
void CleanWord(char (&word)[N]) {
  word[N - 1] = '\0';
  SCA_BlankControls(word, std::strlen(word));
  std::replace(word, word + std::strlen(word), ' ', '-');
  std::replace(word, word + std::strlen(word), '\t', '-');
  if (*word == '\0') SCA_CopyText(word, "-", SCA_TextFit::Cut);
}

char* Append(char* to, const char* text) {
  const std::size_t length = std::strlen(text);
  std::memcpy(to, text, length + 1);
  return to + length;
}

// Adds a member whose name is the id, and whose value is written where it is kept: this is most of
// what sending a log takes.
bool AddMember(SCA_ConfigObj* object, unsigned long id, const tagSCA_ERROR_DESCR& message) {
  char digits[2][24];
  const auto write = [](char* to, unsigned long number) {
    return static_cast<std::size_t>(std::to_chars(to, to + sizeof digits[0], number).ptr - to);
  };
  const std::size_t nameLength = write(digits[0], id);
  const std::size_t levelLength = write(digits[1], message.level);
  const std::string_view words[] = {message.date, message.time, message.text};
  std::size_t length = levelLength;
  for (const std::string_view word : words) length += 1 + word.size();
  char* name = nullptr;
  char* value = nullptr;
  SCA_Owned<SCA_Field> field(SCA_NewField::Plain(object, nameLength, length, &name, &value));
  if (field == nullptr) return false;
  std::memcpy(name, digits[0], nameLength);
  std::memcpy(value, digits[1], levelLength);
  char* end = value + levelLength;
  for (const std::string_view word : words) {
    *end++ = ' ';
    std::memcpy(end, word.data(), word.size());
    end += word.size();
  }
  // Records are handed out, and may have been written to.
  if (std::memchr(value, SCA_FieldSeparator, length) != nullptr) return false;
  return object->AddField(field.release()) != 0;
}

void WriteLine(const tagSCA_ERROR_DESCR& message, char (&line)[kLineSize]) {
  std::snprintf(line, sizeof line, "%s %s %s %s", LevelLabel(message.level), message.date,
                message.time, message.text);
}

// A number that is the whole text.
bool ReadNumber(const char* text, std::uint32_t* number) {
  const char* end = text + std::strlen(text);
  const auto [last, failure] = std::from_chars(text, end, *number);
  return failure == std::errc() && last == end;
}

// Holds the queue's lock for a scope.
class QueueGuard {
 public:
  explicit QueueGuard(SCA_VirtualEvent* event) : event_(event) {
    if (event_ != nullptr && event_->Wait(SCA_Infinite) == 0) event_ = nullptr;
  }
  ~QueueGuard() {
    if (event_ != nullptr) event_->Set();
  }
  QueueGuard(const QueueGuard&) = delete;
  QueueGuard& operator=(const QueueGuard&) = delete;
  bool IsReady() const { return event_ != nullptr; }

 private:
  SCA_VirtualEvent* event_;
};

}  // namespace

SCA_TikaLog::SCA_TikaLog(SCA_TikaConfigUser* config, unsigned long maxMessages, int syslogInfo)
    : config_(config), maxDebugMessage_(Narrow(maxMessages)), syslogInfoMsgs_(syslogInfo) {
  SetValid(1);
}

SCA_TikaLog::~SCA_TikaLog() {
  const SCA_LockGuard guard(lock_);
  FreeMessages();
}

void SCA_TikaLog::FreeMessages() {
  for (const Node* node = messages_.GetHead(); node != nullptr; node = node->GetNext()) {
    std::free(node->GetItem());
  }
  messages_.Clear();
}

// Adding

void SCA_TikaLog::Stamp(tagSCA_ERROR_DESCR* message) {
  const std::time_t now = std::time(nullptr);
  if (now != stampedAt_) {
    SCA_GetDateString(date_, sizeof date_);
    SCA_GetTimeString(time_, sizeof time_);
    stampedAt_ = now;
  }
  std::memcpy(message->date, date_, sizeof date_);
  std::memcpy(message->time, time_, sizeof time_);
}

int SCA_TikaLog::Add(const tagSCA_ERROR_DESCR& message, unsigned long id) {
  const unsigned long capacity = GetMaxDebugMessage();
  if (capacity == 0) return 0;
  const bool isCounted = Narrow(id) == SCA_NoItemId;
  Node* const oldest = messages_.Count() >= capacity ? messages_.GetHead() : nullptr;
  auto* record = oldest != nullptr ? oldest->GetItem()
                                   : static_cast<tagSCA_ERROR_DESCR*>(std::malloc(kRecordSize));
  if (record == nullptr) return 0;
  unsigned long newId = Narrow(id);
  if (oldest != nullptr && isCounted && oldest->GetNext() != nullptr &&
      oldest->GetName() == nullptr) {
    // Neither record nor node is allocated: the oldest becomes the newest.
    messages_.RemoveListItem(oldest);
    messages_.InsertItemAfter(oldest, messages_.GetTail(), &newId);
  } else {
    if ((isCounted ? messages_.AddItemToTail(record, &newId)
                   : messages_.AddItemToTail(record, newId)) == 0) {
      if (oldest == nullptr) std::free(record);
      return 0;
    }
    messages_.DeleteListItem(oldest);
  }
  *record = message;
  lastMessageId_.Set(Narrow(newId));
  if (message.level == SCA_LevelError) errorCount_.Add(1);
  return 1;
}

int SCA_TikaLog::AddFormatted(const SCA_TikaServer* server, unsigned long level, const char* format,
                              va_list values) {
  tagSCA_ERROR_DESCR message;
  message.level = Narrow(level);
  FormatText(format, values, &message);
  int isAdded = 0;
  {
    const SCA_LockGuard guard(lock_);
    Stamp(&message);
    isAdded = Add(message, SCA_NoItemId);
  }
  if (isAdded == 0) {
    if (GetMaxDebugMessage() != 0) {
      SCA_GetReportFunction(kSource, __LINE__)(
          SCA_LevelError, "SCA_TikaLog::AddMessage: Cannot alloc %lu bytes of memory", kRecordSize);
    }
    return 0;
  }
  if (server != nullptr && config_ != nullptr && config_->GetSaveTikaLog() != 0) {
    SaveTikaLog(server, &message);
  }
  return 1;
}

int SCA_TikaLog::AddMessage(unsigned long level, const char* format, ...) {
  va_list values;
  va_start(values, format);
  const int result = AddFormatted(nullptr, level, format, values);
  va_end(values);
  return result;
}

int SCA_TikaLog::AddMessage(SCA_TikaServer* server, unsigned long level, const char* format, ...) {
  va_list values;
  va_start(values, format);
  const int result = AddFormatted(server, level, format, values);
  va_end(values);
  return result;
}

int SCA_TikaLog::AddMessage(const tagSCA_ERROR_DESCR* record, unsigned long id) {
  if (record == nullptr) return 0;
  tagSCA_ERROR_DESCR message = *record;
  message.text[sizeof message.text - 1] = '\0';
  SCA_BlankControls(message.text, std::strlen(message.text));
  CleanWord(message.date);
  CleanWord(message.time);
  const SCA_LockGuard guard(lock_);
  return Add(message, id);
}

// The queue

SCA_VirtualEvent* SCA_TikaLog::QueueLock() {
  SCA_VirtualEvent* event = nullptr;
  {
    const SCA_LockGuard guard(lock_);
    if (queueLock_ == nullptr) queueLock_.reset(SCA_CreateEvent(0, 1));
    event = queueLock_.get();
  }
  if (event == nullptr) {
    SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelError, "Cannot create SCA_VirtualEvent");
  }
  return event;
}

int SCA_TikaLog::Push(const char* name, unsigned long level, const char* format, va_list values) {
  auto* record = static_cast<tagSCA_ERROR_DESCR*>(std::malloc(kRecordSize));
  int isPushed = 0;
  if (record != nullptr) {
    record->level = Narrow(level);
    FormatText(format, values, record);
    const QueueGuard queue(QueueLock());
    if (!queue.IsReady()) {
      std::free(record);
      return SCA_Complain(kSource, __LINE__, SCA_LevelError, "Debug log is not ready");
    }
    const SCA_LockGuard guard(lock_);
    Stamp(record);
    unsigned long id = 0;
    isPushed = messages_.AddItemToTail(record, name, &id);
    if (isPushed != 0) lastMessageId_.Set(Narrow(id));
  }
  if (isPushed != 0) return 1;
  std::free(record);
  return SCA_Complain(kSource, __LINE__, SCA_LevelError,
                      "SCA_TikaLog::PushMessage: Cannot alloc %lu bytes of memory for debug log",
                      kRecordSize);
}

int SCA_TikaLog::PushMessage(unsigned long level, const char* format, ...) {
  va_list values;
  va_start(values, format);
  const int result = Push(nullptr, level, format, values);
  va_end(values);
  return result;
}

int SCA_TikaLog::PushMessage(const char* name, unsigned long level, const char* format, ...) {
  if (name == nullptr || *name == '\0') {
    return SCA_Complain(kSource, __LINE__, SCA_LevelError,
                        "SCA_TikaLog::PushMessage: invalid message name");
  }
  va_list values;
  va_start(values, format);
  const int result = Push(name, level, format, values);
  va_end(values);
  return result;
}

int SCA_TikaLog::PopMessage(tagSCA_ERROR_DESCR** record) {
  const QueueGuard queue(QueueLock());
  if (!queue.IsReady()) {
    return SCA_Complain(kSource, __LINE__, SCA_LevelError,
                        "SCA_TikaLog::PopMessage: Debug log is not ready");
  }
  const SCA_LockGuard guard(lock_);
  return messages_.GetHeadItem(record) != 0 ? messages_.DeleteHeadItem() : 0;
}

// Reading

int SCA_TikaLog::GetNextMessage(unsigned long afterId, unsigned long level,
                                tagSCA_ERROR_DESCR** record) {
  const SCA_LockGuard guard(lock_);
  for (const Node* node = messages_.GetHead(); node != nullptr; node = node->GetNext()) {
    const bool hasLevel = Narrow(level) == SCA_AnyLevel || node->GetItem()->level == Narrow(level);
    if (node->GetId() > Narrow(afterId) && hasLevel) {
      *record = node->GetItem();
      return 1;
    }
  }
  return 0;
}

int SCA_TikaLog::GetMessageByPos(unsigned long position, tagSCA_ERROR_DESCR** record) {
  const SCA_LockGuard guard(lock_);
  return messages_.GetItemByPos(position, record);
}

unsigned long SCA_TikaLog::GetMessageCount() const {
  const SCA_LockGuard guard(lock_);
  return messages_.Count();
}

int SCA_TikaLog::Clear() {
  const SCA_LockGuard guard(lock_);
  FreeMessages();
  sessionId_.Add(1);
  errorCount_.Set(0);
  lastMessageId_.Set(SCA_NoItemId);
  return 1;
}

// Transfer

// The message `back` places before the newest; the oldest when there are no more.
const SCA_TikaLog::Node* SCA_TikaLog::FirstOfRun(unsigned long back) const {
  if (back >= messages_.Count()) return messages_.GetHead();
  const Node* node = messages_.GetTail();
  while (back-- > 0) node = node->GetPrev();
  return node;
}

int SCA_TikaLog::Serialize(SCA_ConfigObj* object, unsigned long back, unsigned long afterId) const {
  if (object == nullptr) return 0;
  const SCA_LockGuard guard(lock_);
  const bool takesAll = Narrow(back) < messages_.Count() || Narrow(afterId) == SCA_NoItemId;
  for (const Node* node = FirstOfRun(Narrow(back)); node != nullptr; node = node->GetNext()) {
    if (!takesAll && node->GetId() <= Narrow(afterId)) continue;
    if (!AddMember(object, node->GetId(), *node->GetItem())) return 0;
  }
  return 1;
}

int SCA_TikaLog::AddField(const SCA_Field& field) {
  const char* value = field.GetValue();
  char level[16];
  std::uint32_t id = 0;
  tagSCA_ERROR_DESCR message{};
  unsigned long position = 0;
  if (!ReadNumber(field.GetName(), &id) ||
      SCA_GetToken1(value, &position, level, sizeof level) == 0 ||
      !ReadNumber(level, &message.level) ||
      SCA_GetToken1(value, &position, message.date, sizeof message.date) == 0 ||
      SCA_GetToken1(value, &position, message.time, sizeof message.time) == 0) {
    return 0;
  }
  const char* text = value + position + std::strspn(value + position, " \t");
  if (*text == '\0') return 1;
  const unsigned long length = std::strlen(text);
  const unsigned long kept =
      length < sizeof message.text ? length : SCA_CutLength(text, sizeof message.text - 1);
  std::memcpy(message.text, text, kept);
  return AddMessage(&message, id);
}

int SCA_TikaLog::Deserialize(const SCA_ConfigObj* object) {
  Clear();
  if (object == nullptr) return 0;
  const SCA_Field* field = object->GetFields().GetHead();
  for (; field != nullptr; field = field->GetNext()) {
    if (AddField(*field) == 0) return 0;
  }
  return 1;
}

// Text

unsigned long SCA_TikaLog::DataLength() const {
  constexpr unsigned long kLineEnd = 3;  // with room for another system's
  unsigned long length = 0;
  for (const Node* node = messages_.GetHead(); node != nullptr; node = node->GetNext()) {
    length += std::strlen(node->GetItem()->text) + kLineEnd;
  }
  return length;
}

unsigned long SCA_TikaLog::GetDataLength() const {
  const SCA_LockGuard guard(lock_);
  return DataLength();
}

int SCA_TikaLog::FillBuffer(char* buffer, unsigned long size) const {
  {
    const SCA_LockGuard guard(lock_);
    if (size >= DataLength()) {
      for (const Node* node = messages_.GetHead(); node != nullptr; node = node->GetNext()) {
        buffer = Append(Append(buffer, node->GetItem()->text), "\n");
      }
      return 1;
    }
  }
  return SCA_Complain(kSource, __LINE__, SCA_LevelError, "Not enough space to copy debug log");
}

// Copied under the lock and written without: a terminal or a disk may take its time.
std::string SCA_TikaLog::Lines(bool withDebug) const {
  std::string lines;
  const SCA_LockGuard guard(lock_);
  for (const Node* node = messages_.GetHead(); node != nullptr; node = node->GetNext()) {
    if (!withDebug && node->GetItem()->level == SCA_LevelDebug) continue;
    char line[kLineSize];
    WriteLine(*node->GetItem(), line);
    lines.append(line).push_back('\n');
  }
  return lines;
}

int SCA_TikaLog::Show() const try {
  const std::string lines = Lines(false);
  std::fwrite(lines.data(), 1, lines.size(), stdout);
  return 1;
} catch (const std::exception&) {  // of memory
  return 0;
}

int SCA_TikaLog::SaveTextReport(const char* fileName) const try {
  const std::string lines = Lines(true);
  SCA_ReplacementFile file;
  unsigned long error = 0;
  if (file.Open(fileName, SCA_FileAccess::Private, &error) == 0) {
    return SCA_Complain(kSource, __LINE__, SCA_LevelError,
                        "SCA_TikaLog::SaveTextReport: Cannot create debug log file - %s", fileName);
  }
  if (file.Write(lines.data(), lines.size(), &error) == 0 ||
      file.Commit(SCA_FileCommit::Fast, &error) == 0) {
    return SCA_Complain(kSource, __LINE__, SCA_LevelError,
                        "SCA_TikaLog::SaveTextReport: Cannot save debug log file - %s", fileName);
  }
  return 1;
} catch (const std::exception&) {
  return 0;
}

int SCA_TikaLog::SaveTrvReport(const char* fileName) const {
  SCA_ConfigObj report("Report", nullptr);
  unsigned long error = 0;
  return Serialize(&report, SCA_NoItemId, SCA_NoItemId) != 0
             ? report.Save(fileName, SCA_FileTypeReport, SCA_ConfigFormatVersion, &error)
             : 0;
}

int SCA_TikaLog::SaveTikaLog(const SCA_TikaServer* server, const tagSCA_ERROR_DESCR* record) const
    try {
  char directory[SCA_MaxPath];
  char path[SCA_MaxPath];
  config_->CopyTikaLogDir(directory);
  if (*directory == '\0' || SCA_DirectoryExists(directory) == 0) return 0;
  int year = 0;
  int month = 0;
  int day = 0;
  SCA_GetCurrentDate(&year, &month, &day);
  const auto complain = [&path](const char* what) {
    return SCA_Complain(kSource, __LINE__, SCA_LevelError, "SCA_TikaLog::SaveTikaLog: %s - %s",
                        what, path);
  };
  SCA_File file;
  unsigned long error = 0;
  unsigned long long size = 0;
  if (SCA_FormatPath(path, sizeof path, "%s\\tika_log_%.4d%.2d%.2d_%lu.txt", directory, year, month,
                     day, server->GetServerId()) == 0 ||
      file.Open(path, SCA_FileAppend, &error) == 0) {
    return complain("cannot open log file");
  }
  if (file.GetSize(&size, &error) == 0) return complain("cannot get log file size from");
  if (file.SetPosition(size, &error) == 0) return complain("cannot set log file position in");
  char line[kLineSize];
  WriteLine(*record, line);
  return file.WriteString(line, &error) != 0 ? 1 : complain("Cannot save log file");
} catch (const std::exception&) {
  return 0;
}
