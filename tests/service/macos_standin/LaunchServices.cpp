#include "tests/service/macos_standin/LaunchServices.h"

#include <algorithm>
#include <iterator>

LaunchServices launchServices;

namespace {

bool isZero(const FSRef& ref)
{
    return std::all_of(
        std::begin(ref.hidden), std::end(ref.hidden), [](UInt8 byte) { return byte == 0; });
}

void fill(FSRef* ref, UInt8 byte)
{
    std::fill(std::begin(ref->hidden), std::end(ref->hidden), byte);
}

} // namespace

OSStatus FSPathMakeRef(const UInt8* path, FSRef* ref, Boolean* isDirectory)
{
    launchServices.calls << "FSPathMakeRef";
    launchServices.path = reinterpret_cast<const char*>(path);
    launchServices.pathRefWasZero = isZero(*ref);
    launchServices.directoryWasRequested = isDirectory != nullptr;
    if (launchServices.pathStatus == noErr) {
        fill(ref, foundByPath);
    }
    return launchServices.pathStatus;
}

OSStatus LSFindApplicationForInfo(OSType inCreator, CFStringRef inBundleID, CFStringRef inName,
    FSRef* outAppRef, CFURLRef* outAppURL)
{
    launchServices.calls << "LSFindApplicationForInfo";
    launchServices.creator = inCreator;
    launchServices.bundleId = reinterpret_cast<const char*>(inBundleID);
    launchServices.nameWasGiven = inName != nullptr;
    launchServices.urlWasRequested = outAppURL != nullptr;
    launchServices.findRefWasZero = isZero(*outAppRef);
    if (launchServices.findStatus == noErr) {
        fill(outAppRef, foundById);
    }
    return launchServices.findStatus;
}

OSStatus LSOpenApplication(const LSApplicationParameters* appParams, ProcessSerialNumber* outPSN)
{
    launchServices.calls << "LSOpenApplication";
    launchServices.parameters = *appParams;
    launchServices.application = *appParams->application;
    launchServices.serialNumberWasRequested = outPSN != nullptr;
    return launchServices.openStatus;
}
