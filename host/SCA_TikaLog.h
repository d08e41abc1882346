/// The message log: the newest messages of a server, numbered, with their levels.
/// Threads: any thread may call any operation. What is handed out by pointer and not owned by the
/// caller is valid until the next addition or removal; while another thread adds, use `Serialize`.
#ifndef SCA_HOST_SCA_TIKALOG_H
#define SCA_HOST_SCA_TIKALOG_H

#include <cstdarg>
#include <cstdint>
#include <ctime>
#include <string>

#include "foundation/SCA_ConfigObj.h"
#include "foundation/SCA_List.h"
#include "host/SCA_TikaConfigUser.h"
#include "platform/SCA_Lock.h"
#include "platform/SCA_Sync.h"

class SCA_TikaServer;

/// One message of any level. Allocated with `malloc`; the caller that pops one frees it with
/// `free`.
/// @note Inherited: the name says error.
struct tagSCA_ERROR_DESCR {
  std::uint32_t level;  ///< 2 debug, 3 information, 4 warning, 5 error
  char date[12];        ///< "YYYY-MM-DD", local
  char time[12];        ///< "HH:MM:SS", local
  char text[260];       ///< without control bytes but the tab
};
static_assert(sizeof(tagSCA_ERROR_DESCR) == 288, "the documented size");

/// Any level, in `GetNextMessage`.
constexpr unsigned long SCA_AnyLevel = 0xFFFFFFFF;

/// A list of messages whose ids count up from 0; at its capacity each new message takes the place
/// of the oldest. Texts are cut at 259 bytes, between UTF-8 characters; control bytes other than
/// the tab become blanks, so that every message can be stored, sent and shown on one line.
///
/// int results are 1 for success and 0 for failure or nothing found.
class SCA_API SCA_TikaLog : public SCA_Object {
 public:
  /// @param config       Says whether and where daily files are written; not owned, may be null,
  ///                     outlives the log.
  /// @param maxMessages  The capacity; 0 refuses additions.
  /// @param syslogInfo   Stored for `GetSyslogInfoMsgs`.
  SCA_TikaLog(SCA_TikaConfigUser* config, unsigned long maxMessages, int syslogInfo);
  ~SCA_TikaLog() override;
  SCA_TikaLog(const SCA_TikaLog&) = delete;
  SCA_TikaLog& operator=(const SCA_TikaLog&) = delete;

  /// @name Adding, with the oldest message dropped at the capacity; formats are printf's
  /// @return 0 at a capacity of 0 and without memory, the log being unchanged.
  /// @{
  int AddMessage(unsigned long level, const char* format, ...)
      __attribute__((format(printf, 3, 4)));
  /// Also adds a line to the server's file of the day when the configuration asks for it; a failure
  /// to do so is reported and does not fail the addition.
  /// @param server  Whose message it is; may be null.
  int AddMessage(SCA_TikaServer* server, unsigned long level, const char* format, ...)
      __attribute__((format(printf, 4, 5)));
  /// Adds a copy of a record, of another log for instance.
  /// @param id  The message's id, or 0xFFFFFFFF for the next one. A given id leaves the counter
  ///            where it is: a log that was filled so is only read.
  int AddMessage(const tagSCA_ERROR_DESCR* record, unsigned long id);
  /// @}

  /// @name The log as a queue: pushed at the tail without regard to the capacity, popped from the
  /// head
  /// @{
  int PushMessage(unsigned long level, const char* format, ...)
      __attribute__((format(printf, 3, 4)));
  /// @param name  Of the list's item; not empty.
  int PushMessage(const char* name, unsigned long level, const char* format, ...)
      __attribute__((format(printf, 4, 5)));
  /// @param record  Receives the oldest message, which the caller frees with `free`. Untouched when
  ///                there is none.
  int PopMessage(tagSCA_ERROR_DESCR** record);
  /// @}

  /// @name Reading
  /// @{
  /// The first message with an id above `afterId` (so never the one with id 0) and of this level.
  int GetNextMessage(unsigned long afterId, unsigned long level, tagSCA_ERROR_DESCR** record);
  /// @param position  0 is the oldest.
  int GetMessageByPos(unsigned long position, tagSCA_ERROR_DESCR** record);
  unsigned long GetMessageCount() const;
  /// The list itself, for an owner that adds nothing while it is used.
  SCA_List<tagSCA_ERROR_DESCR*>* GetMessageList() SCA_NO_THREAD_SAFETY_ANALYSIS {
    return &messages_;
  }
  /// @return 0xFFFFFFFF when no message was added since the last `Clear`.
  unsigned long GetLastMessageId() const { return lastMessageId_.Get(); }
  /// @}

  /// Frees every message; ids begin at 0 again, in a new session. @return 1.
  int Clear();

  /// Adds a field for each message of a run that ends with the newest: the id is its name, level,
  /// date, time and text with blanks between them its value.
  /// @param back     Below the number of messages: the newest `back` + 1.
  /// @param afterId  Else, when not 0xFFFFFFFF: those with a greater id. Else all.
  int Serialize(SCA_ConfigObj* object, unsigned long back, unsigned long afterId) const;
  /// Clears the log and fills it from such fields, with the sender's ids; blanks and tabs before a
  /// text are lost, and messages without text are skipped. Its own counter begins at 0, because
  /// nothing is added to such a copy.
  /// @return 0 at the first field that is no message; what came before it stays.
  int Deserialize(const SCA_ConfigObj* object);

  /// @name Text
  /// @{
  /// @return Bytes that are enough for `FillBuffer`.
  unsigned long GetDataLength() const;
  /// Writes the texts, oldest first, a line each, with a terminating zero; nothing of an empty log.
  /// @param size  Capacity in bytes, at least `GetDataLength()`, or it fails with a report.
  int FillBuffer(char* buffer, unsigned long size) const;
  /// Prints what is above the debug level to standard output. @return 1, or 0 without memory.
  int Show() const;
  /// Writes a file of one line a message, in the place of an older one; failures are reported.
  int SaveTextReport(const char* fileName) const;
  /// Writes the log as a configuration file of type 1011; see `SCA_LoadConfigFile`.
  int SaveTrvReport(const char* fileName) const;
  /// @}

  unsigned long GetMaxDebugMessage() const { return maxDebugMessage_.Get(); }
  void SetMaxDebugMessage(unsigned long count) {
    maxDebugMessage_.Set(static_cast<std::uint32_t>(count));
  }
  /// Messages of level 5 that were added since the last `Clear`; pushed ones are not counted.
  unsigned long GetErrorCount() const { return errorCount_.Get(); }
  void SetErrorCount(unsigned long count) { errorCount_.Set(static_cast<std::uint32_t>(count)); }
  /// Counts the calls of `Clear`: 0xFFFFFFFF before the first, which makes it 0. Ids of another
  /// session are stale.
  unsigned long GetSessionId() const { return sessionId_.Get(); }
  void SetSessionId(unsigned long id) { sessionId_.Set(static_cast<std::uint32_t>(id)); }
  int GetSyslogInfoMsgs() const { return syslogInfoMsgs_.Get(); }
  void SetSyslogInfoMsgs(int syslogInfo) { syslogInfoMsgs_.Set(syslogInfo); }

 protected:
  /// Adds a line to the server's file of the day; failures are reported, except for a directory
  /// that is empty or missing.
  int SaveTikaLog(const SCA_TikaServer* server, const tagSCA_ERROR_DESCR* record) const;

 private:
  using Node = SCA_ListItem<tagSCA_ERROR_DESCR*>;

  int Add(const tagSCA_ERROR_DESCR& message, unsigned long id) SCA_REQUIRES(lock_);
  int AddFormatted(const SCA_TikaServer* server, unsigned long level, const char* format,
                   va_list values) SCA_EXCLUDES(lock_);
  int Push(const char* name, unsigned long level, const char* format, va_list values)
      SCA_EXCLUDES(lock_);
  SCA_VirtualEvent* QueueLock() SCA_EXCLUDES(lock_);
  int AddField(const SCA_Field& field) SCA_EXCLUDES(lock_);
  const Node* FirstOfRun(unsigned long back) const SCA_REQUIRES(lock_);
  void Stamp(tagSCA_ERROR_DESCR* message) SCA_REQUIRES(lock_);
  void FreeMessages() SCA_REQUIRES(lock_);
  std::string Lines(bool withDebug) const SCA_EXCLUDES(lock_);
  unsigned long DataLength() const SCA_REQUIRES(lock_);

  SCA_TikaConfigUser* const config_;
  SCA_AtomicValue<std::uint32_t> maxDebugMessage_;
  SCA_AtomicValue<std::uint32_t> errorCount_{0};
  SCA_AtomicValue<std::uint32_t> lastMessageId_{SCA_NoItemId};
  SCA_AtomicValue<std::uint32_t> sessionId_{SCA_NoItemId};
  SCA_AtomicValue<int> syslogInfoMsgs_;

  // Of every operation. Nothing is reported and no file is written while it is held.
  mutable SCA_Lock lock_;
  SCA_List<tagSCA_ERROR_DESCR*> messages_ SCA_GUARDED_BY(lock_){0};
  // The queue's own lock, taken before the other; made with the first use of the queue, which most
  // logs never see.
  SCA_Owned<SCA_VirtualEvent> queueLock_ SCA_GUARDED_BY(lock_);
  // Date and time of the last message: they change once a second, and cost more than the message.
  std::time_t stampedAt_ SCA_GUARDED_BY(lock_) = -1;
  char date_[12] SCA_GUARDED_BY(lock_) = "";
  char time_[12] SCA_GUARDED_BY(lock_) = "";
};

#endif  // SCA_HOST_SCA_TIKALOG_H
