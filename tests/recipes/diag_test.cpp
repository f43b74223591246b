// Recipes for the trace: where it goes, and the names of its logs.
#include "messages/diag/diag_test.h"
#include "support/child.h"

#include <cerrno>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class TraceRecipes : public DiagTest {};

TEST_F(TraceRecipes, name_the_directory_of_the_process_log_in_a_variable_of_its_own) {
  setenv("ORV_DIAGNOSTICS_PATH", "stderr", 1);
  setenv("ORV_DIAG_DIR", folder.c_str(), 1);
  EXPECT_EQ(diag_get_dir(), folder);
  unsetenv("ORV_DIAG_DIR");
}

TEST_F(TraceRecipes, add_streams_after_the_directory_was_set) {
  diag_set_dir(folder.c_str());
  FILE *mine = fopen(path("mine").c_str(), "w");
  msg_add_stream(MSG_DIAG, mine);
  diag_printf("both get this\n");
  for (const std::string &file : files())
    EXPECT_EQ(contents_of(path(file)), "both get this\n") << file;
  EXPECT_EQ(files().size(), 2U);
}

TEST_F(TraceRecipes, name_an_existing_directory_for_the_stamped_log) {
  setenv("ORV_DIAGNOSTICS_PATH", folder.c_str(), 1);
  diag_open_stamped_log("program");
  EXPECT_THAT(files(), ElementsAre(EndsWith("program.log")));
}

TEST_F(TraceRecipes, add_one_to_the_month_of_a_stamped_log) {
  setenv("ORV_DIAGNOSTICS_PATH", folder.c_str(), 1);
  support::set_time(1'797'000'000); // in December 2026
  diag_open_stamped_log("");
  support::set_time(0);
  ASSERT_EQ(files().size(), 1U);
  ASSERT_THAT(files()[0], StartsWith("orv26"));
  EXPECT_EQ(std::stoi(files()[0].substr(5, 2)) + 1, 12);
}

TEST_F(TraceRecipes, leave_the_variable_unset_where_start_up_has_to_be_quick) {
  const long sleeps = support::calls("sleep");
  diag_open_stamped_log("program");
  EXPECT_EQ(support::calls("sleep"), sleeps);
  EXPECT_EQ(destinations().count, 0);
}

TEST_F(TraceRecipes, add_standard_error_to_the_trace_to_see_reports_there) {
  const auto outcome = support::run_in_child([] {
    msg_add_stream(MSG_DIAG, stderr);
    errno = ENOENT;
    diag_perror("open");
  });
  EXPECT_EQ(outcome.err, "open: No such file or directory\n");
  EXPECT_EQ(outcome.out, "");
}

} // namespace
