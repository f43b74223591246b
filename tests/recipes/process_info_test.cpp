// Recipes for process information.
#include "support/child.h"
#include "support/resources.h"

#include <cinttypes>
#include <cstdio>
#include <orv/platform.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

class ProcessRecipes : public support::ResourceTest {};

TEST_F(ProcessRecipes, put_no_blanks_into_the_names_of_watched_processes) {
  const auto outcome = support::run_in_child([] {
    for (const char *name : {"well-named", "badly named"}) {
      uint64_t virtual_kb = 0;
      uint64_t resident_kb = 0;
      prctl(PR_SET_NAME, name);
      const int answered = platform_process_memory(-1, &virtual_kb, &resident_kb);
      printf("%d %d\n", answered, resident_kb > 0 && resident_kb < virtual_kb);
    }
  });
  EXPECT_EQ(outcome.out, "1 1\n1 0\n");
}

TEST_F(ProcessRecipes, need_nothing_for_the_size_of_a_page) {
  EXPECT_EQ(platform_page_size(), sysconf(_SC_PAGESIZE));
}

} // namespace
