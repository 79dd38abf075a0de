#pragma once

#include <Kite/Base/Result.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kite::tool {

/// The ways in which the collector can be told to misbehave. Only a delayed request is handled
/// afterwards; of all others nothing is stored, and their request ids stay unused.
namespace faults {
struct AnswerStatus {
  int status;
};
struct AnswerFile {
  std::string path;  ///< its bytes are the body of a 200
};
struct Delay {
  std::chrono::milliseconds time;
};
struct Reset {};  ///< the connection is reset without an answer
struct Redirect {
  std::string url;
};
struct Truncate {};  ///< a 200 that breaks off in the middle of its announced body
}  // namespace faults

struct Fault {
  using Kind = std::variant<faults::AnswerStatus, faults::AnswerFile, faults::Delay, faults::Reset,
                            faults::Redirect, faults::Truncate>;
  Kind kind;
  std::string text;       ///< as it was asked for, without the count
  std::size_t count = 1;  ///< how many requests it strikes
};

/// Reads `KIND[:ARG][xN]`; a last `x` with digits behind it is always the count. The error is one
/// line.
Result<Fault, std::string> parseFault(std::string_view text);

/// The faults that are still to come. All operations may be called from any thread.
class FaultQueue {
 public:
  void add(Fault fault);
  /// The fault of the next request, used up.
  std::optional<Fault> take();
  std::vector<Fault> list() const;
  void clear();

 private:
  mutable std::mutex _mutex;
  std::deque<Fault> _faults;  // guarded by _mutex
};

}  // namespace kite::tool
