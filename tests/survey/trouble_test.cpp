// What cannot be read is told and passed over.
#include "survey_support.h"

#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using support::Outcome;
using testing::HasSubstr;

namespace {

constexpr int kNotPossible = 77;

class Trouble : public SurveyTest {
protected:
  // Runs a copy of the survey as a user to whom permissions mean something.
  Outcome run_as_nobody(const std::vector<std::string> &arguments) {
    FolderTree programs;
    const std::string program = programs.at("survey");
    std::filesystem::copy_file(SURVEY, program);
    for (const std::string &path : {programs.path, program, tree.path})
      chmod(path.c_str(), 0755);
    return support::run_in_child([&] {
      if (getuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0))
        _exit(kNotPossible);
      become_survey(arguments, {}, program);
    });
  }
  void expect_totals(const Outcome &outcome, size_t files) {
    EXPECT_EQ(read_table(outcome.out)
                  .count("total of " + std::to_string(files) + (files == 1 ? " file" : " files")),
              1U)
        << outcome.out;
    EXPECT_THAT(outcome.out, testing::EndsWith(kNothingLeft));
  }
};

TEST_F(Trouble, with_permissions_of_a_file) {
  tree.add_file("mine", "secret\n");
  tree.add_file("yours", "open\n");
  chmod(tree.at("mine").c_str(), 0);
  const Outcome outcome = run_as_nobody({tree.path});
  if (outcome.exit_status == kNotPossible)
    GTEST_SKIP() << "cannot become another user here";
  EXPECT_EQ(outcome.err, "Warning: " + tree.at("mine") + " cannot be read: Permission denied.\n");
  EXPECT_THAT(outcome.out, HasSubstr("Left out: 1 entry that cannot be read.\n"));
  expect_totals(outcome, 1);
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Trouble, with_permissions_of_a_folder) {
  for (const char *name : {"closed", "no search", "no list"}) {
    tree.add_folder(name);
    tree.add_file(std::string(name) + "/file", "x\n");
  }
  tree.add_file("open", "x\n");
  chmod(tree.at("closed").c_str(), 0);
  chmod(tree.at("no search").c_str(), 0444);
  chmod(tree.at("no list").c_str(), 0111);
  const Outcome outcome = run_as_nobody({tree.path});
  if (outcome.exit_status == kNotPossible)
    GTEST_SKIP() << "cannot become another user here";
  for (const char *name : {"closed", "no search", "no list"}) {
    EXPECT_THAT(outcome.err,
                HasSubstr("Warning: " + tree.at(name) + " cannot be read: Permission denied.\n"));
    chmod(tree.at(name).c_str(), 0755);
  }
  EXPECT_EQ(count_of(outcome.err, "\n"), 3U) << outcome.err;
  expect_totals(outcome, 1);
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Trouble, with_the_permissions_of_the_surveyed_folder) {
  tree.add_folder("closed");
  chmod(tree.at("closed").c_str(), 0);
  const Outcome outcome = run_as_nobody({tree.at("closed")});
  if (outcome.exit_status == kNotPossible)
    GTEST_SKIP() << "cannot become another user here";
  EXPECT_THAT(outcome.err, HasSubstr("cannot be read: Permission denied.\n"));
  expect_totals(outcome, 0);
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Trouble, with_links_that_lead_nowhere) {
  tree.add_link("dangling", "no such file");
  tree.add_link("loop", "loop");
  tree.add_link("ping", "pong");
  tree.add_link("pong", "ping");
  tree.add_file("file", "x\n");
  const Outcome outcome = run_survey({tree.path});
  const std::string loops = "Too many levels of symbolic links.\n";
  EXPECT_EQ(outcome.err, "Warning: " + tree.at("dangling") +
                             " cannot be read: No such file or directory.\n" +
                             "Warning: " + tree.at("loop") + " cannot be read: " + loops +
                             "Warning: " + tree.at("ping") + " cannot be read: " + loops +
                             "Warning: " + tree.at("pong") + " cannot be read: " + loops);
  EXPECT_THAT(outcome.out, HasSubstr("Left out: 4 entries that cannot be read.\n"));
  expect_totals(outcome, 1);
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Trouble, with_links_to_folders_is_none) {
  tree.add_folder("a/b");
  tree.add_folder("c");
  tree.add_file("a/b/file", "x\n");
  tree.add_file("c/file", "y\n");
  tree.add_link("a/b/up", "..");
  tree.add_link("a/b/self", ".");
  tree.add_link("a/to_c", "../c");
  tree.add_link("c/to_a", "../a");
  tree.add_link("everything", "/");
  tree.add_link(".hidden", tree.path);
  const Outcome outcome = run_survey({tree.path});
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out, HasSubstr("Left out: 6 links to folders.\n"));
  expect_counted({{"a/b/file", "a/b/file"}, {"c/file", "c/file"}}, outcome.out);
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(Trouble, with_a_link_that_leads_into_another_of_its_kind_is_none) {
  // A link to a folder of the same name elsewhere is still a link.
  tree.add_folder("a/same");
  tree.add_folder("b");
  tree.add_file("a/same/file", "x\n");
  tree.add_link("b/same", "../a/same");
  const Outcome outcome = run_survey({tree.path});
  expect_counted({{"a/same/file", "a/same/file"}}, outcome.out);
  EXPECT_THAT(outcome.out, HasSubstr("Left out: 1 link to a folder.\n"));
}

TEST_F(Trouble, with_a_link_given_for_the_folder_is_none) {
  tree.add_folder("real/sub");
  tree.add_file("real/sub/file", "x\n");
  tree.add_link("link", "real");
  const Outcome outcome = run_survey({tree.at("link")});
  EXPECT_EQ(read_table(outcome.out).count(tree.at("link/sub/file")), 1U);
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(Trouble, with_pipes_sockets_and_devices_is_none) {
  tree.add_file("file", "x\n");
  ASSERT_EQ(mkfifo(tree.at("pipe").c_str(), 0600), 0);
  tree.add_link("device", "/dev/zero");
  const int sock = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  snprintf(address.sun_path, sizeof address.sun_path, "%s", tree.at("socket").c_str());
  ASSERT_EQ(bind(sock, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  close(sock);
  const Outcome outcome = run_survey({tree.path});
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out, HasSubstr("Left out: 3 special files.\n"));
  expect_counted({{"file", "file"}}, outcome.out);
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(Trouble, with_paths_longer_than_the_system_takes) {
  tree.add_file("file", "x\n");
  ASSERT_EQ(support::run_in_child([&] {
              const std::string name(200, 'd');
              int made = chdir(tree.path.c_str());
              for (int i = 0; i < 25 && made == 0; i++)
                made = mkdir(name.c_str(), 0755) == 0 && chdir(name.c_str()) == 0 ? 0 : 1;
              exit(made);
            }).exit_status,
            0);
  const Outcome outcome = run_survey({tree.path});
  EXPECT_THAT(outcome.err, HasSubstr("cannot be read: File name too long.\n"));
  EXPECT_EQ(count_of(outcome.err, "Warning: "), 1U);
  expect_totals(outcome, 1);
  EXPECT_EQ(outcome.exit_status, 1);
  const Outcome removal = support::run_in_child([&] {
    execlp("rm", "rm", "-rf", tree.path.c_str(), static_cast<char *>(nullptr));
    _exit(99);
  });
  EXPECT_EQ(removal.exit_status, 0);
}

TEST_F(Trouble, with_a_reader_that_went_away) {
  tree.add_file("file", "x\n");
  const Outcome outcome = support::run_in_child([&] {
    int ends[2];
    if (pipe(ends) != 0)
      _exit(99);
    close(ends[0]);
    dup2(ends[1], STDOUT_FILENO);
    become_survey({tree.path});
  });
  EXPECT_THAT(outcome.err, HasSubstr("Stream error was: Broken pipe\n"));
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Trouble, with_a_process_limit_is_told) {
  if (getuid() != 0)
    GTEST_SKIP() << "a limit of processes needs another user to try it with";
  tree.add_file("file", "x\n");
  FolderTree programs;
  const std::string program = programs.at("survey");
  std::filesystem::copy_file(SURVEY, program);
  for (const std::string &path : {programs.path, program, tree.path})
    chmod(path.c_str(), 0755);
  const Outcome outcome = support::run_in_child([&] {
    const rlimit none = {0, 0};
    // A user id of its own: the limit counts all processes of a user.
    if (setrlimit(RLIMIT_NPROC, &none) != 0 || setgid(64123) != 0 || setuid(64123) != 0)
      _exit(kNotPossible);
    become_survey({tree.path}, {}, program);
  });
  if (outcome.exit_status == kNotPossible || outcome.exit_status == 99)
    GTEST_SKIP() << "cannot become another user here";
  EXPECT_THAT(outcome.err, HasSubstr("Error: The companion could not be started: "));
  EXPECT_THAT(outcome.out, HasSubstr("Left out: 1 file that nobody counted.\n"));
  expect_totals(outcome, 0);
  EXPECT_EQ(outcome.exit_status, 1);
}

} // namespace
