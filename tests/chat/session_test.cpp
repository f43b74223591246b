// Sessions of the chat: a server and a client, each in a process of its own, and either of them
// with a peer that does what the other side would not.
#include "support/child.h"
#include "support/resources.h"

#include <csignal>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <orv/platform.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using testing::HasSubstr;

constexpr char kAlive[] = "... listening\n";

// The output without the signs of life, of which there are as many as the wait was long.
std::string without_signs(const std::string &output) {
  std::istringstream lines(output);
  std::string rest;
  for (std::string line; std::getline(lines, line);)
    if (line + "\n" != kAlive)
      rest += line + "\n";
  return rest;
}

support::Outcome run_client(int port, const std::string &input) {
  return support::run_in_child(
      [port] {
        execl(CHAT, CHAT, "client", std::to_string(port).c_str(), "Ada",
              static_cast<char *>(nullptr));
        _exit(99);
      },
      {{"ORV_DEBUG", nullptr}, {"ORV_DIAGNOSTICS_PATH", nullptr}}, input);
}

class Chat : public support::ResourceTest {
protected:
  void TearDown() override {
    if (server > 0)
      kill(server, SIGKILL);
    end_of_server();
    ResourceTest::TearDown();
  }

  // Starts a server and learns its port.
  int start_server() {
    int ends[2];
    if (pipe(ends) != 0)
      return -1;
    server = fork();
    if (server == 0) {
      dup2(ends[1], STDOUT_FILENO);
      close(ends[0]);
      close(ends[1]);
      alarm(20);
      unsetenv("ORV_DIAGNOSTICS_PATH");
      execl(CHAT, CHAT, "server", std::to_string(20000 + getpid() % 20000).c_str(),
            static_cast<char *>(nullptr));
      _exit(99);
    }
    close(ends[1]);
    server_output = fdopen(ends[0], "r");
    int port = -1;
    char line[100] = "";
    EXPECT_NE(fgets(line, sizeof line, server_output), nullptr);
    EXPECT_EQ(sscanf(line, "Serving on port %d.\n", &port), 1);
    return port;
  }

  // The rest of the server's output, and its exit status.
  std::string end_of_server() {
    std::string output;
    if (server_output != nullptr) {
      for (int c; (c = getc(server_output)) != EOF;)
        output += static_cast<char>(c);
      fclose(server_output);
      server_output = nullptr;
    }
    if (server > 0)
      waitpid(server, &server_status, 0);
    server = -1;
    return output;
  }

  pid_t server = -1;
  int server_status = -1;
  FILE *server_output = nullptr;
};

TEST_F(Chat, answers_each_line_and_recalls_all_of_them) {
  const int port = start_server();
  const auto client = run_client(port, "Is this on?\n\nIt is.\nrecall\n");
  EXPECT_EQ(without_signs(client.out), "welcome:\n> Good day, Ada.\n"
                                       "noted:\n> 1 so far\n"
                                       "noted:\n> 2 so far\n"
                                       "recalled:\n> Is this on?\n> It is.\n");
  EXPECT_EQ(client.err, "");
  EXPECT_EQ(client.exit_status, 0);
  EXPECT_EQ(without_signs(end_of_server()), "Ada has joined.\n< Is this on?\n< It is.\n"
                                            "The client has left.  It said 2 things.\n");
  EXPECT_EQ(server_status, 0);
}

TEST_F(Chat, shows_on_both_sides_that_it_is_alive) {
  const int port = start_server();
  EXPECT_THAT(run_client(port, "hello\n").out, HasSubstr(kAlive));
  EXPECT_THAT(end_of_server(), HasSubstr(kAlive));
}

TEST_F(Chat, recalls_nothing_when_nothing_was_said) {
  const int port = start_server();
  EXPECT_EQ(without_signs(run_client(port, "recall\n").out),
            "welcome:\n> Good day, Ada.\nrecalled:\n");
}

TEST_F(Chat, remembers_a_thousand_lines) {
  const int port = start_server();
  std::string input;
  std::string recalled;
  for (int i = 0; i < 1001; i++) {
    input += "line " + std::to_string(i) + "\n";
    recalled += i < 1000 ? "> line " + std::to_string(i) + "\n" : "";
  }
  const auto client = run_client(port, input + "recall\n");
  EXPECT_EQ(client.exit_status, 0);
  const std::string shown = without_signs(client.out);
  EXPECT_EQ(shown.substr(shown.find("recalled:\n")), "recalled:\n" + recalled);
}

int expect_a_question(int, char *first, char **further) {
  EXPECT_STREQ(first, "what?");
  EXPECT_EQ(*further, nullptr);
  return 42;
}

TEST_F(Chat, asks_back_when_it_does_not_understand) {
  const int sock = platform_sock_connect("localhost", start_server());
  platform_msgbuf *buffer = platform_msgbuf_create(100000);
  platform_set_message_buffer(buffer);
  EXPECT_EQ(platform_sock_send_message(sock, "", nullptr), 1);
  EXPECT_EQ(platform_get_one_message(sock, expect_a_question, nullptr, 1), 42);
  EXPECT_EQ(platform_sock_send_message(sock, "hello", nullptr), 1); // without a name
  EXPECT_EQ(platform_get_one_message(sock, expect_a_question, nullptr, 1), 42);
  platform_msgbuf_free(buffer);
  platform_sock_close(sock);
  EXPECT_THAT(end_of_server(), HasSubstr("It said 0 things."));
}

TEST_F(Chat, tells_that_the_server_has_left) {
  const int listening = platform_server_sock_open(0, 1, nullptr);
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(listening, reinterpret_cast<sockaddr *>(&address), &length);
  std::thread leaver([listening] { platform_sock_close(platform_sock_accept(listening)); });
  const auto client = run_client(ntohs(address.sin_port), "hello\n");
  leaver.join();
  EXPECT_EQ(client.err, "Error: The server has left.\n");
  EXPECT_EQ(client.exit_status, 1);
}

TEST_F(Chat, tells_that_nobody_serves) {
  const auto client = run_client(1, "hello\n");
  EXPECT_EQ(client.err, "Error: Nobody serves on port 1.\n");
  EXPECT_EQ(client.exit_status, 1);
}

TEST_F(Chat, tells_how_it_is_used) {
  const auto outcome = support::run_in_child([] {
    execl(CHAT, CHAT, static_cast<char *>(nullptr));
    _exit(99);
  });
  EXPECT_THAT(outcome.err, HasSubstr("Usage: chat server"));
  EXPECT_EQ(outcome.exit_status, 2);
}

} // namespace
