/* The sample document of `make demo`: two pages on the default printer.
 * With no configuration at all, the default printer is PostScript output
 * into "qualin.out" in the working directory. */
#include <qualin/Ql.h>
#include <stdio.h>
#include <string.h>

/* Raw PostScript through the printer escape, in the sheet's own points. */
static void page_text(Display *printer, const char *ps)
{
    struct { long count; const char *bytes; } data = { (long)strlen(ps), ps };
    QlPrinterEscape(printer, 1, &data);
}

int main(void)
{
    Display *printer = QlOpenPrinter();
    if (!printer) {
        fprintf(stderr, "qldemo: the default printer does not open\n");
        return 1;
    }
    if (!QlStartDoc(printer, "Qualin demo")) {
        fprintf(stderr, "qldemo: the document does not start\n");
        QlClosePrinter(printer);
        return 1;
    }
    for (int page = 1; page <= 2; page++) {
        char ps[512];
        QlStartPage(printer);
        snprintf(ps, sizeof ps,
                 "gsave initmatrix\n"
                 "/Helvetica-Bold findfont 36 scalefont setfont 72 700 moveto (Qualin) show\n"
                 "/Helvetica findfont 14 scalefont setfont 72 672 moveto\n"
                 "(Page %d of 2, printed by %s) show\n"
                 "0.5 setgray 72 640 moveto 540 640 lineto 2 setlinewidth stroke\n"
                 "grestore\n",
                 page, QlGetVersion());
        page_text(printer, ps);
        QlEndPage(printer);
    }
    int ok = QlEndDoc(printer);
    QlClosePrinter(printer);
    return ok ? 0 : 1;
}
