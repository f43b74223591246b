// What the waits of the socket calls share: one select for one descriptor of any size, and the
// rule after which a failed select is tried again.
#pragma once

#include <sys/time.h>

namespace orv {

// One select for readability; fd may be any descriptor, not only one that fits an fd_set.
// Returns what select returned.
[[nodiscard]] int select_readable(int fd, timeval limit);

// After a select that failed: true, with errno cleared, when it is to be tried again. Otherwise the
// failure has been reported and errno still tells it.
[[nodiscard]] bool select_may_go_on();

// diag_perror, with errno left as it stood.
void report_system_error(const char *what);

} // namespace orv
