#include "service/DesktopEntry.h"

#include <QFile>
#include <QStandardPaths>

#include <glib.h>

#include <cstring>
#include <memory>

namespace {

bool isWhitespace(char character)
{
    return character == ' ' || character == '\t' || character == '\n';
}

/// One argument of an Exec line, without its quotes and before field codes are expanded.
struct Argument {
    QByteArray text;
    bool quoted = false;
};

/// Reads the quoted argument that begins at `next` and moves `next` past it. Returns false if the
/// quote is not closed or something other than whitespace follows it.
bool readQuoted(const char*& next, Argument* argument)
{
    argument->quoted = true;
    for (++next; *next != '"'; ++next) {
        // A backslash escapes only these four characters and is literal before any other.
        if (*next == '\\' && next[1] != '\0' && std::strchr("\"`$\\", next[1]) != nullptr) {
            ++next;
        }
        if (*next == '\0') {
            return false;
        }
        argument->text += *next;
    }
    ++next;
    return *next == '\0' || isWhitespace(*next);
}

/// Reads the unquoted argument that begins at `next` and moves `next` past it. Returns false if it
/// contains a quote.
bool readUnquoted(const char*& next, Argument* argument)
{
    for (; *next != '\0' && !isWhitespace(*next); ++next) {
        if (*next == '"') {
            return false;
        }
        argument->text += *next;
    }
    return true;
}

/// Returns nothing if a quote is misplaced or not closed.
std::optional<QList<Argument>> splitExec(const QByteArray& exec)
{
    QList<Argument> arguments;
    const char* next = exec.constData();
    for (;;) {
        while (isWhitespace(*next)) {
            ++next;
        }
        if (*next == '\0') {
            return arguments;
        }
        Argument argument;
        if (!(*next == '"' ? readQuoted(next, &argument) : readUnquoted(next, &argument))) {
            return {};
        }
        arguments.append(argument);
    }
}

/// Returns the text that replaces the field code `code` inside an argument, or nothing if there is
/// no such code.
std::optional<QByteArray> fieldText(char code, const ExecFields& fields)
{
    switch (code) {
    case '%':
        return QByteArrayLiteral("%");
    case 'c':
        return fields.name;
    case 'k':
        return fields.entryPath;
    default:
        // The codes for files and URLs and the deprecated ones are removed. %i has a value only as
        // a whole argument.
        return QByteArrayLiteral("fFuUdDnNvmi").contains(code) ? std::optional(QByteArray())
                                                               : std::nullopt;
    }
}

/// Returns nothing if the argument contains an unknown field code.
std::optional<QByteArray> expandArgument(const QByteArray& argument, const ExecFields& fields)
{
    QByteArray expanded;
    for (int i = 0; i < argument.size(); ++i) {
        if (argument.at(i) != '%') {
            expanded += argument.at(i);
            continue;
        }
        ++i;
        const auto text = fieldText(i < argument.size() ? argument.at(i) : '\0', fields);
        if (!text) {
            return {};
        }
        expanded += *text;
    }
    return expanded;
}

struct KeyFileDeleter {
    void operator()(GKeyFile* file) const { g_key_file_free(file); }
};

/// The main group of a desktop entry file. Missing and malformed values read as empty.
class EntryFile {
public:
    bool load(const QString& path)
    {
        return g_key_file_load_from_file(
                   file.get(), QFile::encodeName(path).constData(), G_KEY_FILE_NONE, nullptr)
            != FALSE;
    }

    QByteArray text(const char* key) const
    {
        return take(g_key_file_get_string(file.get(), group, key, nullptr));
    }

    QByteArray translatedText(const char* key) const
    {
        return take(g_key_file_get_locale_string(file.get(), group, key, nullptr, nullptr));
    }

    bool isTrue(const char* key) const
    {
        return g_key_file_get_boolean(file.get(), group, key, nullptr) != FALSE;
    }

private:
    static constexpr const char* group = G_KEY_FILE_DESKTOP_GROUP;

    /// Returns a copy of `value`, which may be null, and frees it.
    static QByteArray take(char* value)
    {
        const std::unique_ptr<char, decltype(&g_free)> owner(value, &g_free);
        return QByteArray(value);
    }

    const std::unique_ptr<GKeyFile, KeyFileDeleter> file{g_key_file_new()};
};

} // namespace

QList<QByteArray> expandExec(const QByteArray& exec, const ExecFields& fields)
{
    const auto arguments = splitExec(exec);
    if (!arguments) {
        return {};
    }
    QList<QByteArray> command;
    for (const Argument& argument : *arguments) {
        // "%i" is the only code that becomes two arguments.
        if (argument.text == "%i" && !argument.quoted) {
            if (!fields.icon.isEmpty()) {
                command << QByteArrayLiteral("--icon") << fields.icon;
            }
            continue;
        }
        const auto expanded = expandArgument(argument.text, fields);
        if (!expanded) {
            return {};
        }
        // Drop an argument that held only a removed field code. Keep a quoted one.
        if (!expanded->isEmpty() || argument.quoted) {
            command << *expanded;
        }
    }
    // The standard forbids "=" in the program's name.
    const bool isValid =
        !command.isEmpty() && !command.first().isEmpty() && !command.first().contains('=');
    return isValid ? command : QList<QByteArray>();
}

std::optional<DesktopEntry> readDesktopEntry(const QString& filePath)
{
    EntryFile file;
    if (!file.load(filePath) || file.text(G_KEY_FILE_DESKTOP_KEY_TYPE) != "Application"
        || file.isTrue(G_KEY_FILE_DESKTOP_KEY_HIDDEN)) {
        return {};
    }
    const QByteArray tryExec = file.text(G_KEY_FILE_DESKTOP_KEY_TRY_EXEC);
    if (!tryExec.isEmpty()
        && QStandardPaths::findExecutable(QFile::decodeName(tryExec)).isEmpty()) {
        return {};
    }
    const DesktopEntry entry{
        expandExec(file.text(G_KEY_FILE_DESKTOP_KEY_EXEC),
            {file.text(G_KEY_FILE_DESKTOP_KEY_ICON),
                file.translatedText(G_KEY_FILE_DESKTOP_KEY_NAME), QFile::encodeName(filePath)}),
        file.text(G_KEY_FILE_DESKTOP_KEY_PATH)};
    return entry.command.isEmpty() ? std::nullopt : std::optional(entry);
}
