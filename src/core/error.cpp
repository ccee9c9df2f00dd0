// Errors and warnings: the message catalog, the formatter behind _QlError,
// the stored text of the last message, the handler and the message box.
#include "core/qlint.h"

#include <X11/Intrinsic.h>
#include <X11/Shell.h>
#include <X11/StringDefs.h>
#include <Xm/MessageB.h>
#include <Xm/Xm.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>

// The catalog.  Callers address rows by index (QlMsg); an application may
// put formats of its own into the rows.
QlMessage QlMessageCatalog[QL_MESSAGE_COUNT] = {
    {"ePPD", "%s: PPD file error"},
    {"ePCLFont", "%s: can not find or open %s file"},
    {"ePSFont", "%s: can not find or open %s file"},
    {"eLMem", "%s: insufficient memory"},
    {"eTFMOpen", "%s: can not open TFM file %s"},
    {"eTFMHeader", "%s: TFM header error in file %s"},
    {"ePCLPage", "%s: PPD file error: no PageSize or ImageableArea"},
    {"ePCLDefPage", "%s: PPD file error: no default PageSize or ImageableArea"},
    {"ePCLPImage", "%s: PPD file error: check %s"},
    {"ePPDPaper", "%s: PPD file error: no PaperDimension or ImageableArea"},
    {"ePPDPaperDim", "%s: PPD file error: check PaperDimension"},
    {"ePPDImage", "%s: PPD file error: check ImageableArea"},
    {"eTile", "%s: tile or stipple does not have right format"},
    {"eUnknownPrt", "%s: unknown Printer (%s)"},
    {"eSyntax", "%s: Syntax error, file %s: line %d"},
    {"eNoSoftFont", "%s: can not find the downloadable font %s"},
    {"eUnknownDrv", "%s: unknown driver"},
    {"eNoInstalledPrt", "%s: no printer installed"},
    {"eAFMParse", "%s: parsing error in AFM file %s"},
    {"eAFMPremature", "%s: AFM file %s ended prematurely"},
    {"ePFBadReturn", "%s: Bad return status from parseFile(): %d"},
    {"eNoPrinterInfo", "%s: can not get _PrinterInfo data"},
    {"eIllegalArg", "%s: illegal argument"},
    {"eRGB", "%s: can not find or open rgb.txt file"},
    {"eEPSFormat", "%s: EPS file is not PS-Adobe-3.0 format"},
    {"ePrtImage", "%s: attemp to get an image from a printer"},
    {"eNumColors", "%s: too many different colors"},
    {"eNumChars", "%s: version 1.1 handles only 1 or 2 chars_per_pixel"},
    {"eUndefineColor", "%s: colors not defined"},
    {"eBadColorEntry", "%s: bad colormap entry: must be '\"c\", \"colordef\",'"},
    {"eBadRGB", "%s: bad colordef speci" "fication: #RGB or colorname"},
    {"eBadPixelValue", "%s: bad pixel value: must be printable"},
    {"eUndefinedPixel", "%s: pixels not defined"},
    {"eBadLineLen", "%s: bad pixmap line length %d, chars_per_pixel*width=%d (widths out of sync)"},
    {"eBadPixel", "%s: pixel \"%c\" not in previous colormap"},
    {"eBadPixel2", "%s: pixel \"%c%c\" not in previous colormap"},
    {"ePPDSyntax2", "%s: PPD Syntax error: %s"},
    {"ePPDSyntax3", "%s: PPD Syntax error: %s %s"},
    {"ePrinterB", "%s: PrinterB configuration error"},
    {"ePrinterBArg", "%s: Initialization: %s resource not correct"},
    {"ePrinterBOpen", "%s: Can not open default printer"},
    {"eMalInstall", "%s: printer %s is not installed correctly"},
    {"eOpenFileW", "%s: Can not open file %s for writing"},
    {"eDocStart", "%s: Have not started the document yet. Call StartDoc() first"},
    {"eNewPage", "%s: Last page has not been ended yet."},
    {"eNoWAttr", "%s: Can not get window attributes."},
    {"eUnMapped", "%s: window or widget is not mapped or is not viewable."},
    {"eWrongPort", "%s: no such device with specified port"},
    {"eXLFDError", "%s: %s: XLFD font format wrong %s"},
    {"ePrinterBOpen2",
     "QmPrinterBox: Initialize:\nCan not Open Default Printer\n.Qldefaults or Qldefaults is corrupted\n"},
    {"eOpenFile", "%s: Can not open file %s"},
    {"eWriteFile", "%s: Can not write to file %s"},
    {"eBadQLPATH", "Bad value for QLPATH (%s)\n"},
    {"eBadAppSoftFont", "%s: Invalid application-supplied font %s.  Cannot change font."},
    {"wUnknownEncode", "%s: do not know how to encode from XLFD %s to AFM %s"},
    {"wNotSupport", "%s: not supported by Qualin"},
    {"wNoCmd", "%s: do not know where to output; output to %s instead."},
    {"wUnknownArcMode", "%s: unknown arc mode in gc"},
    {"wUnknownCoord", "%s: unknown fill mode"},
    {"wNoFont", "%s: font %s not found"},
    {"wLatin1", "%s: ECMA Latin1 symbol set not available"},
    {"wUnknownSSet", "%s: invalid symbol set %s"},
    {"wTFMUnknownEncode", "%s: The encoding in the XLFD font %s is not supported by the TFM file"},
    {"wPCLNotSupport", "%s: PCL5 driver of this release does not support this function"},
    {"wInvalidTray", "%s: unknown tray name %s"},
    {"wInvalidPageS", "%s: unknown page size %s"},
    {"wLineStyle", "%s: unsupported line-style in GC"},
    {"wFillStyle", "%s: unsupported fill-style in GC"},
    {"wFillRule", "%s: unsupported fill-rule in GC"},
    {"wDashList", "%s: a maximum of 20 is allowed for dash_list_length in PCL5"},
    {"wProlog", "%s: Qualin.prolog not found, using internal prolog"},
    {"wResolution", "%s: invalid resolution %dDPI"},
    {"wEPSpreview", "%s: EPS file preview-data not correct"},
    {"wUnknownOrient", "%s: unknown orientation"},
    {"wNoDefFont", "%s: can not create default font in GC"},
    {"wPCL5Clip", "%s: PCL5 does not support ClipMask or ClipOrigin"},
    {"wPCL5ClipRect", "%s: PCL5 supports one clip rectangle at a time"},
    {"wFontFormat", "%s: font %s does not have correct XLFD format"},
    {"wBadGC", "%s: Bad GC"},
    {"wBadValue", "%s: Bad value"},
    {"wNoSysFile", "Error: Unable to open configuration file.\nPersonal: %s or\nSystem: %s.\n"},
    {"wNoPermis", "Cannot write to %s.\nCheck file permissions.\n"},
    {"wNoHelp", "Help message is not installed\n"},
    {"wBadInstall",
     "Unable to read printer configuration file.\nPersonal: %s or\nSystem: %s.\n"
     "Check file permissions and [devices] section.\n"},
    {"wBadPrinter", "QmPrinterBox: PrinterNameCB:\nPrinter %s is not installed correctly\n"},
    {"wBadFile", "Can not create file %s\n"},
    {"wNotReg", "File %s is not a regular file\n"},
    {"wNoPermis2", "Can not write to file %s, permission denied\n"},
    {"wOverWrite", "File %s exists\nOverwrite it?\n"},
    {"wWrongDepth", "%s: image depth not equal 1\n"},
    {"wStartDoc", "%s: function should be called after StartDoc and StartPage\n"},
    {"wFSLostConnection", "Ql FSIO:  fatal IO error %d on Font server: %s.  Lost connection."},
    {"wFSReconnecting", "Ql FSIO:  reconnecting to Font server: %s."},
    {"wFSLostConnectionNoMoreRetries",
     "Ql FSIO:  Lost connection to font server.  Unable to reconnect after %d attempts."},
    {"wFSError", "Ql FS Error: %s"},
    {"wInvalidDuplex", "%s: unknown Duplex Option %s"},
};

// The text of the last message ("key: text"); grown, never released.
char *pErrorMessage = nullptr;
// The application's handler, or null for QlErrorHandler.
QlErrorHandlerProc pErrorHandler = nullptr;
// Where message boxes go; null sends messages to standard error.
Display *DisplayForMesgBox = nullptr;

namespace {

// Size of the buffer a message is formatted into, terminator included.
constexpr size_t kWorkSize = 1024;
// A catalog row is formatted with at most this many arguments.
constexpr size_t kMaxArgs = 6;
// Widths and precisions beyond the work buffer can only be cut away.
constexpr int kMaxField = static_cast<int>(kWorkSize) - 1;

// The formatted text of one message, cut to the work buffer.
class WorkBuffer {
 public:
  void Put(std::string_view s) {
    size_t n = std::min(s.size(), Room());
    std::memcpy(buf_ + len_, s.data(), n);
    len_ += n;
    buf_[len_] = '\0';
  }

  // Formats one value with a format built by the formatter itself, so the
  // value always has the type that the format's conversion expects.
  template <typename T>
  void Format(const char *format, T value) {
    if (Room() == 0) return;
    int n = std::snprintf(buf_ + len_, Room() + 1, format, value);
    if (n > 0) len_ += std::min(static_cast<size_t>(n), Room());
    buf_[len_] = '\0';
  }

  const char *Text() const { return buf_; }

 private:
  size_t Room() const { return kWorkSize - 1 - len_; }

  char buf_[kWorkSize] = {};
  size_t len_ = 0;
};

// The arguments of one message, taken in order or by position ("%2$s").
// An argument the caller didn't pass reads as an empty text or 0.
class MessageArgs {
 public:
  explicit MessageArgs(std::span<const ql::MsgArg> args)
      : args_(args.first(std::min(args.size(), kMaxArgs))) {}

  const ql::MsgArg *Next() { return next_ < args_.size() ? &args_[next_++] : nullptr; }

  const ql::MsgArg *At(int position) const {
    if (position < 1 || static_cast<size_t>(position) > args_.size()) return nullptr;
    return &args_[position - 1];
  }

 private:
  std::span<const ql::MsgArg> args_;
  size_t next_ = 0;
};

long NumberOf(const ql::MsgArg *arg) { return arg != nullptr && !arg->isStr ? arg->num : 0; }

// The text of an argument; a number is written in decimal into `scratch`.
const char *TextOf(const ql::MsgArg *arg, char (&scratch)[24]) {
  if (arg == nullptr) return "";
  if (arg->isStr) return arg->str != nullptr ? arg->str : "(null)";
  auto result = std::to_chars(scratch, scratch + sizeof scratch - 1, arg->num);
  *result.ptr = '\0';
  return scratch;
}

// Reads a run of digits, saturating at kMaxField.
int ReadCount(const char *&p) {
  int value = 0;
  while (*p >= '0' && *p <= '9') {
    value = std::min(value * 10 + (*p - '0'), kMaxField + 1);
    ++p;
  }
  return value;
}

// Reads "<digits>$" at p; gives the position, or 0 (and leaves p) if the
// text there isn't one.
int ReadPosition(const char *&p) {
  const char *q = p;
  int position = ReadCount(q);
  if (q == p || *q != '$' || position == 0) return 0;
  p = q + 1;
  return position;
}

// One conversion of a format, as read from the text.
struct Directive {
  char flags[8] = {};
  int width = -1;      // -1: none
  int precision = -1;  // -1: none
  char length = 0;     // 'H' hh, 'h', 'l' (l, ll, q, j, z, Z, t), 'L'
  char conversion = 0;
  int position = 0;  // 1-based, 0: the next argument
};

// Adds a flag once, keeping room for the terminator.
void AddFlag(Directive &d, char flag) {
  size_t n = std::strlen(d.flags);
  if (std::memchr(d.flags, flag, n) == nullptr && n + 1 < sizeof d.flags) d.flags[n] = flag;
}

// Reads a directive from just after its "%".  Returns the position of the
// conversion character (which may be the terminator).  Arguments for "*"
// are taken from `args` as printf would.
const char *ReadDirective(const char *p, Directive &d, MessageArgs &args) {
  d.position = ReadPosition(p);
  while (*p != '\0' && std::strchr("-+ #0'", *p) != nullptr) AddFlag(d, *p++);
  if (*p == '*') {
    ++p;
    int position = ReadPosition(p);
    long w = NumberOf(position != 0 ? args.At(position) : args.Next());
    if (w < 0) {
      AddFlag(d, '-');
      w = w == LONG_MIN ? kMaxField : -w;
    }
    d.width = static_cast<int>(std::min<long>(w, kMaxField));
  } else if (*p >= '0' && *p <= '9') {
    d.width = std::min(ReadCount(p), kMaxField);
  }
  if (*p == '.') {
    ++p;
    if (*p == '*') {
      ++p;
      int position = ReadPosition(p);
      long prec = NumberOf(position != 0 ? args.At(position) : args.Next());
      d.precision = prec < 0 ? -1 : static_cast<int>(std::min<long>(prec, kMaxField));
    } else {
      d.precision = std::min(ReadCount(p), kMaxField);
    }
  }
  switch (*p) {
    case 'h':
      ++p;
      d.length = 'h';
      if (*p == 'h') {
        ++p;
        d.length = 'H';
      }
      break;
    case 'l':
      ++p;
      d.length = 'l';
      if (*p == 'l') ++p;
      break;
    case 'q':
    case 'j':
    case 'z':
    case 'Z':
    case 't':
      ++p;
      d.length = 'l';
      break;
    case 'L':
      ++p;
      d.length = 'L';
      break;
    default:
      break;
  }
  d.conversion = *p;
  return p;
}

// Builds "%<flags><width>.<precision><length><conversion>" from a
// directive, keeping only the flags in `allowed` and the precision if
// `withPrecision`.
void BuildFormat(const Directive &d, const char *allowed, bool withPrecision, const char *length,
                 char conversion, char (&out)[48]) {
  char *p = out;
  *p++ = '%';
  for (const char *f = d.flags; *f != '\0'; ++f)
    if (std::strchr(allowed, *f) != nullptr) *p++ = *f;
  char *end = out + sizeof out - 8;  // room for precision's dot, length and terminator
  if (d.width >= 0) p = std::to_chars(p, end, d.width).ptr;
  if (withPrecision && d.precision >= 0) {
    *p++ = '.';
    p = std::to_chars(p, end, d.precision).ptr;
  }
  while (*length != '\0') *p++ = *length++;
  *p++ = conversion;
  *p = '\0';
}

// Formats one directive's argument by its own kind into `out`.
void FormatDirective(const Directive &d, const ql::MsgArg *arg, WorkBuffer &out) {
  char format[48];
  char scratch[24];
  switch (d.conversion) {
    case 'd':
    case 'i': {
      long v = NumberOf(arg);
      long long value = d.length == 'H'   ? static_cast<signed char>(v)
                        : d.length == 'h' ? static_cast<short>(v)
                        : d.length == 'l' ? static_cast<long long>(v)
                                          : static_cast<int>(v);
      BuildFormat(d, "-+ 0'", true, "ll", 'd', format);
      out.Format(format, value);
      break;
    }
    case 'u':
    case 'o':
    case 'x':
    case 'X': {
      long v = NumberOf(arg);
      unsigned long long value = d.length == 'H'   ? static_cast<unsigned char>(v)
                                 : d.length == 'h' ? static_cast<unsigned short>(v)
                                 : d.length == 'l' ? static_cast<unsigned long>(v)
                                                   : static_cast<unsigned int>(v);
      BuildFormat(d, d.conversion == 'u' ? "-0'" : "-#0", true, "ll", d.conversion, format);
      out.Format(format, value);
      break;
    }
    case 'c': {
      // A text argument or a zero would end the text; it prints as nothing.
      auto c = static_cast<unsigned char>(NumberOf(arg));
      if (c != 0) {
        BuildFormat(d, "-", false, "", 'c', format);
        out.Format(format, static_cast<int>(c));
      } else {
        BuildFormat(d, "-", false, "", 's', format);
        out.Format(format, "");
      }
      break;
    }
    case 's':
      BuildFormat(d, "-", true, "", 's', format);
      out.Format(format, TextOf(arg, scratch));
      break;
    case 'f':
    case 'F':
    case 'e':
    case 'E':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
      BuildFormat(d, "-+ #0'", true, "", d.conversion, format);
      out.Format(format, static_cast<double>(NumberOf(arg)));
      break;
    case 'p': {
      const void *value = arg != nullptr && arg->isStr
                              ? static_cast<const void *>(arg->str)
                              : reinterpret_cast<const void *>(static_cast<uintptr_t>(NumberOf(arg)));
      BuildFormat(d, "-", false, "", 'p', format);
      out.Format(format, value);
      break;
    }
    default:  // 'n' takes its argument and writes nothing
      break;
  }
}

bool TakesArgument(char conversion) {
  return conversion != '\0' && std::strchr("diuoxXcsfFeEgGaApn", conversion) != nullptr;
}

// Formats a catalog format with the message's arguments.
void FormatMessage(const char *format, MessageArgs &args, WorkBuffer &out) {
  const char *p = format;
  while (*p != '\0') {
    const char *percent = std::strchr(p, '%');
    if (percent == nullptr) {
      out.Put(p);
      return;
    }
    out.Put(std::string_view(p, percent - p));
    if (percent[1] == '%') {
      out.Put("%");
      p = percent + 2;
      continue;
    }
    Directive d;
    const char *conversion = ReadDirective(percent + 1, d, args);
    if (!TakesArgument(d.conversion)) {
      // Not a directive this formatter knows: the text stays as it is.
      const char *end = d.conversion == '\0' ? conversion : conversion + 1;
      out.Put(std::string_view(percent, end - percent));
      p = end;
      continue;
    }
    FormatDirective(d, d.position != 0 ? args.At(d.position) : args.Next(), out);
    p = conversion + 1;
  }
}

// Stores "key: text" as the last message.
void StoreMessage(const char *key, const char *text) {
  size_t size = std::strlen(key) + std::strlen(text) + 3;
  auto *grown = static_cast<char *>(std::realloc(pErrorMessage, size));
  if (grown == nullptr) return;  // the previous text stays
  pErrorMessage = grown;
  std::snprintf(pErrorMessage, size, "%s: %s", key, text);
}

// Xt's list of application contexts.  Xt offers no call that asks about
// a display without ending the process when the display is unknown, so
// the contexts are walked here and asked with XtGetDisplays.  Only the
// leading links of Xt's records are read: the process record begins with
// the default context and the list of contexts, a context with its link
// to the next.
extern "C" void *_XtGetProcessContext(void);
struct XtProcessHead {
  XtAppContext defaultAppContext;
  XtAppContext appContextList;
};
struct XtAppContextHead {
  XtAppContext next;
};

bool XtKnowsDisplay(Display *display) {
  auto *process = static_cast<XtProcessHead *>(_XtGetProcessContext());
  for (XtAppContext app = process->appContextList; app != nullptr;
       app = reinterpret_cast<XtAppContextHead *>(app)->next) {
    Display **displays = nullptr;
    Cardinal count = 0;
    XtGetDisplays(app, &displays, &count);
    bool found = std::find(displays, displays + count, display) != displays + count;
    XtFree(reinterpret_cast<char *>(displays));
    if (found) return true;
  }
  return false;
}

// A display that the application opened without Xt joins an application
// context of the library's own before a widget is made on it.
void AttachToXt(Display *display) {
  static XtAppContext context = nullptr;
  if (XtKnowsDisplay(display)) return;
  if (context == nullptr) {
    XtToolkitInitialize();
    context = XtCreateApplicationContext();
  }
  int argc = 0;
  char *argv[] = {nullptr};
  XtDisplayInitialize(context, display, "qualin", "Class", nullptr, 0, &argc, argv);
}

void ShowMessageDialog(Display *display, const char *text, const char *title) {
  AttachToXt(display);
  Widget shell = XtVaAppCreateShell(nullptr, "Class", topLevelShellWidgetClass, display, XtNtitle,
                                    "dialog shell", nullptr);
  XmString xmTitle = XmStringCreateLocalized(const_cast<char *>(title));
  Widget dialog = XmCreateMessageDialog(shell, const_cast<char *>("messagebox"), nullptr, 0);
  XtUnmanageChild(XmMessageBoxGetChild(dialog, XmDIALOG_HELP_BUTTON));
  XtUnmanageChild(XmMessageBoxGetChild(dialog, XmDIALOG_CANCEL_BUTTON));
  XmString xmText = XmStringCreateLocalized(const_cast<char *>(text));
  XtVaSetValues(dialog, XmNmessageString, xmText, XmNdialogTitle, xmTitle, nullptr);
  XmStringFree(xmText);
  XmStringFree(xmTitle);
  XtManageChild(dialog);
  if (XtWindow(dialog) != 0) XMapWindow(display, XtWindow(dialog));
  XFlush(display);
}

}  // namespace

int QlError_(int index, std::initializer_list<ql::MsgArg> args) {
  // Callers pass the catalog's constants; anything else is dropped.
  if (index < 0 || index >= QL_MESSAGE_COUNT) return 0;
  const QlMessage &row = QlMessageCatalog[index];
  const char *key = row.key != nullptr ? row.key : "";
  QlErrorRecord record{index, key[0] == 'e' ? 1 : 0};

  WorkBuffer text;
  MessageArgs list(std::span<const ql::MsgArg>(args.begin(), args.size()));
  FormatMessage(row.format != nullptr ? row.format : "", list, text);
  StoreMessage(key, text.Text());

  return pErrorHandler != nullptr ? pErrorHandler(&record) : QlErrorHandler(&record);
}

int QlErrorHandler(QlErrorRecord *record) {
  char text[kWorkSize];
  QlGetErrorText(text, sizeof text);
  QlMessageBox(text, record != nullptr && record->isError ? "Error" : "Warning");
  return 0;
}

void QlSetErrorHandler(QlErrorHandlerProc handler) { pErrorHandler = handler; }

void QlGetErrorText(char *buffer, int length) {
  if (buffer == nullptr || length <= 0) return;
  const char *text = pErrorMessage != nullptr ? pErrorMessage : "";
  size_t n = std::min(std::strlen(text), static_cast<size_t>(length) - 1);
  std::memcpy(buffer, text, n);
  buffer[n] = '\0';
}

void QlMessageBox(const char *text, const char *title) {
  if (text == nullptr) text = "";
  if (DisplayForMesgBox != nullptr) {
    ShowMessageDialog(DisplayForMesgBox, text, title != nullptr ? title : "");
  } else if (title != nullptr) {
    std::fprintf(stderr, "\n%s: %s\n", title, text);
  } else {
    std::fprintf(stderr, "%s\n", text);
  }
}

void QlSetDisplayForMesgBox(Display *display) {
  // A printer handle can't show a dialog; its messages go to standard error.
  DisplayForMesgBox = display != nullptr && QlIsDisplay(display) ? display : nullptr;
}
