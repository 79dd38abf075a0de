#include "Collector/Server/PendingExchange.h"

#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/http.h>
#include <sys/socket.h>

#include <utility>

namespace kite::tool {
namespace {

/// Linux sends a reset at once when a connected socket is dissolved.
void sendReset(evhttp_connection* connection) {
  const sockaddr nowhere{.sa_family = AF_UNSPEC, .sa_data = {}};
  static_cast<void>(::connect(bufferevent_getfd(evhttp_connection_get_bufferevent(connection)),
                              &nowhere, sizeof nowhere));
}

void addHeaders(evhttp_request* request, const std::vector<Header>& headers) {
  evkeyvalq* out = evhttp_request_get_output_headers(request);
  for (const Header& header : headers) {
    evhttp_add_header(out, header.name.c_str(), header.value.c_str());
  }
}

bufferevent* connectionOf(evhttp_request* request) {
  return evhttp_connection_get_bufferevent(evhttp_request_get_connection(request));
}

constexpr int stalled = 30;                    // seconds without a byte taken
constexpr std::size_t mostUnread = 16 * 1024;  // bytes that a client sends behind its request

}  // namespace

PendingExchange::~PendingExchange() {
  if (_timer) event_free(_timer);
}

// A request without a whole answer libevent takes off a connection that fails, and leaves to us.
void PendingExchange::connectionEnds() {
  if (_request && !evhttp_request_get_connection(_request)) {
    evhttp_request_free(std::exchange(_request, nullptr));
  }
}

void PendingExchange::answer(const Reply& reply) {
  evhttp_request* request = std::exchange(_request, nullptr);
  const auto held = std::move(_held);
  evkeyvalq* headers = evhttp_request_get_output_headers(request);
  addHeaders(request, reply.headers);
  std::size_t sent = reply.body.size();
  if (reply.isTruncated) {
    evhttp_add_header(headers, "Content-Length", std::to_string(sent).c_str());
    evhttp_add_header(headers, "Connection", "close");
    sent /= 2;
  }
  evbuffer_add(evhttp_request_get_output_buffer(request), reply.body.data(), sent);
  evhttp_send_reply(request, reply.status, nullptr, nullptr);
}

void PendingExchange::reset() {
  // The server is still busy with the connection when it hands out a request.
  later(std::chrono::milliseconds(0), [request = std::exchange(_request, nullptr)](Exchange&) {
    evhttp_connection* connection = evhttp_request_get_connection(request);
    sendReset(connection);
    evhttp_connection_free(connection);
  });
}

void PendingExchange::begin(const Reply& reply) {
  addHeaders(_request, reply.headers);
  addHeaders(_request, {{"Connection", "close"}});
  const timeval time{.tv_sec = stalled, .tv_usec = 0};
  bufferevent_set_timeouts(connectionOf(_request), nullptr, &time);  // it may listen for long
  bufferevent_setwatermark(connectionOf(_request), EV_READ, 0, mostUnread);
  evhttp_send_reply_start(_request, reply.status, nullptr);
  if (!reply.body.empty()) send(reply.body);
}

void PendingExchange::send(std::string_view bytes) {
  evbuffer* chunk = evbuffer_new();
  evbuffer_add(chunk, bytes.data(), bytes.size());
  evhttp_send_reply_chunk(_request, chunk);
  evbuffer_free(chunk);
}

void PendingExchange::end() {
  const auto held = std::move(_held);
  evhttp_send_reply_end(std::exchange(_request, nullptr));
}

std::size_t PendingExchange::unsent() const {
  return evbuffer_get_length(bufferevent_get_output(connectionOf(_request)));
}

void PendingExchange::later(std::chrono::milliseconds time, std::function<void(Exchange&)> body) {
  if (!_timer) _timer = evtimer_new(_base, timeCame, this);
  _body = std::move(body);
  const timeval delay{.tv_sec = time.count() / 1000, .tv_usec = time.count() % 1000 * 1000};
  evtimer_add(_timer, &delay);
}

void PendingExchange::timeCame(int, short, void* exchange) {
  auto& self = *static_cast<PendingExchange*>(exchange);
  const auto body = std::exchange(self._body, nullptr);
  body(self);
}

}  // namespace kite::tool
