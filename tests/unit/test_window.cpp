// QlPrintWindow and QlPrintWidget: windows of an Xvfb screen put on
// PostScript paper, rendered by Ghostscript and compared with the screen.
// gtest before Xlib: X.h's None and Bool macros break gtest's headers.
#include <gtest/gtest.h>

#include "support/capture.h"
#include "support/image_util.h"
#include "support/raster.h"
#include "support/xvfb.h"

#include "gfx/window.h"

#include <Xm/DrawingA.h>
#include <Xm/Label.h>
#include <Xm/PushB.h>
#include <Xm/RowColumn.h>

#include <csignal>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

#include "support/gs.h"
#include "support/tempdir.h"

using namespace qltest;

namespace {

// A window goes on paper one pixel to a dot, so no displacement is
// forgiven; each channel may differ by one level (the grey printer cuts
// its grey toward zero).  A picture of more colours than an 8-bit
// printer's table holds shares cells: its channels may be off by up to
// kShared levels (the spread of 4 dropped low bits).
constexpr int kLevels = 1, kShared = 15;

Raster Paper(PrintedPage &page, int x, int y, int w, int h) {
  page.Finish();
  std::string log;
  std::optional<Raster> r = RenderPostScript(page.out, 300, 75 + x, 75 + y, w, h, &log);
  EXPECT_TRUE(r) << log;
  return r ? *r : Raster();
}

Raster Grey(Raster r) {
  for (size_t i = 0; i < r.rgb.size(); i += 3)
    r.rgb[i] = r.rgb[i + 1] = r.rgb[i + 2] = static_cast<uint8_t>(0.299 * r.rgb[i] + 0.587 * r.rgb[i + 1] + 0.114 * r.rgb[i + 2]);
  return r;
}

void ExpectSame(const Raster &screen, const Raster &paper, const std::string &name, int levels = kLevels) {
  RasterDiff d = CompareRasters(screen, paper, 0, levels);
  EXPECT_EQ(d.differing, 0) << name << ": " << Describe(d) << "\n" << WriteComparisonPng(name, screen, paper, d);
}

unsigned long Named(Display *dpy, const char *name) {
  XColor screen, exact;
  XAllocNamedColor(dpy, DefaultColormap(dpy, 0), name, &screen, &exact);
  return screen.pixel;
}

Window NewWindow(Display *dpy, Window parent, int x, int y, int w, int h, const char *colour, bool map = true) {
  Window win = XCreateSimpleWindow(dpy, parent, x, y, w, h, 0, 0, Named(dpy, colour));
  if (map) XMapWindow(dpy, win);
  XSync(dpy, False);
  return win;
}

void Fill(Display *dpy, Window w, const char *colour, int x, int y, int width, int height) {
  GC gc = XCreateGC(dpy, w, 0, nullptr);
  XSetForeground(dpy, gc, Named(dpy, colour));
  XFillRectangle(dpy, w, gc, x, y, width, height);
  XFreeGC(dpy, gc);
  XSync(dpy, False);
}

int errorsSeen = 0;
int CountErrors(Display *, XErrorEvent *) { return ++errorsSeen, 0; }

}  // namespace

TEST(PrintWindow, MotifApplicationOnColourDeepAndGreyPaper) {
  Display *dpy = OpenTestDisplay();
  if (!dpy) GTEST_SKIP() << XvfbFailure();
  XtToolkitInitialize();
  XtAppContext app = XtCreateApplicationContext();
  int argc = 0;
  XtDisplayInitialize(app, dpy, "qlwindow", "QlWindow", nullptr, 0, &argc, nullptr);
  Widget shell = XtVaAppCreateShell("qlwindow", "QlWindow", applicationShellWidgetClass, dpy, XmNx, 40, XmNy, 30,
                                    nullptr);
  Widget box = XtVaCreateManagedWidget("box", xmRowColumnWidgetClass, shell, nullptr);
  XtVaCreateManagedWidget("Print", xmPushButtonWidgetClass, box, XmNbackground, Named(dpy, "firebrick"), nullptr);
  Widget label = XtVaCreateManagedWidget("A label", xmLabelWidgetClass, box, XmNbackground, Named(dpy, "steel blue"),
                                         XmNforeground, Named(dpy, "white"), nullptr);
  Widget area = XtVaCreateManagedWidget("area", xmDrawingAreaWidgetClass, box, XmNwidth, 120, XmNheight, 80,
                                        XmNbackground, Named(dpy, "white"), nullptr);
  XtRealizeWidget(shell);
  XWindowAttributes a{};
  for (int i = 0; i < 500 && a.map_state != IsViewable; ++i) {
    XSync(dpy, False);
    while (XtAppPending(app)) XtAppProcessEvent(app, XtIMAll);
    XGetWindowAttributes(dpy, XtWindow(shell), &a);
  }
  ASSERT_EQ(a.map_state, IsViewable);
  // The drawing area gets 9600 colours, more than an 8-bit printer's table.
  XImage *ramp = XGetImage(dpy, XtWindow(area), 0, 0, 120, 80, AllPlanes, ZPixmap);
  ASSERT_NE(ramp, nullptr);
  for (int y = 0; y < 80; ++y)
    for (int x = 0; x < 120; ++x) XPutPixel(ramp, x, y, static_cast<unsigned long>(x * 2 << 16 | y * 3 << 8 | 128));
  XPutImage(dpy, XtWindow(area), DefaultGC(dpy, 0), ramp, 0, 0, 0, 0, 120, 80);
  XDestroyImage(ramp);
  Fill(dpy, XtWindow(area), "gold", 40, 30, 40, 20);
  const Raster screen = CaptureDrawable(dpy, XtWindow(shell), 0, 0, a.width, a.height);

  // Depth 8 (the table), 24 with the printer's masks (red lowest, the
  // reverse of the server's), 24 with the screen's masks from QlSetDisplay.
  struct Kind { const char *name; bool colour; int depth; };
  for (Kind k : {Kind{"window-colour8", true, 8}, Kind{"window-colour24", true, 24},
                 Kind{"window-screen24", true, 0}, Kind{"window-grey8", false, 8}, Kind{"window-grey24", false, 24}}) {
    PrintedPage page(2, k.colour);
    if (k.depth) QlSetColorDepth(page.d, k.depth);
    else QlSetDisplay(page.d, dpy);
    EXPECT_EQ(QlPrintWindow(page.d, dpy, 0, XtWindow(shell), 10, 20), 1);
    ExpectSame(k.colour ? screen : Grey(screen), Paper(page, 10, 20, a.width, a.height), k.name,
               k.depth == 8 ? kShared : kLevels);
  }
  PrintedPage page(2, true);
  Dimension w = 0, h = 0;
  XtVaGetValues(label, XmNwidth, &w, XmNheight, &h, nullptr);
  EXPECT_EQ(QlPrintWidget(page.d, label, 0, 0), 1);
  ExpectSame(CaptureDrawable(dpy, XtWindow(label), 0, 0, w, h), Paper(page, 0, 0, w, h), "widget-label");
  XtDestroyWidget(shell);
  XtDestroyApplicationContext(app);  // closes the display
}

TEST(PrintWindow, PseudoColorScreenLendsItsColormap) {
  Display *dpy = OpenPseudoColorTestDisplay();
  if (!dpy) GTEST_SKIP() << "no 8-bit server";
  ASSERT_EQ(DefaultVisual(dpy, 0)->c_class, PseudoColor);
  Window w = NewWindow(dpy, DefaultRootWindow(dpy), 20, 20, 90, 50, "white");
  const char *colours[] = {"red", "sea green", "navy"};
  for (int i = 0; i < 3; ++i) Fill(dpy, w, colours[i], 10 + 25 * i, 5, 20, 40);
  PrintedPage page(2, true);
  EXPECT_EQ(QlPrintWindow(page.d, dpy, 0, w, 0, 0), 1);
  // The pixels go out as they were read: indexes into the screen's
  // colormap, copied into the printer's table.
  EXPECT_NE(page.Since().find("[/Indexed /DeviceRGB 255"), std::string::npos);
  ExpectSame(CaptureDrawable(dpy, w, 0, 0, 90, 50), Paper(page, 0, 0, 90, 50), "window-pseudocolor");
  XCloseDisplay(dpy);
}

TEST(PrintWindow, ScreenEdgeFramesAndErrors) {
  Display *dpy = OpenTestDisplay();
  if (!dpy) GTEST_SKIP() << XvfbFailure();
  const Window root = DefaultRootWindow(dpy);
  MessageCapture messages;

  // 30 of 100 columns lie left of the screen: the print starts at the
  // window's column 30 and is 70 columns wide.
  Window off = NewWindow(dpy, root, -30, 20, 100, 60, "white");
  const char *strips[] = {"red", "orange", "gold", "green", "cyan", "blue", "violet", "brown", "black", "pink"};
  for (int i = 0; i < 10; ++i) Fill(dpy, off, strips[i], 10 * i, 0, 10, 60);
  {
    PrintedPage page(2, true);
    ASSERT_EQ(QlPrintWindow(page.d, dpy, 0, off, 0, 0), 1);
    Raster paper = Paper(page, 0, 0, 100, 60);
    ExpectSame(CaptureDrawable(dpy, off, 30, 0, 70, 60), Crop(paper, 0, 0, 70, 60), "window-offscreen");
    EXPECT_EQ(Crop(paper, 70, 0, 30, 60).count(0xFFFFFF), 30 * 60);
  }

  // A frame without WM_STATE: the client is its child that has it, found
  // among the children before any grandchild.
  Window frame = NewWindow(dpy, root, 300, 300, 200, 150, "grey");
  Window side = NewWindow(dpy, frame, 150, 0, 40, 40, "white");
  Window grandchild = NewWindow(dpy, side, 5, 5, 10, 10, "black");
  Window client = NewWindow(dpy, frame, 10, 20, 120, 80, "steel blue");
  const Atom wmState = XInternAtom(dpy, "WM_STATE", False);
  const long state[2] = {NormalState, 0};
  for (Window w : {client, grandchild})
    XChangeProperty(dpy, w, wmState, wmState, 32, PropModeReplace, reinterpret_cast<const unsigned char *>(state), 2);
  EXPECT_EQ(XmuClientWindow(dpy, frame), client);
  EXPECT_EQ(TryChildren(dpy, side, wmState), grandchild);
  {
    PrintedPage page(2, true);
    ASSERT_EQ(QlPrintWindow(page.d, dpy, 0, frame, 0, 0), 1);
    EXPECT_NE(page.Since().find(" /Width 120 /Height 80\n"), std::string::npos);
  }

  // Unmapped, destroyed, and an InputOnly window, viewable but refused by
  // XGetImage (BadMatch): a message each, nothing on the page, and the
  // application's own error handler neither called nor replaced.
  Window unmapped = NewWindow(dpy, root, 0, 0, 10, 10, "red", false);
  Window gone = NewWindow(dpy, root, 0, 0, 10, 10, "red");
  XDestroyWindow(dpy, gone);
  Window parent = NewWindow(dpy, root, 400, 100, 60, 40, "white");
  Window inputOnly = XCreateWindow(dpy, parent, 5, 5, 20, 10, 0, 0, InputOnly, CopyFromParent, 0, nullptr);
  XMapWindow(dpy, inputOnly);
  XErrorHandler before = XSetErrorHandler(CountErrors);
  PrintedPage page(2, true);
  for (Window w : {unmapped, gone, inputOnly}) EXPECT_EQ(QlPrintWindow(page.d, dpy, 0, w, 0, 0), 0);
  EXPECT_EQ(page.Since(), "");
  EXPECT_EQ(messages.texts,
            std::vector<std::string>({"eUnMapped: QlPrinterWindow: window or widget is not mapped or is not viewable.",
                                      "eNoWAttr: QlPrintWindow: Can not get window attributes.",
                                      "eUnMapped: QlPrintWindow: window or widget is not mapped or is not viewable."}));
  EXPECT_EQ(errorsSeen, 0);
  EXPECT_EQ(QlPrintWindow(page.d, dpy, 0, parent, 0, 0), 1);
  EXPECT_EQ(XSetErrorHandler(before), CountErrors);
  XCloseDisplay(dpy);
}

// The X server goes away while a window is printed: the call reports and
// gives 0 instead of Xlib ending the program, which then finishes its
// document.  In a child process with a server of its own, as the lost
// connection can't be closed.
TEST(PrintWindow, ServerGoneDuringTheDump) {
  TempDir dir;
  const std::string out = dir / "out.ps";
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    int fds[2];
    if (pipe(fds) != 0) _exit(100);
    const pid_t server = fork();
    if (server == 0) {
      close(fds[0]);
      const std::string fd = std::to_string(fds[1]);
      execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-nolisten", "tcp", "-screen", "0", "320x240x24",
             static_cast<char *>(nullptr));
      _exit(127);
    }
    close(fds[1]);
    char number[16] = {};
    if (read(fds[0], number, sizeof number - 1) <= 0) _exit(101);
    Display *d = XOpenDisplay((":" + std::string(number, std::strcspn(number, "\n"))).c_str());
    if (!d) _exit(102);
    const Window w = XCreateSimpleWindow(d, DefaultRootWindow(d), 10, 10, 100, 60, 0, 0, 0xff0000);
    XMapWindow(d, w);
    XWindowAttributes a{};
    do XGetWindowAttributes(d, w, &a);
    while (a.map_state != IsViewable);
    kill(server, SIGKILL);
    waitpid(server, nullptr, 0);

    MessageCapture messages;
    Display *p = QlVaOpenPrinter(nullptr, ("cat >" + out).c_str(), nullptr, 0);
    int failed = QlStartDoc(p, "gone") != 1 || QlStartPage(p) != 1;
    failed |= (QlPrintWindow(p, d, 0, w, 0, 0) != 0) << 1;
    failed |= (messages.indices.size() != 1) << 2;
    failed |= (QlEndPage(p) != 1 || QlEndDoc(p) != 1) << 3;
    _exit(failed);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status)) << "the program ended by signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 0) << "failed checks, as bits (above 99: no server)";
  EXPECT_TRUE(RendersCleanly(out));
}
