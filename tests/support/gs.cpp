#include "support/gs.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace qltest {
namespace {

// Runs gs without a shell.  Quiet mode also hides gs's reports of font
// substitutions, so the checks that look for those run it talkative.
GsRun Run(const std::vector<std::string> &args, bool quiet) {
  std::vector<std::string> words = {"gs", "-dBATCH", "-dNOPAUSE", "-dSAFER"};
  if (quiet) words.insert(words.begin() + 1, "-q");
  words.insert(words.end(), args.begin(), args.end());
  std::vector<char *> argv;
  for (std::string &w : words) argv.push_back(w.data());
  argv.push_back(nullptr);

  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return {127, std::string("pipe: ") + std::strerror(errno)};
  pid_t pid = fork();
  if (pid < 0) {
    close(fds[0]);
    close(fds[1]);
    return {127, std::string("fork: ") + std::strerror(errno)};
  }
  if (pid == 0) {
    int devnull = open("/dev/null", O_RDONLY);
    if (devnull >= 0) dup2(devnull, 0);
    dup2(fds[1], 1);
    dup2(fds[1], 2);
    execvp(argv[0], argv.data());
    static const char message[] = "cannot run gs\n";
    ssize_t ignored = write(2, message, sizeof message - 1);
    (void)ignored;
    _exit(127);
  }
  close(fds[1]);
  GsRun run{0, ""};
  char buf[4096];
  while (true) {
    ssize_t n = read(fds[0], buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    run.log.append(buf, static_cast<size_t>(n));
  }
  close(fds[0]);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return {127, run.log + "\nwaitpid: " + std::strerror(errno)};
  }
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return run;
}

}  // namespace

GsRun RunGhostscript(const std::vector<std::string> &args) { return Run(args, true); }
GsRun RunGhostscriptTalkative(const std::vector<std::string> &args) { return Run(args, false); }

::testing::AssertionResult RendersCleanly(const std::string &psPath, const std::string &pngOut, int dpi) {
  std::vector<std::string> args;
  if (pngOut.empty()) {
    args = {"-sDEVICE=nullpage"};
  } else {
    args = {"-sDEVICE=png16m", "-r" + std::to_string(dpi), "-sOutputFile=" + pngOut};
  }
  args.push_back(psPath);
  GsRun run = Run(args, false);
  static constexpr std::string_view kBad[] = {"Error:",  "Substituting font",   "Warning",
                                              "warning", "Unrecoverable error", "Can't find"};
  if (run.exitCode != 0)
    return ::testing::AssertionFailure() << "gs exited with " << run.exitCode << " on " << psPath
                                         << ":\n" << run.log;
  for (std::string_view bad : kBad) {
    if (run.log.find(bad) != std::string::npos)
      return ::testing::AssertionFailure() << "gs reported \"" << bad << "\" on " << psPath << ":\n"
                                           << run.log;
  }
  return ::testing::AssertionSuccess();
}

std::optional<std::array<int, 4>> GsInkBoundingBox(const std::string &psPath) {
  GsRun run = RunGhostscript({"-sDEVICE=bbox", psPath});
  if (run.exitCode != 0) return std::nullopt;
  static constexpr std::string_view kTag = "%%BoundingBox:";
  size_t at = run.log.find(kTag);
  if (at == std::string::npos) return std::nullopt;
  std::array<int, 4> box{};
  std::string line = run.log.substr(at + kTag.size(), run.log.find('\n', at) - at - kTag.size());
  if (std::sscanf(line.c_str(), "%d %d %d %d", &box[0], &box[1], &box[2], &box[3]) != 4) return std::nullopt;
  return box;
}

std::optional<std::array<double, 4>> GsInkBoundingBoxHiRes(const std::string &psPath) {
  GsRun run = RunGhostscript({"-sDEVICE=bbox", psPath});
  if (run.exitCode != 0) return std::nullopt;
  static constexpr std::string_view kTag = "%%HiResBoundingBox:";
  size_t at = run.log.find(kTag);
  if (at == std::string::npos) return std::nullopt;
  std::array<double, 4> box{};
  if (std::sscanf(run.log.c_str() + at + kTag.size(), "%lf %lf %lf %lf", &box[0], &box[1], &box[2], &box[3]) != 4)
    return std::nullopt;
  return box;
}

}  // namespace qltest
