#include "Collector/HTTPSServer.h"

#include "Collector/ListeningSocket.h"
#include "Collector/PendingExchange.h"
#include "Collector/TLS.h"

#include <event2/buffer.h>
#include <event2/bufferevent_ssl.h>
#include <event2/event.h>
#include <event2/http.h>
#include <event2/http_struct.h>
#include <event2/keyvalq_struct.h>
#include <openssl/ssl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <map>

namespace kite::tool {
namespace {

constexpr int patience = 30;  // seconds for a slow client
constexpr ev_ssize_t largestHead = 64 * 1024;
constexpr ev_uint16_t allMethods = EVHTTP_REQ_GET | EVHTTP_REQ_POST | EVHTTP_REQ_HEAD |
                                   EVHTTP_REQ_PUT | EVHTTP_REQ_DELETE | EVHTTP_REQ_OPTIONS |
                                   EVHTTP_REQ_TRACE | EVHTTP_REQ_CONNECT | EVHTTP_REQ_PATCH;

const char* methodOf(const evhttp_request* request) {
  switch (evhttp_request_get_command(request)) {
    case EVHTTP_REQ_GET:
      return "GET";
    case EVHTTP_REQ_POST:
      return "POST";
    case EVHTTP_REQ_HEAD:
      return "HEAD";
    case EVHTTP_REQ_PUT:
      return "PUT";
    case EVHTTP_REQ_DELETE:
      return "DELETE";
    case EVHTTP_REQ_OPTIONS:
      return "OPTIONS";
    case EVHTTP_REQ_TRACE:
      return "TRACE";
    case EVHTTP_REQ_CONNECT:
      return "CONNECT";
    case EVHTTP_REQ_PATCH:
      return "PATCH";
  }
  return "";
}

std::string bodyOf(evhttp_request* request) {
  evbuffer* buffer = evhttp_request_get_input_buffer(request);
  std::string body(evbuffer_get_length(buffer), '\0');
  evbuffer_remove(buffer, body.data(), body.size());
  return body;
}

ReceivedRequest received(evhttp_request* request) {
  ReceivedRequest result{.method = methodOf(request),
                         .target = evhttp_request_get_uri(request),
                         .headers = {},
                         .body = bodyOf(request)};
  const evkeyvalq* headers = evhttp_request_get_input_headers(request);
  for (const evkeyval* each = headers->tqh_first; each; each = each->next.tqe_next) {
    result.headers.push_back({each->key, each->value});
  }
  return result;
}

template <auto release>
struct Release {
  template <class T>
  void operator()(T* object) const {
    release(object);
  }
};

class EventLoopServer final : public HTTPSServer {
 public:
  EventLoopServer(HTTPSServerOptions options, TLSContext tls, ListeningSocket socket)
      : _options(std::move(options)), _tls(std::move(tls)), _socket(std::move(socket)) {}
  ~EventLoopServer() override;

  bool setUp();
  std::uint16_t port() const override { return _socket.port(); }
  void run() override { event_base_dispatch(_base.get()); }
  void stop() override;

 private:
  static bufferevent* makeConnection(event_base* base, void* server);
  static void requestArrived(evhttp_request* request, void* server);
  static void connectionClosed(evhttp_connection* connection, void* server);
  static void stopAsked(evutil_socket_t signal, short what, void* server);

  HTTPSServerOptions _options;
  TLSContext _tls;
  ListeningSocket _socket;
  int _stopSignal = -1;
  std::unique_ptr<event_base, Release<event_base_free>> _base;
  std::unique_ptr<event, Release<event_free>> _stopEvent;
  std::map<evhttp_connection*, std::unique_ptr<PendingExchange>> _exchanges;
  std::unique_ptr<evhttp, Release<evhttp_free>> _http;  // ends the connections, so it goes first
};

EventLoopServer::~EventLoopServer() {
  _http.reset();
  _exchanges.clear();
  _stopEvent.reset();
  if (_stopSignal >= 0) ::close(_stopSignal);
}

bool EventLoopServer::setUp() {
  _stopSignal = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  _base.reset(event_base_new());
  if (_stopSignal < 0 || !_base) return false;
  _stopEvent.reset(event_new(_base.get(), _stopSignal, EV_READ, stopAsked, this));
  _http.reset(evhttp_new(_base.get()));
  if (!_stopEvent || !_http || event_add(_stopEvent.get(), nullptr) != 0) return false;

  evhttp* http = _http.get();
  evhttp_set_timeout(http, patience);
  evhttp_set_max_headers_size(http, largestHead);
  evhttp_set_max_body_size(http, static_cast<ev_ssize_t>(largestRequest));
  evhttp_set_allowed_methods(http, allMethods);
  evhttp_set_default_content_type(http, nullptr);
  evhttp_set_bevcb(http, makeConnection, this);
  evhttp_set_gencb(http, requestArrived, this);
  if (evhttp_accept_socket(http, _socket.get()) != 0) return false;
  _socket.release();  // it is the server's now
  return true;
}

void EventLoopServer::stop() {
  const std::uint64_t one = 1;
  static_cast<void>(!::write(_stopSignal, &one, sizeof one));
}

bufferevent* EventLoopServer::makeConnection(event_base* base, void* server) {
  SSL* ssl = SSL_new(static_cast<EventLoopServer*>(server)->_tls.get());
  if (!ssl) return nullptr;
  bufferevent* connection = bufferevent_openssl_socket_new(base, -1, ssl, BUFFEREVENT_SSL_ACCEPTING,
                                                           BEV_OPT_CLOSE_ON_FREE);
  if (connection) bufferevent_openssl_set_allow_dirty_shutdown(connection, 1);
  return connection;
}

void EventLoopServer::requestArrived(evhttp_request* request, void* server) {
  auto& self = *static_cast<EventLoopServer*>(server);
  evhttp_connection* connection = evhttp_request_get_connection(request);
  evhttp_connection_set_closecb(connection, connectionClosed, server);
  auto& exchange = self._exchanges[connection];
  exchange = std::make_unique<PendingExchange>(self._base.get(), request);
  self._options.handle(received(request), *exchange);
}

void EventLoopServer::connectionClosed(evhttp_connection* connection, void* server) {
  static_cast<EventLoopServer*>(server)->_exchanges.erase(connection);
}

void EventLoopServer::stopAsked(evutil_socket_t, short, void* server) {
  event_base_loopbreak(static_cast<EventLoopServer*>(server)->_base.get());
}

}  // namespace

Result<std::unique_ptr<HTTPSServer>, std::string> HTTPSServer::listen(HTTPSServerOptions options) {
  auto tls = makeTLSContext(options.certificate);
  if (!tls) return Failure{tls.error()};
  auto socket = ListeningSocket::open(options.host, options.port);
  if (!socket) return Failure{socket.error()};
  auto server =
      std::make_unique<EventLoopServer>(std::move(options), *std::move(tls), *std::move(socket));
  if (!server->setUp()) return Failure{std::string("cannot start the server")};
  return std::unique_ptr<HTTPSServer>(std::move(server));
}

}  // namespace kite::tool
