#pragma once

#include <QByteArray>

/// Everything that changes the whole process, in one call before the application object is created
/// and one call after that. The exception is QtNetworkClient, which clears Qt's library paths
/// itself, because tests that use it without this setup need that too.

/// Prepares the process. Call it on the main thread, whose messages are logged.
/// - Opens a closed standard stream on the null device. Otherwise the next file or socket would get
///   its number, and the status would be printed into it.
/// - Ignores SIGXFSZ and SIGPIPE, so that a write past a file-size limit or into a pipe without a
///   reader fails instead of killing the process.
/// - Installs the message filter. It drops the messages of other threads unless they are fatal,
///   because Qt's network threads log warnings and standard error is reserved for this program's
///   messages. It also drops messages of the calling thread that begin with "QThread::start: ", and
///   reports each of them to QtNetworkClient as a failed thread start.
/// - Sets LC_ALL to "C". Otherwise QCoreApplication would load the user's locale from up to thirty
///   files, and nothing in this program depends on it.
///
/// Returns the value of LC_ALL before the call, null if it was unset, for finishProcessSetup().
QByteArray startProcessSetup();

/// Completes the setup once the application object exists: restores LC_ALL to `formerLocale`,
/// because the desktop application inherits the environment, and sets the encoding of file names to
/// UTF-8, because the macro's environment may not define a locale.
void finishProcessSetup(const QByteArray& formerLocale);

/// Writes `text` and a newline to standard output and flushes it. Ignores write errors: the
/// ready file holds the same text.
void printLine(const char* text);
