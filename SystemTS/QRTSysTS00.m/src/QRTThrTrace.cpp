// QRTThrTrace.cpp - the thread trace channel: to a file, a standard stream or a TCP port.
#include "QRTThrTrace.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

std::atomic<int*> QRTThrDebugOn{nullptr};
std::atomic<int*> QRTSckDebugOn{nullptr};
std::atomic<int> thr_out{0};
std::atomic<int> debug_fd{2};
std::atomic<int> thr_inf{-1};

// A plain POSIX mutex and not a QRTMutex, so that a trace from inside a lock operation
// can't recurse into the lock. Statically initialised: an error line may come before init.
static pthread_mutex_t TraceMutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_once_t S_traceOnce = PTHREAD_ONCE_INIT;

static const int kMessageSize = 1000;
// Destinations; 0 is none.
static const int kDestStdout = 1;
static const int kDestStderr = 2;
static const int kDestSocket = 3;

static void sUseStream(int destination) {
  thr_out.store(destination, std::memory_order_relaxed);
  debug_fd.store(destination == kDestStdout ? 1 : 2, std::memory_order_relaxed);
}

// "STDERR", "STDOUT" or "PORT:<n>"; any other value leaves the destination as it is.
static void sChooseDestination(char const* value, char const* host) {
  if (strcmp(value, "STDERR") == 0) {
    sUseStream(kDestStderr);
    return;
  }
  if (strcmp(value, "STDOUT") == 0) {
    sUseStream(kDestStdout);
    return;
  }
  if (strncmp(value, "PORT:", 5) != 0) return;
  int port = 0;
  sscanf(value + 5, "%d", &port);
  if (thread_cnx(host, static_cast<short>(port)) == 0) {
    thr_out.store(kDestSocket, std::memory_order_relaxed);
    return;
  }
  sUseStream(kDestStderr);
}

static void sTraceInitOnce() {
  debug_fd.store(2, std::memory_order_relaxed);
  int* threadOn = new int(0);
  int* socketOn = new int(0);
  char const* host = getenv("QRTThrDebug_Host");
  char const* threadValue = getenv("QRTThrDebug");
  if (threadValue != nullptr) {
    *threadOn = -1;
    sChooseDestination(threadValue, host);
  }
  char const* socketValue = getenv("QRTSocketDebug");
  if (socketValue != nullptr) {
    *socketOn = -1;
    if (*threadOn == 0) {
      sUseStream(kDestStderr);
      sChooseDestination(socketValue, host);
    }
  }
  // Publishing the switches last makes the destination visible to every later reader.
  QRTSckDebugOn.store(socketOn, std::memory_order_release);
  QRTThrDebugOn.store(threadOn, std::memory_order_release);
}

int thread_trace_init() {
  pthread_once(&S_traceOnce, sTraceInitOnce);
  return QRTThrTraceIsOn() ? 1 : 0;
}

static int sCnxFailed(char const* what, int sock) {
  perror(what);
  if (sock >= 0) close(sock);
  return 1;
}

int thread_cnx(char const* host, short port) {
  int sock = socket(AF_INET, SOCK_STREAM, 0);
  if (sock < 0) return sCnxFailed("thread_cnx socket", -1);
  sockaddr_in address;
  memset(&address, 0, sizeof address);
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  if (host != nullptr) {
    hostent* entry = gethostbyname(host);
    if (entry == nullptr || entry->h_addr_list[0] == nullptr) {
      return sCnxFailed("thread_cnx  gethostbyname", sock);
    }
    memcpy(&address.sin_addr, entry->h_addr_list[0], sizeof address.sin_addr);
  } else {
    // This machine: the loopback address in network order, so that nothing leaves the host.
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  }
  if (connect(sock, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    return sCnxFailed("thread_cnx connect", sock);
  }
  thr_inf.store(sock, std::memory_order_relaxed);
  return 0;
}

// The socket reader splits lines on the 0 byte, so it goes out with the line. A write that
// fails for another reason than an interruption drops the rest of the line.
static void sWriteToSocket(int sock, char const* line, size_t size) {
  size_t done = 0;
  while (done < size) {
    ssize_t written = send(sock, line + done, size - done, MSG_NOSIGNAL);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    done += static_cast<size_t>(written);
  }
}

static void sWriteLine(char const* message) {
  pthread_mutex_lock(&TraceMutex);
  char line[kMessageSize + 64];
  int length = snprintf(line, sizeof line, "| tid=%d | %s", static_cast<int>(pthread_self()), message);
  if (length < 0) length = 0;
  if (length >= static_cast<int>(sizeof line)) length = static_cast<int>(sizeof line) - 1;
  int destination = thr_out.load(std::memory_order_relaxed);
  if (destination == kDestSocket) {
    sWriteToSocket(thr_inf.load(std::memory_order_relaxed), line, static_cast<size_t>(length) + 1);
  } else if (destination == kDestStdout || destination == kDestStderr) {
    ssize_t ignored = write(debug_fd.load(std::memory_order_relaxed), line, static_cast<size_t>(length));
    (void)ignored;
  }
  pthread_mutex_unlock(&TraceMutex);
}

static void sFormatAndWrite(char const* format, va_list arguments) {
  char message[kMessageSize];
  vsnprintf(message, sizeof message, format, arguments);
  sWriteLine(message);
}

static bool sIsOn(std::atomic<int*> const& flag) {
  int* on = flag.load(std::memory_order_acquire);
  return on != nullptr && *on != 0;
}

void thread_trace(char const* format, ...) {
  if (!sIsOn(QRTThrDebugOn)) return;
  va_list arguments;
  va_start(arguments, format);
  sFormatAndWrite(format, arguments);
  va_end(arguments);
}

void socket_trace(char const* format, ...) {
  if (!sIsOn(QRTSckDebugOn)) return;
  va_list arguments;
  va_start(arguments, format);
  sFormatAndWrite(format, arguments);
  va_end(arguments);
}

void thread_error(char const* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  sFormatAndWrite(format, arguments);
  va_end(arguments);
}

void socket_error(char const* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  sFormatAndWrite(format, arguments);
  va_end(arguments);
}

void thread_traceIt(char const* unused, ...) {
  va_list arguments;
  va_start(arguments, unused);
  char const* message = va_arg(arguments, char const*);
  va_end(arguments);
  if (message != nullptr) sWriteLine(message);
}

void thread_trace_end() { pthread_mutex_destroy(&TraceMutex); }
