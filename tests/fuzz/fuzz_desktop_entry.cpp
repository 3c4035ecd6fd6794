// The reader of desktop entries. Input: the bytes of a desktop entry's file. The same bytes are
// also used as an Exec line with its fields, and as the arguments of a command, both separated by
// zero bytes.

#include "service/DesktopEntry.h"
#include "tests/fuzz/Check.h"
#include "tests/support/Utf8.h"

#include <QFile>
#include <QTemporaryDir>

#include <algorithm>

namespace {

void writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    check(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush(),
        "the folder has room");
}

/// The standard requires a program, without "=" in its name.
bool isProgram(const QList<QByteArray>& command)
{
    return !command.isEmpty() && !command.first().isEmpty() && !command.first().contains('=');
}

/// `argument`, quoted for an Exec line.
QByteArray quoted(QByteArray argument)
{
    for (const char* reserved : {"\\", "\"", "`", "$"}) {
        argument.replace(reserved, QByteArray("\\") + reserved);
    }
    return '"' + argument.replace('%', "%%") + '"';
}

/// `value`, escaped as the string value of a key.
QByteArray asKeyValue(QByteArray value)
{
    constexpr const char* escapes[][2] = {
        {"\\", "\\\\"}, {"\n", "\\n"}, {"\t", "\\t"}, {"\r", "\\r"}, {" ", "\\s"}};
    for (const auto& escape : escapes) {
        value.replace(escape[0], escape[1]);
    }
    return value;
}

bool isUtf8(const QByteArray& bytes)
{
    return textFromUtf8(bytes).has_value();
}

void checkQuoting(const QList<QByteArray>& arguments)
{
    QByteArray exec;
    for (const QByteArray& argument : arguments) {
        exec += quoted(argument) + ' ';
    }
    check(expandExec(exec, {}) == (isProgram(arguments) ? arguments : QList<QByteArray>()),
        "keeps quoted arguments");
}

/// In a line without quotes and field codes, each word is an argument.
void checkPlainLine(QByteArray exec, const QList<QByteArray>& command)
{
    if (exec.contains('"') || exec.contains('%')) {
        return;
    }
    QList<QByteArray> words = exec.replace('\t', ' ').replace('\n', ' ').split(' ');
    words.removeAll(QByteArray());
    check(command == (isProgram(words) ? words : QList<QByteArray>()),
        "splits a plain line into its words");
}

/// The same line gives the same command when it is read from a file.
void checkThroughFile(const QString& path, const QByteArray& exec, const QByteArray& icon)
{
    // GLib drops more kinds of leading whitespace than the standard lists, so skip \f and \v.
    if (!isUtf8(exec) || !isUtf8(icon) || icon.startsWith('\f') || icon.startsWith('\v')) {
        return;
    }
    writeFile(path,
        "[Desktop Entry]\nType=Application\nName=n\nIcon=" + asKeyValue(icon) + "\nExec=\\s"
            + asKeyValue(exec) + "\nPath=/tmp\n");
    const QList<QByteArray> command = expandExec(exec, {icon, "n", QFile::encodeName(path)});
    const auto entry = readDesktopEntry(path);
    check(entry.has_value() == !command.isEmpty(), "accepts an entry whose line is valid");
    check(!entry || (entry->command == command && entry->workingDirectory == "/tmp"),
        "reads the same command from a file");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const QTemporaryDir folder;
    const QByteArray bytes(reinterpret_cast<const char*>(data), int(size));

    const QString path = folder.filePath(QStringLiteral("read.desktop"));
    writeFile(path, bytes);
    const auto entry = readDesktopEntry(path);
    check(!entry || isProgram(entry->command), "accepts only an entry with a program");

    const QList<QByteArray> strings = bytes.split('\0');
    const QByteArray& exec = strings.first();
    const QList<QByteArray> command =
        expandExec(exec, {strings.value(1), strings.value(2), strings.value(3)});
    check(command.isEmpty() || isProgram(command), "accepts only a line with a program");
    checkPlainLine(exec, command);
    checkThroughFile(folder.filePath(QStringLiteral("written.desktop")), exec, strings.value(1));
    checkQuoting(strings);
    return 0;
}
