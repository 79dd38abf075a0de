#include "Collector/CollectCommand.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <CLI/CLI.hpp>

#include <fstream>
#include <string>
#include <vector>

namespace kite::test {
namespace {

using ::testing::HasSubstr;

/// What is said of a wrong command line; empty when it is not said to be wrong.
std::string complaint(std::vector<std::string> arguments) {
  CLI::App app;
  tool::addCollectCommand(app);
  arguments.insert(arguments.begin(), "collect");
  std::reverse(arguments.begin(), arguments.end());
  try {
    app.parse(arguments);
  } catch (const CLI::RuntimeError&) {
    return "";
  } catch (const CLI::ParseError& error) {
    return error.what();
  }
  return "";
}

std::vector<std::string> with(std::vector<std::string> more) {
  more.insert(more.begin(), {"--key", "k", "--db", "/absent/events.db"});
  return more;
}

TEST(CollectCommand, needsAKeyAndADatabase) {
  EXPECT_EQ(complaint({"--db", "x", "--self-signed", "t"}), "--key or --key-file is required");
  EXPECT_EQ(complaint({"--key", "k", "--self-signed", "t"}), "--db is required");
}

TEST(CollectCommand, migratesADatabaseThatHasAnAddress) {
  EXPECT_EQ(complaint({"migrate"}), "--db is required");
  EXPECT_THAT(complaint({"migrate", "--db", "/absent/events.db"}), HasSubstr("needs no migration"));
  EXPECT_THAT(complaint({"migrate", "--db", "x", "--keep-days", "0"}), HasSubstr("--keep-days"));
}

TEST(CollectCommand, takesAPasswordFromAFileOnly) {
  EXPECT_THAT(complaint(with({"--self-signed", "t", "--db-password-file", "/absent/password"})),
              HasSubstr("the first line of /absent/password cannot be read or is empty"));
}

TEST(CollectCommand, needsAKeyThatIsNotEmpty) {
  EXPECT_EQ(complaint({"--key", "", "--db", "x", "--self-signed", "t"}),
            "the key must not be empty");
}

TEST(CollectCommand, takesItsKeyFromAFileInstead) {
  const TemporaryFolder folder;
  const std::string file = folder.path() / "key";
  EXPECT_THAT(complaint({"--key-file", file, "--db", "x", "--self-signed", "t"}),
              HasSubstr("the first line of " + file + " cannot be read or is empty"));
  std::ofstream(file) << "secret\n";
  EXPECT_EQ(complaint({"--key-file", file, "--db", "x"}),
            "give either --cert and --cert-key or --self-signed");
  EXPECT_THAT(complaint(with({"--key-file", file, "--self-signed", "t"})),
              HasSubstr("--key excludes --key-file"));
}

TEST(CollectCommand, needsOneSourceOfItsCertificate) {
  const std::string either = "give either --cert and --cert-key or --self-signed";
  EXPECT_EQ(complaint(with({})), either);
  EXPECT_EQ(complaint(with({"--cert", "a", "--cert-key", "b", "--self-signed", "t"})), either);
}

TEST(CollectCommand, needsACertificateAndItsKey) {
  EXPECT_EQ(complaint(with({"--cert", "a"})), "--cert and --cert-key go together");
  EXPECT_EQ(complaint(with({"--cert-key", "b"})), "--cert and --cert-key go together");
}

TEST(CollectCommand, listensOnAHostAndAPort) {
  for (const std::string text : {"localhost", ":80", "h:", "h:x", "h:-1", "h:65536", "h:80x"}) {
    EXPECT_EQ(complaint(with({"--self-signed", "t", "--listen", text})),
              "--listen: \"" + text + "\" is not HOST:PORT");
  }
}

TEST(CollectCommand, storesIntoAFileOneUploadAtATime) {
  EXPECT_THAT(complaint(with({"--self-signed", "t", "--db-connections", "2"})),
              HasSubstr("--db-connections wants the address of a PostgreSQL database"));
  EXPECT_THAT(complaint(with({"--self-signed", "t", "--db-connections", "0"})),
              HasSubstr("--db-connections"));
}

TEST(CollectCommand, servesMetricsOnAHostAndAPort) {
  EXPECT_EQ(complaint(with({"--self-signed", "t", "--metrics", "9464"})),
            "--metrics: \"9464\" is not HOST:PORT");
}

TEST(CollectCommand, saysWhichFaultItDoesNotKnow) {
  EXPECT_THAT(complaint(with({"--self-signed", "t", "--fault", "reset", "--fault", "nonsense"})),
              HasSubstr("--fault: \"nonsense\" is no fault"));
}

TEST(CollectCommand, takesNothingElse) {
  EXPECT_THAT(complaint(with({"--self-signed", "t", "stray"})), HasSubstr("stray"));
  EXPECT_THAT(complaint(with({"--bogus"})), HasSubstr("--bogus"));
}

}  // namespace
}  // namespace kite::test
