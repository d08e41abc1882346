#include "foundation/SCA_ConfigFile.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "foundation/SCA_ConfigStream.h"
#include "platform/SCA_Crc32.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_File.h"
#include "platform/SCA_Result.h"

namespace {

// "SCA-CONFIG <layout> <file type> <format version> <bytes of the object> <checksum>\n"
constexpr std::string_view kMagic = "SCA-CONFIG ";
constexpr std::size_t kMaxHeader = 96;
constexpr int kChecksumDigits = 8;
constexpr std::size_t kBlockSize = 4 * SCA_ConfigReader::kLongestRecord;

struct Header {
  SCA_ConfigFileInfo* info;
  unsigned long long objectSize = 0;
  std::uint32_t checksum = 0;
  std::size_t versionOffset = 0;
  std::size_t checkedSize = 0;  // of what the checksum covers: all before it
  std::size_t size = 0;

  SCA_Result Refuse(unsigned long code, std::size_t offset, const char* text) const {
    info->fault = {offset, text};
    return SCA_Result(code);
  }
  SCA_Result Damaged(std::size_t offset, const char* text) const {
    return Refuse(SCA_ErrorFileDamaged, offset, text);
  }

  template <class T>
  static bool TakeNumber(std::string_view* rest, char end, int base, T* number) {
    const auto [last, failure] =
        std::from_chars(rest->data(), rest->data() + rest->size(), *number, base);
    const auto length = static_cast<std::size_t>(last - rest->data());
    if (failure != std::errc() || length == rest->size() || *last != end) return false;
    rest->remove_prefix(length + 1);
    return true;
  }

  SCA_Result Read(std::string_view file) {
    const std::string_view begin = file.substr(0, kMagic.size());
    if (begin != kMagic.substr(0, begin.size())) {
      return Refuse(SCA_ErrorFileForeign, 0, "the file does not begin with \"SCA-CONFIG \"");
    }
    if (begin.size() < kMagic.size()) return Damaged(file.size(), "the file is cut in its header");
    std::string_view rest = file.substr(kMagic.size(), kMaxHeader - kMagic.size());
    const auto offset = [&] { return static_cast<std::size_t>(rest.data() - file.data()); };
    if (!TakeNumber(&rest, ' ', 10, &info->layout)) {
      return Damaged(offset(), "the header has no layout number here");
    }
    if (info->layout == 0) return Damaged(kMagic.size(), "there is no layout 0");
    if (info->layout > SCA_ConfigLayout) {
      return Refuse(SCA_ErrorFileNewer, kMagic.size(), "the layout is newer than this program");
    }
    std::uint32_t number = 0;
    bool isRead = TakeNumber(&rest, ' ', 10, &number);
    if (isRead) info->fileType = number;
    versionOffset = offset();
    isRead = isRead && TakeNumber(&rest, ' ', 10, &number);
    if (isRead) info->formatVersion = number;
    if (!isRead || !TakeNumber(&rest, ' ', 10, &objectSize)) {
      return Damaged(offset(), "the header has no number here");
    }
    checkedSize = offset();
    const std::string_view digits = rest.substr(0, kChecksumDigits);
    const bool isLowerCase = digits.find_first_of("ABCDEF") == std::string_view::npos;
    if (!isLowerCase || !TakeNumber(&rest, '\n', 16, &checksum) ||
        offset() != checkedSize + kChecksumDigits + 1) {
      return Damaged(checkedSize, "the header has no checksum here");
    }
    size = offset();
    if (objectSize <= SCA_MaxConfigBytes) return SCA_Done;
    return Refuse(SCA_ErrorDataTooLarge, versionOffset, "the object is longer than 64 MiB");
  }

  unsigned long long FileSize() const { return size + objectSize; }
};

// Blocks of a file; what the reader leaves of one is put before the next.
class BlockFile {
 public:
  SCA_Result Open(const char* fileName) {
    unsigned long error = 0;
    block_.reset(new (std::nothrow) char[kBlockSize]);
    if (block_ == nullptr) return SCA_Result(ENOMEM);
    file_.Open(fileName, SCA_FileOpenRead, &error);
    return SCA_Result(error);
  }

  // Drops `taken` bytes at the front and fills the room after the others.
  SCA_Result Next(std::size_t taken) {
    std::memmove(block_.get(), block_.get() + taken, length_ - taken);
    length_ -= taken;
    unsigned long count = 0;
    unsigned long error = 0;
    if (file_.Read(block_.get() + length_, kBlockSize - length_, &count, &error) == 0) {
      return SCA_Result(error);
    }
    fresh_ = {block_.get() + length_, count};
    length_ += count;
    total_ += count;
    isLast_ = length_ < kBlockSize;
    return SCA_Done;
  }

  std::string_view Block() const { return {block_.get(), length_}; }
  std::string_view Fresh() const { return fresh_; }  // what the last step has read
  unsigned long long Total() const { return total_; }
  bool IsLast() const { return isLast_; }

 private:
  SCA_File file_;
  std::unique_ptr<char[]> block_;
  std::size_t length_ = 0;
  std::string_view fresh_;
  unsigned long long total_ = 0;
  bool isLast_ = false;
};

// The object after the header: all of it goes into the checksum, also what the reader no longer
// takes. Of a file that is longer than its header says no more is read than shows that.
SCA_Result LoadObject(BlockFile* file, const Header& header, SCA_ConfigReader* reader) {
  std::uint32_t checksum = SCA_Crc32(0, file->Block().data(), header.checkedSize);
  const std::string_view first = file->Block().substr(header.size);
  checksum = SCA_Crc32(checksum, first.data(), first.size());
  std::size_t taken = header.size;
  for (;;) {
    const std::string_view left = file->Block().substr(taken);
    taken += reader->Feed(left.data(), left.size(), file->IsLast());
    if (file->IsLast() || file->Total() > header.FileSize()) break;
    if (reader->Result().HasFailed()) taken = file->Block().size();
    if (const SCA_Result next = file->Next(taken); next.HasFailed()) return next;
    taken = 0;
    checksum = SCA_Crc32(checksum, file->Fresh().data(), file->Fresh().size());
  }
  SCA_ConfigFileInfo* info = header.info;
  info->fileSize = file->Total();
  info->fault = reader->Fault();
  info->fault.offset += header.size;
  if (reader->Result().Code() == ENOMEM) return reader->Result();
  if (file->Total() != header.FileSize()) {
    const bool isCut = file->Total() < header.FileSize();
    return header.Damaged(std::min(file->Total(), header.FileSize()),
                          isCut ? "the file ends before the length that its header gives"
                                : "bytes follow the length that the file's header gives");
  }
  if (checksum != header.checksum) {
    if (reader->Result().HasFailed()) return SCA_Result(SCA_ErrorFileDamaged);
    return header.Damaged(header.checkedSize, "the checksum is not that of the content");
  }
  if (info->formatVersion > SCA_ConfigFormatVersion) {
    return header.Refuse(SCA_ErrorFileNewer, header.versionOffset,
                         "the format version is newer than this program");
  }
  return reader->Result().Code() == SCA_ErrorInvalidData ? SCA_Result(SCA_ErrorFileDamaged)
                                                         : reader->Result();
}

SCA_Result Load(const char* fileName, SCA_ConfigFileInfo* info, SCA_ConfigObj* object) {
  BlockFile file;
  if (const SCA_Result opened = file.Open(fileName); opened.HasFailed()) return opened;
  if (const SCA_Result read = file.Next(0); read.HasFailed()) return read;
  info->fileSize = file.Total();
  Header header{info};
  if (const SCA_Result read = header.Read(file.Block()); read.HasFailed()) return read;
  SCA_ConfigReader reader(object);
  return LoadObject(&file, header, &reader);
}

}  // namespace

int SCA_LoadConfigFile(const char* fileName, SCA_ConfigObj* object, SCA_ConfigFileInfo* info,
                       unsigned long* error) {
  SCA_ConfigFileInfo unused;
  SCA_ConfigFileInfo* target = info != nullptr ? info : &unused;
  *target = SCA_ConfigFileInfo();
  SCA_ConfigObj root;
  SCA_Result result = fileName != nullptr ? Load(fileName, target, &root) : SCA_Result(EINVAL);
  // Not before: the file's name may stand in the object.
  if (!result.HasFailed() && object->TakeContent(&root) == 0) result = SCA_Result(ENOMEM);
  if (result.HasFailed()) object->Clear();
  return result.Store(error);
}

int SCA_SaveConfigFile(const SCA_ConfigObj& object, const char* fileName, unsigned long fileType,
                       unsigned long formatVersion, unsigned long* error) {
  if (fileName == nullptr || fileType > UINT32_MAX || formatVersion > SCA_ConfigFormatVersion) {
    return SCA_Fail(EINVAL, error);
  }
  unsigned long objectSize = 0;
  if (const SCA_Result result = SCA_MeasureConfig(object, &objectSize); result.HasFailed()) {
    return result.Store(error);
  }
  char header[kMaxHeader];
  int length = std::snprintf(header, sizeof header, "%s%lu %lu %lu %lu ", kMagic.data(),
                             SCA_ConfigLayout, fileType, formatVersion, objectSize);
  const auto checked = static_cast<std::size_t>(length);
  // The checksum stands before what it covers: the object is written twice, the first time into it.
  std::uint32_t checksum = SCA_Crc32(0, header, checked);
  const SCA_Result counted = SCA_StreamConfig(object, [&](const char* data, std::size_t size) {
    checksum = SCA_Crc32(checksum, data, size);
    return SCA_Done;
  });
  if (counted.HasFailed()) return counted.Store(error);
  length +=
      std::snprintf(header + checked, sizeof header - checked, "%0*x\n", kChecksumDigits, checksum);

  SCA_ReplacementFile file;
  if (file.Open(fileName, SCA_FileAccess::Private, error) == 0 ||
      file.Write(header, static_cast<unsigned long>(length), error) == 0) {
    return 0;
  }
  const SCA_Result written = SCA_StreamConfig(object, [&](const char* data, std::size_t size) {
    unsigned long code = 0;
    file.Write(data, size, &code);
    return SCA_Result(code);
  });
  return written.HasFailed() ? written.Store(error) : file.Commit(SCA_FileCommit::Durable, error);
}
