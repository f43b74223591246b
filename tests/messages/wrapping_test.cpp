// Where wrapped lines break: cases by hand, and many texts compared with a slow, literal model.
#include "messages/capture.h"

#include <random>

namespace {

using support::Capture;

class Wrapping : public support::MessagesTest {
protected:
  void SetUp() override {
    MessagesTest::SetUp();
    expect_blocks_left(1); // the print prefix
  }

  // What a message of these becomes, its line left open.
  std::string wrapped(int limit, const std::string &prefix, const std::string &text) {
    msg_set_width_limit(limit);
    msg_set_print_prefix(prefix.c_str());
    info.forget();
    msg_print_wrap("%s", text.c_str());
    const std::string result = info.text();
    msg_print_bare("%s", ""); // ends the line
    return result;
  }

  Capture info{MSG_INFO, Capture::kUnbuffered};
};

TEST_F(Wrapping, breaks_at_the_last_blank_that_leaves_the_line_within_the_limit) {
  EXPECT_EQ(wrapped(11, "", "one two three four"), "one two\nthree four");
}

TEST_F(Wrapping, fills_a_line_up_to_the_limit) {
  EXPECT_EQ(wrapped(7, "", "one two three"), "one two\nthree");
  EXPECT_EQ(wrapped(6, "", "one two three"), "one\ntwo\nthree");
  EXPECT_EQ(wrapped(13, "", "one two three"), "one two three");
  EXPECT_EQ(wrapped(12, "", "one two three"), "one two\nthree");
}

TEST_F(Wrapping, leaves_room_for_the_prefix_and_indentation) {
  EXPECT_EQ(wrapped(10, "> ", "aaaa bbb cccc ddd"), "> aaaa bbb\n  cccc ddd");
}

TEST_F(Wrapping, breaks_at_tabs_too) {
  EXPECT_EQ(wrapped(8, "", "one two\tthree"), "one two\nthree");
  EXPECT_EQ(wrapped(8, "", "one\ttwo\tthree"), "one\ttwo\nthree");
}

TEST_F(Wrapping, counts_a_tab_as_one_column) {
  EXPECT_EQ(wrapped(5, "", "a\tb\tc d"), "a\tb\tc\nd");
}

TEST_F(Wrapping, drops_the_blanks_that_follow_the_break) {
  EXPECT_EQ(wrapped(4, "", "aaaa \t  bbbb"), "aaaa\nbbbb");
}

TEST_F(Wrapping, breaks_at_the_last_blank_in_reach_and_keeps_those_before_it) {
  EXPECT_EQ(wrapped(6, "", "aaaa   bbbb"), "aaaa  \nbbbb");
  EXPECT_EQ(wrapped(5, "", "aaaa   bbbb"), "aaaa \nbbbb");
}

TEST_F(Wrapping, keeps_blanks_inside_a_line_and_at_its_end) {
  EXPECT_EQ(wrapped(20, "", "a  b\t c  "), "a  b\t c  ");
  EXPECT_EQ(wrapped(20, "", "a  \n  b"), "a  \n  b");
}

TEST_F(Wrapping, takes_a_newline_behind_dropped_blanks_for_the_break) {
  EXPECT_EQ(wrapped(4, "", "aaaa  \nbbbb"), "aaaa\nbbbb");
  EXPECT_EQ(wrapped(4, "", "aaaa  \n\nbbbb"), "aaaa\n\nbbbb");
}

TEST_F(Wrapping, drops_blanks_at_the_end_of_the_text_that_do_not_fit) {
  EXPECT_EQ(wrapped(4, "", "aaaa  "), "aaaa");
  EXPECT_EQ(wrapped(4, "", "aaaa bbbb   "), "aaaa\nbbbb");
}

TEST_F(Wrapping, writes_a_word_longer_than_the_room_whole) {
  const std::string word(100, 'x');
  EXPECT_EQ(wrapped(78, "", word), word);
  EXPECT_EQ(wrapped(78, "Error: ", word + " next"), "Error: " + word + "\n       next");
  EXPECT_EQ(wrapped(10, "", "a " + word + " b"), "a\n" + word + "\nb");
  EXPECT_EQ(wrapped(10, "", word + "\tb"), word + "\nb");
}

TEST_F(Wrapping, ends_a_long_word_at_a_newline) {
  const std::string word(20, 'x');
  EXPECT_EQ(wrapped(10, "", word + "\nb c"), word + "\nb c");
}

TEST_F(Wrapping, keeps_leading_blanks_where_the_line_fits) {
  EXPECT_EQ(wrapped(10, "> ", "  one"), ">   one");
}

TEST_F(Wrapping, keeps_leading_blanks_where_a_word_fits_behind_them) {
  EXPECT_EQ(wrapped(8, "> ", "  one two"), ">   one\n  two");
}

TEST_F(Wrapping, writes_nothing_where_no_blank_follows_leading_ones_in_reach) {
  EXPECT_EQ(wrapped(8, "> ", "  seventy"), "> \n  seventy");
}

TEST_F(Wrapping, goes_on_at_column_0_without_a_new_line) {
  EXPECT_EQ(wrapped(8, "", "   toolongword"), "toolongword");
}

TEST_F(Wrapping, writes_nothing_of_blanks_longer_than_the_room) {
  EXPECT_EQ(wrapped(8, "> ", std::string(20, ' ') + "one"), "> \n  one");
  EXPECT_EQ(wrapped(8, "> ", std::string(20, '\t') + "\none"), "> \n  one");
}

TEST_F(Wrapping, writes_nothing_of_blanks_alone_that_do_not_fit) {
  EXPECT_EQ(wrapped(8, "> ", std::string(20, ' ')), "> ");
  EXPECT_EQ(wrapped(8, "> ", std::string(6, ' ')), "> " + std::string(6, ' ')) << "these fit";
}

TEST_F(Wrapping, leads_empty_lines_with_the_indentation) {
  EXPECT_EQ(wrapped(20, "> ", "a\n\nb"), "> a\n  \n  b");
}

TEST_F(Wrapping, writes_no_head_behind_a_newline_that_ends_the_text) {
  EXPECT_EQ(wrapped(20, "> ", "a\n"), "> a\n");
  EXPECT_EQ(wrapped(4, "> ", "aa  \n"), "> aa\n");
}

TEST_F(Wrapping, of_a_continuation_overruns_with_a_word_that_leads_it) {
  wrapped(10, "", "");
  info.forget();
  msg_print_wrap("12345678");
  msg_cont("hello world");
  EXPECT_EQ(info.text(), "12345678hello\nworld");
}

TEST_F(Wrapping, of_a_continuation_breaks_at_the_blanks_that_lead_it) {
  wrapped(10, "", "");
  info.forget();
  msg_print_wrap("12345678");
  msg_cont(" hello world");
  EXPECT_EQ(info.text(), "12345678\nhello\nworld");
}

TEST_F(Wrapping, beside_a_prefix_wider_than_the_limit_writes_each_word_on_its_own_line) {
  EXPECT_EQ(wrapped(5, "prefix: ", "one two\nthree\n\nfour"),
            "prefix: one\n        two\n        three\n        \n        four");
  EXPECT_EQ(wrapped(5, "prefix: ", "  one  two  "), "prefix: \n        one\n        two");
}

TEST_F(Wrapping, at_one_column_writes_each_word_on_its_own_line) {
  EXPECT_EQ(wrapped(1, "", "one two three"), "one\ntwo\nthree");
}

TEST_F(Wrapping, at_the_widest_limit_breaks_at_newlines_alone) {
  std::string text;
  for (int i = 0; i < 20000; i++)
    text += "word ";
  EXPECT_EQ(wrapped(2147483647, "> ", text + "\nend"), "> " + text + "\n  end");
}

// The text step by step over plain indices, as slowly as it reads.
class Model {
public:
  Model(int limit, std::string prefix, std::string mp)
      : width(limit), head(std::move(prefix)), mp_prefix(std::move(mp)),
        indentation(std::min<size_t>(head.size(), 49), ' '), prefix_length(head.size()) {}

  std::string write(const std::string &text) {
    write_head();
    size_t at = 0;
    while (true) {
      size_t line_end = std::min(text.find('\n', at), text.size());
      const size_t stop = break_of(text, at, line_end);
      result += text.substr(at, stop - at);
      column += static_cast<long>(stop - at);
      at = stop;
      while (at < text.size() && blank(text[at]))
        at++;
      if (at < text.size() && text[at] == '\n') {
        result += '\n';
        column = 0;
        at++;
      }
      if (at == text.size())
        return result;
      if (column != 0) {
        result += '\n';
        column = 0;
      }
      write_head();
    }
  }

private:
  static bool blank(char character) { return character == ' ' || character == '\t'; }

  void write_head() {
    result += mp_prefix + head;
    head = indentation;
    column += static_cast<long>(prefix_length + mp_prefix.size());
  }

  size_t break_of(const std::string &text, size_t at, size_t line_end) const {
    const long room = width - column;
    if (static_cast<long>(line_end - at) <= room)
      return line_end;
    size_t word = at;
    while (word < text.size() && blank(text[word]))
      word++;
    if (word < text.size() && static_cast<long>(word - at) <= room)
      for (size_t i = at + static_cast<size_t>(room); i > word; i--)
        if (blank(text[i]))
          return i;
    if (word != at)
      return at;
    size_t stop = at;
    while (stop < text.size() && !blank(text[stop]))
      stop++;
    return std::min(stop, line_end);
  }

  long width;
  long column = 0;
  std::string head;
  std::string mp_prefix;
  std::string indentation;
  size_t prefix_length;
  std::string result;
};

TEST_F(Wrapping, agrees_with_the_model_on_many_texts) {
  expect_blocks_left(2);
  std::mt19937 random(20261121);
  const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
  for (int round = 0; round < 4000; round++) {
    const int limit = static_cast<int>(1 + below(40));
    const std::string prefix(below(4) == 0 ? below(60) : below(8), '>');
    const std::string mp(below(3), 'm');
    std::string text;
    const char *alphabet = below(2) == 0 ? "aaaaab  \t\n" : "aaaaaaaaaaaaaaaaaaaaaaaaab  \n";
    for (unsigned left = below(120); left > 0; left--)
      text += alphabet[below(static_cast<unsigned>(std::char_traits<char>::length(alphabet)))];
    msg_set_mp_prefix(mp.c_str());
    const std::string result = wrapped(limit, prefix, text);
    ASSERT_EQ(result, Model(limit, prefix, mp).write(text))
        << "limit " << limit << ", prefix of " << prefix.size() << ", text \"" << text << '"';
  }
}

// Each would take hours if a line looked at more of the text than it writes.
TEST_F(Wrapping, looks_at_a_text_without_newlines_once) {
  std::string text;
  while (text.size() < 4000000)
    text += "some words ";
  const std::string result = wrapped(78, "> ", text);
  EXPECT_GT(result.size(), text.size());
  EXPECT_EQ(result.substr(0, 80), "> some words some words some words some words some words some "
                                  "words some words\n ");
}

TEST_F(Wrapping, looks_at_a_text_without_blanks_once) {
  const std::string text(4000000, 'x');
  EXPECT_TRUE(wrapped(78, "> ", text) == "> " + text);
}

TEST_F(Wrapping, looks_at_short_lines_once) {
  std::string text;
  while (text.size() < 1000000)
    text += "x\n";
  EXPECT_TRUE(wrapped(78, "", text) == text); // showing the difference would take minutes
}

} // namespace
