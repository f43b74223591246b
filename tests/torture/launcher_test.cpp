// Tests of orv-torture: every call that it stands in front of, the choice of calls and processes,
// the sweep's lines and its verdict, and its own command line.
#include "support/child.h"
#include "support/resources.h"

#include <climits>
#include <csignal>
#include <gmock/gmock.h>
#include <regex>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using support::Outcome;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

Outcome run(const std::vector<std::string> &words, const std::string &program = ORV_TORTURE) {
  return support::run_in_child([&] {
    std::vector<char *> vector = {const_cast<char *>(program.c_str())};
    for (const std::string &word : words)
      vector.push_back(const_cast<char *>(word.c_str()));
    vector.push_back(nullptr);
    execv(program.c_str(), vector.data());
    _exit(99);
  });
}

// Refuses one call of a victim; calls of the C library's own are left alone.
Outcome refuse(const std::string &call, const std::string &victim,
               const std::vector<std::string> &options = {}) {
  std::vector<std::string> words = {"--fail", call, "--only", "torture_victim"};
  words.insert(words.end(), options.begin(), options.end());
  words.insert(words.end(), {"--", VICTIM, victim});
  return run(words);
}

Outcome sweep(const std::string &kinds, const std::string &victim,
              const std::vector<std::string> &options = {}) {
  std::vector<std::string> words = {"--sweep", kinds, "--only", "torture_victim"};
  words.insert(words.end(), options.begin(), options.end());
  words.insert(words.end(), {"--", VICTIM, victim});
  return run(words);
}

// The sweep's lines without the addresses.
std::string lines_of(const Outcome &outcome) {
  return std::regex_replace(outcome.out, std::regex("\\+0x[0-9a-f]+"), "");
}

struct OneCall {
  const char *kind;
  const char *call;
  const char *error; // of the first way
  const char *otherwise = "passed";
};

std::ostream &operator<<(std::ostream &out, const OneCall &call) {
  return out << call.call;
}

constexpr OneCall kCalls[] = {
    {"malloc", "malloc", "ENOMEM"},
    {"calloc", "calloc", "ENOMEM"},
    {"realloc", "realloc", "ENOMEM"},
    {"fork", "fork", "EAGAIN"},
    {"fork", "posix_spawn", "EAGAIN"},
    {"fork", "posix_spawnp", "EAGAIN"},
    {"execve", "execve", "ENOENT", ""},
    {"execve", "execv", "ENOENT", ""},
    {"execve", "execvp", "ENOENT", ""},
    {"execve", "execvpe", "ENOENT", ""},
    {"execve", "execl", "ENOENT", ""},
    {"execve", "execlp", "ENOENT", ""},
    {"waitpid", "waitpid", "ECHILD"},
    {"waitpid", "wait", "ECHILD"},
    {"waitpid", "wait4", "ECHILD"},
    {"kill", "kill", "EPERM"},
    {"kill", "killpg", "EPERM"},
    {"socketpair", "socketpair", "EMFILE"},
    {"socket", "socket", "EMFILE"},
    {"setsockopt", "setsockopt", "ENOPROTOOPT", "EBADF"},
    {"bind", "bind", "EADDRINUSE", "EBADF"},
    {"listen", "listen", "EADDRINUSE", "EBADF"},
    {"accept", "accept", "ECONNABORTED", "EBADF"},
    {"accept", "accept4", "ECONNABORTED", "EBADF"},
    {"connect", "connect", "ECONNREFUSED", "EBADF"},
    {"select", "select", "ENOMEM"},
    {"select", "poll", "ENOMEM"},
    {"send", "send", "ECONNRESET"},
    {"send", "sendto", "ECONNRESET"},
    {"recv", "recv", "ECONNRESET"},
    {"recv", "recvfrom", "ECONNRESET"},
    {"open", "open", "EMFILE"},
    {"open", "open64", "EMFILE"},
    {"open", "openat", "EMFILE"},
    {"open", "opendir", "EMFILE"},
    {"fopen", "fopen", "EMFILE"},
    {"fopen", "fdopen", "EMFILE"},
    {"read", "read", "EIO"},
    {"write", "write", "ENOSPC"},
    {"fgets", "fgets", "EIO"},
    {"fwrite", "fwrite", "ENOSPC"},
    {"fwrite", "fputs", "ENOSPC"},
    {"fwrite", "fputc", "ENOSPC"},
    {"fflush", "fflush", "ENOSPC"},
    {"fsync", "fsync", "EIO", "EBADF"},
    {"fsync", "fdatasync", "EIO", "EBADF"},
    {"fcntl", "fcntl", "EMFILE"},
    {"fcntl", "fcntl64", "EMFILE"},
    {"dup2", "dup", "EMFILE"},
    {"dup2", "dup2", "EMFILE"},
    {"access", "access", "EACCES"},
    {"stat", "stat", "EACCES"},
    {"stat", "lstat", "EACCES"},
    {"stat", "fstat", "EACCES"},
    {"stat", "stat64", "EACCES"},
    {"stat", "fstatat", "EACCES"},
    {"statvfs", "statvfs", "EIO"},
    {"getcwd", "getcwd", "ENOENT"},
    {"chdir", "chdir", "EACCES"},
    {"realpath", "realpath", "EACCES"},
    {"mkdir", "mkdir", "ENOSPC", "EEXIST"},
    {"rename", "rename", "ENOSPC", "ENOENT"},
    {"remove", "remove", "EBUSY", "ENOENT"},
    {"remove", "unlink", "EBUSY", "ENOENT"},
    {"rmdir", "rmdir", "EBUSY", "ENOENT"},
    {"glob", "glob", "ENOMEM"},
    {"putenv", "putenv", "ENOMEM"},
    {"putenv", "setenv", "ENOMEM"},
};

class TortureCall : public testing::TestWithParam<OneCall> {};

TEST_P(TortureCall, IsRefusedWithTheErrorOfItsKind) {
  const OneCall &call = GetParam();
  // Opening a stream for the victim's own needs, or filling a pipe, comes before some calls.
  const std::string number = std::string(call.call) == "write" ? ":2" : ":1";
  const Outcome outcome = refuse(call.kind + number, call.call);
  EXPECT_EQ(outcome.out, std::string(call.error) + "\n");
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_THAT(outcome.err, StartsWith("orv-torture: refused " + std::string(call.call) + " (" +
                                      call.error + "), called from torture_victim+0x"));
}

TEST_P(TortureCall, GoesThroughWhereNothingIsRefused) {
  const OneCall &call = GetParam();
  const Outcome outcome = refuse(std::string(call.kind) + ":9", call.call);
  const std::string expected = call.otherwise;
  EXPECT_EQ(outcome.out, expected.empty() ? "" : expected + "\n");
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_THAT(outcome.err, StartsWith("orv-torture: nothing refused: " + std::string(call.kind) +
                                      " was called "));
}

INSTANTIATE_TEST_SUITE_P(All, TortureCall, testing::ValuesIn(kCalls),
                         [](const auto &instance) { return std::string(instance.param.call); });

using Torture = support::ResourceTest;

TEST_F(Torture, TellsALookupsErrorInTheLookupsWay) {
  EXPECT_THAT(refuse("getaddrinfo:1", "getaddrinfo").out, StartsWith("Temporary failure"));
  EXPECT_THAT(refuse("getaddrinfo:1", "getaddrinfo", {"--errno", "ENOMEM"}).out,
              StartsWith("Memory allocation failure"));
  EXPECT_EQ(refuse("getaddrinfo:1", "getaddrinfo", {"--errno", "EMFILE"}).out,
            "System error EMFILE\n");
  EXPECT_EQ(refuse("getaddrinfo:2", "getaddrinfo").out, "found passed\n");
}

TEST_F(Torture, RefusesWithAnyErrorThatIsNamed) {
  EXPECT_EQ(refuse("open:1", "open", {"--errno", "EINTR"}).out, "EINTR\n");
  EXPECT_EQ(refuse("malloc:1", "malloc", {"--errno", "EAGAIN"}).out, "EAGAIN\n");
}

TEST_F(Torture, LetsAShortCallHaveHalfOfItsBytes) {
  for (const char *call : {"read:1", "write:2", "send:1", "recv:1"}) {
    const std::string name = std::string(call).substr(0, std::string(call).find(':'));
    EXPECT_EQ(refuse(call, name, {"--errno", "short"}).out, "0\n") << call; // failed, no errno
  }
}

TEST_F(Torture, RefusesOneCallOrAllThatFollow) {
  EXPECT_EQ(refuse("malloc:1", "second-block").exit_status, 3);
  EXPECT_EQ(refuse("malloc:2", "second-block").exit_status, 128 + SIGSEGV);
  EXPECT_EQ(refuse("malloc:3", "second-block").exit_status, 0);
  EXPECT_EQ(refuse("malloc:1+", "second-block").exit_status, 3);
  // The stream is tried once more after a signal, and then for ever.
  EXPECT_THAT(refuse("fopen:1", "for-ever", {"--limit", "0.2"}).err,
              HasSubstr("orv-torture: killed after 0.2 seconds\n"));
}

TEST_F(Torture, LeavesOtherObjectsAlone) {
  const Outcome other = run({"--fail", "malloc:1", "--only", "libc.so.6", "--", VICTIM, "malloc"});
  EXPECT_EQ(other.out, "passed\n");
  // What the C library asks for itself, here within fopen, is another object's call.
  const Outcome inside = run({"--fail", "malloc:1", "--only", "libc.so.6", "--", VICTIM, "fopen"});
  EXPECT_EQ(inside.out, "ENOMEM\n");
  EXPECT_THAT(inside.err, HasSubstr("called from libc.so.6+0x"));
  // Several objects may be named.
  EXPECT_EQ(refuse("malloc:1", "fopen", {"--only", "libc.so.6"}).out, "ENOMEM\n");
  // Where none is named every call counts.
  const Outcome any = run({"--fail", "fopen:1", "--", VICTIM, "fopen"});
  EXPECT_EQ(any.out, "EMFILE\n");
}

TEST_F(Torture, LooksAtTheFirstProcessUnlessAskedForChildren) {
  EXPECT_EQ(refuse("malloc:1", "child").exit_status, 0);
  EXPECT_EQ(refuse("malloc:1", "child", {"--children"}).exit_status, 7);
}

TEST_F(Torture, RefusesInASignalHandler) {
  EXPECT_EQ(refuse("read:1", "handler").exit_status, 5);
  EXPECT_EQ(refuse("read:2", "handler").exit_status, 0);
}

TEST_F(Torture, SweepsEveryCallUntilNoneIsLeft) {
  const Outcome outcome = sweep("malloc", "second-block");
  EXPECT_EQ(lines_of(outcome),
            "malloc:1       ENOMEM       exit 3   malloc from torture_victim\n"
            "malloc:2       ENOMEM       SIGSEGV  malloc from torture_victim\n"
            "orv-torture: 2 runs with a refusal: 1 in order, 1 ended by a signal, 0 hung, 0 with "
            "another status\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Torture, SparseSweepsLeaveOutMoreAndMoreCalls) {
  EXPECT_EQ(lines_of(sweep("kill", "ten-calls", {"--sparse"})),
            "kill:1         EPERM        exit 0   kill from torture_victim\n"
            "kill:2         EPERM        exit 0   kill from torture_victim\n"
            "kill:3         EPERM        exit 0   kill from torture_victim\n"
            "kill:5         EPERM        exit 0   kill from torture_victim\n"
            "kill:8         EPERM        exit 0   kill from torture_victim\n"
            "orv-torture: 5 runs with a refusal: 5 in order, 0 ended by a signal, 0 hung, 0 with "
            "another status\n");
}

TEST_F(Torture, SweepsInEveryWayOfAKind) {
  const Outcome outcome = sweep("read,malloc", "read");
  EXPECT_EQ(lines_of(outcome),
            "read:1         EIO          exit 0   read from torture_victim\n"
            "read:1         EINTR        exit 0   read from torture_victim\n"
            "read:1         short        exit 0   read from torture_victim\n"
            "orv-torture: 3 runs with a refusal: 3 in order, 0 ended by a signal, 0 hung, 0 with "
            "another status\n");
  EXPECT_EQ(outcome.exit_status, 0);
  EXPECT_THAT(sweep("all", "read", {"--errno", "EPERM"}).out, HasSubstr("read:1         EPERM"));
}

TEST_F(Torture, SweepsEndARunThatHangs) {
  const Outcome outcome = sweep("all", "for-ever", {"--limit", "0.3"});
  EXPECT_THAT(lines_of(outcome),
              HasSubstr("fopen:1        EMFILE       HUNG     fopen from torture_victim\n"));
  EXPECT_THAT(outcome.out, HasSubstr(" 1 hung,"));
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Torture, SweepsEndWhatARunLeavesRunning) {
  EXPECT_THAT(lines_of(sweep("kill", "left-child", {"--limit", "15"})),
              HasSubstr("kill:1         EPERM        exit 0   kill from torture_victim\n"));
}

// Some systems have no list of a process's children. The launcher, which is refused it here by
// another one, does not wait for a child that it cannot find.
TEST_F(Torture, SweepsEndWhatARunLeavesRunningWithoutAListOfIt) {
  const Outcome outcome =
      run({"--fail", "fopen:1+", "--only", "orv-torture", "--limit", "15", "--", ORV_TORTURE,
           "--sweep", "kill", "--only", "torture_victim", "--", VICTIM, "left-child"});
  EXPECT_THAT(lines_of(outcome),
              HasSubstr("kill:1         EPERM        exit 0   kill from torture_victim\n"));
  EXPECT_THAT(outcome.err, HasSubstr("orv-torture: refused fopen (EMFILE)"));
  EXPECT_EQ(outcome.exit_status, 0);
}

TEST_F(Torture, SweepsTellWhatARunLeavesBehind) {
  EXPECT_THAT(lines_of(sweep("fsync", "open-file", {"--errno", "EIO"})),
              HasSubstr("exit 0   fsync from torture_victim  +1 descriptors\n"));
  EXPECT_THAT(lines_of(sweep("waitpid", "zombie", {"--errno", "ECHILD"})),
              HasSubstr("exit 0   waitpid from torture_victim  +1 children"));
}

TEST_F(Torture, SweepsAcceptTheStatusesThatAreNamed) {
  EXPECT_EQ(sweep("malloc", "child", {"--children"}).exit_status, 0);
  EXPECT_EQ(sweep("malloc", "child", {"--children", "--accept", "0,7"}).exit_status, 0);
  const Outcome refused = sweep("malloc", "child", {"--children", "--accept", "0"});
  EXPECT_EQ(refused.exit_status, 1);
  EXPECT_THAT(refused.out, HasSubstr(" 0 hung, 1 with another status\n"));
}

TEST_F(Torture, QuietSweepsShowOnlyWhatIsNotInOrder) {
  const std::string lines = lines_of(sweep("malloc", "second-block", {"--quiet"}));
  EXPECT_THAT(lines, Not(HasSubstr("malloc:1 ")));
  EXPECT_THAT(lines, HasSubstr("malloc:2 "));
}

TEST_F(Torture, SaysWhenTheUntouchedProgramIsNotInOrder) {
  const Outcome outcome = sweep("all", "no-such-thing", {"--accept", "0"});
  EXPECT_EQ(outcome.out, "orv-torture: left alone, the program ends with exit 64\n");
  EXPECT_EQ(outcome.exit_status, 1);
}

TEST_F(Torture, SaysWhenTheProgramCannotBeRun) {
  const Outcome missing = run({"--fail", "malloc:1", "--", "/no/such/program"});
  EXPECT_EQ(missing.err, "orv-torture: /no/such/program: No such file or directory\n");
  EXPECT_EQ(missing.exit_status, 127);
  const Outcome unlinked = run({"--fail", "malloc:1", "--", STATIC_VICTIM, "nothing"});
  EXPECT_THAT(unlinked.err, HasSubstr("the layer was not loaded"));
  EXPECT_EQ(unlinked.exit_status, 127);
}

TEST_F(Torture, SaysWhatItLacksAndWhy) {
  const std::string list(2 * PATH_MAX, 'x');
  const Outcome preloaded = support::run_in_child([&] {
    setenv("LD_PRELOAD", list.c_str(), 1);
    execl(ORV_TORTURE, ORV_TORTURE, "--fail", "malloc:1", "--", VICTIM, "nothing", nullptr);
  });
  EXPECT_THAT(preloaded.err, EndsWith("orv-torture: LD_PRELOAD: too long\n"));
  EXPECT_EQ(preloaded.exit_status, 127);
}

TEST_F(Torture, RefusesACommandLineThatMakesNoSense) {
  const std::vector<std::vector<std::string>> lines = {
      {},
      {"--", VICTIM},
      {"--fail", "malloc:1"},
      {"--fail", "malloc:1", "--sweep", "all", "--", VICTIM},
      {"--fail", "malloc", "--", VICTIM},
      {"--fail", "malloc:0", "--", VICTIM},
      {"--fail", "malloc:1-", "--", VICTIM},
      {"--fail", "mallocs:1", "--", VICTIM},
      {"--fail", "malloc:1", "--errno", "EWRONG", "--", VICTIM},
      {"--fail", "malloc:1", "--errno", "short", "--", VICTIM},
      {"--sweep", "malloc,", "--", VICTIM},
      {"--sweep", "all", "--limit", "soon", "--", VICTIM},
      {"--sweep", "all", "--limit", "2147484", "--", VICTIM},
      {"--sweep", "all", "--accept", "256", "--", VICTIM},
      {"--sweep", "all", "--wrong", "--", VICTIM},
  };
  for (const auto &line : lines) {
    const Outcome outcome = run(line);
    EXPECT_EQ(outcome.exit_status, 2) << testing::PrintToString(line);
    EXPECT_NE(outcome.err, "") << testing::PrintToString(line);
    EXPECT_EQ(outcome.out, "") << testing::PrintToString(line);
  }
}

TEST_F(Torture, ExplainsItself) {
  const Outcome help = run({"--help"});
  EXPECT_THAT(help.out, StartsWith("usage: orv-torture --fail KIND:N[+]"));
  EXPECT_EQ(help.exit_status, 0);
  EXPECT_THAT(run({"--list"}).out, HasSubstr("recv         ECONNRESET EINTR EAGAIN short\n"));
}

} // namespace
