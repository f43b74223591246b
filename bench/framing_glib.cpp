// Framed messages as GLib's streams read and write them.
#include "framing.h"

#include <gio/gio.h>

namespace {

GSocketConnection *connection_of(int fd) {
  GSocket *const socket = g_socket_new_from_fd(fd, nullptr);
  if (socket == nullptr)
    bench::die("g_socket_new_from_fd");
  return g_socket_connection_factory_create_connection(socket);
}

class Glib {
public:
  Glib(int receive_fd, int send_fd, size_t) {
    GSocketConnection *const receiving = connection_of(receive_fd);
    GSocketConnection *const sending = send_fd == receive_fd ? receiving : connection_of(send_fd);
    outgoing_ = g_io_stream_get_output_stream(G_IO_STREAM(sending));
    incoming_ = g_data_input_stream_new(g_io_stream_get_input_stream(G_IO_STREAM(receiving)));
    g_data_input_stream_set_newline_type(incoming_, G_DATA_STREAM_NEWLINE_TYPE_CR_LF);
    g_buffered_input_stream_set_buffer_size(G_BUFFERED_INPUT_STREAM(incoming_),
                                            framing::kReceiveSize);
  }

  void send() {
    GString *const message = g_string_sized_new(framing::kMessageSize);
    for (int i = 0; i < framing::kLines; i++)
      g_string_append_printf(message, "%s\r\n", framing::kLine);
    g_string_append(message, "\r\n");
    if (!g_output_stream_write_all(outgoing_, message->str, message->len, nullptr, nullptr,
                                   nullptr))
      bench::die("g_output_stream_write_all");
    g_string_free(message, TRUE);
  }

  void receive(long messages) {
    while (messages > 0) {
      gsize length = 0;
      char *const line = g_data_input_stream_read_line(incoming_, &length, nullptr, nullptr);
      if (line == nullptr)
        bench::die("g_data_input_stream_read_line");
      g_free(line);
      if (length == 0)
        messages--;
    }
  }

private:
  GOutputStream *outgoing_;
  GDataInputStream *incoming_;
};

constexpr bench::Contender kContenders[] = {
    {"glib", framing::prepare<Glib>, framing::work<Glib>},
};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
