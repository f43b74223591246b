// Framed messages as libevent reads and writes them.
#include "framing.h"

#include <cstdlib>
#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>

namespace {

class Libevent {
public:
  Libevent(int receive_fd, int send_fd, size_t) : send_fd_(send_fd), outgoing_(evbuffer_new()) {
    base_ = event_base_new();
    evutil_make_socket_nonblocking(receive_fd);
    incoming_ = bufferevent_socket_new(base_, receive_fd, 0);
    bufferevent_setcb(incoming_, take_lines, nullptr, fail, this);
    bufferevent_enable(incoming_, EV_READ);
  }

  void send() {
    for (int i = 0; i < framing::kLines; i++)
      evbuffer_add_printf(outgoing_, "%s\r\n", framing::kLine);
    evbuffer_add(outgoing_, "\r\n", 2);
    while (evbuffer_get_length(outgoing_) > 0)
      if (evbuffer_write(outgoing_, send_fd_) < 0)
        bench::die("evbuffer_write");
  }

  void receive(long messages) {
    to_come_ = messages;
    take_lines(incoming_, this);
    if (to_come_ > 0)
      event_base_dispatch(base_);
  }

private:
  static void take_lines(bufferevent *incoming, void *own) {
    auto *const peer = static_cast<Libevent *>(own);
    evbuffer *const input = bufferevent_get_input(incoming);
    while (peer->to_come_ > 0) {
      const ev_ssize_t length = peer->take_line(input);
      if (length < 0)
        return;
      if (length == 0)
        peer->to_come_--;
    }
    event_base_loopbreak(peer->base_);
  }

  // The length of the line that was taken, or -1. evbuffer_readln would search a long line from its
  // start again whenever a piece of it has come.
  ev_ssize_t take_line(evbuffer *input) {
    evbuffer_ptr from;
    size_t end_size = 0;
    evbuffer_ptr_set(input, &from, searched_, EVBUFFER_PTR_SET);
    const evbuffer_ptr end = evbuffer_search_eol(input, &from, &end_size, EVBUFFER_EOL_CRLF_STRICT);
    if (end.pos < 0) {
      const size_t length = evbuffer_get_length(input);
      searched_ = length > 0 ? length - 1 : 0; // it may be the first byte of a line end
      return -1;
    }
    searched_ = 0;
    auto *const line = static_cast<char *>(malloc(static_cast<size_t>(end.pos) + 1));
    evbuffer_remove(input, line, static_cast<size_t>(end.pos));
    evbuffer_drain(input, end_size);
    line[end.pos] = '\0';
    bench::keep(line);
    free(line);
    return end.pos;
  }

  static void fail(bufferevent *, short, void *) { bench::die("libevent's connection"); }

  int send_fd_;
  evbuffer *outgoing_;
  event_base *base_;
  bufferevent *incoming_;
  long to_come_ = 0;
  size_t searched_ = 0; // of the line that has not come whole
};

constexpr bench::Contender kContenders[] = {
    {"libevent", framing::prepare<Libevent>, framing::work<Libevent>},
};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
