#ifndef ZYN_TESTS_SYSTEMTS_QRTSYSCHILDPROCESS_H
#define ZYN_TESTS_SYSTEMTS_QRTSYSCHILDPROCESS_H

// Runs one test of this binary again in a child process with extra environment, for the
// switches the system layer reads once per process. A child's test runs only when
// ZYN_SYS_CHILD is set, and skips otherwise.

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

inline bool QRTSysIsChild() { return getenv("ZYN_SYS_CHILD") != nullptr; }

struct QRTSysChildResult {
  int status = -1;
  std::string out;
  std::string err;
};

struct QRTSysChild {
  pid_t pid = -1;
  std::string paths[2];  // stdout, stderr
};

// The switches under test are dropped from the inherited environment. A detached thread
// may still be leaving when a child exits: ThreadSanitizer needn't sleep a second for it.
inline QRTSysChild QRTSysStartChild(std::string const& test, std::vector<std::string> env) {
  std::string tsan = "TSAN_OPTIONS=atexit_sleep_ms=0";
  for (char** entry = environ; *entry != nullptr; entry++) {
    std::string text = *entry;
    if (text.rfind("QRT", 0) == 0 || text.rfind("GTEST_", 0) == 0) continue;
    if (text.rfind("TSAN_OPTIONS=", 0) == 0) {
      tsan = text + " atexit_sleep_ms=0";
      continue;
    }
    env.push_back(text);
  }
  env.push_back(tsan);
  env.push_back("ZYN_SYS_CHILD=1");
  std::vector<char*> envp;
  for (std::string& entry : env) envp.push_back(&entry[0]);
  envp.push_back(nullptr);
  std::string filter = "--gtest_filter=" + test;
  char* argv[] = {const_cast<char*>("/proc/self/exe"), &filter[0], nullptr};

  // posix_spawn rather than fork: a sanitized parent's page tables are large to copy.
  QRTSysChild child;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  int fds[2];
  for (int i = 0; i < 2; i++) {
    char path[] = "/tmp/zyn_sys_child_XXXXXX";
    fds[i] = mkstemp(path);
    child.paths[i] = path;
    posix_spawn_file_actions_adddup2(&actions, fds[i], i + 1);
  }
  if (posix_spawn(&child.pid, argv[0], &actions, nullptr, argv, envp.data()) != 0) child.pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  close(fds[0]);
  close(fds[1]);
  return child;
}

inline QRTSysChildResult QRTSysFinishChild(QRTSysChild const& child) {
  QRTSysChildResult result;
  int status = 0;
  if (child.pid > 0 && waitpid(child.pid, &status, 0) == child.pid && WIFEXITED(status)) {
    result.status = WEXITSTATUS(status);
  }
  std::string* outputs[2] = {&result.out, &result.err};
  for (int i = 0; i < 2; i++) {
    std::stringstream content;
    content << std::ifstream(child.paths[i], std::ios::binary).rdbuf();
    *outputs[i] = content.str();
    unlink(child.paths[i].c_str());
  }
  return result;
}

inline QRTSysChildResult QRTSysRunChild(std::string const& test, std::vector<std::string> const& env) {
  return QRTSysFinishChild(QRTSysStartChild(test, env));
}

#endif
