// The diagnostic directory and the log of the process that diag_set_dir opens in it.
#include "diag_test.h"
#include "support/child.h"
#include "support/text_at_page_end.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DefaultDirectory : public DiagTest {};

TEST_F(DefaultDirectory, is_tmp_without_any_variable) {
  EXPECT_STREQ(diag_get_dir(), "/tmp");
}

TEST_F(DefaultDirectory, is_the_first_variable_that_is_set) {
  setenv("ORV_TMPDIR", "/third", 1);
  EXPECT_STREQ(diag_get_dir(), "/third");
  setenv("ORV_DIAGNOSTICS_PATH", "/second", 1);
  EXPECT_STREQ(diag_get_dir(), "/second");
  setenv("ORV_DIAG_DIR", "/first", 1);
  EXPECT_STREQ(diag_get_dir(), "/first");
}

TEST_F(DefaultDirectory, does_not_come_from_the_systems_own_variables) {
  setenv("TMP", "/other", 1);
  setenv("TEMP", "/other", 1);
  EXPECT_STREQ(diag_get_dir(), "/tmp");
}

TEST_F(DefaultDirectory, may_be_set_to_nothing) {
  setenv("ORV_TMPDIR", "", 1);
  EXPECT_STREQ(diag_get_dir(), "");
  setenv("ORV_TMPDIR", "/third", 1);
  setenv("ORV_DIAGNOSTICS_PATH", "", 1);
  EXPECT_STREQ(diag_get_dir(), "");
  setenv("ORV_DIAGNOSTICS_PATH", "/second", 1);
  setenv("ORV_DIAG_DIR", "", 1);
  EXPECT_STREQ(diag_get_dir(), "");
}

TEST_F(DefaultDirectory, takes_a_word_for_the_stamped_log_as_a_directory) {
  for (const char *word : {"0", "1", "stderr", "STDOUT"}) {
    setenv("ORV_DIAGNOSTICS_PATH", word, 1);
    EXPECT_STREQ(diag_get_dir(), word);
  }
}

TEST_F(DefaultDirectory, gives_way_to_a_stored_one) {
  setenv("ORV_DIAG_DIR", "/first", 1);
  diag_set_dir("/no/such/folder");
  EXPECT_STREQ(diag_get_dir(), "/no/such/folder");
}

class ProcessLog : public DiagTest {
protected:
  void SetUp() override {
    DiagTest::SetUp();
    support::set_login_name("builder");
  }

  static std::string name_for(const std::string &login) {
    return "orv" + std::to_string(getpid()) + login + ".log";
  }
};

TEST_F(ProcessLog, is_named_after_the_process_and_the_login_name) {
  diag_set_dir(folder.c_str());
  diag_printf("started\n");
  EXPECT_THAT(files(), ElementsAre(name_for("builder")));
  EXPECT_EQ(contents_of(path(name_for("builder"))), "started\n");
}

TEST_F(ProcessLog, is_named_after_the_process_alone_without_a_login_name) {
  support::set_login_name(nullptr);
  diag_set_dir(folder.c_str());
  EXPECT_THAT(files(), ElementsAre(name_for("")));
}

TEST_F(ProcessLog, keeps_the_login_name_once_it_is_known) {
  diag_set_dir(make_folder("a").c_str());
  support::set_login_name("other");
  const long asked = support::calls("getlogin");
  close_logs();
  diag_set_dir(make_folder("b").c_str());
  EXPECT_EQ(support::calls("getlogin"), asked);
  EXPECT_THAT(files_in(path("b")), ElementsAre(name_for("builder")));
}

TEST_F(ProcessLog, keeps_a_login_name_of_one_letter_too) {
  support::set_login_name("b");
  diag_set_dir(make_folder("a").c_str());
  support::set_login_name("other");
  close_logs();
  diag_set_dir(make_folder("b").c_str());
  EXPECT_THAT(files_in(path("b")), ElementsAre(name_for("b")));
}

TEST_F(ProcessLog, asks_again_for_a_login_name_that_was_missing) {
  support::set_login_name(nullptr);
  diag_set_dir(make_folder("a").c_str());
  support::set_login_name("builder");
  close_logs();
  diag_set_dir(make_folder("b").c_str());
  EXPECT_THAT(files_in(path("b")), ElementsAre(name_for("builder")));
}

TEST_F(ProcessLog, does_not_ask_for_the_login_name_without_a_log_to_open) {
  const long asked = support::calls("getlogin");
  diag_set_dir("/no/such/folder");
  EXPECT_EQ(support::calls("getlogin"), asked);
}

TEST_F(ProcessLog, takes_the_longest_login_name) {
  const std::string longest(230, 'n');
  support::set_login_name(longest.c_str());
  diag_set_dir(folder.c_str());
  EXPECT_THAT(files(), ElementsAre(name_for(longest)));
}

TEST_F(ProcessLog, takes_a_login_name_of_255_bytes_though_no_file_may_bear_it) {
  const std::string longest(255, 'n');
  support::set_login_name(longest.c_str());
  diag_set_dir(folder.c_str());
  EXPECT_EQ(support::last_path_opened(), path(name_for(longest)));
  EXPECT_EQ(destinations().count, 0);
}

TEST_F(ProcessLog, takes_a_login_name_that_no_system_gives_for_a_missing_one) {
  const std::string endless(256, 'n');
  support::set_login_name(endless.c_str());
  diag_set_dir(folder.c_str());
  EXPECT_THAT(files(), ElementsAre(name_for("")));
}

TEST_F(ProcessLog, empties_a_file_of_that_name) {
  write_file(name_for("builder"), "an earlier process\n");
  diag_set_dir(folder.c_str());
  EXPECT_EQ(contents_of(path(name_for("builder"))), "");
}

TEST_F(ProcessLog, is_the_only_destination_afterwards) {
  msg_add_stream(MSG_DIAG, stdout);
  msg_add_stream(MSG_DIAG, stderr);
  diag_set_dir(folder.c_str());
  ASSERT_EQ(destinations().count, 1);
  EXPECT_NE(destinations().streams[0], stdout);
  EXPECT_NE(destinations().streams[0], stderr);
}

TEST_F(ProcessLog, is_closed_in_a_program_that_takes_over) {
  diag_set_dir(folder.c_str());
  EXPECT_EQ(fcntl(fileno(destinations().streams[0]), F_GETFD), FD_CLOEXEC);
}

TEST_F(ProcessLog, leaves_an_earlier_log_open) {
  diag_set_dir(make_folder("a").c_str());
  FILE *first = destinations().streams[0];
  diag_set_dir(make_folder("b").c_str());
  diag_printf("second\n");
  EXPECT_GT(fprintf(first, "first\n"), 0);
  EXPECT_EQ(contents_of(path("a/" + name_for("builder"))), "first\n");
  EXPECT_EQ(contents_of(path("b/" + name_for("builder"))), "second\n");
  EXPECT_EQ(fclose(first), 0);
}

TEST_F(ProcessLog, leaves_the_streams_of_other_types_alone) {
  diag_set_dir(folder.c_str());
  EXPECT_EQ(msg_has_print_streams(), 1);
  EXPECT_EQ(msg_has_warn_streams(), 1);
}

TEST_F(ProcessLog, is_not_opened_in_a_directory_that_does_not_exist) {
  msg_add_stream(MSG_DIAG, stdout);
  const long opened = support::calls("fopen");
  EXPECT_EQ(diag_set_dir(path("missing").c_str()), path("missing"));
  EXPECT_EQ(diag_get_dir(), path("missing"));
  EXPECT_EQ(destinations().count, 0);
  EXPECT_EQ(support::calls("fopen"), opened);
}

TEST_F(ProcessLog, is_not_opened_where_the_path_is_a_file) {
  write_file("file", "");
  const long opened = support::calls("fopen");
  EXPECT_EQ(diag_set_dir(path("file").c_str()), path("file"));
  EXPECT_EQ(destinations().count, 0);
  EXPECT_EQ(support::calls("fopen"), opened);
}

TEST_F(ProcessLog, is_not_opened_in_a_directory_that_may_not_be_written) {
  chmod(folder.c_str(), 0555);
  const auto outcome = support::run_in_child([this] {
    become_nobody();
    const long opened = support::calls("fopen");
    const bool stored = diag_set_dir(folder.c_str()) == folder;
    _exit(stored && destinations().count == 0 && support::calls("fopen") == opened ? 0 : 1);
  });
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(ProcessLog, is_opened_by_a_user_who_may_write_the_directory) {
  chmod(folder.c_str(), 0777);
  const auto outcome = support::run_in_child([this] {
    become_nobody();
    diag_set_dir(folder.c_str());
    _exit(destinations().count == 1 ? 0 : 1);
  });
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(ProcessLog, leaves_tracing_off_silently_when_it_cannot_be_opened) {
  const auto outcome = support::run_in_child([this] {
    make_folder(name_for("builder"));
    msg_add_stream(MSG_DIAG, stdout);
    const bool stored = diag_set_dir(folder.c_str()) == folder;
    diag_printf("nowhere\n");
    exit(stored && destinations().count == 0 ? 0 : 1);
  });
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_EQ(outcome.out + outcome.err, "");
}

TEST_F(ProcessLog, goes_to_the_default_directory_for_null_and_for_nothing) {
  for (const char *none : {static_cast<const char *>(nullptr), ""}) {
    setenv("ORV_DIAG_DIR", make_folder("default").c_str(), 1);
    diag_set_dir("/no/such/folder");
    EXPECT_EQ(diag_set_dir(none), path("default"));
    EXPECT_THAT(files_in(path("default")), ElementsAre(name_for("builder")));
    setenv("ORV_DIAG_DIR", "/another", 1);
    EXPECT_EQ(diag_get_dir(), path("default")) << "the default was stored";
    close_logs();
  }
}

TEST_F(ProcessLog, goes_to_tmp_without_a_directory_and_without_any_variable) {
  support::refuse("fopen", EACCES);
  EXPECT_STREQ(diag_set_dir(nullptr), "/tmp");
  EXPECT_EQ(support::last_path_opened(), "/tmp/" + name_for("builder"));
  setenv("ORV_TMPDIR", "/another", 1);
  EXPECT_STREQ(diag_get_dir(), "/tmp") << "the default was stored";
}

TEST_F(ProcessLog, is_not_opened_in_a_default_directory_of_nothing) {
  setenv("ORV_DIAG_DIR", "", 1);
  setenv("ORV_TMPDIR", folder.c_str(), 1);
  msg_add_stream(MSG_DIAG, stdout);
  EXPECT_STREQ(diag_set_dir(nullptr), "");
  EXPECT_EQ(destinations().count, 0);
  EXPECT_THAT(files(), IsEmpty());
}

TEST_F(ProcessLog, opens_again_in_the_directory_that_diag_get_dir_gave) {
  const char *stored = diag_set_dir(folder.c_str());
  close_logs();
  EXPECT_EQ(diag_set_dir(diag_get_dir()), stored);
  EXPECT_EQ(stored, folder);
  EXPECT_EQ(destinations().count, 1);
}

TEST_F(ProcessLog, takes_a_directory_from_within_the_stored_one) {
  const char *stored = diag_set_dir(("/no/such/folder" + folder).c_str());
  diag_set_dir(stored + strlen("/no/such/folder"));
  EXPECT_EQ(diag_get_dir(), folder);
  EXPECT_EQ(destinations().count, 1);
}

TEST_F(ProcessLog, copies_the_directory) {
  std::string directory = folder;
  const char *stored = diag_set_dir(directory.c_str());
  directory.assign(directory.size(), 'x');
  EXPECT_EQ(stored, folder);
  EXPECT_EQ(diag_get_dir(), stored);
}

TEST_F(ProcessLog, stores_a_directory_of_4095_bytes) {
  const std::string longest = stretched(folder, 4095);
  EXPECT_EQ(diag_set_dir(longest.c_str()), longest);
  EXPECT_EQ(diag_get_dir(), longest);
}

TEST_F(ProcessLog, reads_names_no_further_than_their_ends) {
  const support::TextAtPageEnd directory(stretched(folder, 3000));
  const support::TextAtPageEnd login("builder");
  support::set_login_name(login.get());
  diag_set_dir(directory.get());
  EXPECT_EQ(diag_get_dir(), stretched(folder, 3000));
  EXPECT_THAT(files(), ElementsAre(name_for("builder")));
}

TEST_F(ProcessLog, refuses_a_longer_directory_and_stores_none) {
  diag_set_dir(folder.c_str());
  close_logs();
  msg_add_stream(MSG_DIAG, stdout);
  EXPECT_STREQ(diag_set_dir(stretched(folder, 4096).c_str()), "");
  EXPECT_STREQ(diag_get_dir(), "/tmp");
  EXPECT_EQ(destinations().count, 0);
}

TEST_F(ProcessLog, refuses_a_longer_default_directory) {
  setenv("ORV_DIAG_DIR", stretched(folder, 5000).c_str(), 1);
  msg_add_stream(MSG_DIAG, stdout);
  EXPECT_STREQ(diag_set_dir(nullptr), "");
  EXPECT_EQ(destinations().count, 0);
  EXPECT_THAT(files(), IsEmpty());
}

TEST_F(ProcessLog, is_opened_under_the_longest_path) {
  const std::string directory = stretched(folder, 4095 - 1 - name_for("builder").size());
  diag_set_dir(directory.c_str());
  EXPECT_EQ(destinations().count, 1);
  EXPECT_THAT(files(), ElementsAre(name_for("builder")));
}

TEST_F(ProcessLog, is_refused_under_a_longer_path) {
  const std::string directory = stretched(folder, 4095 - name_for("builder").size());
  const long opened = support::calls("fopen");
  EXPECT_EQ(diag_set_dir(directory.c_str()), directory);
  EXPECT_EQ(destinations().count, 0);
  EXPECT_EQ(support::calls("fopen"), opened);
  EXPECT_THAT(files(), IsEmpty());
}

} // namespace
