#include "tests/support/command.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/scratch_home.h"

extern char** environ;

namespace test {

CommandResult runCommand(const std::string& program, const std::vector<std::string>& arguments) {
  const std::string folder = scratchFolder("command");
  const std::string path = program[0] == '/' ? program : TOVAN_BUILD_DIR "/bin/" + program;
  std::vector<char*> argv = {const_cast<char*>(path.c_str())};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, (folder + "/out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, (folder + "/err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t child = -1;
  const int failed = posix_spawn(&child, path.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  CommandResult result;
  EXPECT_EQ(failed, 0) << "cannot start " << path;
  if (failed != 0) return result;
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.out = readFile(folder + "/out");
  result.err = readFile(folder + "/err");
  return result;
}

}  // namespace test
