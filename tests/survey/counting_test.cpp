// What is counted, and that wc agrees.
#include "survey_support.h"

using support::Outcome;

namespace {

class Counting : public SurveyTest {
protected:
  void expect_agreement(const std::vector<std::string> &names) {
    const Outcome outcome = run_survey({tree.path});
    std::vector<std::pair<std::string, std::string>> files;
    for (const std::string &name : names)
      files.emplace_back(name, name);
    expect_counted(files, outcome.out);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.exit_status, 0);
    EXPECT_THAT(outcome.out, testing::EndsWith(kNothingLeft));
  }
};

std::string every_byte() {
  std::string bytes;
  for (int byte = 0; byte < 256; byte++)
    bytes += static_cast<char>(byte);
  return bytes;
}

TEST_F(Counting, agrees_with_wc_on_a_text) {
  tree.add_file("text", "one two\nthree\n\n  four\tfive\n");
  expect_agreement({"text"});
}

TEST_F(Counting, agrees_with_wc_on_odd_files) {
  tree.add_file("empty", "");
  tree.add_file("no newline", "the end");
  tree.add_file("newlines", "\n\n\n");
  tree.add_file("nul bytes", std::string("a\0b \0 c\0\n\0", 10));
  tree.add_file("only nul", std::string(5000, '\0'));
  tree.add_file("blanks", " \t\v\f\r a\vb\fc\rd \n");
  tree.add_file("invalid", "\xff\xfe \xc3 x\x80y \xe2\x82\n");
  tree.add_file("utf-8", "gr\xc3\xbc\xc3\x9f\x65 \xc2\xa0 \xe2\x82\xac\n");
  tree.add_file("controls", "\x01 \x7f a\x1b[0m\n");
  tree.add_file("every byte", every_byte() + every_byte());
  expect_agreement({"empty", "no newline", "newlines", "nul bytes", "only nul", "blanks", "invalid",
                    "utf-8", "controls", "every byte"});
}

TEST_F(Counting, agrees_with_wc_where_a_file_is_read_in_pieces) {
  // A word, a blank and a newline each at the seams of the pieces.
  std::string text;
  while (text.size() < 400000) {
    text.append("word").append(std::to_string(text.size() % 7919));
    text += text.size() % 5 == 0 ? '\n' : ' ';
  }
  tree.add_file("large", text);
  tree.add_file("one word", std::string(200000, 'x'));
  tree.add_file("65535", std::string(65535, 'x') + " y");
  tree.add_file("65536", std::string(65536, 'x') + " y");
  expect_agreement({"large", "one word", "65535", "65536"});
}

TEST_F(Counting, finds_the_files_of_every_folder_hidden_ones_too) {
  tree.add_folder("a/b/c");
  tree.add_folder(".hidden/deeper");
  tree.add_folder("empty");
  tree.add_file("top", "1\n");
  tree.add_file(".dot", "2 2\n");
  tree.add_file("a/b/c/deep", "3 3 3\n");
  tree.add_file("a/.b", "4\n");
  tree.add_file(".hidden/deeper/..x", "5\n");
  tree.add_file("...", "6\n");
  expect_agreement({"top", ".dot", "a/b/c/deep", "a/.b", ".hidden/deeper/..x", "..."});
}

TEST_F(Counting, agrees_with_wc_on_the_totals_of_a_tree) {
  for (int i = 0; i < 100; i++) {
    const std::string folder(1, "abcdefg"[i % 7]);
    tree.add_folder(folder);
    tree.add_file(folder + "/" + std::to_string(i),
                  std::string(static_cast<size_t>(i), 'w') + (i % 3 == 0 ? " x y\n" : ""));
  }
  const Outcome by_wc = support::run_in_child(
      [&] {
        execlp("sh", "sh", "-c", "find \"$0\" -type f -print0 | wc --files0-from=- | tail -1",
               tree.path.c_str(), static_cast<char *>(nullptr));
        _exit(99);
      },
      {{"LC_ALL", "C"}});
  const Outcome outcome = run_survey({"--totals", tree.path});
  const Table table = read_table(outcome.out);
  Figures expected = {};
  ASSERT_EQ(
      sscanf(by_wc.out.c_str(), "%lu %lu %lu", &expected.lines, &expected.words, &expected.bytes),
      3);
  EXPECT_EQ(table, (Table{{"total of 100 files", expected}}));
}

TEST_F(Counting, counts_an_empty_folder) {
  const Outcome outcome = run_survey({tree.path});
  EXPECT_EQ(read_table(outcome.out), (Table{{"total of 0 files", {0, 0, 0}}}));
  EXPECT_THAT(outcome.out, testing::EndsWith(kNothingLeft));
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(Counting, surveys_the_current_folder_by_default) {
  tree.add_file("here", "x\n");
  const Outcome outcome = support::run_in_child([&] {
    if (chdir(tree.path.c_str()) == 0)
      become_survey({});
  });
  EXPECT_EQ(read_table(outcome.out),
            (Table{{"./here", {1, 1, 2}}, {"total of 1 file", {1, 1, 2}}}));
}

TEST_F(Counting, takes_a_folder_with_a_slash_at_its_end) {
  tree.add_file("file", "x\n");
  EXPECT_EQ(read_table(run_survey({tree.path + "/"}).out).count(tree.at("file")), 1U);
}

TEST_F(Counting, sorts_the_table_by_path) {
  tree.add_folder("b");
  for (const char *name : {"b/2", "c", ".z", "a", "b/1"})
    tree.add_file(name, "");
  const std::string out = run_survey({tree.path}).out;
  size_t last = 0;
  for (const char *name : {"/.z\n", "/a\n", "/b/1\n", "/b/2\n", "/c\n"}) {
    const size_t at = out.find(name);
    ASSERT_NE(at, std::string::npos) << name;
    EXPECT_GT(at, last) << name;
    last = at;
  }
}

TEST_F(Counting, counts_what_a_link_to_a_file_leads_to) {
  tree.add_file("file", "one two\n");
  tree.add_link("link", "file");
  expect_agreement({"file", "link"});
}

} // namespace
