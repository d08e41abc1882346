// Writes a PDF of many pages, or the lines of text which that PDF holds: a test extracts the text
// of the one and compares it with the other. Too large to be kept among the samples, it is made
// whenever it is needed, and with nothing but the standard library.
//
//   make_large_pdf OUTPUT.pdf [PAGES]
//   make_large_pdf --text [PAGES]

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace {

constexpr unsigned kDefaultPages = 400;
constexpr unsigned kMaxPages = 10000;
constexpr unsigned kLinesPerPage = 45;
constexpr unsigned kWordsPerLine = 10;

// Plain ASCII without brackets and backslashes, so that no word needs escaping in a PDF string.
constexpr std::array<std::string_view, 24> kWords = {
    "anchor", "basket", "candle", "drawer", "engine", "feather", "garden", "hammer",
    "island", "jacket", "kettle", "ladder", "mirror", "needle",  "orange", "pepper",
    "quarry", "ribbon", "saddle", "timber", "umber",  "velvet",  "window", "yellow",
};

// The numbers at the start make every line unique: one that is lost, doubled or moved shows.
std::string TextLine(unsigned page, unsigned line, unsigned pages) {
  std::ostringstream text;
  if (line == 1) {
    text << "Page " << page << " of " << pages << ":";
  } else {
    text << "Line " << page << "." << line << ":";
  }
  // The engine, unlike the distributions, yields the same numbers with every standard library.
  std::mt19937 random(page * kLinesPerPage + line);
  for (unsigned word = 0; word < kWordsPerLine; ++word) {
    text << ' ' << kWords[random() % kWords.size()];
  }
  return text.str();
}

// Collects numbered objects and remembers where each one starts, as the xref table asks for it.
class PdfWriter {
 public:
  // Objects are numbered from 1 in the order in which they are added.
  void AddObject(std::string_view body) {
    offsets_.push_back(pdf_.size());
    pdf_ += std::to_string(offsets_.size()) + " 0 obj\n";
    pdf_ += body;
    pdf_ += "\nendobj\n";
  }

  // Ends the document; the first object must be the catalog.
  std::string Finish() {
    const std::size_t entries = offsets_.size() + 1;
    std::ostringstream tail;
    tail << "xref\n0 " << entries << "\n0000000000 65535 f \n" << std::setfill('0');
    for (const std::size_t offset : offsets_) {
      tail << std::setw(10) << offset << " 00000 n \n";
    }
    tail << "trailer\n<< /Size " << entries << " /Root 1 0 R >>\n";
    tail << "startxref\n" << pdf_.size() << "\n%%EOF\n";
    return pdf_ + tail.str();
  }

 private:
  // The comment of bytes above 127 keeps tools from taking the file for plain text.
  std::string pdf_ = "%PDF-1.4\n%\xE2\xE3\xCF\xD3\n";
  std::vector<std::size_t> offsets_;
};

// Objects 1 to 3 are the catalog, the page tree and the font; then each page has two of its own.
constexpr unsigned PageObject(unsigned page) {
  return 2 * page + 2;
}

std::string PageTree(unsigned pages) {
  std::ostringstream tree;
  tree << "<< /Type /Pages /Count " << pages << " /MediaBox [0 0 595 842]\n";
  tree << "/Resources << /Font << /F1 3 0 R >> >>\n/Kids [";
  for (unsigned page = 1; page <= pages; ++page) {
    tree << PageObject(page) << " 0 R\n";
  }
  tree << "] >>";
  return tree.str();
}

std::string PageContent(unsigned page, unsigned pages) {
  std::ostringstream content;
  content << "BT\n/F1 10 Tf\n15 TL\n50 780 Td\n";
  for (unsigned line = 1; line <= kLinesPerPage; ++line) {
    content << "(" << TextLine(page, line, pages) << ") Tj T*\n";
  }
  content << "ET";
  return content.str();
}

std::string MakePdf(unsigned pages) {
  PdfWriter pdf;
  pdf.AddObject("<< /Type /Catalog /Pages 2 0 R >>");
  pdf.AddObject(PageTree(pages));
  pdf.AddObject("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>");
  for (unsigned page = 1; page <= pages; ++page) {
    const std::string content = PageContent(page, pages);
    pdf.AddObject("<< /Type /Page /Parent 2 0 R /Contents " + std::to_string(PageObject(page) + 1) +
                  " 0 R >>");
    pdf.AddObject("<< /Length " + std::to_string(content.size()) + " >>\nstream\n" + content +
                  "\nendstream");
  }
  return pdf.Finish();
}

void PrintText(unsigned pages) {
  for (unsigned page = 1; page <= pages; ++page) {
    for (unsigned line = 1; line <= kLinesPerPage; ++line) {
      std::cout << TextLine(page, line, pages) << '\n';
    }
  }
}

std::optional<unsigned> ParsePages(std::string_view text) {
  unsigned pages = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, pages);
  if (error != std::errc() || stop != end || pages < 1 || pages > kMaxPages) {
    return std::nullopt;
  }
  return pages;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  const std::optional<unsigned> pages = args.size() < 2 ? kDefaultPages : ParsePages(args[1]);
  if (args.empty() || args.size() > 2 || !pages) {
    std::cerr << "usage: make_large_pdf OUTPUT.pdf|--text [PAGES]   (1 to " << kMaxPages
              << " pages, default " << kDefaultPages << ")\n";
    return 2;
  }
  if (args[0] == "--text") {
    PrintText(*pages);
    return std::cout.flush() ? EXIT_SUCCESS : EXIT_FAILURE;
  }
  std::ofstream file(args[0], std::ios::binary);
  file << MakePdf(*pages) << std::flush;
  if (!file) {
    std::cerr << "make_large_pdf: cannot write " << args[0] << '\n';
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
