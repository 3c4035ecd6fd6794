#include "service/DesktopApplication.h"

#include <CoreServices/CoreServices.h>

namespace {

constexpr char fixedPath[] = "/Applications/Tessaron Desktop.app";

// Hidden, in the background and out of the recent items. The bits 0x800 and 0x20000 do nothing
// on current systems.
constexpr LSLaunchFlags launchFlags = 0x00120B00;

} // namespace

// These three calls are deprecated, but nothing that replaced them opens an application hidden
// from plain C++. The newest systems still export them.
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
