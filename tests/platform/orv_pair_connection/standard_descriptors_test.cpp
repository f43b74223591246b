// The companion's standard descriptors, with and without a vector from the parent, and with a
// parent that has none of its own.
#include "pair_fixture.h"

namespace {

using namespace pair_test;
using testing::EndsWith;

class StandardDescriptors : public ResourceTest {
protected:
  void SetUp() override {
    ResourceTest::SetUp();
    ASSERT_EQ(pipe(input), 0);
    ASSERT_EQ(pipe(output), 0);
    ASSERT_EQ(pipe(error), 0);
    for (const int own : {input[1], output[0], error[0]})
      fcntl(own, F_SETFD, FD_CLOEXEC); // a companion that held them would never see an end
  }
  void TearDown() override {
    for (int *ends : {input, output, error})
      for (int i = 0; i < 2; i++)
        if (ends[i] >= 0)
          close(ends[i]);
    ResourceTest::TearDown();
  }
  static void close_end(int &fd) {
    close(fd);
    fd = -1;
  }
  static std::string read_all(int fd) {
    std::string text;
    char bytes[256];
    for (ssize_t got; (got = read(fd, bytes, sizeof bytes)) > 0;)
      text.append(bytes, static_cast<size_t>(got));
    return text;
  }
  // The companion's report when it is started with these descriptors.
  static std::string report_with(const int *std_fds) {
    platform_pair_handle *ph = open_companion("report", 1, std_fds);
    const std::string report = receive_all(ph);
    EXPECT_EQ(finish(ph), 0);
    return report;
  }

  int input[2];
  int output[2];
  int error[2];
};

TEST_F(StandardDescriptors, are_the_null_device_without_a_vector) {
  const std::string report = report_with(nullptr);
  EXPECT_EQ(field(report, "fd0"), "/dev/null r");
  EXPECT_EQ(field(report, "fd1"), "/dev/null w");
  EXPECT_EQ(field(report, "fd2"), "/dev/null w");
  EXPECT_EQ(field(report, "output and error"), "one");
}

TEST_F(StandardDescriptors, are_those_of_the_vector) {
  const int std_fds[] = {input[0], output[1], error[1]};
  platform_pair_handle *ph = open_companion("copy", 1, std_fds);
  EXPECT_EQ(write(input[1], "through", 7), 7);
  close_end(input[1]);
  close_end(output[1]);
  close_end(error[1]);
  EXPECT_EQ(read_all(output[0]), "through");
  EXPECT_EQ(read_all(error[0]), "goodbye");
  EXPECT_EQ(finish(ph), 0);
}

TEST_F(StandardDescriptors, are_moved_not_copied_from_the_vector) {
  const int std_fds[] = {input[0], output[1], error[1]};
  const auto open = open_descriptors(report_with(std_fds));
  for (const int fd : std_fds) {
    EXPECT_THAT(open, Not(Contains(fd)));
    EXPECT_NE(fcntl(fd, F_GETFD), -1) << "the parent keeps its own";
  }
}

TEST_F(StandardDescriptors, stay_where_the_vector_names_them_themselves) {
  const auto outcome = run_in_child(
      [] {
        const int std_fds[] = {0, 1, 2};
        exit(finish(open_companion("copy", 1, std_fds)));
      },
      {}, "typed in");
  EXPECT_EQ(outcome.out, "typed in");
  EXPECT_EQ(outcome.err, "goodbye");
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(StandardDescriptors, stay_for_a_negative_entry) {
  const int std_fds[] = {-1, output[1], -7};
  const std::string report = report_with(std_fds);
  EXPECT_THAT(field(report, "fd0"), testing::StartsWith(target_of(0)));
  EXPECT_THAT(field(report, "fd1"), testing::StartsWith(target_of(output[1])));
  EXPECT_THAT(field(report, "fd2"), testing::StartsWith(target_of(2)));
}

TEST_F(StandardDescriptors, are_served_once_by_an_entry_listed_twice) {
  const int std_fds[] = {0, output[1], output[1]};
  const std::string report = report_with(std_fds);
  EXPECT_THAT(field(report, "fd1"), testing::StartsWith(target_of(output[1])));
  EXPECT_THAT(field(report, "fd2"), testing::StartsWith(target_of(2)))
      << "it was closed after its first use";
}

TEST_F(StandardDescriptors, are_closed_after_serving_in_another_place) {
  const auto outcome = run_in_child([this] {
    dup2(input[0], 0);
    dup2(output[1], 1);
    const int std_fds[] = {1, 0, 2};
    const std::string report = report_with(std_fds);
    fprintf(stderr, "%d %d", field(report, "fd0") == "closed -",
            field(report, "fd1") == target_of(output[1]) + " w");
  });
  EXPECT_EQ(outcome.err, "1 1") << "the first step moved 1 to 0, the second moved it back";
}

// Runs the companion from a parent in which these standard descriptors are closed.
std::string report_from_parent_without(const std::vector<int> &closed) {
  const ScratchFile scratch;
  run_in_child([&] {
    for (const int fd : closed)
      close(fd);
    platform_pair_handle *ph = open_companion("report");
    const bool above = platform_pair_rx_fd(ph) > 2;
    const std::string report = receive_all(ph);
    finish(ph);
    std::ofstream(scratch.path) << report << "parent's end above=" << above << "\n";
  });
  return scratch.contents();
}

TEST_F(StandardDescriptors, never_run_over_the_connection) {
  const std::vector<std::vector<int>> cases = {{0}, {1}, {2}, {0, 1}, {1, 2}, {0, 2}, {0, 1, 2}};
  for (const auto &closed : cases) {
    const std::string report = report_from_parent_without(closed);
    EXPECT_EQ(field(report, "fd0"), "/dev/null r") << report;
    EXPECT_EQ(field(report, "fd1"), "/dev/null w") << report;
    EXPECT_EQ(field(report, "fd2"), "/dev/null w") << report;
    EXPECT_GT(atoi(field(report, "end").c_str()), 2) << report;
    EXPECT_EQ(field(report, "parent's end above"), "1") << report;
  }
}

TEST_F(StandardDescriptors, are_refused_as_ends_when_there_is_no_room_above) {
  const auto outcome = run_in_child([] {
    const DescriptorsExhausted exhausted;
    close(0);
    close(1);
    platform_pair_handle *ph = open_companion("echo");
    fprintf(stderr, "%s, %s, %d, %s %s", ph->error_text, platform_pair_errstr(ph),
            platform_pair_rx_fd(ph), target_of(0).c_str(), target_of(1).c_str());
  });
  EXPECT_THAT(outcome.err,
              EndsWith("socketpair create failed, Too many open files, -1, closed closed"));
}

} // namespace
