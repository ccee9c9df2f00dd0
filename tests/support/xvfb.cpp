#include "support/xvfb.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

// Motif keeps some of its font list entries to the end of the process
// without a pointer that LeakSanitizer can follow; that isn't a leak of
// the code under test.
extern "C" __attribute__((visibility("default"), used)) const char *__lsan_default_suppressions() {
  return "leak:XmFontListAppendEntry\n";
}

namespace qltest {
namespace {

// How long the server may take to report its display number.  This only
// keeps a broken installation from hanging the test run.
constexpr int kStartupLimitMs = 60000;

struct Server {
  pid_t pid = -1;
  bool tried = false;
  std::string name;
  std::string failure;
};

Server &TheServer() {
  static Server server;
  return server;
}

// A second server whose one screen is 8-bit PseudoColor.
Server &TheServer8() {
  static Server server;
  return server;
}

void Stop(Server &server) {
  if (server.pid <= 0) return;
  kill(server.pid, SIGTERM);
  int status;
  while (waitpid(server.pid, &status, 0) < 0 && errno == EINTR) {
  }
  server.pid = -1;
}

void StopServer() { Stop(TheServer()); }
void StopServer8() { Stop(TheServer8()); }

bool ExecutableOnPath(const char *program) {
  const char *path = std::getenv("PATH");
  std::string_view rest = path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin";
  while (true) {
    size_t colon = rest.find(':');
    std::string dir(rest.substr(0, colon));
    if (dir.empty()) dir = ".";
    std::string candidate = dir + "/" + program;
    struct stat st;
    if (stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(candidate.c_str(), X_OK) == 0)
      return true;
    if (colon == std::string_view::npos) return false;
    rest.remove_prefix(colon + 1);
  }
}

// Reads the display number that the server writes on the pipe, up to its
// newline or the end of the pipe.
std::string ReadDisplayNumber(int fd) {
  std::string text;
  while (text.find('\n') == std::string::npos) {
    pollfd p{fd, POLLIN, 0};
    int ready = poll(&p, 1, kStartupLimitMs);
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return "";
    char buf[64];
    ssize_t n = read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    text.append(buf, static_cast<size_t>(n));
  }
  size_t end = text.find('\n');
  if (end != std::string::npos) text.resize(end);
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return "";
  return text;
}

void StartServer(Server &server, const char *screen = "1280x1024x24", void (*stop)() = StopServer) {
  server.tried = true;
  if (!HaveXvfb()) {
    server.failure = "Xvfb is not installed (install the xvfb package)";
    return;
  }
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) {
    server.failure = std::string("pipe: ") + std::strerror(errno);
    return;
  }
  // Everything the child needs is prepared before fork.
  std::string fdText = std::to_string(fds[1]);
  std::vector<const char *> argv = {"Xvfb",        "-displayfd", fdText.c_str(), "-screen", "0",
                                    screen,         "-nolisten",  "tcp",          "-noreset", nullptr};
  pid_t parent = getpid();
  pid_t pid = fork();
  if (pid < 0) {
    server.failure = std::string("fork: ") + std::strerror(errno);
    close(fds[0]);
    close(fds[1]);
    return;
  }
  if (pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(1);
    int devnull = open("/dev/null", O_RDWR);
    if (devnull >= 0) {
      dup2(devnull, 0);
      dup2(devnull, 1);
      dup2(devnull, 2);
    }
    fcntl(fds[1], F_SETFD, 0);  // the one descriptor the server inherits
    execvp(argv[0], const_cast<char *const *>(argv.data()));
    _exit(127);
  }
  close(fds[1]);
  server.pid = pid;
  std::atexit(stop);
  std::string number = ReadDisplayNumber(fds[0]);
  close(fds[0]);
  if (number.empty()) {
    server.failure = "Xvfb did not report a display number";
    stop();
    return;
  }
  server.name = ":" + number;
}

}  // namespace

bool HaveXvfb() { return ExecutableOnPath("Xvfb"); }

const std::string &XvfbDisplayName() {
  Server &server = TheServer();
  if (!server.tried) StartServer(server);
  return server.name;
}

const std::string &XvfbFailure() {
  XvfbDisplayName();
  return TheServer().failure;
}

pid_t XvfbPid() {
  XvfbDisplayName();
  return TheServer().pid;
}

Display *OpenTestDisplay() {
  const std::string &name = XvfbDisplayName();
  if (name.empty()) return nullptr;
  return XOpenDisplay(name.c_str());
}

Display *OpenPseudoColorTestDisplay() {
  Server &server = TheServer8();
  if (!server.tried) StartServer(server, "640x480x8", StopServer8);
  return server.name.empty() ? nullptr : XOpenDisplay(server.name.c_str());
}

}  // namespace qltest
