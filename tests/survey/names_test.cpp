// Names of every kind travel to the companion and back, and are printed without harm.
#include "survey_support.h"

using support::Outcome;

namespace {

class Names : public SurveyTest {
protected:
  void expect_names(const std::vector<std::pair<std::string, std::string>> &names,
                    const Variables &variables = {}) {
    size_t size = 1;
    for (const auto &[name, printed] : names)
      tree.add_file(name, std::string(size++, 'x') + " y\n");
    const Outcome outcome = run_survey({tree.path}, variables);
    expect_counted(names, outcome.out);
    EXPECT_EQ(outcome.exit_status, 0) << outcome.err;
  }
};

const std::vector<std::pair<std::string, std::string>> kOddNames = {
    {"new\nline", "new\\x0aline"},
    {"\r", "\\x0d"},
    {"end\r\n", "end\\x0d\\x0a"},
    {"\r\n\r\n", "\\x0d\\x0a\\x0d\\x0a"},
    {"tab\there", "tab\\x09here"},
    {"escape\x1b[2J", "escape\\x1b[2J"},
    {"delete\x7f", "delete\\x7f"},
    {"100%", "100%"},
    {"%s%n%d", "%s%n%d"},
    {"%%", "%%"},
    {"back\\slash", "back\\\\slash"},
    {"\\x41", "\\\\x41"},
    {"$dollar", "$dollar"},
    {"$$", "$$"},
    {"-dash", "-dash"},
    {"a  b", "a  b"},
    {"end ", "end "},
    {"'quote\"", "'quote\""},
    {"\xff\xfe", "\\xff\\xfe"},
    {"cut\xe2\x82", "cut\\xe2\\x82"},
    {"overlong\xc0\xaf", "overlong\\xc0\\xaf"},
    {"surrogate\xed\xa0\x80", "surrogate\\xed\\xa0\\x80"},
    {"large\xf4\x90\x80\x80", "large\\xf4\\x90\\x80\\x80"},
    {"c1\xc2\x85", "c1\\xc2\\x85"},
    {"gr\xc3\xbc\xc3\x9f\x65", "gr\xc3\xbc\xc3\x9f\x65"},
    {"\xe2\x82\xac \xf0\x9f\x98\x80", "\xe2\x82\xac \xf0\x9f\x98\x80"},
};

TEST_F(Names, of_files_may_hold_any_byte) {
  expect_names(kOddNames);
}

TEST_F(Names, of_files_do_no_harm_in_the_trace) {
  expect_names(kOddNames, {{"ORV_DIAGNOSTICS_PATH", "stderr"}});
  const Outcome outcome = run_survey({tree.path}, {{"ORV_DIAGNOSTICS_PATH", "stderr"}});
  for (const auto &[name, printed] : kOddNames)
    EXPECT_THAT(outcome.err, testing::HasSubstr("counts: " + tree.at(printed) + "\n"));
}

TEST_F(Names, of_folders_may_hold_any_byte) {
  std::vector<std::pair<std::string, std::string>> files;
  for (const auto &[name, printed] : kOddNames) {
    tree.add_folder(name);
    files.emplace_back(name + "/file", printed + "/file");
  }
  expect_names(files);
}

TEST_F(Names, of_folders_are_no_wildcards) {
  std::vector<std::pair<std::string, std::string>> files;
  for (const char *name : {"*", "a*", "ab", "a?", "[ab]", "a", "b", "[", "x]", "{p,q}", "p", "~",
                           "!", "a\\*", "\\", "\\\\"}) {
    tree.add_folder(name);
    std::string printed;
    for (const char *at = name; *at != '\0'; at++)
      printed += *at == '\\' ? std::string("\\\\") : std::string(1, *at);
    files.emplace_back(std::string(name) + "/one", printed + "/one");
    files.emplace_back(std::string(name) + "/.two", printed + "/.two");
  }
  expect_names(files);
}

TEST_F(Names, of_255_odd_bytes_fit) {
  std::string printed;
  for (int i = 0; i < 255; i++)
    printed += "\\xff";
  expect_names({{std::string(255, '\xff'), printed}});
}

TEST_F(Names, of_the_surveyed_folder_may_be_odd_too) {
  tree.add_folder("[o]dd *\n%n");
  tree.add_folder("odd X");
  tree.add_file("[o]dd *\n%n/file", "x\n");
  tree.add_file("odd X/no", "x\n");
  const Outcome outcome = run_survey({tree.at("[o]dd *\n%n")});
  EXPECT_EQ(read_table(outcome.out),
            (Table{{tree.at("[o]dd *\\x0a%n/file"), {1, 1, 2}}, {"total of 1 file", {1, 1, 2}}}));
}

} // namespace
