#include "EndToEnd/Servers.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <sstream>
#include <stdexcept>

namespace kite::test {
namespace {

Arguments collect(const Collector::Options& options, const std::string& certificates,
                  const std::string& database) {
  Arguments arguments{"collect", "--listen", options.listen,  "--key",     "secret",
                      "--db",    database,   "--self-signed", certificates};
  for (const auto& fault : options.faults) arguments.insert(arguments.end(), {"--fault", fault});
  return arguments;
}

std::vector<std::string> lines(const std::string& file) {
  std::vector<std::string> result;
  std::istringstream text(contents(file));
  for (std::string line; std::getline(text, line) && !text.eof();) result.push_back(line);
  return result;
}

/// The text of a member of the line that says where the collector listens.
std::string member(const std::string& line, const std::string& key) {
  const auto opening = "\"" + key + "\":\"";
  const auto begin = line.find(opening) + opening.size();
  return line.substr(begin, line.find('"', begin) - begin);
}

}  // namespace

Collector::Collector(const Options& options)
    : _certificates(options.certificates.empty() ? _folder / "certificates" : options.certificates),
      _process(collect(options, _certificates, _database),
               {.output = _log, .errors = _folder / "errors"}) {
  if (!eventually([&] { return !lines(_log).empty(); }))
    throw std::runtime_error("the collector does not listen: " + contents(_folder / "errors"));
  _url = member(lines(_log).front(), "url");
}

std::vector<Request> Collector::requests() const {
  std::vector<Request> requests;
  const auto all = lines(_log);
  for (std::size_t at = 1; at < all.size(); ++at) requests.push_back(parseRequest(all[at]));
  return requests;
}

ClosedPort::ClosedPort() : _socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::bind(_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    throw std::runtime_error("no port");
}

ClosedPort::~ClosedPort() { ::close(_socket); }

std::string ClosedPort::address() const {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  ::getsockname(_socket, reinterpret_cast<sockaddr*>(&address), &size);
  return "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
}

SilentPort::SilentPort() { ::listen(_socket, 8); }

bool SilentPort::sawConnection() const {
  pollfd waiting{.fd = _socket, .events = POLLIN, .revents = 0};
  return ::poll(&waiting, 1, 0) > 0;
}

}  // namespace kite::test
