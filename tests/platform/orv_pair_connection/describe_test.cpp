// The one-line description of a handle, in every shape.
#include "pair_fixture.h"

#include <climits>

namespace {

using namespace pair_test;

class Description : public ResourceTest {
protected:
  void SetUp() override {
    ResourceTest::SetUp();
    handle = {};
    handle.companion_pid = 4242;
    handle.side = 1;
    handle.blocking = 1;
    handle.read_fd = 5;
    handle.write_fd = 6;
    handle.child_exit_status = 256;
    handle.term_signal = 15;
    handle.saved_errno = 32;
    handle.self = &handle;
  }
  std::string described() { return platform_pair_describe(&handle, buffer); }

  platform_pair_handle handle;
  char buffer[PLATFORM_PAIR_DESCRIBE_SIZE];
};

TEST_F(Description, tells_the_parents_state) {
  EXPECT_EQ(described(),
            "handle intact; parent side; companion pid 4242; reads block; read FD 5; write FD 6; "
            "child status 256; term signal 15; errno 32; orv: None");
}

TEST_F(Description, tells_the_companions_state_without_a_child_status) {
  handle.side = 0;
  handle.blocking = 0;
  handle.read_fd = handle.write_fd = -1;
  handle.saved_errno = -1;
  handle.term_signal = 0;
  EXPECT_EQ(described(),
            "handle intact; child side; companion pid 4242; reads non-blocking; read FD -1; "
            "write FD -1; term signal 0; errno -1; orv: None");
}

TEST_F(Description, takes_any_nonzero_choice_as_blocking) {
  handle.blocking = -3;
  EXPECT_THAT(described(), HasSubstr("reads block; "));
}

TEST_F(Description, is_the_error_text_alone_when_there_is_one) {
  handle.error_text = "fork failed";
  EXPECT_EQ(described(), "orv: fork failed");
}

TEST_F(Description, of_a_failed_open_is_its_failed_step) {
  platform_pair_handle *ph = platform_pair_child_open("ORV_TEST_NOT_SET", 0, 1);
  EXPECT_STREQ(platform_pair_describe(ph, buffer),
               "orv: Failing to start due to wrong type on linux");
  platform_pair_close(ph);
}

TEST_F(Description, of_a_corrupt_handle_names_both_addresses) {
  handle.self = reinterpret_cast<platform_pair_handle *>(0x1f);
  handle.error_text = "fork failed";
  char expected[128];
  snprintf(expected, sizeof expected, "handle corrupt 0x%08lx != 0x0000001f; ",
           reinterpret_cast<unsigned long>(&handle));
  EXPECT_EQ(described(), expected);
}

TEST_F(Description, goes_into_the_callers_buffer) {
  EXPECT_EQ(platform_pair_describe(&handle, buffer), buffer);
}

TEST_F(Description, goes_into_one_static_buffer_without_a_callers) {
  char *first = platform_pair_describe(&handle, nullptr);
  const std::string text = first;
  EXPECT_EQ(text, described());
  handle.companion_pid = 1;
  EXPECT_EQ(platform_pair_describe(&handle, nullptr), first);
  EXPECT_NE(text, first) << "the next call overwrites it";
}

TEST_F(Description, always_fits_the_promised_size) {
  handle.companion_pid = handle.read_fd = handle.write_fd = INT_MIN;
  handle.child_exit_status = handle.term_signal = handle.saved_errno = INT_MIN;
  handle.blocking = 0;
  const std::string text = described();
  EXPECT_LT(text.size(), static_cast<size_t>(PLATFORM_PAIR_DESCRIBE_SIZE));
  EXPECT_EQ(text, "handle intact; parent side; companion pid -2147483648; reads non-blocking; "
                  "read FD -2147483648; write FD -2147483648; child status -2147483648; "
                  "term signal -2147483648; errno -2147483648; orv: None");
}

} // namespace
