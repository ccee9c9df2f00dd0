// Reporting: the catalog, the stored text, handlers, standard error and
// the message box.
#include <gtest/gtest.h>
// gtest goes first: X11's macros clash with its names.
#include <X11/Intrinsic.h>
#include <X11/Shell.h>
#include <X11/StringDefs.h>
#include <Xm/MessageB.h>
#include <Xm/Xm.h>

#include <cstring>
#include <string>
#include <vector>

#include "core/qlint.h"
#include "support/xvfb.h"

namespace {

bool gReported = false;  // set once any test has reported a message

struct Seen {
  int calls = 0;
  QlErrorRecord record{-1, -1};
  std::string text;
};
Seen gSeen;
int gHandlerResult = 0;

int Recorder(QlErrorRecord *record) {
  ++gSeen.calls;
  gSeen.record = *record;
  char buf[4096];
  QlGetErrorText(buf, sizeof buf);
  gSeen.text = buf;
  return gHandlerResult;
}

// Installs the recording handler (or none) and sends boxes to standard
// error; puts the defaults back afterwards.
class Reporting {
 public:
  explicit Reporting(QlErrorHandlerProc handler = Recorder) {
    gReported = true;
    gSeen = Seen();
    gHandlerResult = 0;
    QlSetErrorHandler(handler);
    QlSetDisplayForMesgBox(nullptr);
  }
  ~Reporting() {
    QlSetErrorHandler(nullptr);
    QlSetDisplayForMesgBox(nullptr);
  }
};

// Replaces one catalog row for the length of a test.
class ReplacedRow {
 public:
  ReplacedRow(int index, const char *key, const char *format) : index_(index), saved_(QlMessageCatalog[index]) {
    QlMessageCatalog[index] = {key, format};
  }
  ~ReplacedRow() { QlMessageCatalog[index_] = saved_; }

 private:
  int index_;
  QlMessage saved_;
};

std::string LastText() {
  std::vector<char> buf(8192, 'X');
  QlGetErrorText(buf.data(), static_cast<int>(buf.size()));
  return buf.data();
}

template <typename... A>
std::string Stored(int index, const A &...args) {
  _QlError(index, args...);
  return LastText();
}

}  // namespace

// Runs first: before any message the text is empty.
TEST(ErrorText, EmptyBeforeAnyMessage) {
  if (gReported) GTEST_SKIP() << "a message was already reported in this process";
  char buf[4] = {'a', 'b', 'c', 'd'};
  QlGetErrorText(buf, 0);
  EXPECT_EQ(std::string(buf, 4), "abcd");
  QlGetErrorText(buf, 3);
  EXPECT_EQ(std::string(buf, 4), std::string("\0bcd", 4));
  QlGetErrorText(nullptr, 10);
}

TEST(Report, HandlerGetsRecordAndKeyedText) {
  Reporting reporting;
  gHandlerResult = 42;
  EXPECT_EQ(_QlError(eLMem, "OpenPrinter"), 42);
  EXPECT_EQ(gSeen.calls, 1);
  EXPECT_EQ(gSeen.record.index, 3);
  EXPECT_EQ(gSeen.record.isError, 1);
  EXPECT_EQ(gSeen.text, "eLMem: OpenPrinter: insufficient memory");

  gHandlerResult = -7;
  EXPECT_EQ(_QlError(wOverWrite, "x"), -7);
  EXPECT_EQ(gSeen.record.index, 88);
  EXPECT_EQ(gSeen.record.isError, 0);
  EXPECT_EQ(gSeen.text, "wOverWrite: File x exists\nOverwrite it?\n");

  EXPECT_EQ(Stored(eSyntax, "QlOpenPrinter", "Qldefaults", 12),
            "eSyntax: QlOpenPrinter: Syntax error, file Qldefaults: line 12");
  EXPECT_EQ(Stored(eBadPixel2, "XReadPixmapFile", 'a', '#'),
            "eBadPixel2: XReadPixmapFile: pixel \"a#\" not in previous colormap");
  EXPECT_EQ(Stored(eBadLineLen, "XReadPixmapFile", -3, 40u),
            "eBadLineLen: XReadPixmapFile: bad pixmap line length -3, chars_per_pixel*width=40 (widths out of sync)");
  EXPECT_EQ(Stored(ePrinterBOpen2),
            "ePrinterBOpen2: QmPrinterBox: Initialize:\nCan not Open Default Printer\n"
            ".Qldefaults or Qldefaults is corrupted\n");
  EXPECT_EQ(Stored(eBadQLPATH, std::string("/no/such")), "eBadQLPATH: Bad value for QLPATH (/no/such)\n");

  // Arguments the caller left out read as empty texts and zeros; a null
  // text as "(null)"; a number where a text is due as the number.
  EXPECT_EQ(Stored(eXLFDError, "QlLoadFont"), "eXLFDError: QlLoadFont: : XLFD font format wrong ");
  EXPECT_EQ(Stored(eOpenFile, "QlEPS_Put", static_cast<const char *>(nullptr)),
            "eOpenFile: QlEPS_Put: Can not open file (null)");
  EXPECT_EQ(Stored(eTFMOpen, 17, "f.tfm"), "eTFMOpen: 17: can not open TFM file f.tfm");
  EXPECT_EQ(Stored(eSyntax, "a", "b", "twelve"), "eSyntax: a: Syntax error, file b: line 0");

  // Indices outside the catalog are dropped.
  int calls = gSeen.calls;
  std::string before = LastText();
  EXPECT_EQ(_QlError(QL_MESSAGE_COUNT, "x"), 0);
  EXPECT_EQ(_QlError(-1, "x"), 0);
  EXPECT_EQ(gSeen.calls, calls);
  EXPECT_EQ(LastText(), before);
}

TEST(ErrorText, CopiesWholeOrCut) {
  Reporting reporting;
  _QlError(eUnknownDrv, "QlVaOpenPrinter");  // "eUnknownDrv: QlVaOpenPrinter: unknown driver"
  auto copy = [](int length) {
    std::string buf(64, '#');
    QlGetErrorText(buf.data(), length);
    return buf.substr(0, buf.find_first_of('#') == std::string::npos ? 64 : buf.find_first_of('#'));
  };
  EXPECT_EQ(copy(0), "");
  EXPECT_EQ(copy(-5), "");
  EXPECT_EQ(copy(1), std::string("\0", 1));
  EXPECT_EQ(copy(6), std::string("eUnkn\0", 6));
  EXPECT_EQ(copy(44), std::string("eUnknownDrv: QlVaOpenPrinter: unknown drive\0", 44));
  EXPECT_EQ(copy(45), std::string("eUnknownDrv: QlVaOpenPrinter: unknown driver\0", 45));
  EXPECT_EQ(copy(64), std::string("eUnknownDrv: QlVaOpenPrinter: unknown driver\0", 45));
}

TEST(Report, LongTextsAreCutNotOverflowed) {
  Reporting reporting;
  const std::string prefix = "eOpenFile: QlStartDoc: Can not open file ";
  std::string longName(5000, 'a');
  std::string text = Stored(eOpenFile, "QlStartDoc", longName);
  // The formatted text is cut to 1023 characters; the key is added after.
  ASSERT_EQ(text.size(), std::strlen("eOpenFile: ") + 1023);
  EXPECT_EQ(text.substr(0, prefix.size()), prefix);
  EXPECT_EQ(text.find_first_not_of('a', prefix.size()), std::string::npos);

  // The stored text grows with a long key and shrinks again.
  std::string key = "w" + std::string(3000, 'k');
  {
    ReplacedRow row(wBadValue, key.c_str(), "%s %s");
    text = Stored(wBadValue, longName, longName);
    ASSERT_EQ(text.size(), key.size() + 2 + 1023);
    EXPECT_EQ(text.substr(0, key.size() + 2), key + ": ");
    EXPECT_EQ(gSeen.record.isError, 0);
  }
  EXPECT_EQ(Stored(wBadValue, "f"), "wBadValue: f: Bad value");

  // A width wider than the buffer is cut with the rest.
  ReplacedRow wide(eIllegalArg, "eIllegalArg", "%999999999999d%s");
  text = Stored(eIllegalArg, 1, "z");
  ASSERT_EQ(text.size(), std::strlen("eIllegalArg: ") + 1023);
  EXPECT_EQ(text.back(), '1');
}

TEST(Report, ReplacedRowsReadEachArgumentByItsKind) {
  Reporting reporting;
  auto check = [](const char *format, const std::string &expected, auto... args) {
    ReplacedRow row(eIllegalArg, "eIllegalArg", format);
    EXPECT_EQ(Stored(eIllegalArg, args...), "eIllegalArg: " + expected) << format;
  };
  check("%s|%d|%5d|%-4s|%c|%x|%ld|%.1f|%%|%s|%s", "ab|0|   12|xy  |A|ff|0|0.0|%||", "ab", "text", 12, "xy",
        'A', 255);
  check("%s %s", "7 -3", 7, -3L);
  check("%05d|%-5d|%o|%#x|%X|%u", "00042|-5   |10|0x1f|FF|4294967295", 42, -5, 8, 31, 255, -1);
  check("%hhd %hd %hhu %lx %lu", "44 4464 255 ffffffffffffffff 18446744073709551615", 300, 70000, -1, -1L, -1L);
  check("%*d|%-*d|%.*s", "   7|8  |ab", 4, 7, 3, 8, 2, "abcdef");
  check("%2$s %1$s %2$d", "b a 0", "a", "b");
  check("[%c][%3c][%-2c]", "[][   ][x ]", "s", 0, 'x');
  check("a%nb%yc%", "ab%yc%", "x");
  check("%m %lc %ls %Lf %zd %jd %td", "%m A w 2.000000 3 4 5", 'A', "w", 2, 3, 4, 5);
  check("%s %s %s %s %s %s %s %s %s", "1 2 3 4 5 6   ", 1, 2, 3, 4, 5, 6);

  // Only six arguments ever reach the format.
  {
    ReplacedRow row(eIllegalArg, "eIllegalArg", "%d%d%d%d%d%d%d");
    QlError_(eIllegalArg, {1, 2, 3, 4, 5, 6, 7});
    EXPECT_EQ(LastText(), "eIllegalArg: 1234560");
  }
  // A row without key or format still reports, as a warning.
  ReplacedRow row(eIllegalArg, nullptr, nullptr);
  EXPECT_EQ(Stored(eIllegalArg, "x"), ": ");
  EXPECT_EQ(gSeen.record.isError, 0);
}

TEST(DefaultHandler, WritesTitledTextToStandardError) {
  Reporting reporting(nullptr);
  testing::internal::CaptureStderr();
  EXPECT_EQ(_QlError(eLMem, "OpenPrinter"), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "\nError: eLMem: OpenPrinter: insufficient memory\n");

  testing::internal::CaptureStderr();
  EXPECT_EQ(_QlError(wOverWrite, "out.ps"), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "\nWarning: wOverWrite: File out.ps exists\nOverwrite it?\n\n");

  // The default handler passes on at most 1023 characters.
  testing::internal::CaptureStderr();
  _QlError(eOpenFile, "QlStartDoc", std::string(3000, 'p'));
  std::string out = testing::internal::GetCapturedStderr();
  EXPECT_EQ(out.size(), std::strlen("\nError: ") + 1023 + 1);
  EXPECT_EQ(out.substr(0, 30), "\nError: eOpenFile: QlStartDoc:");

  testing::internal::CaptureStderr();
  QlMessageBox("plain text", nullptr);
  QlMessageBox("body", "Title");
  QlMessageBox(nullptr, nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "plain text\n\nTitle: body\n\n");
}

namespace {

// The top-level windows of the display that are viewable and named `name`.
std::vector<Window> ViewableWindowsNamed(Display *display, const char *name) {
  std::vector<Window> found;
  Window root, parent, *children = nullptr;
  unsigned count = 0;
  if (XQueryTree(display, DefaultRootWindow(display), &root, &parent, &children, &count) == 0) return found;
  for (unsigned i = 0; i < count; ++i) {
    char *windowName = nullptr;
    XWindowAttributes attrs;
    if (XFetchName(display, children[i], &windowName) != 0 && windowName != nullptr) {
      if (std::strcmp(windowName, name) == 0 && XGetWindowAttributes(display, children[i], &attrs) != 0 &&
          attrs.map_state == IsViewable)
        found.push_back(children[i]);
      XFree(windowName);
    }
  }
  if (children != nullptr) XFree(children);
  return found;
}

std::string MessageOf(Widget box) {
  XmString xms = nullptr;
  XtVaGetValues(box, XmNmessageString, &xms, nullptr);
  if (xms == nullptr) return "";
  char *text = static_cast<char *>(
      XmStringUnparse(xms, nullptr, XmCHARSET_TEXT, XmCHARSET_TEXT, nullptr, 0, XmOUTPUT_ALL));
  std::string result = text != nullptr ? text : "";
  XtFree(text);
  XmStringFree(xms);
  return result;
}

// Runs the display's pending events, then finds the one viewable dialog
// of this connection titled `title` that shows `message`, and checks it.
void ExpectDialog(Display *display, const char *title, const std::string &message) {
  XSync(display, False);
  XtAppContext app = XtDisplayToApplicationContext(display);
  for (int i = 0; i < 1000 && XtAppPending(app) != 0; ++i) XtAppProcessEvent(app, XtIMAll);
  XSync(display, False);
  Widget dialogShell = nullptr, box = nullptr;
  int matches = 0;
  for (Window w : ViewableWindowsNamed(display, title)) {
    Widget shell = XtWindowToWidget(display, w);
    Widget child = shell != nullptr ? XtNameToWidget(shell, "messagebox") : nullptr;
    if (child != nullptr && MessageOf(child) == message) {
      ++matches;
      dialogShell = shell;
      box = child;
    }
  }
  ASSERT_EQ(matches, 1) << title << ": " << message;
  EXPECT_TRUE(XtIsManaged(box));
  EXPECT_TRUE(XtIsManaged(XmMessageBoxGetChild(box, XmDIALOG_OK_BUTTON)));
  EXPECT_FALSE(XtIsManaged(XmMessageBoxGetChild(box, XmDIALOG_CANCEL_BUTTON)));
  EXPECT_FALSE(XtIsManaged(XmMessageBoxGetChild(box, XmDIALOG_HELP_BUTTON)));
  Widget shell = XtParent(dialogShell);
  ASSERT_NE(shell, nullptr);
  EXPECT_TRUE(XtIsTopLevelShell(shell));
  char *shellTitle = nullptr;
  XtVaGetValues(shell, XtNtitle, &shellTitle, nullptr);
  EXPECT_STREQ(shellTitle, "dialog shell");
  // Each dialog is a toplevel shell of its own.
  EXPECT_EQ(XtParent(shell), nullptr);
}

}  // namespace

TEST(MessageBox, DialogOnDisplaysWithAndWithoutXt) {
  Reporting reporting(nullptr);
  // The connections stay open to the end of the process: the dialogs live
  // on them.
  Display *plain = qltest::OpenTestDisplay();
  ASSERT_NE(plain, nullptr) << qltest::XvfbFailure();

  // Texts differ between runs of the test in one process (--gtest_repeat).
  static int run = 0;
  const std::string tag = std::to_string(++run);
  QlSetDisplayForMesgBox(plain);
  QlMessageBox(("Printing finished " + tag).c_str(), "Done");
  testing::internal::CaptureStderr();
  _QlError(eLMem, "QlOpenPrinter" + tag);
  _QlError(wNoFont, "QlLoadFont", "-adobe-courier-" + tag);
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(err.find("insufficient memory"), std::string::npos) << err;
  ExpectDialog(plain, "Done", "Printing finished " + tag);
  ExpectDialog(plain, "Error", "eLMem: QlOpenPrinter" + tag + ": insufficient memory");
  ExpectDialog(plain, "Warning", "wNoFont: QlLoadFont: font -adobe-courier-" + tag + " not found");

  // A display the application opened through Xt stays in its own
  // application context.
  XtToolkitInitialize();
  XtAppContext app = XtCreateApplicationContext();
  int argc = 0;
  char *argv[] = {nullptr};
  Display *viaXt = XtOpenDisplay(app, qltest::XvfbDisplayName().c_str(), "qltest", "QlTest", nullptr, 0, &argc, argv);
  ASSERT_NE(viaXt, nullptr);
  QlSetDisplayForMesgBox(viaXt);
  QlMessageBox(("Through Xt " + tag).c_str(), "Xt title");
  EXPECT_EQ(XtDisplayToApplicationContext(viaXt), app);
  Display **displays = nullptr;
  Cardinal count = 0;
  XtGetDisplays(app, &displays, &count);
  EXPECT_EQ(count, 1u);
  XtFree(reinterpret_cast<char *>(displays));
  ExpectDialog(viaXt, "Xt title", "Through Xt " + tag);

  // Without a display the text goes back to standard error.
  QlSetDisplayForMesgBox(nullptr);
  testing::internal::CaptureStderr();
  QlMessageBox("back", "T");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "\nT: back\n");
}
