/* Prints a two-page document on the default printer.  With no
 * configuration at all that is PostScript into "qualin.out". */
#include <qualin/Ql.h>
#include <stdio.h>

int main(void)
{
    Display *printer = QlOpenPrinter();
    if (!printer) {
        fprintf(stderr, "qlhello: no printer\n");
        return 1;
    }
    if (!QlStartDoc(printer, "hello")) {
        fprintf(stderr, "qlhello: cannot start the document\n");
        return 1;
    }
    for (int page = 0; page < 2; page++) {
        QlStartPage(printer);
        QlEndPage(printer);
    }
    int ok = QlEndDoc(printer);
    QlClosePrinter(printer);
    return ok ? 0 : 1;
}
