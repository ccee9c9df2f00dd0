// Fuzz target for the profile readers and writers: the input is the system
// profile (and the printer list file); every reader runs over it, and both
// writers rewrite a copy of it.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "config/printerinfo.h"
#include "config/profile.h"

#include "scratch.h"

namespace {

// A configuration directory with PPD files for the models "PS" and "LJ".
const std::string &Base() {
    bool fresh;
    const std::string &base = qlfuzz::Scratch(&fresh);
    if (!fresh) return base;
    std::filesystem::create_directories(base + "/ppds");
    std::ofstream(base + "/ppds/PS.PS") << "*PPD-Adobe: \"4.3\"\n";
    std::ofstream(base + "/ppds/LJ.PCL") << "*PPD-Adobe: \"4.3\"\n";
    setenv("QLPATH", base.c_str(), 1);
    setenv("HOME", base.c_str(), 1);
    _QlSetQlProfile((base + "/Qldefaults").c_str(), (base + "/no-user-profile").c_str());
    return base;
}

void Write(const std::string &path, const uint8_t *data, size_t size) {
    FILE *f = std::fopen(path.c_str(), "wb");
    if (!f) std::abort();
    std::fwrite(data, 1, size, f);
    std::fclose(f);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string &base = Base();
    std::string system = base + "/Qldefaults", copy = base + "/copy";
    Write(system, data, size);
    Write(base + "/.PrinterList", data, size);

    char value[300];
    for (const char *key : {"device", "Copies", "k"})
        _QlGetPrivateProfileString("windows", key, "d", value, sizeof value - 1, system.c_str());
    _QlGetPrivateProfileInt("n", "k", 7, system.c_str());
    for (const char *section : {"ports", "devices", "windows", "CustomPageSizes", "s"}) {
        int count;
        char **lines = _QlGetPrivateProfileSection(section, &count, system.c_str());
        _QlParseOneSectionDouble(lines, count, "Scale", 0);
        _QlFreeProfileSection(lines, count);
    }

    _PrinterInfo *info = _QlGetPrinterInfo();
    QlPrinterSettings settings;
    for (int d = 0; d < info->num_printer && d < 8; ++d) {
        _QlGetCommonPrinterInfo(info, &settings, d, 0);
        char *ports = get_ports_of_currentP(info->names[d], info);
        std::free(ports);
    }
    for (int driver = 0; driver < 4; ++driver) _QlGetCommonPrinterInfo(info, &settings, -1, driver);

    QlPrinter printer{};
    _QlLoadCustomPageDefintions(&printer);
    _QlFreeCustomPages(printer.customPages);

    Write(copy, data, size);
    _QlWritePrivateProfileString("s", size % 2 ? "k" : nullptr, "v", copy.c_str());
    if (info->magic == QL_PRINTER_MAGIC) _QlGetCommonPrinterInfo(info, &settings, info->currentP, 0);
    _QlWriteCommonPrinterInfo(info, &settings, copy.c_str());
    _freePrinterInfo(info);

    _freePrinterInfo(_pInfoParser());
    return 0;
}
