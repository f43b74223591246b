// The one place where the library ends the process by itself: after it has said why.
#pragma once

#include <cstdlib>

namespace orv {

[[noreturn]] inline void end_process_with_failure() {
  exit(1);
}

} // namespace orv
