// The table and its companions, printed through the messages: the figures of a line are its prefix,
// so a long name wraps under itself.
#include "report.h"

#include "names.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <orv/alloc.h>
#include <orv/msg.h>

namespace survey {
namespace {

// The widths of the table's columns: those of the totals, the largest figures, or of the head.
struct Widths {
  int lines;
  int words;
  int bytes;
};

struct Totals {
  Counts counts;
  size_t files;
  size_t unreadable;
  size_t waiting;
};

Totals add_up(const Tree &tree) {
  Totals totals = {};
  for (size_t i = 0; i < tree.count; i++) {
    const Entry &entry = tree.entries[i];
    if (entry.state == EntryState::counted) {
      totals.counts.lines += entry.counts.lines;
      totals.counts.words += entry.counts.words;
      totals.counts.bytes += entry.counts.bytes;
      totals.files++;
    } else if (entry.state == EntryState::unreadable) {
      totals.unreadable++;
    } else {
      totals.waiting++;
    }
  }
  return totals;
}

int width_of(uint64_t figure, const char *head) {
  const int digits = snprintf(nullptr, 0, "%" PRIu64, figure);
  return std::max(digits, static_cast<int>(strlen(head)));
}

Widths widths_for(const Counts &totals) {
  return {.lines = width_of(totals.lines, "lines"),
          .words = width_of(totals.words, "words"),
          .bytes = width_of(totals.bytes, "bytes")};
}

void print_row(const Widths &widths, const Counts &counts, const char *text) {
  char figures[100];
  snprintf(figures, sizeof figures, "%*" PRIu64 " %*" PRIu64 " %*" PRIu64 "  ", widths.lines,
           counts.lines, widths.words, counts.words, widths.bytes, counts.bytes);
  msg_print_with_prefix(figures, "%s", text);
}

void print_file(const Widths &widths, const Entry &entry) {
  char *name = escape_name(entry.path);
  print_row(widths, entry.counts, name);
  orv_free(name);
}

const char *plural(size_t count) {
  return count == 1 ? "" : "s";
}

void print_left_out(size_t count, const char *singular, const char *of_several) {
  if (count > 0)
    msg_print("Left out: %zu %s.", count, count == 1 ? singular : of_several);
}

void print_change(const char *prefix, const Entry &entry) {
  char *name = escape_name(entry.path);
  msg_print_with_prefix(prefix, "%s", name);
  orv_free(name);
}

void print_counted(const char *prefix, const Entry &entry) {
  char *name = escape_name(entry.path);
  msg_print_with_prefix(prefix, "%s (lines %" PRIu64 ", words %" PRIu64 ", bytes %" PRIu64 ")",
                        name, entry.counts.lines, entry.counts.words, entry.counts.bytes);
  orv_free(name);
}

const char *problem_text(int error) {
  return error == kCompanionsEnded ? "The companions that should count it ended" : strerror(error);
}

void warn_of(const Entry &entry) {
  char *name = escape_name(entry.path);
  msg_warn("%s cannot be read: %s.", name, problem_text(entry.error));
  orv_free(name);
}

bool is_counted(const Entry *entry) {
  return entry != nullptr && entry->state == EntryState::counted;
}

bool is_unreadable_alike(const Entry *entry, const Entry *other) {
  return entry != nullptr && other != nullptr && entry->state == EntryState::unreadable &&
         other->state == EntryState::unreadable && entry->error == other->error;
}

// The entries of two passes side by side, in the order of their paths: one of the two is null
// where only the other pass has the path.
struct Walk {
  const Tree &now;
  const Tree &before;
  size_t now_at;
  size_t before_at;
  const Entry *current;
  const Entry *known;
};

bool step(Walk &walk) {
  walk.current = walk.now_at < walk.now.count ? &walk.now.entries[walk.now_at] : nullptr;
  walk.known = walk.before_at < walk.before.count ? &walk.before.entries[walk.before_at] : nullptr;
  if (walk.current != nullptr && walk.known != nullptr) {
    const int order = strcmp(walk.current->path, walk.known->path);
    if (order < 0)
      walk.known = nullptr;
    else if (order > 0)
      walk.current = nullptr;
  }
  walk.now_at += walk.current == nullptr ? 0 : 1;
  walk.before_at += walk.known == nullptr ? 0 : 1;
  return walk.current != nullptr || walk.known != nullptr;
}

Walk walk_through(const Tree &now, const Tree &before) {
  return {.now = now,
          .before = before,
          .now_at = 0,
          .before_at = 0,
          .current = nullptr,
          .known = nullptr};
}

bool print_difference(const Walk &walk) {
  if (is_counted(walk.current) && !is_counted(walk.known))
    print_counted("new: ", *walk.current);
  else if (is_counted(walk.known) && walk.current == nullptr)
    print_change("gone: ", *walk.known);
  else if (is_counted(walk.known) && is_counted(walk.current) &&
           platform_sig_differs(walk.known->signature, walk.current->signature) != 0)
    print_counted("changed: ", *walk.current);
  else
    return false;
  return true;
}

} // namespace

void print_table(const Tree &tree) {
  const Totals totals = add_up(tree);
  const Widths widths = widths_for(totals.counts);
  char head[100];
  snprintf(head, sizeof head, "%*s %*s %*s  ", widths.lines, "lines", widths.words, "words",
           widths.bytes, "bytes");
  msg_print_with_prefix(head, "file");
  for (size_t i = 0; i < tree.count; i++)
    if (is_counted(&tree.entries[i]))
      print_file(widths, tree.entries[i]);
}

void print_totals(const Tree &tree) {
  const Totals totals = add_up(tree);
  char text[64];
  snprintf(text, sizeof text, "total of %zu file%s", totals.files, plural(totals.files));
  print_row(widths_for(totals.counts), totals.counts, text);
  print_left_out(tree.linked_folders, "link to a folder", "links to folders");
  print_left_out(tree.special_files, "special file", "special files");
  print_left_out(totals.unreadable, "entry that cannot be read", "entries that cannot be read");
  print_left_out(totals.waiting, "file that nobody counted", "files that nobody counted");
}

size_t print_changes(const Tree &tree, const Tree &earlier) {
  size_t changes = 0;
  for (Walk walk = walk_through(tree, earlier); step(walk);)
    changes += print_difference(walk) ? 1 : 0;
  return changes;
}

size_t warn_of_unreadable(const Tree &tree, const Tree &earlier) {
  size_t unreadable = 0;
  for (Walk walk = walk_through(tree, earlier); step(walk);) {
    if (walk.current == nullptr || walk.current->state != EntryState::unreadable)
      continue;
    unreadable++;
    if (!is_unreadable_alike(walk.current, walk.known))
      warn_of(*walk.current);
  }
  return unreadable;
}

} // namespace survey
