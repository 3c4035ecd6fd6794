#pragma once

#include <QString>

class QSettings;

/// Returns the desktop application's settings, which this program only reads: on macOS the
/// preferences of "tessaron.com" / "Tessaron Desktop", on Linux the file
/// $XDG_CONFIG_HOME/tessaron.com/Tessaron Desktop.conf and, for values missing there, QSettings'
/// fallback tessaron.com.conf. Missing or unreadable settings behave like
/// empty ones. Never returns null; the object is created by the first call, is owned by this
/// function and is destroyed when the process exits.
QSettings* tessaronDesktopSettings();

/// Returns the path of the application's executable ("ExecutablePath"), or an empty string if it is
/// not set. Fixed by the interface: nothing in this program calls it.
QString tessaronDesktopPath();

/// Returns the TCP port of the application's local API ("General/httpServerPort"): 50002 if it is
/// not set, 0 if it is not a number. Any other number is returned unchecked, also one that cannot
/// be a port.
int tessaronDesktopTcpPort();
