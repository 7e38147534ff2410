#include <arpa/inet.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <string>
#include <vector>

#include "QRTResourceLock.h"
#include "QRTSysChildProcess.h"
#include "QRTThrTrace.h"
#include "QRTThreads.h"
#include "QRTWaitingPoint.h"

namespace {

int ReturnSeven(void*) { return 7; }

int TaskCount() {
  int count = 0;
  DIR* tasks = opendir("/proc/self/task");
  if (tasks == nullptr) return 0;
  while (dirent* entry = readdir(tasks)) count += entry->d_name[0] != '.' ? 1 : 0;
  closedir(tasks);
  return count;
}

// Whether a message matches an expected line in which '#' stands for a number, decimal
// or hexadecimal.
bool MatchesLine(std::string const& message, std::string const& expected) {
  size_t at = 0;
  for (char c : expected) {
    if (c != '#') {
      if (at >= message.size() || message[at] != c) return false;
      at++;
      continue;
    }
    if (at < message.size() && message[at] == '-') at++;
    size_t digits = at;
    while (at < message.size() && isxdigit(static_cast<unsigned char>(message[at]))) at++;
    if (at == digits) return false;
  }
  return at == message.size();
}

// The messages of the trace lines in a text, in order: each line starts with its thread id
// and ends at its line end, whatever else shares the stream.
std::vector<std::string> TraceMessages(std::string const& text) {
  std::vector<std::string> messages;
  for (size_t at = text.find("| tid="); at != std::string::npos; at = text.find("| tid=", at)) {
    size_t body = text.find(" | ", at + 6);
    size_t end = text.find('\n', at);
    if (body == std::string::npos || end == std::string::npos) break;
    messages.push_back(text.substr(body + 3, end + 1 - (body + 3)));
    at = end;
  }
  return messages;
}

bool ContainsInOrder(std::string const& text, std::vector<std::string> const& expected, std::string& missing) {
  std::vector<std::string> messages = TraceMessages(text);
  size_t next = 0;
  for (std::string const& line : expected) {
    while (next < messages.size() && !MatchesLine(messages[next], line)) next++;
    if (next == messages.size()) {
      missing = line;
      return false;
    }
    next++;
  }
  return true;
}

// Lines written by the test's own thread, in order.
std::vector<std::string> const kMainLines = {
    "evt=crewp| wp=0x# | dat=0x# \n",
    "evt=bcast | wp=0x# \n",
    "evt=reset | wp=0x# \n",
    "evt=wait | wp=0x#  | timeout=0(check=# ms = # s # ms)\n",
    "evt=ewait| wp=0x# \n",
    "evt=delwp | wp=0x# | dat=0x# \n",
    "evt=readW | m=0x# \n",
    "evt=readS | m=0x# \n",
    "evt=readU | m=0x# \n",
    "evt=writW | m=0x# \n",
    "evt=writS | m=0x# \n",
    "evt=writU | m=0x# \n",
    "evt=tcreat | thr=0x# | nam=tracer\n",
    "evt=tjoin | thr=0x#\n",
    "evt=ejoin | thr=0x#\n",
    "evt=msg | thr=0x# | msg=hello\n",
    "evt=tdel | thr=0x#\n",
    "evt=tcreat | thr=0x# | nam='anonymous'\n",
    "evt=tjoin | thr=0x#\n",
    "evt=err_endwp | rtn=join |thr=0x# | tgt=# \n",
    "evt=ejoin | thr=0x#\n",
};
// Lines written by the joinable thread, in order.
std::vector<std::string> const kThreadLines = {
    "evt=trun \n",
    "evt=tend | thr=0x# | tid=# \n",
    "evt=tend_no_bcasr | thr=0x# \n",
};

struct Listener {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  int port = 0;

  explicit Listener(bool listening) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    if (listening) listen(fd, 4);
    socklen_t size = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    port = ntohs(address.sin_port);
  }
  Listener(Listener const&) = delete;
  ~Listener() { close(fd); }

  // The child has exited by now: its connection waits in the backlog with all its data.
  std::string ReadAll() {
    pollfd ready = {fd, POLLIN, 0};
    if (poll(&ready, 1, 2000) != 1) return "";
    int connection = accept(fd, nullptr, nullptr);
    std::string data;
    char buffer[4096];
    for (ssize_t got; (got = read(connection, buffer, sizeof buffer)) > 0;) data.append(buffer, size_t(got));
    close(connection);
    return data;
  }
};

}  // namespace

TEST(QRTThrTraceChild, EmitsEvents) {
  if (!QRTSysIsChild()) GTEST_SKIP() << "runs as a child of the trace channel tests";
  printf("init=%d\n", thread_trace_init());
  fflush(stdout);
  {
    QRTWaitingPoint point(0, -1);
    point.Broadcast();
    point.Reset();
    point.Wait(0);
  }
  QRTResourceLock lock(0);
  lock.ReadLock();
  lock.ReadUnlock();
  lock.WriteLock();
  lock.WriteUnlock();
  QRTThreads* joinable = new QRTThreads("tracer", nullptr, 1, 0, 0);
  joinable->SetFunction(ReturnSeven);
  joinable->Run(0);
  joinable->Join();
  joinable->EmitTrace("hello");
  delete joinable;
  int tasks = TaskCount();
  QRTThreads detached(nullptr, nullptr, 0, 0, 0);
  detached.SetFunction(ReturnSeven);
  detached.Run(0);
  detached.Join();
  // A detached thread can't be joined by the system: let it finish leaving before the
  // process ends, so that no sanitizer mistakes its thread-local values for leaks.
  for (int i = 0; i < 1000 && TaskCount() > tasks; i++) usleep(1000);
}

// A refused connection is reported, then the lines go to standard error.
TEST(QRTThrTraceTest, EnvironmentChoosesTheDestination) {
  Listener refusing(false);
  struct Case {
    char const* name;
    std::vector<std::string> env;
    char const* init;
    bool inOut, inErr;
    std::string note;  // on standard error before the first line
  } const cases[] = {
      {"off", {}, "init=0", false, false, ""},
      {"on, nowhere", {"QRTThrDebug=1"}, "init=1", false, false, ""},
      {"stderr", {"QRTThrDebug=STDERR"}, "init=1", false, true, ""},
      {"stdout wins over the socket switch",
       {"QRTThrDebug=STDOUT", "QRTSocketDebug=STDERR"},
       "init=1",
       true,
       false,
       ""},
      {"refused connection",
       {"QRTThrDebug=PORT:" + std::to_string(refusing.port), "QRTThrDebug_Host=127.0.0.1"},
       "init=1",
       false,
       true,
       "thread_cnx connect: Connection refused\n"},
  };
  for (Case const& c : cases) {
    ChildResult child = QRTSysRunChild("QRTThrTraceChild.EmitsEvents", c.env);
    ASSERT_EQ(child.status, 0) << c.name << "\n" << child.out << child.err;
    EXPECT_NE(child.out.find(c.init), std::string::npos) << c.name;
    size_t note = child.err.find(c.note);
    EXPECT_TRUE(c.note.empty() || (note != std::string::npos && note < child.err.find("| tid="))) << c.name;
    std::string missing;
    EXPECT_EQ(ContainsInOrder(child.out, kMainLines, missing), c.inOut) << c.name << " " << missing;
    EXPECT_EQ(ContainsInOrder(child.err, kMainLines, missing), c.inErr) << c.name << " " << missing;
    std::string const& traced = c.inOut ? child.out : child.err;
    if (c.inOut || c.inErr) {
      EXPECT_TRUE(ContainsInOrder(traced, kThreadLines, missing)) << c.name << " " << missing;
    }
  }
}

// Without a host the channel connects to this machine; the refused row above names one.
TEST(QRTThrTraceTest, SocketReceivesLinesEachEndedByAZeroByte) {
  Listener listener(true);
  ChildResult child =
      QRTSysRunChild("QRTThrTraceChild.EmitsEvents", {"QRTThrDebug=PORT:" + std::to_string(listener.port)});
  ASSERT_EQ(child.status, 0) << child.err;
  EXPECT_EQ(child.err.find("| tid="), std::string::npos);
  std::string data = listener.ReadAll();
  ASSERT_FALSE(data.empty());
  EXPECT_EQ(data.back(), '\0');
  // Every line is followed by a 0 byte, and nothing else is.
  std::string text;
  size_t misplaced = 0;
  for (size_t at = 0; at < data.size(); at++) {
    bool zero = data[at] == '\0';
    if (!zero) text += data[at];
    if (zero != (at > 0 && data[at - 1] == '\n')) misplaced++;
  }
  EXPECT_EQ(misplaced, 0u);
  std::string missing;
  EXPECT_TRUE(ContainsInOrder(text, kMainLines, missing)) << missing;
  EXPECT_TRUE(ContainsInOrder(text, kThreadLines, missing)) << missing;
}
