#include "support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>

extern char** environ;

static std::vector<std::string> sMergedEnvironment(std::vector<std::string> const& changes) {
  std::vector<std::string> merged;
  for (char** e = environ; *e != nullptr; ++e) merged.emplace_back(*e);
  for (auto const& change : changes) {
    std::string name = change.substr(0, change.find('='));
    for (auto it = merged.begin(); it != merged.end();) {
      if (it->compare(0, name.size() + 1, name + "=") == 0) {
        it = merged.erase(it);
      } else {
        ++it;
      }
    }
    if (change.find('=') != std::string::npos) merged.push_back(change);
  }
  return merged;
}

ChildResult RunChild(std::vector<std::string> const& argv, std::vector<std::string> const& env,
                     std::string const& input, std::string const& workingDir) {
  ChildResult result;
  int in[2], out[2], err[2];
  if (pipe(in) != 0 || pipe(out) != 0 || pipe(err) != 0) return result;
  std::vector<std::string> environment = sMergedEnvironment(env);
  std::vector<char*> args, envp;
  for (auto const& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  for (auto const& e : environment) envp.push_back(const_cast<char*>(e.c_str()));
  envp.push_back(nullptr);

  pid_t pid = fork();
  if (pid == 0) {
    dup2(in[0], 0);
    dup2(out[1], 1);
    dup2(err[1], 2);
    for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) close(fd);
    if (!workingDir.empty() && chdir(workingDir.c_str()) != 0) _exit(126);
    execve(args[0], args.data(), envp.data());
    _exit(127);
  }
  close(in[0]);
  close(out[1]);
  close(err[1]);
  // Feed and drain together so that neither side blocks on a full pipe.
  size_t fed = 0;
  if (input.empty()) {
    close(in[1]);
    in[1] = -1;
  } else {
    fcntl(in[1], F_SETFL, O_NONBLOCK);
  }
  bool outOpen = true, errOpen = true;
  while (outOpen || errOpen) {
    struct pollfd fds[3];
    int n = 0;
    if (outOpen) fds[n++] = {out[0], POLLIN, 0};
    if (errOpen) fds[n++] = {err[0], POLLIN, 0};
    if (in[1] >= 0) fds[n++] = {in[1], POLLOUT, 0};
    if (poll(fds, static_cast<nfds_t>(n), -1) < 0) break;
    for (int i = 0; i < n; ++i) {
      if (fds[i].revents == 0) continue;
      if (fds[i].fd == in[1]) {
        ssize_t put = write(in[1], input.data() + fed, input.size() - fed);
        if (put > 0) fed += static_cast<size_t>(put);
        if (put < 0 || fed == input.size()) {
          close(in[1]);
          in[1] = -1;
        }
        continue;
      }
      char buffer[8192];
      ssize_t got = read(fds[i].fd, buffer, sizeof buffer);
      bool isOut = fds[i].fd == out[0];
      if (got <= 0) {
        (isOut ? outOpen : errOpen) = false;
        continue;
      }
      (isOut ? result.out : result.err).append(buffer, static_cast<size_t>(got));
    }
  }
  if (in[1] >= 0) close(in[1]);
  close(out[0]);
  close(err[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

ChildResult RunInPrivateTmp(std::string const& script) {
  const std::string mount =
      "e=$0; case $e in /tmp/*) mount --bind /tmp /mnt && e=/mnt/${e#/tmp/};; esac; "
      "mount -t tmpfs zyn /tmp && cd /tmp && exec /bin/sh -c \"$1\" \"$e\"";
  return RunZyn({"-s", "KILL", "60", "/usr/bin/unshare", "-m", "--propagation", "private", "/bin/sh", "-c", mount,
                 ZYN_EXE_PATH, script},
                {"ASAN_OPTIONS=detect_leaks=0"}, "", "/usr/bin/timeout");  // no leak check under a tracer
}

ChildResult RunZyn(std::vector<std::string> const& args, std::vector<std::string> const& env, std::string const& cwd,
                   std::string const& exe, std::string const& input) {
  std::vector<std::string> argv{exe}, all{"ZYN_DEBUG_DISPLAY", "ZYN_DEBUG_WAIT", "LC_ALL=C"};
  argv.insert(argv.end(), args.begin(), args.end());
  all.insert(all.end(), env.begin(), env.end());
  return RunChild(argv, all, input, cwd);
}

std::string SelfExecutable() {
  char path[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  if (n <= 0) return "";
  path[n] = 0;
  return path;
}
