#pragma once

#include <Kite/Base/FatalError.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

namespace kite::test {

/// What a fatal error becomes while a `CatchFatalErrors` lives.
struct FatalErrorRaised {
  std::string message;
  SourceLocation where;
};

/// Turns fatal errors into exceptions, on all threads, for as long as it lives. May be nested.
class CatchFatalErrors {
 public:
  CatchFatalErrors() : _previous(exchangeFatalErrorHandler(raise)) {}
  ~CatchFatalErrors() { exchangeFatalErrorHandler(_previous); }
  CatchFatalErrors(const CatchFatalErrors&) = delete;
  CatchFatalErrors& operator=(const CatchFatalErrors&) = delete;

 private:
  static void raise(std::string_view message, const SourceLocation& where) {
    throw FatalErrorRaised{std::string(message), where};
  }
  FatalErrorHandler _previous;
};

/// The fatal error that `body` ends in, or nothing when it returns.
template <class Body>
std::optional<FatalErrorRaised> fatalErrorOf(Body body) {
  const CatchFatalErrors trap;
  try {
    body();
  } catch (const FatalErrorRaised& raised) {
    return raised;
  }
  return std::nullopt;
}

}  // namespace kite::test

/// Expects the statement to stop the process with exactly that message.
#define EXPECT_FATAL(statement, expectedMessage)                               \
  do {                                                                         \
    const ::kite::test::CatchFatalErrors fatalErrorTrap;                       \
    std::optional<std::string> fatalErrorMessage;                              \
    try {                                                                      \
      statement;                                                               \
    } catch (const ::kite::test::FatalErrorRaised& fatalError) {               \
      fatalErrorMessage = fatalError.message;                                  \
    }                                                                          \
    EXPECT_EQ(fatalErrorMessage, std::optional<std::string>(expectedMessage)); \
  } while (false)
