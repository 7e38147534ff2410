#include "support/CaptureStdout.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

std::string CaptureStdoutOfChild(std::function<void()> const& body, int* status) {
  int fds[2];
  if (pipe(fds) != 0) return "<pipe failed>";
  std::fflush(stdout);
  pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    dup2(fds[1], 1);
    close(fds[1]);
    body();
    std::fflush(stdout);
    _exit(0);
  }
  close(fds[1]);
  std::string out;
  char buffer[4096];
  ssize_t got;
  while ((got = read(fds[0], buffer, sizeof buffer)) > 0) out.append(buffer, static_cast<size_t>(got));
  close(fds[0]);
  int raw = 0;
  waitpid(pid, &raw, 0);
  if (status != nullptr) *status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  return out;
}
