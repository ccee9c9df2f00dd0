// The shared test fixtures: the private X server and the Ghostscript checks.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/gs.h"
#include "support/tempdir.h"
#include "support/xvfb.h"

namespace fs = std::filesystem;

namespace {

using qltest::ReadFile;

// Inodes of the unix sockets bound to `path` (also in the abstract
// namespace), from /proc/net/unix.
std::set<std::string> UnixSocketInodes(const std::string &path) {
  std::set<std::string> inodes;
  std::istringstream table(ReadFile("/proc/net/unix"));
  std::string line;
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    std::string word, inode, bound;
    for (int i = 0; i < 6 && fields >> word; ++i) {
    }
    if (fields >> inode >> bound && (bound == path || bound == "@" + path)) inodes.insert(inode);
  }
  return inodes;
}

}  // namespace

TEST(Xvfb, PrivateServerServesSeveralConnections) {
  ASSERT_TRUE(qltest::HaveXvfb());
  const std::string &name = qltest::XvfbDisplayName();
  ASSERT_FALSE(name.empty()) << qltest::XvfbFailure();
  EXPECT_TRUE(qltest::XvfbFailure().empty());
  ASSERT_EQ(name[0], ':');
  ASSERT_EQ(name.find_first_not_of("0123456789", 1), std::string::npos) << name;
  EXPECT_EQ(&qltest::XvfbDisplayName(), &name);

  // The server listening on that display is this process's own child.
  pid_t server = qltest::XvfbPid();
  ASSERT_GT(server, 0);
  std::string status = ReadFile("/proc/" + std::to_string(server) + "/status");
  EXPECT_NE(status.find("Name:\tXvfb\n"), std::string::npos) << status;
  EXPECT_NE(status.find("\nPPid:\t" + std::to_string(getpid()) + "\n"), std::string::npos) << status;
  std::set<std::string> listening = UnixSocketInodes("/tmp/.X11-unix/X" + name.substr(1));
  ASSERT_FALSE(listening.empty());
  bool owned = false;
  for (const auto &fd : fs::directory_iterator("/proc/" + std::to_string(server) + "/fd")) {
    std::error_code error;
    std::string target = fs::read_symlink(fd.path(), error).string();
    if (target.rfind("socket:[", 0) == 0 && listening.count(target.substr(8, target.size() - 9)) != 0) owned = true;
  }
  EXPECT_TRUE(owned);

  Display *a = qltest::OpenTestDisplay();
  Display *b = qltest::OpenTestDisplay();
  ASSERT_TRUE(a && b && a != b);
  EXPECT_EQ(std::vector<int>({DisplayWidth(a, 0), DisplayHeight(a, 0), DefaultDepth(a, 0)}),
            std::vector<int>({1280, 1024, 24}));

  // A window made on one connection is seen from the other.
  Window w = XCreateSimpleWindow(a, DefaultRootWindow(a), 10, 20, 30, 40, 0, 0, 0);
  XMapWindow(a, w);
  XSync(a, False);
  XWindowAttributes attrs;
  ASSERT_NE(XGetWindowAttributes(b, w, &attrs), 0);
  EXPECT_EQ(std::vector<int>({attrs.width, attrs.height, attrs.map_state}), std::vector<int>({30, 40, IsViewable}));
  XCloseDisplay(a);
  XCloseDisplay(b);
}

TEST(Ghostscript, JudgesRenderingAndInk) {
  qltest::TempDir dir;
  auto write = [&](const std::string &name, const std::string &text) {
    qltest::WriteFile(dir / name, text);
    return dir / name;
  };
  std::string good = write("good.ps",
                               "%!PS-Adobe-3.0\n"
                               "<< /PageSize [612 792] >> setpagedevice\n"
                               "/Helvetica findfont 12 scalefont setfont\n"
                               "newpath 100 200 moveto 300 200 lineto 300 400 lineto 100 400 lineto\n"
                               "closepath fill 72 72 moveto (Qualin) show showpage\n");
  EXPECT_TRUE(qltest::RendersCleanly(good));

  std::string png = dir / "good.png";
  EXPECT_TRUE(qltest::RendersCleanly(good, png, 36));
  std::string image = ReadFile(png);
  ASSERT_GT(image.size(), 24u);
  EXPECT_EQ(image.substr(0, 8), "\x89PNG\r\n\x1a\n");
  // Letter at 36 dpi: 306 x 396 pixels in the IHDR chunk.
  auto be32 = [&](size_t at) {
    return (static_cast<unsigned char>(image[at]) << 24) | (static_cast<unsigned char>(image[at + 1]) << 16) |
           (static_cast<unsigned char>(image[at + 2]) << 8) | static_cast<unsigned char>(image[at + 3]);
  };
  EXPECT_EQ(std::make_pair(be32(16), be32(20)), std::make_pair(306, 396));

  std::string undefined = write("bad.ps", "foo bar baz\n");
  ::testing::AssertionResult bad = qltest::RendersCleanly(undefined);
  EXPECT_FALSE(bad);
  EXPECT_NE(std::string(bad.message()).find("/undefined in foo"), std::string::npos) << bad.message();

  std::string substituted = write("subst.ps",
                                      "%!PS\n/NoSuchFontAtAll findfont 12 scalefont setfont\n"
                                      "72 72 moveto (x) show showpage\n");
  ::testing::AssertionResult subst = qltest::RendersCleanly(substituted);
  EXPECT_FALSE(subst);
  EXPECT_NE(std::string(subst.message()).find("NoSuchFontAtAll"), std::string::npos) << subst.message();

  qltest::GsRun run = qltest::RunGhostscript({"-sDEVICE=nullpage", dir / "missing.ps"});
  EXPECT_NE(run.exitCode, 0);

  // The rectangle, widened by at most a point of rasterisation; the text
  // starts at 72 72.
  auto expectBox = [](const std::string &ps, std::array<int, 4> want, int slackBottom) {
    auto box = qltest::GsInkBoundingBox(ps);
    ASSERT_TRUE(box.has_value()) << ps;
    for (int i = 0; i < 4; ++i) EXPECT_NEAR((*box)[i], want[i], i == 1 ? slackBottom : 1) << ps << " " << i;
  };
  expectBox(good, {72, 72, 300, 400}, 3);
  expectBox(write("rect.ps", "%!PS\n150 250 100 50 rectfill showpage\n"), {150, 250, 250, 300}, 1);

  EXPECT_FALSE(qltest::GsInkBoundingBox(undefined).has_value());
}
