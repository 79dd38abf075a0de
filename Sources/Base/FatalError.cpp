#include <Kite/Base/FatalError.h>

#include "Base/CurrentOperation.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace kite {
namespace {

void printFatalError(std::string_view message, const SourceLocation& where) {
  std::string text = "Fatal error: " + std::string(message) + ": file " +
                     (where.file != nullptr ? where.file : "") + ", line " +
                     std::to_string(where.line) + "\n";
  if (const char* const operation = CurrentOperation::name())
    text += std::string("in ") + operation + "\n";
  std::fwrite(text.data(), 1, text.size(), stderr);
}

constinit std::atomic<FatalErrorHandler> currentHandler{printFatalError};

}  // namespace

constinit thread_local const char* CurrentOperation::current = nullptr;

void fatalError(std::string_view message, SourceLocation where) {
  currentHandler.load()(message, where);
  std::abort();
}

FatalErrorHandler exchangeFatalErrorHandler(FatalErrorHandler next) noexcept {
  return currentHandler.exchange(next != nullptr ? next : printFatalError);
}

}  // namespace kite
