#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

/// What a desktop entry says about starting its application.
struct DesktopEntry {
    /// The program and its arguments, never empty.
    QList<QByteArray> command;
    /// The folder to start it in; empty for the starter's own.
    QByteArray workingDirectory;
};

/// Reads the desktop entry at `filePath` as the Desktop Entry standard says, for a start without
/// files or URLs. Returns nothing where the entry does not install an application: it cannot be
/// read, is not of type Application, has "Hidden=true", names a TryExec that is not there, or
/// its Exec is missing or invalid.
std::optional<DesktopEntry> readDesktopEntry(const QString& filePath);

/// What the field codes of an Exec line stand for.
struct ExecFields {
    QByteArray icon; ///< %i, as "--icon" and this; nothing when empty
    QByteArray name; ///< %c, the translated name
    QByteArray entryPath; ///< %k
};

/// Splits `exec`, the value of an Exec key without its string escapes, into arguments and
/// expands its field codes. Codes for files and URLs and the deprecated ones become nothing.
/// Returns an empty list for an invalid line: an unknown code, a quote that is not closed or
/// stands inside an argument, no program or one whose name holds "=".
QList<QByteArray> expandExec(const QByteArray& exec, const ExecFields& fields);
