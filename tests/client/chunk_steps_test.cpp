#include <gtest/gtest.h>

#include <cstring>

#include "client/SCA_TikaExtraction.h"
#include "tests/client/client_harness.h"

namespace {

constexpr unsigned long kUntouched = 0xABCDEF;

TEST(ChunkSteps, GetChunkLengthTakesWholeLinesOfOneToSixCharacters) {
  struct Row {
    std::string buffer;
    unsigned long position;
    int result;
    unsigned long next;
    unsigned long size;
  };
  const std::vector<Row> rows = {
      {"1A\r\ntext", 0, 1, 4, 0x1A},
      {"ab\r\n1a\r\n", 4, 1, 8, 0x1A},
      {"FFFFFF\r\n", 0, 1, 8, 0xFFFFFF},
      {"12;abc\r\n", 0, 1, 8, 0x12},
      {"1234567\r\n", 0, 0, 0, 0},
      {"\r\n5\r\n", 0, 0, 0, 0},
      {"12\r", 0, 0, 0, 0},
      {"12\n", 0, 0, 0, 0},
      {"1\r2\r\n", 0, 1, 5, 1},  // a CR of its own is no line end
      {"xyz\r\n", 0, 0, 0, 0},
      {"5\r\n", 3, 0, 0, 0},
      {"5\r\n", 2, 0, 0, 0},
      {"5\r\n", 400, 0, 0, 0},
      {"5\r\n", 0xFFFFFFFFFFFFFFFF, 0, 0, 0},
      {"", 0, 0, 0, 0},
      {"5", 0, 0, 0, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE("'" + row.buffer + "' from " + std::to_string(row.position));
    unsigned long next = kUntouched;
    unsigned long size = kUntouched;
    // On the heap at its exact size, so that AddressSanitizer sees a step too far.
    const std::vector<char> bytes(row.buffer.begin(), row.buffer.end());
    EXPECT_EQ(OpenClient::GetChunkLength(bytes.data(), bytes.size(), row.position, &next, &size),
              row.result);
    EXPECT_EQ(next, row.result != 0 ? row.next : kUntouched);
    EXPECT_EQ(size, row.result != 0 ? row.size : kUntouched);
  }
}

TEST(ChunkSteps, FindCrlfLooksFromThePositionToTheEnd) {
  struct Row {
    std::string buffer;
    unsigned long position;
    int result;
    unsigned long found;
  };
  const std::vector<Row> rows = {
      {"\r\n", 0, 1, 0},    {"ab\r\n", 0, 1, 2}, {"\r\nab\r\n", 1, 1, 4},
      {"a\r\r\n", 0, 1, 2}, {"ab\r", 0, 0, 0},   {"\n\r", 0, 0, 0},
      {"\r\n", 1, 0, 0},    {"\r\n", 2, 0, 0},   {"\r\n", 3, 0, 0},
      {"", 0, 0, 0},        {"\r", 0, 0, 0},     {"\r\n", 0xFFFFFFFFFFFFFFFF, 0, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.buffer) + " from " + std::to_string(row.position));
    unsigned long found = kUntouched;
    const std::vector<char> bytes(row.buffer.begin(), row.buffer.end());
    EXPECT_EQ(OpenClient::FindCRLF(bytes.data(), bytes.size(), row.position, &found), row.result);
    EXPECT_EQ(found, row.result != 0 ? row.found : kUntouched);
  }
}

TEST(ChunkSteps, GetMoreDataKeepsWhatIsUnread) {
  struct Row {
    std::string held;
    unsigned long position;
    std::string arrives;
    std::string expected;
    unsigned long offered;  // room given to the receive
  };
  const std::vector<Row> rows = {
      {"", 0, "abc", "abc", 16},          {"old", 3, "abc", "abc", 16},
      {"oldest", 3, "abc", "estabc", 13},  // the regions overlap
      {"kept", 0, "abc", "keptabc", 12},  {"123456789012345", 0, "xyz", "123456789012345x", 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.expected);
    ClientHarness harness;
    harness.script.pieces = {row.arrives};
    std::vector<char> buffer(16, '\0');
    std::memcpy(buffer.data(), row.held.data(), row.held.size());
    unsigned long length = kUntouched;
    unsigned long position = kUntouched;
    unsigned long error = kUntouched;
    EXPECT_EQ(harness.client.GetMoreData(buffer.data(), buffer.size(), row.held.size(),
                                         row.position, &length, &position, &error),
              1);
    EXPECT_EQ(std::string(buffer.data(), length), row.expected);
    EXPECT_EQ(position, 0U);
    EXPECT_EQ(error, kUntouched);
    EXPECT_EQ(harness.script.receiveSizes.back(), row.offered);
  }
}

TEST(ChunkSteps, GetMoreDataFailsOnAFullBufferWithoutReceiving) {
  ClientHarness harness;
  harness.script.pieces = {"abc"};
  std::vector<char> buffer(16, 'x');
  unsigned long length = kUntouched;
  unsigned long position = kUntouched;
  unsigned long error = 0;
  EXPECT_EQ(harness.client.GetMoreData(buffer.data(), 16, 16, 0, &length, &position, &error), 0);
  EXPECT_EQ(error, SCA_ErrorInvalidData);
  EXPECT_EQ(harness.client.IsValid(), 0);
  EXPECT_TRUE(harness.script.receiveSizes.empty());
}

TEST(ChunkSteps, ChunkSizeSaturatesInsteadOfWrapping) {
  unsigned long long size = 0;
  const std::string huge(255, 'F');
  EXPECT_TRUE(SCA_ParseChunkSize(huge.data(), huge.size(), &size));
  EXPECT_EQ(size, 0xFFFFFFFFFFFFFFFFULL);
  const std::string tooLong(256, '0');
  EXPECT_FALSE(SCA_ParseChunkSize(tooLong.data(), tooLong.size(), &size));
}

}  // namespace
