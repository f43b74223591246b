/* Breaks an invariant of the library: no call may be made with a closed pair handle. */
#include <orv/platform.h>

int main(void) {
  platform_pair_handle closed = {0};
  return platform_pair_errno(&closed);
}
