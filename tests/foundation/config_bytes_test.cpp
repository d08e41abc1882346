#include "foundation/SCA_ConfigBytes.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "foundation/SCA_ConfigStream.h"
#include "platform/SCA_Error.h"
#include "tests/foundation/config_tree.h"

namespace {

std::string Write(const SCA_ConfigObj& object) {
  std::string bytes(object.GetDataSize(), '?');
  unsigned long written = 0;
  unsigned long error = 0;
  EXPECT_EQ(SCA_WriteConfigBytes(object, bytes.data(), bytes.size(), &written, &error), 1) << error;
  EXPECT_LE(written, bytes.size());
  bytes.resize(written);
  return bytes;
}

// Feeds the bytes in blocks of a size, what was not taken before what comes next.
unsigned long ReadInBlocks(const std::string& bytes, std::size_t size, SCA_ConfigObj* object) {
  SCA_ConfigReader reader(object);
  std::string block;
  for (std::size_t at = 0; at <= bytes.size(); at += size) {
    block += bytes.substr(at, size);
    block.erase(0, reader.Feed(block.data(), block.size(), at + size > bytes.size()));
  }
  return reader.Result().Code();
}

TEST(ConfigBytes, HaveTheDocumentedForm) {
  SCA_ConfigObj root("Root", nullptr);
  root.AddField("Port", 9500, 0);
  root.AddConfigObj("Empty");
  SCA_Field* none = nullptr;
  root.AddConfigObj("")->AddField("none", &none, 1, 0);
  EXPECT_EQ(Write(root),
            "2\x01Root\x01"
            "1\x01Port\x01"
            "9500\x01"
            "2\x01"
            "Empty\x01"
            "0\x01"
            "2\x01\x01"
            "1\x01none\x01\x01"
            "0\x01"
            "0\x01");
  unsigned long position = 3;
  char buffer[80] = "";
  EXPECT_EQ(root.WriteData(buffer, sizeof buffer, &position), 1);
  EXPECT_EQ(std::string(buffer + 3, position - 3), Write(root));
  EXPECT_EQ(root.WriteData(buffer, sizeof buffer, &position), 0) << "there is no room any more";
  position = 1;
  EXPECT_EQ(root.GetFields().GetHead()->WriteData(buffer, 0, &position), 1);
  EXPECT_EQ(std::string(buffer + 1, position - 1), Write(root).substr(7, 12));
}

TEST(ConfigBytes, RandomTreesComeBackHoweverTheyAreCut) {
  std::mt19937 random(4711);
  for (int round = 0; round < 300; ++round) {
    SCOPED_TRACE(round);
    SCA_ConfigObj root(RandomText(&random, 100).c_str(), nullptr);
    Grow(&root, &random, 6);
    const std::string bytes = Write(root);
    SCA_ConfigObj read("other", nullptr);
    read.AddField("former", 1, 0);
    unsigned long error = 0;
    ASSERT_EQ(SCA_ReadConfigBytes(bytes.data(), bytes.size(), &read, nullptr, &error), 1) << error;
    ASSERT_EQ(Describe(read), Describe(root));
    SCA_ConfigObj inBlocks;
    ASSERT_EQ(ReadInBlocks(bytes, 1 + random() % 2000, &inBlocks), 0U);
    ASSERT_EQ(Describe(inBlocks), Describe(root));
    std::string streamed;
    ASSERT_FALSE(SCA_StreamConfig(root, [&](const char* data, std::size_t length) {
                   streamed.append(data, length);
                   return SCA_Done;
                 }).HasFailed());
    ASSERT_EQ(streamed, bytes);
  }
}

TEST(ConfigBytes, BlocksHoldNoMoreThanTheirRoom) {
  constexpr std::size_t kBlock = 2 * SCA_ConfigReader::kLongestRecord;
  const std::string name(SCA_MaxFieldName, 'n');
  const std::string value(SCA_MaxFieldValue, 'v');
  // The second record ends some bytes before the end of the first block, at it, and behind it.
  for (std::size_t length = SCA_MaxFieldValue - 10; length <= SCA_MaxFieldValue; ++length) {
    SCA_ConfigObj root("r", nullptr);
    root.AddField(name.c_str(), value.c_str(), 0);
    root.AddField(name.c_str(), value.substr(0, length).c_str(), 0);
    std::string bytes;
    EXPECT_FALSE(SCA_StreamConfig(root, [&](const char* block, std::size_t size) {
                   EXPECT_LE(size, kBlock) << length;
                   bytes.append(block, size);
                   return SCA_Done;
                 }).HasFailed());
    EXPECT_TRUE(bytes == Write(root)) << length;
  }
}

TEST(ConfigBytes, HostileBytesAreRefusedWithTheirPlace) {
  const auto repeat = [](const std::string& text, unsigned long count) {
    std::string all;
    for (unsigned long i = 0; i < count; ++i) all += text;
    return all;
  };
  const std::string open = "2\x01o\x01";
  const std::string close = "0\x01";
  const std::string field = "1\x01n\x01v\x01";
  const std::string longName(SCA_MaxFieldName + 1, 'n');
  const std::string longValue(SCA_MaxFieldValue + 1, 'v');
  constexpr unsigned long kInvalid = SCA_ErrorInvalidData;
  constexpr unsigned long kTooLarge = SCA_ErrorDataTooLarge;
  struct {
    const char* what;
    std::string bytes;
    unsigned long error;  // 0 when they are taken
    std::size_t offset;
  } const rows[] = {
      {"nothing", "", kInvalid, 0},
      {"a plain field", field, kInvalid, 0},
      {"no end", open + field, kInvalid, 10},
      {"bytes behind the end", open + close + "x", kInvalid, 6},
      {"separators behind a field", open + field + "\x01\x01\x01" + field + close, 0, 0},
      {"another kind", open + "3\x01n\x01v\x01" + close, kInvalid, 4},
      {"a zero byte", open + std::string("1\x01n\x01v\0\x01", 7) + close, kInvalid, 9},
      {"a long name", open + "1\x01" + longName + "\x01v\x01" + close, kInvalid, 6},
      {"a long value", open + "1\x01n\x01" + longValue + "\x01" + close, kInvalid, 8},
      {"the longest",
       open + "1\x01" + longName.substr(1) + "\x01" + longValue.substr(1) + "\x01" + close, 0, 0},
      {"the deepest", repeat(open, SCA_MaxConfigDepth) + repeat(close, SCA_MaxConfigDepth), 0, 0},
      {"a million deep", repeat(open, 1000000), kTooLarge, 4 * SCA_MaxConfigDepth},
      {"a million members", open + repeat(field, 1000000) + close, kTooLarge,
       4 + 6 * SCA_MaxConfigMembers},
      {"the most bytes", open + field + std::string(SCA_MaxConfigBytes - 12, '\x01') + close, 0, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    SCA_ConfigObj object("former", nullptr);
    object.AddField("former", 1, 0);
    SCA_ConfigFault fault;
    unsigned long error = 0;
    const int result =
        SCA_ReadConfigBytes(row.bytes.data(), row.bytes.size(), &object, &fault, &error);
    EXPECT_EQ(result, row.error == 0 ? 1 : 0);
    EXPECT_EQ(error, row.error);
    EXPECT_EQ(fault.offset, row.offset) << fault.text;
    EXPECT_STRNE(object.GetName(), row.error == 0 ? "former" : "");
    EXPECT_EQ(object.GetFieldCount() == 0, row.error != 0);
    SCA_ConfigObj inBlocks;
    EXPECT_EQ(ReadInBlocks(row.bytes, SCA_ConfigReader::kLongestRecord, &inBlocks), row.error);
  }
}

TEST(ConfigBytes, NothingIsWrittenThatCouldNotBeRead) {
  std::vector<char> bytes(SCA_MaxConfigBytes + 1);
  unsigned long written = 99;
  const auto writeError = [&](const SCA_ConfigObj& object, std::size_t size) {
    unsigned long error = 0;
    EXPECT_EQ(SCA_WriteConfigBytes(object, bytes.data(), size, &written, &error), 0);
    return error;
  };
  SCA_ConfigObj root("root", nullptr);
  EXPECT_EQ(writeError(root, 8), static_cast<unsigned long>(ENOBUFS));
  EXPECT_EQ(writeError(SCA_ConfigObj(nullptr, nullptr), 8), SCA_ErrorInvalidData);
  SCA_ConfigObj* object = &root;
  for (unsigned long depth = 1; depth < SCA_MaxConfigDepth; ++depth) {
    object = object->AddConfigObj("o");
  }
  EXPECT_FALSE(Write(root).empty());
  object->AddConfigObj("o");
  EXPECT_EQ(writeError(root, bytes.size()), SCA_ErrorDataTooLarge);
  const std::string value(SCA_MaxFieldValue, 'v');
  for (const auto& [text, count] : {std::pair("", SCA_MaxConfigMembers + 1),
                                    {value.c_str(), SCA_MaxConfigBytes / SCA_MaxFieldValue + 1}}) {
    SCA_ConfigObj wide("wide", nullptr);
    for (unsigned long i = 0; i < count; ++i) wide.AddField("n", text, 0);
    EXPECT_EQ(writeError(wide, bytes.size()), SCA_ErrorDataTooLarge);
  }
  EXPECT_EQ(written, 99U);
}

}  // namespace
