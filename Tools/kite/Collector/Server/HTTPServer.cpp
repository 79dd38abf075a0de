#include "Collector/Server/HTTPServer.h"

#include "Collector/Server/ListeningSocket.h"
#include "Collector/Server/PendingExchange.h"
#include "Collector/Server/TLS.h"

#include <event2/buffer.h>
#include <event2/bufferevent_ssl.h>
#include <event2/event.h>
#include <event2/http.h>
#include <event2/http_struct.h>
#include <event2/keyvalq_struct.h>
#include <event2/listener.h>
#include <openssl/ssl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <map>

namespace kite::tool {
namespace {

constexpr ev_ssize_t largestHead = 64 * 1024;
constexpr std::chrono::milliseconds untilNextLook(5);  // for what is not sent yet, at a stop
constexpr int mostLooksForUnsent = 200;
constexpr std::chrono::milliseconds untilNextCount(100);  // of connections, when there are many
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
struct Released {
  template <class T>
  void operator()(T* object) const {
    release(object);
  }
};

class EventLoopTimer final : public ServerTimer {
 public:
  EventLoopTimer(event_base* base, std::function<void()> body)
      : _body(std::move(body)), _event(evtimer_new(base, timeCame, this)) {}

  void start(std::chrono::milliseconds time) override {
    const timeval delay{.tv_sec = time.count() / 1000, .tv_usec = time.count() % 1000 * 1000};
    evtimer_add(_event.get(), &delay);
  }

 private:
  static void timeCame(evutil_socket_t, short, void* timer) {
    static_cast<EventLoopTimer*>(timer)->_body();
  }

  std::function<void()> _body;
  std::unique_ptr<event, Released<event_free>> _event;
};

class EventLoopServer final : public HTTPServer {
 public:
  EventLoopServer(HTTPServerOptions options, TLSContext tls, ListeningSocket socket)
      : _options(std::move(options)), _tls(std::move(tls)), _socket(std::move(socket)) {}
  ~EventLoopServer() override;

  bool setUp();
  std::uint16_t port() const override { return _socket.port(); }
  std::unique_ptr<ServerTimer> timer(std::function<void()> body) override {
    return std::make_unique<EventLoopTimer>(_base.get(), std::move(body));
  }
  void onWake(std::function<void()> body) override { _onWake = std::move(body); }
  void run() override { event_base_dispatch(_base.get()); }
  void wake() override;
  void stop() override;

 private:
  static bufferevent* makeConnection(event_base* base, void* server);
  static void requestArrived(evhttp_request* request, void* server);
  static void connectionClosed(evhttp_connection* connection, void* server);
  static void woken(evutil_socket_t signal, short what, void* server);
  void limitConnections();
  void endWhenSent();

  HTTPServerOptions _options;
  TLSContext _tls;
  ListeningSocket _socket;
  int _wakeSignal = -1;
  std::atomic<bool> _isStopped = false;
  std::function<void()> _onWake;
  std::unique_ptr<event_base, Released<event_base_free>> _base;
  std::unique_ptr<event, Released<event_free>> _wakeEvent;
  std::unique_ptr<ServerTimer> _nextCount;
  std::unique_ptr<ServerTimer> _unsentLook;
  int _looksForUnsent = 0;
  evconnlistener* _listener = nullptr;  // owned by _http
  std::map<evhttp_connection*, std::unique_ptr<PendingExchange>> _exchanges;
  std::unique_ptr<evhttp, Released<evhttp_free>> _http;  // ends the connections, so it goes first
};

EventLoopServer::~EventLoopServer() {
  _nextCount.reset();
  _unsentLook.reset();
  _wakeEvent.reset();
  _http.reset();
  _exchanges.clear();
  // A connection's end is a callback of the loop; without a turn it never comes.
  if (_base) event_base_loop(_base.get(), EVLOOP_NONBLOCK);
  if (_wakeSignal >= 0) ::close(_wakeSignal);
}

bool EventLoopServer::setUp() {
  _wakeSignal = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  _base.reset(event_base_new());
  if (_wakeSignal < 0 || !_base) return false;
  _wakeEvent.reset(event_new(_base.get(), _wakeSignal, EV_READ | EV_PERSIST, woken, this));
  _http.reset(evhttp_new(_base.get()));
  if (!_wakeEvent || !_http || event_add(_wakeEvent.get(), nullptr) != 0) return false;
  _nextCount = timer([this] { limitConnections(); });
  _unsentLook = timer([this] { endWhenSent(); });

  evhttp* http = _http.get();
  evhttp_set_timeout(http, static_cast<int>(_options.patience.count()));
  evhttp_set_max_headers_size(http, largestHead);
  evhttp_set_max_body_size(http, static_cast<ev_ssize_t>(_options.largestBody));
  evhttp_set_allowed_methods(http, allMethods);
  evhttp_set_default_content_type(http, nullptr);
  evhttp_set_bevcb(http, makeConnection, this);
  evhttp_set_gencb(http, requestArrived, this);
  evhttp_bound_socket* bound = evhttp_accept_socket_with_handle(http, _socket.get());
  if (!bound) return false;
  _listener = evhttp_bound_socket_get_listener(bound);
  _socket.release();  // it is the server's now
  return true;
}

void EventLoopServer::wake() {
  const std::uint64_t one = 1;
  static_cast<void>(!::write(_wakeSignal, &one, sizeof one));
}

void EventLoopServer::stop() {
  _isStopped = true;
  wake();
}

bufferevent* EventLoopServer::makeConnection(event_base* base, void* server) {
  auto& self = *static_cast<EventLoopServer*>(server);
  self.limitConnections();
  if (!self._tls) return bufferevent_socket_new(base, -1, BEV_OPT_CLOSE_ON_FREE);
  SSL* ssl = SSL_new(self._tls.get());
  if (!ssl) return nullptr;
  bufferevent* connection = bufferevent_openssl_socket_new(base, -1, ssl, BUFFEREVENT_SSL_ACCEPTING,
                                                           BEV_OPT_CLOSE_ON_FREE);
  if (connection) bufferevent_openssl_set_allow_dirty_shutdown(connection, 1);
  return connection;
}

/// The library tells of no connection that ends before its first request, so they are counted.
void EventLoopServer::limitConnections() {
  if (_options.mostConnections == 0) return;
  if (connectionsTo(port()) < _options.mostConnections) {
    evconnlistener_enable(_listener);
  } else {
    evconnlistener_disable(_listener);
    _nextCount->start(untilNextCount);
  }
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
  auto& exchanges = static_cast<EventLoopServer*>(server)->_exchanges;
  const auto found = exchanges.find(connection);
  if (found == exchanges.end()) return;
  found->second->connectionEnds();
  exchanges.erase(found);
}

void EventLoopServer::woken(evutil_socket_t signal, short, void* server) {
  auto& self = *static_cast<EventLoopServer*>(server);
  std::uint64_t count = 0;
  static_cast<void>(!::read(signal, &count, sizeof count));
  if (self._onWake) self._onWake();  // what it answers goes out before the stop
  if (self._isStopped) self.endWhenSent();
}

/// An answer that was given before the stop goes out.
void EventLoopServer::endWhenSent() {
  const auto waits = [](const auto& each) {
    bufferevent* connection = evhttp_connection_get_bufferevent(each.first);
    return evbuffer_get_length(bufferevent_get_output(connection)) > 0;
  };
  if (_looksForUnsent++ < mostLooksForUnsent && std::ranges::any_of(_exchanges, waits)) {
    _unsentLook->start(untilNextLook);
  } else {
    event_base_loopbreak(_base.get());
  }
}

}  // namespace

std::string shownHost(const std::string& host) {
  const bool isAnyAddress = host == "0.0.0.0" || host == "::";
  const bool isIPv6 = host.find(':') != std::string::npos;
  return isAnyAddress ? "localhost" : isIPv6 ? "[" + host + "]" : host;
}

Result<std::unique_ptr<HTTPServer>, std::string> HTTPServer::listen(HTTPServerOptions options) {
  TLSContext tls;
  if (options.certificate) {
    auto made = makeTLSContext(*options.certificate);
    if (!made) return Failure{made.error()};
    tls = *std::move(made);
  }
  auto socket = ListeningSocket::open(options.host, options.port);
  if (!socket) return Failure{socket.error()};
  auto server =
      std::make_unique<EventLoopServer>(std::move(options), std::move(tls), *std::move(socket));
  if (!server->setUp()) return Failure{std::string("cannot start the server")};
  return std::unique_ptr<HTTPServer>(std::move(server));
}

}  // namespace kite::tool
