#pragma once

#include <CoreServices/CoreServices.h>

#include <QByteArray>
#include <QByteArrayList>

/// What the stand-in for Launch Services returns, and the arguments that it received.
struct LaunchServices {
    OSStatus pathStatus = 0;
    OSStatus findStatus = 0;
    OSStatus openStatus = 0;

    /// The names of the called functions, in order.
    QByteArrayList calls;

    QByteArray path;
    bool pathRefWasZero = false;
    bool directoryWasRequested = false;

    OSType creator = 99;
    QByteArray bundleId;
    bool nameWasGiven = false;
    bool urlWasRequested = false;
    bool findRefWasZero = false;

    LSApplicationParameters parameters = {};
    FSRef application = {};
    bool serialNumberWasRequested = false;
};

/// The state that the functions use. Reset it before each test.
extern LaunchServices launchServices;

/// The byte that the stand-in repeats in the FSRef of an application found by path or identifier.
constexpr UInt8 foundByPath = 0x11;
constexpr UInt8 foundById = 0x22;
