#pragma once

/// Finds the desktop application and opens it hidden, without bringing it to the front. The build
/// chooses the implementation: DesktopApplication_mac.cpp uses Launch Services,
/// DesktopApplication_linux.cpp follows freedesktop.org's Desktop Entry standard. Both try the
/// fixed installation path first and then the application's identity (bundle identifier or
/// desktop-file id).
///
/// Returns 0 if the application was started. Does not wait for its local API. On macOS the call may
/// block until the application has registered with the system.
///
/// Otherwise returns a nonzero number to show to the user. If the application was not found, this
/// is -10814 on Linux and the status of Launch Services on macOS, usually the same number
/// (kLSApplicationNotFoundErr). If the start failed, it is the errno on Linux and the status of
/// Launch Services on macOS.
///
/// Call this only if the application is not running. Otherwise it may start a second copy (Linux)
/// or bring the application to the front (macOS).
int openDesktopApplication();
