// A companion process as GLib starts it, and bytes sent through its sockets.
#include "companion.h"

#include <gio/gio.h>

namespace {

using companion::kSize;

GSocket *wrap(int fd) {
  GSocket *const socket = g_socket_new_from_fd(fd, nullptr);
  if (socket == nullptr)
    bench::die("g_socket_new_from_fd");
  return socket;
}

void exchange(GSocket *sender, GSocket *receiver) {
  char bytes[kSize] = {};
  if (g_socket_send(sender, bytes, kSize, nullptr, nullptr) != kSize ||
      g_socket_receive(receiver, bytes, kSize, nullptr, nullptr) != kSize)
    bench::die("g_socket_send, g_socket_receive");
}

void start(const bench::Job &job) {
  for (long i = 0; i < job.count; i++) {
    const bench::Ends ends = bench::open_socket_pair();
    GSubprocessLauncher *const launcher = g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_NONE);
    g_subprocess_launcher_take_fd(launcher, ends.theirs, companion::kThirdDescriptor);
    GSubprocess *const child = g_subprocess_launcher_spawn(launcher, nullptr, companion::path(),
                                                           "serve-descriptor", "1", "3", nullptr);
    if (child == nullptr)
      bench::die("g_subprocess_launcher_spawn");
    g_object_unref(launcher);
    GSocket *const socket = wrap(ends.ours);
    exchange(socket, socket);
    g_object_unref(socket); // closes it
    g_subprocess_wait(child, nullptr, nullptr);
    g_object_unref(child);
  }
}

GSocket *sender;
GSocket *receiver;

void open_ends(const bench::Job &) {
  const bench::Ends ends = bench::open_socket_pair();
  sender = wrap(ends.ours);
  receiver = wrap(ends.theirs);
}

void exchange_often(const bench::Job &job) {
  for (long calls = 0; calls < job.count; calls += companion::kCallsAnExchange)
    exchange(sender, receiver);
}

constexpr bench::Contender kContenders[] = {
    {"glib", nullptr, start},
    {"glib-open", open_ends, exchange_often},
};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
