#pragma once

/// Finds the desktop application and opens it hidden, without bringing it to the front:
/// DesktopApplication_mac.cpp through Launch Services, DesktopApplication_linux.cpp as the
/// Desktop Entry standard says. First the fixed installation path, then the application's
/// identity (bundle identifier, desktop-file id).
///
/// Returns 0 when the application was started, without waiting until it is ready, and otherwise
/// the number that tells the user why: -10814 when it was not found on Linux and mostly on macOS
/// (kLSApplicationNotFoundErr), else the platform's status or errno of the failed start.
///
/// Opening an application that runs already may bring it to the front, so ask before.
int openDesktopApplication();
