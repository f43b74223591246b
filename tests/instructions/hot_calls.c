// The calls that programs make most often, each many times in a process of its own, for callgrind
// to count: one profile a call, named after it. Without valgrind the program does the same and
// counts nothing.
#include <orv/alloc.h>
#include <orv/diag.h>
#include <orv/msg.h>
#include <orv/platform.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

enum {
  MESSAGE_BYTES = 3 * 32 + 2, // three lines of 30 characters, and the empty one that closes
  BATCH_MESSAGES = 8192 / MESSAGE_BYTES,
  LIVE_BLOCKS = 256,
  HEAP_BLOCKS = 1000,
  LARGE_HEAP_BLOCKS = 5000,
  FOLDER_ENTRIES = 200,
};

// A call to be counted. What is counted is the rounds, what is told is the cost of one of its
// units: a round holds several where one call does its work many times over.
typedef struct {
  const char *name;
  void (*prepare)(void);
  void (*call)(void);
  int rounds;
  int units;
} operation;

static void *blocks[LARGE_HEAP_BLOCKS];
static size_t turn;
static char paragraph[2049];
static char batch[8192];
static int sockets[2];
static platform_pair_handle *pair;
static char folder[] = "folder.XXXXXX/";

// An assertion that a release build keeps.
static void must(int holds) {
  if (!holds)
    abort();
}

static size_t next_size(void) {
  return 16 + turn++ * 16 % 497;
}

static void malloc_and_free(void) {
  orv_free(orv_malloc(next_size(), "main", "a block"));
}

static void enable_debug_mode(void) {
  orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
}

static void allocate_blocks(int count) {
  for (int i = 0; i < count; i++)
    blocks[i] = orv_malloc(next_size(), "main", "a block");
}

static void debug_with_live_blocks(void) {
  enable_debug_mode();
  allocate_blocks(LIVE_BLOCKS);
}

static void replace_oldest(void) {
  void **oldest = &blocks[turn % LIVE_BLOCKS];
  orv_free(*oldest);
  *oldest = orv_malloc(next_size(), "main", "a block");
}

static void verified_heap(void) {
  enable_debug_mode();
  allocate_blocks(HEAP_BLOCKS - 1);
  orv_enable_malloc_debug(ORV_MALLOC_VERIFY_HEAP);
}

static void large_verified_heap(void) {
  enable_debug_mode();
  allocate_blocks(LARGE_HEAP_BLOCKS - 1);
  orv_enable_malloc_debug(ORV_MALLOC_VERIFY_HEAP);
}

// The only stream of these types. It takes what it is given and keeps nothing.
static void write_to_null_device(void) {
  FILE *sink = fopen("/dev/null", "w");
  must(sink != NULL);
  msg_clear_streams(MSG_INFO | MSG_WARN | MSG_DIAG);
  msg_add_stream(MSG_INFO | MSG_WARN | MSG_DIAG, sink);
}

static void warn(void) {
  msg_warn("The disk %s is %d %% full.", "/dev/sda1", 93);
}

static void warn_without_arguments(void) {
  msg_warn("The disk is nearly full.");
}

static void suppress_messages(void) {
  msg_set_solo_output(0);
}

static void suppressed_message(void) {
  msg_print_solo("The disk %s is %d %% full.", "/dev/sda1", 93);
}

static void trace(void) {
  diag_printf("%s: read %d bytes\n", "main", 512);
}

static void prepare_paragraph(void) {
  write_to_null_device();
  for (size_t i = 0; i < sizeof paragraph - 1; i++)
    paragraph[i] = i % 7 == 6 || i % 11 == 10 ? ' ' : 'x';
}

static void wrapped_paragraph(void) {
  msg_print("%s", paragraph);
}

static void connect_sockets(void) {
  int failed = socketpair(AF_UNIX, SOCK_STREAM, 0, sockets);
  must(failed == 0);
  platform_set_message_buffer(platform_msgbuf_create(100000));
  for (int i = 0; i < BATCH_MESSAGES; i++)
    snprintf(batch + i * MESSAGE_BYTES, MESSAGE_BYTES + 1, "%030d\r\n%030d\r\n%030d\r\n\r\n", i, i,
             i);
}

static int handle_message(int sock, char *first, char **further) {
  (void)sock;
  return first[0] == '0' && further[1] != NULL;
}

static void receive_message(void) {
  send(sockets[0], batch, MESSAGE_BYTES, 0);
  int handled = platform_get_one_message(sockets[1], handle_message, NULL, 1);
  must(handled == 1);
}

static void send_message(void) {
  static char received[MESSAGE_BYTES];
  int sent = platform_sock_send_message(sockets[0], "0123456789abcdefghijklmnopqrst",
                                        "0123456789abcdefghijklmnopqrst",
                                        "0123456789abcdefghijklmnopqrst", NULL);
  ssize_t got = recv(sockets[1], received, sizeof received, 0);
  must(sent == 1 && got == MESSAGE_BYTES);
}

static void receive_batch(void) {
  send(sockets[0], batch, (size_t)BATCH_MESSAGES * MESSAGE_BYTES, 0);
  int got = platform_recv_messages(sockets[1]);
  must(got == BATCH_MESSAGES * MESSAGE_BYTES);
  platform_dispatch_messages(sockets[1], handle_message);
}

// One end in a handle, the other as it is.
static void open_pair(void) {
  connect_sockets();
  char value[64];
  snprintf(value, sizeof value, "1 %d pid-rtx_fd_l", sockets[0]);
  setenv("HOT_CALLS_LINK", value, 1);
  pair = platform_pair_child_open("HOT_CALLS_LINK", 0, 1);
  must(platform_pair_rx_fd(pair) == sockets[0]);
}

static void pair_send_and_receive(void) {
  static char bytes[64];
  int sent = platform_pair_send(pair, bytes, sizeof bytes);
  ssize_t passed = recv(sockets[1], bytes, sizeof bytes, 0);
  passed += send(sockets[1], bytes, sizeof bytes, 0);
  int received = platform_pair_recv(pair, bytes, sizeof bytes);
  must(sent == 64 && passed == 128 && received == 64);
}

// Two of the names match: to sort more of them would cost what the order costs in which the file
// system happens to tell them.
static void fill_folder(void) {
  folder[sizeof folder - 2] = '\0';
  char *made = mkdtemp(folder);
  must(made != NULL);
  folder[sizeof folder - 2] = '/';
  for (int i = 0; i < FOLDER_ENTRIES; i++) {
    char path[64];
    snprintf(path, sizeof path, "%sfile_%03d.%s", folder, i, i % 100 == 7 ? "h" : "c");
    FILE *file = fopen(path, "w");
    must(file != NULL);
    fclose(file);
  }
}

static void list_folder(void) {
  platform_file_list_t list = {0};
  int found = platform_list_dir(folder, "*.h", &list);
  must(found == 1 && list.count == 2);
  platform_free_dir_list(&list);
}

static void nothing(void) {}

static const operation operations[] = {
    {"malloc_and_free", nothing, malloc_and_free, 3100, 1},
    {"debug_malloc_and_free", enable_debug_mode, malloc_and_free, 3100, 1},
    {"debug_malloc_and_free_256_live", debug_with_live_blocks, replace_oldest, 3100, 1},
    {"heap_check_of_a_block", verified_heap, malloc_and_free, 10, 2 * HEAP_BLOCKS},
    {"heap_check_of_a_block_among_5000", large_verified_heap, malloc_and_free, 4,
     2 * LARGE_HEAP_BLOCKS},
    {"warning", write_to_null_device, warn, 1000, 1},
    {"warning_without_arguments", write_to_null_device, warn_without_arguments, 1000, 1},
    {"suppressed_message", suppress_messages, suppressed_message, 1000, 1},
    {"wrapped_paragraph_of_2_KB", prepare_paragraph, wrapped_paragraph, 100, 1},
    {"trace_without_stream", nothing, trace, 1000, 1},
    {"trace_line", write_to_null_device, trace, 1000, 1},
    {"message_received", connect_sockets, receive_message, 1000, 1},
    {"message_sent", connect_sockets, send_message, 1000, 1},
    {"batch_of_8_KB_received", connect_sockets, receive_batch, 50, 1},
    {"pair_send_and_receive", open_pair, pair_send_and_receive, 1000, 1},
    {"list_folder_per_entry", fill_folder, list_folder, 20, FOLDER_ENTRIES},
};

static void call_repeatedly(const operation *op) {
  for (int i = 0; i < op->rounds; i++)
    op->call();
}

// The first rounds fill caches and buffers and bind the C library's calls.
static void count(const operation *op) {
  char label[128];
  snprintf(label, sizeof label, "%s %d", op->name, op->rounds * op->units);
  op->prepare();
  call_repeatedly(op);
  CALLGRIND_ZERO_STATS;
  call_repeatedly(op);
  CALLGRIND_DUMP_STATS_AT(label);
}

int main(void) {
  for (size_t i = 0; i < sizeof operations / sizeof operations[0]; i++) {
    pid_t child = fork();
    must(child >= 0);
    if (child == 0) {
      count(&operations[i]);
      _exit(0);
    }
    int status;
    waitpid(child, &status, 0);
    must(status == 0);
  }
  return 0;
}
