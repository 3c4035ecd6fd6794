#pragma once

#include <CoreServices/CoreServices.h>

#include <QByteArray>
#include <QByteArrayList>

/// What the stand-in answers, and what it was given.
struct LaunchServices {
    OSStatus pathStatus = 0;
    OSStatus findStatus = 0;
    OSStatus openStatus = 0;

    /// The functions' names in the order of the calls.
    QByteArrayList calls;

    QByteArray path;
    bool pathRefWasZero = false;
    bool directoryWasAsked = false;

    OSType creator = 99;
    QByteArray bundleId;
    bool nameWasGiven = false;
    bool urlWasAsked = false;
    bool findRefWasZero = false;

    LSApplicationParameters parameters = {};
    FSRef application = {};
    bool serialNumberWasAsked = false;
};

/// The one that the functions use; assign a new one before each test.
extern LaunchServices launchServices;

/// What the two ways to find the application put into every byte of its FSRef.
constexpr UInt8 foundByPath = 0x11;
constexpr UInt8 foundById = 0x22;
