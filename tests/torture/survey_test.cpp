// The survey under refused calls: what its own tests cannot bring about.
#include "support/child.h"
#include "support/resources.h"

#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <string>
#include <unistd.h>

namespace {

using testing::HasSubstr;

class TorturedSurvey : public support::ResourceTest {
protected:
  void SetUp() override {
    ResourceTest::SetUp();
    char name[] = "/tmp/survey_torture.XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    folder = name;
    std::ofstream(folder + "/file") << "two words\n";
  }

  void TearDown() override {
    unlink((folder + "/file").c_str());
    rmdir(folder.c_str());
    ResourceTest::TearDown();
  }

  support::Outcome refuse(const char *call) const {
    return support::run_in_child([&] {
      execl(ORV_TORTURE, ORV_TORTURE, "--fail", call, "--only", "survey", "--limit", "15", "--",
            SURVEY, folder.c_str(), static_cast<char *>(nullptr));
      _exit(99);
    });
  }

  std::string folder;
};

// The first message hands the file over, the second asks the companion to end.
TEST_F(TorturedSurvey, EndsItsCompanionAlthoughTheLastMessageCannotBeSent) {
  const support::Outcome outcome = refuse("send:2");
  EXPECT_THAT(outcome.err, HasSubstr("orv-torture: refused send (ECONNRESET)"));
  EXPECT_EQ(outcome.exit_status, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("total of 1 file"));
}

} // namespace
