#pragma once

#include <QString>

/// The files in the folder that the macro and the bridge share. `folder` has no trailing slash.

/// The command's arguments, written by the macro before it starts the bridge.
QString argsFilePath(const QString& folder);

/// The command's results, written by the bridge.
QString resultsFilePath(const QString& folder);

/// The status, written by the bridge after the results file. The macro waits for it.
QString readyFilePath(const QString& folder);
