#include <Kite/Linux/LinuxPlatform.h>

#include "JSON/JSONWriter.h"
#include "Linux/Storage/FileDescriptor.h"
#include "Linux/Storage/FileSizeSignal.h"
#include "Linux/Storage/Uninterrupted.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

namespace kite::Linux {
namespace {

/// Where lines go: a file, which is closed with the last client that writes to it, or standard
/// error.
class LineSink {
 public:
  explicit LineSink(const std::optional<std::filesystem::path>& file) {
    if (!file) return;
    // O_APPEND keeps lines whole beside those of other processes.
    _file = FileDescriptor(
        ::open(file->c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!_file)
      System::live().print("[KITE] Telemetry goes to standard error: cannot open " +
                           file->string());
  }

  void write(const std::string& line) const {
    const WithoutFileSizeSignal quiet;
    const int descriptor = _file ? _file.get() : STDERR_FILENO;
    uninterrupted([&] { return ::write(descriptor, line.data(), line.size()); });
  }

 private:
  FileDescriptor _file;
};

std::string_view text(Whisker::Severity severity) {
  static constexpr std::array<std::string_view, 4> texts{"info", "warning", "error", "critical"};
  return texts.at(static_cast<std::size_t>(severity));
}

// What has no JSON text must not cost the rest of the report.
std::string jsonLine(JSONValue::Object report) {
  std::string line;
  if (const auto error = appendJSON(line, report)) {
    report["info"] = JSONValue::Object{{"encoding_error", error->debugDescription}};
    line.clear();
    if (appendJSON(line, report)) return {};
  }
  return line + '\n';
}

class JSONLinesWhisker final : public Whisker {
 public:
  JSONLinesWhisker(std::shared_ptr<const LineSink> sink, std::vector<std::string> scope)
      : _sink(std::move(sink)), _scope(std::move(scope)) {}

  std::shared_ptr<Whisker> scoped(std::vector<std::string> categories) override {
    categories.insert(categories.begin(), _scope.begin(), _scope.end());
    return std::make_shared<JSONLinesWhisker>(_sink, std::move(categories));
  }

  void report(const DebugEvent& event, const SourceLocation& where) override {
    JSONValue::Array categories(_scope.begin(), _scope.end());
    categories.insert(categories.end(), event.categories.begin(), event.categories.end());
    JSONValue::Object report{
        {"timestamp", System::live().now().secondsSince1970},
        {"severity", text(event.severity)},
        {"categories", std::move(categories)},
        {"description", event.description},
        {"info", event.info},
        {"file", where.file},
        {"function", where.function},
        {"line", static_cast<std::int64_t>(where.line)},
    };
    if (event.errorCode) report["error_code"] = *event.errorCode;
    _sink->write(jsonLine(std::move(report)));
  }

 private:
  const std::shared_ptr<const LineSink> _sink;
  const std::vector<std::string> _scope;
};

}  // namespace

std::shared_ptr<Whisker> jsonLinesWhisker(std::optional<std::filesystem::path> file) {
  return std::make_shared<JSONLinesWhisker>(std::make_shared<const LineSink>(file),
                                            std::vector<std::string>{});
}

}  // namespace kite::Linux
