// A companion process as libuv starts it.
#include "companion.h"

#include <uv.h>

namespace {

using companion::kSize;

struct Connection {
  uv_pipe_t pipe;
  uv_process_t process;
  uv_write_t request;
  char bytes[kSize];
  ssize_t received;
};

void lend_room(uv_handle_t *handle, size_t, uv_buf_t *room) {
  auto *const connection = static_cast<Connection *>(handle->data);
  *room = uv_buf_init(connection->bytes, kSize);
}

// The whole answer ends the conversation: the companion sees the end and leaves.
void take_answer(uv_stream_t *stream, ssize_t length, const uv_buf_t *) {
  if (length < 0)
    bench::die("uv_read_start");
  auto *const connection = static_cast<Connection *>(stream->data);
  connection->received += length;
  if (connection->received == kSize)
    uv_close(reinterpret_cast<uv_handle_t *>(stream), nullptr);
}

void note_end(uv_process_t *process, int64_t status, int) {
  if (status != 0)
    bench::die("the companion");
  uv_close(reinterpret_cast<uv_handle_t *>(process), nullptr);
}

void start(Connection &connection) {
  uv_stdio_container_t descriptors[companion::kThirdDescriptor + 1] = {};
  for (int fd = 0; fd < companion::kThirdDescriptor; fd++) {
    descriptors[fd].flags = UV_INHERIT_FD;
    descriptors[fd].data.fd = fd;
  }
  descriptors[companion::kThirdDescriptor].flags =
      static_cast<uv_stdio_flags>(UV_CREATE_PIPE | UV_READABLE_PIPE | UV_WRITABLE_PIPE);
  descriptors[companion::kThirdDescriptor].data.stream =
      reinterpret_cast<uv_stream_t *>(&connection.pipe);
  char arguments[][20] = {"companion", "serve-descriptor", "1", "3"};
  char *argv[] = {arguments[0], arguments[1], arguments[2], arguments[3], nullptr};
  uv_process_options_t options = {};
  options.exit_cb = note_end;
  options.file = companion::path();
  options.args = argv;
  options.stdio_count = companion::kThirdDescriptor + 1;
  options.stdio = descriptors;
  if (uv_spawn(uv_default_loop(), &connection.process, &options) != 0)
    bench::die("uv_spawn");
}

void work(const bench::Job &job) {
  for (long i = 0; i < job.count; i++) {
    Connection connection = {};
    uv_pipe_init(uv_default_loop(), &connection.pipe, 0);
    connection.pipe.data = &connection;
    start(connection);
    auto *const stream = reinterpret_cast<uv_stream_t *>(&connection.pipe);
    const uv_buf_t question = uv_buf_init(connection.bytes, kSize);
    uv_write(&connection.request, stream, &question, 1, nullptr);
    uv_read_start(stream, lend_room, take_answer);
    uv_run(uv_default_loop(), UV_RUN_DEFAULT);
  }
}

constexpr bench::Contender kContenders[] = {{"libuv", nullptr, work}};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
