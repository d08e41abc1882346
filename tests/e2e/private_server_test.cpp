// tikaextract with a private Tika server: nothing of it outlives the program.

#include <gtest/gtest.h>
#include <poll.h>

#include <csignal>
#include <filesystem>
#include <random>

#include "tests/e2e/jars.h"
#include "tests/support/Program.h"

namespace {

const std::string kSample = SCA_SAMPLES_DIR "/quarterly-report-en.docx";

TEST(PrivateServer, ExtractsAndIsGoneWithTheProgram) {
  Program program("tikaextract",
                  {"--no-class-archive", "--java-heap", "256", "--verbose", kSample});
  EXPECT_EQ(program.Wait(), 0) << program.Error();
  EXPECT_TRUE(Has(program.Output(), "Quarterly"));
  // Both JVMs of the server have the limit, not the one that was started alone.
  EXPECT_TRUE(Has(program.Error(), "-XX:+UseSerialGC -Xmx256m"));
  EXPECT_TRUE(program.FamilyEndsWithin(1));
}

TEST(PrivateServer, ExampleHasOneToo) {
  Program example("example_private_server", {CachedJar("tika-server-standard-3.3.2.jar"), kSample});
  EXPECT_EQ(example.Wait(), 0) << example.Error();
  EXPECT_TRUE(Has(example.Output(), "Quarterly"));
  EXPECT_TRUE(example.FamilyEndsWithin(1));
}

TEST(PrivateServer, InterruptStopsItBeforeTheProgramEnds) {
  Program program("tikaextract", {"--private", "--verbose", kSample});
  ASSERT_TRUE(program.WaitForError("tikaextract: started java"));
  program.Signal(SIGINT);
  EXPECT_EQ(program.Wait(), 130);
  EXPECT_TRUE(program.FamilyEndsWithin(1));
}

TEST(PrivateServer, KilledProgramLeavesNoJavaBehind) {
  const unsigned seed = std::random_device()();
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> moment(0, 5000);
  for (int round = 0; round < 6; ++round) {
    const int afterMs = moment(random);
    SCOPED_TRACE(::testing::Message() << "seed " << seed << ", killed after " << afterMs << " ms");
    Program program("tikaextract", {"--private", "--no-class-archive", kSample, kSample});
    // The moment itself is what is tested here, not a thing to wait for.
    ::poll(nullptr, 0, afterMs);
    program.Signal(SIGKILL);
    program.Wait();
    EXPECT_TRUE(program.FamilyEndsWithin(5)) << ::testing::PrintToString(program.Family());
  }
}

}  // namespace
