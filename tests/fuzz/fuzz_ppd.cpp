// Fuzz target for the PPD parser: runs the three queries over the input,
// with a small configuration directory whose files the input may include.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

#include "config/ppd.h"
#include "core/qlint.h"

#include "scratch.h"

namespace {

// A configuration directory with "ppds/inc.ppd" and a file including itself.
const char *Base() {
    bool fresh;
    const std::string &base = qlfuzz::Scratch(&fresh);
    if (!fresh) return base.c_str();
    std::filesystem::create_directories(base + "/ppds");
    std::ofstream(base + "/ppds/inc.ppd") << "*ModelName: \"Inc\"\n*DefaultImageableArea: A4\n"
                                             "*ImageableArea A4: \"1 2 3 4\"\n*OpenUI *InputSlot: PickOne\n"
                                             "*DefaultInputSlot: Upper\n*InputSlot Upper: \"u\"\n"
                                             "*CloseUI: *InputSlot\n";
    std::ofstream(base + "/ppds/self.ppd") << "*Include: \"self.ppd\"\n*PageSize A4: \"x\"\n";
    return base.c_str();
}

void Use(QlPPDOptions *o) {
    if (!o) return;
    for (int i = 0; i < o->count; ++i)
        if (std::strlen(o->keywords[i]) > 0) PPDGetOptionValue(o, o->keywords[i]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const char *base = Base();
    if (size == 0) return 0;
    FILE *fp = fmemopen(const_cast<uint8_t *>(data), size, "r");
    if (!fp) return 0;
    char cwdBefore[4096];
    if (!getcwd(cwdBefore, sizeof cwdBefore)) cwdBefore[0] = '\0';

    char **v = PPDGetValues(1, fp, base, "ModelName", "NickName", "DefaultResolution", "ColorDevice",
                            "LanguageLevel", "Page", nullptr);
    freeDString(v, 6);

    QlPPDOptions **o = PPDGetOptions(1, fp, base, "PageSize", "InputSlot", "Duplex", "Resolution", "K", nullptr);
    if (o) {
        for (int i = 0; i < 5; ++i) Use(o[i]);
        if (o[0]) o[0] = _AddStringToOptionList(o[0], "Added", "value");
    }
    freeDOptions(o, 5);

    for (const char *key : {"ImageableArea", "PaperDimension", "PageSize", "K"}) {
        QlPPDOptions *m = PPDGetMultiples(fp, base, key);
        Use(m);
        _QlFreeOptions(m);
    }
    std::fclose(fp);

    // Every query must leave the working directory where it found it.
    char cwdAfter[4096];
    if (!getcwd(cwdAfter, sizeof cwdAfter) || std::strcmp(cwdBefore, cwdAfter) != 0) std::abort();
    return 0;
}
