// The system calls of the library as the tests see them: each wrapped call passes through to the
// system unless a test plans otherwise. The library's objects are linked with --wrap, so only its
// calls and the tests' own are counted and refused, not those of the test framework.
#pragma once

#include <cstddef>
#include <ctime>

namespace support {

// Refuses one or more calls to come. `skip` calls pass first, then `count` calls (-1: all) fail
// with `error` in errno. name is the wrapped call's, for instance "malloc" or "fork".
void refuse(const char *name, int error, int skip = 0, int count = -1);

// Ends every plan made with refuse, and every answer set below.
void refuse_nothing();

// How often the wrapped call was made since the process started.
long calls(const char *name);

// The size asked for by the latest malloc, calloc or realloc; the seconds of the latest
// sleep; the descriptor of the latest fsync; the microseconds that the latest select may wait.
size_t last_size(const char *name);

// The path of the latest fopen, refused or not.
const char *last_path_opened();

// What every later time() tells; 0 goes back to the true time.
void set_time(time_t now);

// What every later getlogin() tells; null stands for a process without a login name. Until the
// first call the system answers.
void set_login_name(const char *name);

// Sleeps no longer: every later sleep() calls `action`, if there is one, and is over.
void replace_sleep(void (*action)());

// Blocks obtained from the system's allocator and not yet given back.
long live_blocks();

// From now on a block that is given back counts as such but keeps its storage and its bytes, so
// that a test may look at it; and realloc always moves, to a block that holds kBytesOfMovedBlocks
// where nothing was copied. For the rest of the process.
void keep_freed_blocks();
constexpr unsigned char kBytesOfMovedBlocks = 0x5A;

} // namespace support
