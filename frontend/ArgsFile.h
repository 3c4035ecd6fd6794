#pragma once

#include "frontend/TextCodec.h"

#include <QString>
#include <QStringList>

/// Reading and writing the files that the macro and the bridge exchange. Their format is described
/// in docs/macro-guide.md. The warnings say "args file" for each of them: arguments, results and
/// status.

/// U+0001, which separates the strings of a list. A string that contains it is read back as
/// two strings.
constexpr ushort argsFileSeparator = 0x0001;

/// Returns the codec "UTF-16LE", which Qt owns. Logs a warning and returns null if Qt has none.
/// The bytes are converted without the codec, but reading and writing fail if it is missing. Fixed
/// by the interface.
const ArgsFileCodec* argsFileCodec();

/// Returns the strings in the list file at `path`; an empty file holds one empty string. Ignores a
/// leading byte order mark and an odd last byte. Sets `*success` to whether the whole file was
/// read. On failure returns an empty list and logs a warning: with the path if the file cannot be
/// read completely, is not a regular file or is larger than 512 MB, and without it if the codec is
/// missing.
QStringList readArgsFile(const QString& path, bool* success);

/// Replaces the file at `path` with `content`: writes "<path>.temp", deletes the old file and
/// renames the new one, so that a reader finds the old file, no file, or the complete new one.
/// Returns the number of bytes written and sets `*success` to true, even if the old file could not
/// be replaced.
///
/// Returns -1, sets `*success` to false and leaves the old file untouched if
/// - the side file cannot be created (logs a warning with `path`);
/// - the codec is missing (logs a warning without `path` and leaves an empty side file);
/// - not all bytes could be written, their number exceeds an int, or closing the side file fails
///   (logs nothing and leaves the side file).
int writeFile(const QString& path, const QString& content, bool* success);

/// Writes `lines` as a list; otherwise like writeFile(). An empty list becomes an empty file, which
/// readArgsFile() reads back as one empty string.
int writeArgsFile(const QString& path, const QStringList& lines, bool* success);
