#pragma once

#include <QByteArray>

/// Everything that changes the whole process, in one call before the application object is created
/// and one after it. One thing stays elsewhere: QtNetworkClient clears Qt's library paths, because
/// that must happen before any network manager is created, whichever program uses it.

/// Prepares the process; the calling thread becomes the one whose messages are logged.
/// - Opens a closed standard stream on the null device. Otherwise the next file or socket would get
///   its number, and the status would be printed into it.
/// - Ignores SIGXFSZ and SIGPIPE, so that a write past a file-size limit or into a pipe without a
///   reader fails instead of killing the process.
/// - Installs the message filter. It drops the messages of other threads, because Qt's network
///   threads log warnings and standard error is reserved for this program's messages; fatal
///   messages always pass. It also counts failed thread starts for QtNetworkClient.
/// - Sets LC_ALL to "C", because QCoreApplication would load the user's locale from up to thirty
///   files and nothing here depends on it.
///
/// Returns the value of LC_ALL before the call, null if it was unset, for finishProcessSetup().
QByteArray startProcessSetup();

/// Completes the setup once the application object exists: restores LC_ALL to `formerLocale`,
/// because the desktop application inherits the environment, and makes UTF-8 the encoding of file
/// names whatever the environment says: a macro's environment may name no locale.
void finishProcessSetup(const QByteArray& formerLocale);

/// Writes `text` and a newline to standard output and flushes it. Ignores write errors: the
/// result-ready file holds the same text.
void printLine(const char* text);
