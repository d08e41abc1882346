// Many documents over two real Tika servers, one of which goes in the middle.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>

#include "programs/tikaextract/PrivateServer.h"
#include "tests/support/Program.h"
#include "tests/support/TempDir.h"
#include "tests/support/Timing.h"

namespace {

namespace fs = std::filesystem;

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

TEST(TwoServers, NoTextIsLostOrDoubledWhenOneOfThemGoes) {
  constexpr int kCopies = 8;
  const TempDir dir;
  std::map<std::string, fs::path> samples;  // by the name of the copy
  for (const fs::directory_entry& entry : fs::directory_iterator(SCA_SAMPLES_DIR)) {
    if (!fs::exists(entry.path().string() + ".sentences")) continue;
    for (int i = 0; i < kCopies; ++i) {
      const std::string name = std::to_string(i) + "-" + entry.path().filename().string();
      fs::copy(entry.path(), dir.File(name));
      samples[name] = entry.path();
    }
  }
  const Options options;
  SCA_Event cancel(1, 0);
  auto going = std::make_unique<PrivateServer>(options, &cancel);
  PrivateServer staying(options, &cancel);
  std::string complaint;
  ASSERT_TRUE(going->EnsureReady(&complaint)) << complaint;
  ASSERT_TRUE(staying.EnsureReady(&complaint)) << complaint;

  Program program("tikaextract", {"-r", dir.Path(), "--jsonl", "-j", "4", "--server",
                                  "127.0.0.1:" + std::to_string(going->Port()), "--server",
                                  "127.0.0.1:" + std::to_string(staying.Port())});
  ASSERT_TRUE(Eventually([&program] { return Lines(program.Output()).size() > 20; }));
  going.reset();
  EXPECT_EQ(program.Wait(), 0) << program.Error();
  std::map<fs::path, std::string> texts;
  for (const std::string& line : Lines(program.Output())) {
    const nlohmann::json record = nlohmann::json::parse(line);
    const auto sample = samples.find(fs::path(std::string(record["path"])).filename().string());
    ASSERT_NE(sample, samples.end()) << line;
    const std::string text = record["text"];
    for (const std::string& sentence : Lines(ReadFile(sample->second.string() + ".sentences"))) {
      EXPECT_NE(text.find(sentence), std::string::npos) << sentence << "\nis not in\n" << text;
    }
    EXPECT_EQ(texts.emplace(sample->second, text).first->second, text) << "copies of one document";
    samples.erase(sample);
  }
  EXPECT_TRUE(samples.empty()) << samples.size() << " documents have no record";
}

}  // namespace
