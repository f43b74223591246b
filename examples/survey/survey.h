// What the sources of the survey share: the entries of a folder tree and what was found out about
// them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <orv/platform.h>

namespace survey {

struct Counts {
  uint64_t lines;
  uint64_t words;
  uint64_t bytes;
};

enum class EntryState {
  waiting,     // nobody counts it yet
  handed_over, // a companion was asked and has not answered
  counted,     // counts and signature hold
  unreadable,  // error says why
};

// The error of a file whose companions ended, one after the other, when it was its turn.
inline constexpr int kCompanionsEnded = -1;

// A file of the tree, or anything else that could not be looked at.
struct Entry {
  char *path; // belongs to the entry
  EntryState state;
  int error;         // an errno value or kCompanionsEnded
  int ended_at_turn; // companions that ended when it was this entry's turn
  Counts counts;
  platform_file_sig_t signature; // when it was counted; until then, when it was listed
};

// One pass over the tree.
struct Tree {
  Entry *entries; // sorted by path once the listing is complete
  size_t count;
  size_t capacity;
  size_t linked_folders; // links to folders, which are not entered
  size_t special_files;  // pipes, sockets and devices, which are not opened
};

// listing.cpp
// Lists everything below the folder. What belongs to the tree is given back with free_tree.
Tree list_tree(const char *folder);
void free_tree(Tree &tree);
// Takes over what an earlier pass found out about files whose signature is still the same.
void take_over_unchanged(Tree &tree, const Tree &earlier);

// counting.cpp
// Counts a file as wc does in the C locale. Returns 0, or the errno value of what failed.
int count_file(const char *path, Counts &counts, platform_file_sig_t &signature);

} // namespace survey
