#include "fuzzentrypoints.h"

#include <QCoreApplication>
#include <QLocale>

// TAMLO_FUZZ_ENTRY names the FuzzEntry function this executable drives.
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    // The same zone and locale as the test suite, so a finding replays the same way there.
    qputenv("TZ", "Europe/Berlin");
    static QCoreApplication app(*argc, *argv);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    return FuzzEntry::TAMLO_FUZZ_ENTRY(data, size);
}
