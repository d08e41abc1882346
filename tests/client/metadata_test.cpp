// The reader of metadata and the judgement on completeness.

#include <gtest/gtest.h>

#include <algorithm>

#include "client/SCA_TikaMetadataReader.h"
#include "platform/SCA_Error.h"

namespace {

class Collector : public SCA_TikaMetadataReceiver {
 public:
  int TakeText(const char* text, unsigned long length) override {
    texts.back().append(text, length);
    largest = std::max(largest, length);
    judge.AddText(text, length);
    return texts.back().size() > mostText ? 0 : 1;
  }
  int TakeDocument(const SCA_TikaMetadata& metadata) override {
    documents.push_back(metadata);
    texts.emplace_back();
    judge.AddDocument(metadata);
    return 1;
  }

  unsigned long mostText = ~0UL;
  unsigned long largest = 0;
  std::vector<std::string> texts{""};
  std::vector<SCA_TikaMetadata> documents;
  SCA_TikaCompleteness judge;
};

unsigned long Read(const std::string& json, std::size_t piece, Collector* collector,
                   unsigned long limit = 1000) {
  SCA_TikaMetadataReader reader(collector, limit);
  for (std::size_t at = 0; at < json.size(); at += piece) {
    if (reader.Take(json.data() + at, std::min(piece, json.size() - at)) == 0) break;
  }
  return reader.Finish() != 0 ? 0 : reader.GetError();
}

constexpr std::size_t kPieces[] = {1, 2, 3, 7, 31, 100000};

TEST(MetadataReader, NamesOfAllLinesMeanTheSame) {
  const char* const replies[] = {
      R"([{"Content-Type":"a/b","X-Parsed-By":["x.DefaultParser","x.P"],"title":"T","Author":"A",)"
      R"("Creation-Date":"C","Last-Modified":"M","Page-Count":"12","language":"he"}])",
      R"( [ {"dc:title":"T", "dc:creator":["A"],"dcterms:created":"C","dcterms:modified":"M",)"
      R"("X-TIKA:Parsed-By":["x.DefaultParser","x.P","x.Q"],"Content-Type":"a/b",)"
      R"("xmpTPg:NPages":12,"dc:language":"he","other":{"dc:title":["no"]}} ] )",
      R"({"tk:parsed-by":"x.P","dc:title":"","title":"T","dc:creator":"A","dcterms:created":"C",)"
      R"("dcterms:modified":"M","xmpTPg:NPages":"12","Content-Type":"a/b","dc:language":"en",)"
      R"("language":"he","none":null})"};
  for (const char* reply : replies) {
    for (const std::size_t piece : kPieces) {
      SCOPED_TRACE(std::string(reply) + " in pieces of " + std::to_string(piece));
      Collector found;
      ASSERT_EQ(Read(reply, piece, &found), 0U);
      ASSERT_EQ(found.documents.size(), 1U);
      const SCA_TikaMetadata& it = found.documents[0];
      EXPECT_EQ(it.GetContentType() + it.GetTitle() + it.GetCreated() + it.GetModified() +
                    it.GetParser() + it.GetLanguage(),
                "a/bTCMx.Phe");
      EXPECT_EQ(it.GetAuthors(), std::vector<std::string>{"A"});
      EXPECT_EQ(it.GetPages(), 12U);
      EXPECT_EQ(found.texts[0], "");
    }
  }
}

TEST(MetadataReader, TextsPassThroughInPiecesOfAnySize) {
  const std::string longText(100000, 'x');
  const std::string json =
      R"([{"X-TIKA:content":"A\n\"\\\/\t\u00e9\u20ac\ud83d\ude00|\ud83d|\ude00|\ud83d\u0041é"},)"
      R"({"tk:content":["one"," two"],"X-TIKA:embedded_resource_path":"/b"},)"
      R"({"a":{"X-TIKA:content":"no"},"X-TIKA:content":")" +
      longText + R"("}])";
  for (const std::size_t piece : kPieces) {
    SCOPED_TRACE(piece);
    Collector found;
    ASSERT_EQ(Read(json, piece, &found), 0U);
    ASSERT_EQ(found.documents.size(), 3U);
    EXPECT_EQ(found.texts[0], "A\n\"\\/\té€😀|\uFFFD|\uFFFD|\uFFFDAé");
    EXPECT_EQ(found.texts[1], "one two");
    EXPECT_EQ(found.documents[1].GetEmbeddedPath(), "/b");
    EXPECT_TRUE(found.texts[2] == longText);
    EXPECT_LE(found.largest, 120000U);
  }
}

TEST(MetadataReader, AnythingElseIsRefusedWhereverItIsCut) {
  const std::string whole = R"([{"a":"b","c":["d",1,-2e5,true],"X-TIKA:content":"\u0041"}, {}])";
  for (std::size_t length = 0; length < whole.size(); ++length) {
    Collector found;
    EXPECT_EQ(Read(whole.substr(0, length), 5, &found), SCA_ErrorInvalidData) << length;
  }
  const char* const wrong[] = {"[]",
                               "x",
                               "\"x\"",
                               "[1]",
                               "[\"x\"]",
                               "[[{}]]",
                               "{}{}",
                               "[{},]",
                               "{\"a\"}",
                               "{\"a\":}",
                               "{\"a\":1,}",
                               "{,}",
                               "{\"a\" 1}",
                               "{1:2}",
                               "{\"a\":tru}",
                               "{\"a\":1 2}",
                               "{\"a\":[1,]}",
                               "{\"a\":[}",
                               "{\"a\":1]",
                               "{\"a\":--1}",
                               "[{}] x",
                               R"({"a":"\x"})",
                               R"({"a":"\u12G4"})",
                               "<html></html>"};
  for (const char* json : wrong) {
    Collector found;
    EXPECT_EQ(Read(json, 3, &found), SCA_ErrorInvalidData) << json;
  }
}

TEST(MetadataReader, MemoryIsBoundedAndTheReceiverMayStop) {
  const struct {
    std::string json;
    unsigned long error;
  } rows[] = {{"{\"a\":\"" + std::string(2000, 'x') + "\"}", SCA_ErrorDataTooLarge},
              {"{\"" + std::string(2000, 'x') + "\":1}", SCA_ErrorDataTooLarge},
              {"{\"a\":[\"\"" +
                   [] {
                     std::string more;
                     for (int i = 0; i < 100; ++i) more += ",\"\"";
                     return more;
                   }() +
                   "]}",
               SCA_ErrorDataTooLarge},
              {"{\"o\":{\"p\":\"" + std::string(2000, 'x') + "\"}}", SCA_ErrorDataTooLarge},
              {std::string(2000, '['), SCA_ErrorInvalidData},
              {"{\"a\":" + std::string(2000, '['), SCA_ErrorDataTooLarge},
              {"{\"a\":" + std::string(2000, '1') + "}", SCA_ErrorInvalidData},
              {"{\"tk:content\":\"" + std::string(2000, 'x') + "\"}", SCA_ErrorCancelled}};
  for (const auto& row : rows) {
    Collector found;
    found.mostText = 500;
    EXPECT_EQ(Read(row.json, 100, &found), row.error) << row.json.substr(0, 20);
  }
}

TEST(Completeness, IsJudgedByTheExceptionsThatTikaNotes) {
  const std::string locked =
      R"("X-TIKA:EXCEPTION:runtime":"org.apache.tika.exception.EncryptedDocumentException: Unable\n\tat x")";
  const std::string broken = R"("tk:exception:container-exception":"java.io.IOException: Missing")";
  const std::string noted = R"("X-TIKA:EXCEPTION:warn":"org.xml.sax.SAXParseException; line 1")";
  const std::string failed =
      R"({"X-TIKA:EXCEPTION:embedded_exception":"a.b.EncryptedDocumentException",)"
      R"("X-TIKA:EXCEPTION:embedded_parser":"x","X-TIKA:embedded_resource_path":"/p.pdf"})";
  const std::string text = R"("X-TIKA:content":"x")";
  const struct {
    std::string json;
    const char* word;
    const char* cause;
  } rows[] = {
      {"[{" + text + "}]", "complete", ""},
      {"[{" + text + R"(},{"X-TIKA:EXCEPTION:embedded_parser":"x"}])", "complete", ""},
      {R"([{"X-TIKA:content":" \n"}])", "complete", ""},
      {"[{" + locked + "}]", "locked", "EncryptedDocumentException: Unable"},
      {"[{" + broken + R"(,"tk:content":"\n\n "}])", "damaged", "IOException: Missing"},
      {"[{" + noted + "," + broken + "}]", "damaged", "IOException: Missing"},
      {R"([{"tk:exception:container-exception":"a.ZeroByteFileException: x"}])", "empty file",
       "ZeroByteFileException: x"},
      {"[{" + broken + "," + text + "}]", "truncated", "IOException: Missing"},
      {"[{" + text + "," + noted + "}]", "truncated", "SAXParseException; line 1"},
      {"[{" + noted + "}]", "truncated", "SAXParseException; line 1"},
      {"[{" + text + "}," + failed + "]", "truncated",
       "EncryptedDocumentException in the embedded document '/p.pdf'"},
      {"[{" + locked + "},{" + text + "}]", "truncated", "EncryptedDocumentException: Unable"},
  };
  for (const auto& row : rows) {
    Collector found;
    ASSERT_EQ(Read(row.json, 50, &found), 0U) << row.json;
    EXPECT_STREQ(SCA_TikaFindingText(found.judge.GetFinding()), row.word) << row.json;
    EXPECT_EQ(found.judge.GetCause(), row.cause) << row.json;
  }
  EXPECT_EQ(SCA_TikaCompleteness().GetFinding(), SCA_TikaFinding::Damaged) << "no document";
}

}  // namespace
