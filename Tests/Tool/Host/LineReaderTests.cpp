#include "Host/LineReader.h"

#include "Common/CommandFailure.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <thread>

namespace kite::tool {
namespace {

/// To read from, and to write to.
std::array<int, 2> makePipe() {
  std::array<int, 2> ends{};
  EXPECT_EQ(::pipe(ends.data()), 0);
  return ends;
}

/// A pipe that holds what a test writes into it.
class LineReaderTests : public testing::Test {
 protected:
  ~LineReaderTests() override {
    end();
    ::close(_ends[0]);
  }

  void write(std::string_view text) {
    EXPECT_EQ(::write(_ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  void end() {
    if (_ends[1] >= 0) ::close(_ends[1]);
    _ends[1] = -1;
  }
  /// Writes more than a pipe holds, and ends.
  std::jthread writeAside(std::string text) {
    return std::jthread([this, text = std::move(text)] {
      for (std::string_view rest = text; !rest.empty();) {
        const auto count = ::write(_ends[1], rest.data(), rest.size());
        if (count <= 0) return;
        rest.remove_prefix(static_cast<std::size_t>(count));
      }
      end();
    });
  }
  std::string text() {
    const auto line = reader.next();
    EXPECT_TRUE(line && !line->isTooLong);
    return line ? line->text : "no line";
  }

  std::array<int, 2> _ends = makePipe();
  LineReader reader{_ends[0]};
};

TEST_F(LineReaderTests, givesALineBeforeTheNextOneIsThere) {
  write("first\n");
  EXPECT_EQ(text(), "first");
  write("second\n");
  EXPECT_EQ(text(), "second");
}

TEST_F(LineReaderTests, joinsALineThatArrivesInPieces) {
  write("fir");
  std::jthread later([this] { write("st\n"); });
  EXPECT_EQ(text(), "first");
}

TEST_F(LineReaderTests, givesEmptyLines) {
  write("\n\nx\n");
  end();
  EXPECT_EQ(text(), "");
  EXPECT_EQ(text(), "");
  EXPECT_EQ(text(), "x");
  EXPECT_FALSE(reader.next());
}

TEST_F(LineReaderTests, givesALastLineWithoutEnd) {
  write("a\nb");
  end();
  EXPECT_EQ(text(), "a");
  EXPECT_EQ(text(), "b");
  EXPECT_FALSE(reader.next());
}

TEST_F(LineReaderTests, givesNothingForNoInput) {
  end();
  EXPECT_FALSE(reader.next());
}

TEST_F(LineReaderTests, keepsALineOfTheMaximumLength) {
  const auto writer = writeAside(std::string(maximumLineLength, 'x') + "\nnext\n");
  EXPECT_EQ(text().size(), maximumLineLength);
  EXPECT_EQ(text(), "next");
}

TEST_F(LineReaderTests, keepsNothingOfALongerLineAndGoesOn) {
  const auto writer = writeAside(std::string(maximumLineLength + 1, 'x') + "\nnext\n");
  const auto line = reader.next();
  ASSERT_TRUE(line);
  EXPECT_TRUE(line->isTooLong);
  EXPECT_EQ(line->text, "");
  EXPECT_EQ(text(), "next");
}

TEST_F(LineReaderTests, tellsOfALongerLineAtTheEndOfTheInput) {
  const auto writer = writeAside(std::string(3 * maximumLineLength, 'x'));
  const auto line = reader.next();
  ASSERT_TRUE(line);
  EXPECT_TRUE(line->isTooLong);
  EXPECT_FALSE(reader.next());
}

TEST(LineReader, failsWhenThereIsNothingToReadFrom) {
  LineReader reader(-1);
  EXPECT_THROW((void)reader.next(), CommandFailure);
}

}  // namespace
}  // namespace kite::tool
