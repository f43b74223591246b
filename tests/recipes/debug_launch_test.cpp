// Recipes for the start-up and the environment.
#include "support/child.h"
#include "support/resources.h"
#include "support/system.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <orv/msg.h>
#include <orv/platform.h>
#include <string>

namespace {

using testing::HasSubstr;

class LaunchRecipes : public support::ResourceTest {
protected:
  // Starts a program up with a request in the environment, its sleeps over at once.
  static support::Outcome start_up(const char *request) {
    return support::run_in_child(
        [] {
          char name[] = "program";
          char argument[] = "argument";
          char *argv[] = {name, argument, nullptr};
          int argc = 2;
          support::replace_sleep(nullptr);
          msg_add_stream(MSG_DIAG, stdout);
          platform_init_args(&argc, argv);
          printf("%s", platform_getenv("ORV_DEBUG"));
        },
        {{"ORV_DEBUG", request}, {"ORV_DIAGNOSTICS_PATH", nullptr}});
  }
};

TEST_F(LaunchRecipes, delay_through_the_environment_to_have_the_arguments_logged) {
  EXPECT_EQ(start_up("delay 5").out, "argv[0] = \"program\"\nargv[1] = \"argument\"\n");
}

TEST_F(LaunchRecipes, make_requests_once_at_start_up) {
  const auto outcome = support::run_in_child(
      [] {
        char name[] = "program";
        char *argv[] = {name, nullptr};
        int argc = 1;
        support::replace_sleep(nullptr);
        platform_init_args(&argc, argv);
        const long blocks = support::live_blocks();
        platform_init_args(&argc, argv); // the request is gone: nothing is copied any more
        printf("%ld", support::live_blocks() - blocks);
      },
      {{"ORV_DEBUG", "delay 5"}, {"ORV_DIAGNOSTICS_PATH", nullptr}});
  EXPECT_EQ(outcome.out, "0");
}

TEST_F(LaunchRecipes, set_variables_by_the_system_in_a_loop) {
  for (int i = 0; i < 100; i++)
    setenv("ORV_TEST_ROUND", std::to_string(i).c_str(), 1);
  EXPECT_STREQ(platform_getenv("ORV_TEST_ROUND"), "99");
  unsetenv("ORV_TEST_ROUND");
}

TEST_F(LaunchRecipes, ask_for_the_distribution_once_and_copy_its_name) {
  char folder[] = "/tmp/orv-recipe-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  std::filesystem::create_directory(std::string(folder) + "/dist");
  std::ofstream(std::string(folder) + "/dist/DISTRIBUTION") << "fine-2.1\n";
  setenv("ORV_DIST", folder, 1);
  const char *found = platform_distribution();
  const std::string name = found != nullptr ? found : "unknown";
  unsetenv("ORV_DIST");
  EXPECT_EQ(name, "fine-2.1");
  std::filesystem::remove_all(folder);
  expect_descriptors_left(1);
}

} // namespace
