#include <Kite/Base/FatalError.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace kite {
namespace {

void printFatalError(std::string_view message, const SourceLocation& where) {
  const std::string line = "Fatal error: " + std::string(message) + ": file " +
                           (where.file != nullptr ? where.file : "") + ", line " +
                           std::to_string(where.line) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

constinit std::atomic<FatalErrorHandler> currentHandler{printFatalError};

}  // namespace

void fatalError(std::string_view message, SourceLocation where) {
  currentHandler.load()(message, where);
  std::abort();
}

FatalErrorHandler exchangeFatalErrorHandler(FatalErrorHandler next) noexcept {
  return currentHandler.exchange(next != nullptr ? next : printFatalError);
}

}  // namespace kite
