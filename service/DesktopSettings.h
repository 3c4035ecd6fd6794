#pragma once

#include <QString>

class QSettings;

/// The desktop application's own settings, which this program only reads: on macOS the
/// preferences of "tessaron.com" / "Tessaron Desktop", on Linux
/// $XDG_CONFIG_HOME/tessaron.com/Tessaron Desktop.conf. Made on the first call, destroyed at
/// exit; never null. Settings that are missing or cannot be read answer as if they were empty.
QSettings* tessaronDesktopSettings();

/// Where the application says it is installed ("ExecutablePath"); empty when it does not.
QString tessaronDesktopPath();

/// The TCP port of the application's local API ("General/httpServerPort"), 50002 when there is
/// none; 0 when the value is not a number. Not checked for being a port.
int tessaronDesktopTcpPort();
