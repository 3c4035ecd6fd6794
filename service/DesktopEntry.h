#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

/// freedesktop.org's Desktop Entry standard, limited to starting an application. Nothing here
/// starts a process.

/// How a desktop entry starts its application.
struct DesktopEntry {
    /// The program and its arguments; never empty.
    QList<QByteArray> command;
    /// The working directory ("Path"); empty for that of the starting process.
    QByteArray workingDirectory;
};

/// Reads the desktop entry at `filePath`, for a start without files or URLs. Returns nothing if the
/// entry does not describe an installed application: it cannot be read or parsed, its Type is not
/// Application, it has Hidden=true, the program in TryExec does not exist or is not executable, or
/// Exec is missing or invalid. The name for %c is translated into the process's locale.
std::optional<DesktopEntry> readDesktopEntry(const QString& filePath);

/// The values of the field codes in an Exec line.
struct ExecFields {
    QByteArray icon; ///< %i
    QByteArray name; ///< %c, translated
    QByteArray entryPath; ///< %k
};

/// Splits `exec` into arguments and expands the field codes. `exec` is the value of an Exec key
/// after its string escapes (\s, \n, ...) have been decoded. No shell is involved: "$" and "`" are
/// ordinary characters.
///
/// The codes for files and URLs and the deprecated codes expand to nothing. "%i" as an unquoted
/// argument becomes the two arguments "--icon" and the icon, or is dropped if there is no icon. In
/// quotes or inside a longer argument, "%i" expands to nothing. An unquoted argument that is empty
/// after the expansion is dropped; a quoted one stays as an empty argument.
///
/// Returns an empty list if the line is invalid: an unknown field code, a quote that is not closed
/// or does not enclose a whole argument, no program, or a program name that contains "=".
QList<QByteArray> expandExec(const QByteArray& exec, const ExecFields& fields);
