#include "client/SCA_TikaRequestHead.h"

#include <string_view>

namespace {

// From this line on a server answers PUT /tika in Markdown, whatever it is told to accept.
constexpr unsigned long kFirstMarkdownLine = 4;

constexpr char kAcceptJson[] = "application/json";

// The header would end at a line feed, and Tika takes the other form for Latin-1: this one holds
// every character.
std::string Base64(std::string_view bytes) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (; !bytes.empty(); bytes.remove_prefix(bytes.size() < 3 ? bytes.size() : 3)) {
    unsigned long group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      group = group << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      text += i <= bytes.size() ? kDigits[group >> (18 - 6 * i) & 0x3F] : '=';
    }
  }
  return text;
}

// A value of a header's parameter (RFC 8187, section 3.2.1), which all lines of Tika decode.
std::string PercentEncode(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  constexpr std::string_view kUnreserved =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
  std::string text;
  for (const char c : bytes) {
    if (kUnreserved.find(c) != std::string_view::npos) {
      text += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      text += {'%', kDigits[byte >> 4], kDigits[byte & 0xF]};
    }
  }
  return text;
}

void SetContent(SCA_TikaContent content, SCA_TikaRequestHead* head) {
  switch (content) {
    case SCA_TikaContent::Text:
      break;
    case SCA_TikaContent::Metadata:
      // Of the forms of the text in it, only "body" is the one of PUT /tika: "text" begins with the
      // title and line feeds.
      head->path = "/rmeta/body";
      head->accept = kAcceptJson;
      break;
    case SCA_TikaContent::Detection:
      head->path = "/meta";
      head->accept = kAcceptJson;
      break;
    case SCA_TikaContent::Markdown:
      head->path = "/tika/md";
      break;
  }
}

class Fields {
 public:
  explicit Fields(std::string* text) : text_(*text) {}
  void Add(const char* name, std::string_view value) {
    text_.append(name).append(": ").append(value).append("\r\n");
  }

 private:
  std::string& text_;
};

void AddOcr(SCA_TikaOcr ocr, unsigned long line, Fields* fields) {
  constexpr char kStrategy[] = "X-Tika-PDFOcrStrategy";
  switch (ocr) {
    case SCA_TikaOcr::Default:
      break;
    case SCA_TikaOcr::None:
      fields->Add(kStrategy, "no_ocr");
      // The strategy is that of PDF pages. For pictures, the first line has no switch, but a limit.
      if (line == 1) fields->Add("X-Tika-OCRMaxFileSizeToOcr", "0");
      if (line != 1) fields->Add("X-Tika-OCRskipOcr", "true");
      break;
    case SCA_TikaOcr::Automatic:
      fields->Add(kStrategy, "auto");
      break;
    case SCA_TikaOcr::Only:
      fields->Add(kStrategy, "ocr_only");
      break;
  }
}

}  // namespace

const SCA_TikaRequestHead& SCA_TikaPlainHead(const SCA_TikaVersion& version) {
  static const SCA_TikaRequestHead kPlain;
  static const SCA_TikaRequestHead kPlainOfMarkdownLines = {"/tika/text", "text/plain", {}, 0, 0};
  return version.GetLine() >= kFirstMarkdownLine ? kPlainOfMarkdownLines : kPlain;
}

SCA_TikaRequestHead SCA_MakeRequestHead(const SCA_TikaRequestOptions& options,
                                        const SCA_TikaVersion& version) {
  const unsigned long wanted = SCA_TikaOptionsIn(options);
  SCA_TikaRequestHead head = SCA_TikaPlainHead(version);
  SetContent(options.content, &head);
  head.ignored = version.Choose(wanted, SCA_TikaSupport::Ignored);
  head.refused = version.Choose(wanted, SCA_TikaSupport::Refused);
  const unsigned long followed = version.Choose(wanted, SCA_TikaSupport::Followed);
  const auto follows = [followed](SCA_TikaOption option) { return (followed & option) != 0; };
  Fields fields(&head.fields);
  if (follows(SCA_TikaOptionPassword)) {
    fields.Add("Password_Base64_UTF-8", Base64(options.password));
  }
  if (follows(SCA_TikaOptionOcr)) AddOcr(options.ocr, version.GetLine(), &fields);
  if (follows(SCA_TikaOptionOcrLanguage)) fields.Add("X-Tika-OCRLanguage", options.ocrLanguage);
  if (follows(SCA_TikaOptionNoEmbedded)) fields.Add("X-Tika-Skip-Embedded", "true");
  if (follows(SCA_TikaOptionServerTimeout)) {
    fields.Add("X-Tika-Timeout-Millis", std::to_string(options.serverTimeoutMs));
  }
  if (follows(SCA_TikaOptionFileName)) {
    fields.Add("Content-Disposition",
               "attachment; filename*=UTF-8''" + PercentEncode(options.fileName));
  }
  if (follows(SCA_TikaOptionContentType)) fields.Add("Content-Type", options.contentType);
  return head;
}
