#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kite::test {

/// What a server answered.
struct Answer {
  int status = 0;
  std::map<std::string, std::string> headers = {};  ///< names in lower case
  std::string body = {};                            ///< without the marks of its chunks
};

/// A connection on which a test says what it likes. What goes wrong is thrown as
/// `std::runtime_error`, which fails the test.
class PlainConnection {
 public:
  explicit PlainConnection(std::uint16_t port);
  ~PlainConnection();
  PlainConnection(const PlainConnection&) = delete;
  PlainConnection& operator=(const PlainConnection&) = delete;

  void send(const std::string& bytes) const;
  /// All that came, up to this text and with it.
  std::string receiveUntil(const std::string& text);
  /// All that comes until the server ends the connection.
  std::string receiveAll();
  /// Whether something came within that time.
  bool hears(int milliseconds) const;
  /// How little the kernel is to hold for a reader that does not read.
  void shrinkBuffer() const;

 private:
  bool receiveMore();

  int _socket;
  std::string _unread;
};

using PlainHeaders = std::vector<std::string>;

/// A request as one text; `headers` are whole lines, Host among them.
std::string requestText(const std::string& method, const std::string& target,
                        const PlainHeaders& headers, const std::string& body = "");
/// Reads an answer that ends with its connection.
Answer parseAnswer(const std::string& text);

}  // namespace kite::test
