#pragma once

#include <QString>

#include <map>
#include <random>
#include <variant>
#include <vector>

/// JSON values with a reader and a writer of their own. The tests compare through these what the
/// program under test reads and writes, so nothing of the program's own is used here, nor Qt's
/// JSON, which loses a part of what has to pass.
struct JsonValue {
    using List = std::vector<JsonValue>;
    using Object = std::map<QString, JsonValue>;

    std::variant<std::nullptr_t, bool, qint64, quint64, double, QString, List, Object> content;
};

/// By value and type: integers exactly, doubles by their bits, texts by their code units.
bool operator==(const JsonValue& left, const JsonValue& right);

using Generator = std::mt19937_64;

/// The number of values in `value`, itself included.
int valueCount(const JsonValue& value);

/// A text with everything that a text can hold: control characters, U+0000, U+FEFF,
/// noncharacters, unpaired surrogates, emoji, quotes, braces and placeholders.
QString randomText(Generator* generator);

/// A citation cluster with about `size` random values, nested to a depth of `depth` at least, and
/// with the two texts below "tessaron" that the program looks up.
JsonValue randomCluster(Generator* generator, int size, int depth);

/// Where a JSON text will stand.
enum class Writing {
    Utf16, ///< in a text, where an unpaired surrogate may stand unescaped
    Utf8 ///< where it has to be escaped
};

/// Writes `value`, each time in another of the forms that JSON leaves open: blanks, escapes, the
/// case of hexadecimal digits, exponents. U+0001 is always escaped: it would end a list's entry.
QString written(const JsonValue& value, Generator* generator, Writing writing);

/// Reads a JSON text. Sets `*ok` to whether it is one, with nothing before or behind it.
JsonValue readJson(const QString& json, bool* ok);
