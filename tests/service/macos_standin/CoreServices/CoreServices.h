#pragma once

#include <cstddef>
#include <cstdint>

// The declarations of macOS that the bridge uses, so that its code for macOS can be compiled and
// called on other systems. LaunchServices.cpp records the calls.

using Boolean = unsigned char;
using UInt8 = std::uint8_t;
using OSStatus = std::int32_t;
using OSType = std::uint32_t;
using LSLaunchFlags = std::uint32_t;
using CFIndex = long;

// Qt declares the same types for macOS.
// NOLINTBEGIN(bugprone-reserved-identifier)
struct __CFString;
struct __CFURL;
struct __CFDictionary;
struct __CFArray;
struct AppleEvent;
using CFStringRef = const __CFString*;
using CFURLRef = const __CFURL*;
using CFDictionaryRef = const __CFDictionary*;
using CFArrayRef = const __CFArray*;
// NOLINTEND(bugprone-reserved-identifier)

#ifdef __APPLE__
#define CFSTR(text) (reinterpret_cast<CFStringRef>(__builtin___CFStringMakeConstantString(text)))
#else
// Without Apple's runtime a constant string is represented by its characters.
#define CFSTR(text) (reinterpret_cast<CFStringRef>("" text ""))
#endif

struct FSRef {
    UInt8 hidden[80];
};

struct ProcessSerialNumber {
    std::uint32_t highLongOfPSN;
    std::uint32_t lowLongOfPSN;
};

struct LSApplicationParameters {
    CFIndex version;
    LSLaunchFlags flags;
    const FSRef* application;
    void* asyncLaunchRefCon;
    CFDictionaryRef environment;
    CFArrayRef argv;
    AppleEvent* initialEvent;
};

constexpr OSStatus noErr = 0;
constexpr OSType kLSUnknownCreator = 0;

// Deprecated as on macOS. The code must nevertheless compile with warnings as errors.
extern "C" {
[[deprecated]] OSStatus FSPathMakeRef(const UInt8* path, FSRef* ref, Boolean* isDirectory);
[[deprecated]] OSStatus LSFindApplicationForInfo(OSType inCreator, CFStringRef inBundleID,
    CFStringRef inName, FSRef* outAppRef, CFURLRef* outAppURL);
[[deprecated]] OSStatus LSOpenApplication(
    const LSApplicationParameters* appParams, ProcessSerialNumber* outPSN);
}
