#include "service/DesktopApplication.h"

#include <CoreServices/CoreServices.h>

namespace {

constexpr char fixedPath[] = "/Applications/Tessaron Desktop.app";

// Fixed by the interface: do not change this value. It requests a hidden launch in the background,
// without an entry in the recent items. The obsolete bits 0x800 and 0x20000 have no effect on
// current systems and are kept.
constexpr LSLaunchFlags launchFlags = 0x00120B00;

} // namespace

// The three Launch Services functions used below are deprecated but still exported by the newest
// systems. Their replacements cannot open an application hidden from plain C++.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

int openDesktopApplication()
{
    FSRef application = {};
    if (FSPathMakeRef(reinterpret_cast<const UInt8*>(fixedPath), &application, nullptr) != noErr) {
        const OSStatus status = LSFindApplicationForInfo(
            kLSUnknownCreator, CFSTR("com.tessaron.desktop"), nullptr, &application, nullptr);
        if (status != noErr) {
            return status;
        }
    }
    LSApplicationParameters parameters = {};
    parameters.flags = launchFlags;
    parameters.application = &application;
    return LSOpenApplication(&parameters, nullptr);
}

#pragma GCC diagnostic pop
