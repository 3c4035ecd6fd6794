#pragma once

#include <QString>

#include <map>
#include <random>
#include <variant>
#include <vector>

/// A JSON value, with a reader and a writer that share no code with the program. Tests use it to
/// check what the program reads and writes. Qt's JSON classes would not keep every value.
struct JsonValue {
    using List = std::vector<JsonValue>;
    using Object = std::map<QString, JsonValue>;

    std::variant<std::nullptr_t, bool, qint64, quint64, double, QString, List, Object> content;
};

/// Compares value and type: integers exactly, doubles bit by bit, strings by code units.
bool operator==(const JsonValue& left, const JsonValue& right);

using Generator = std::mt19937_64;

/// Returns the number of values in `value`, including itself.
int valueCount(const JsonValue& value);

/// Returns a string of unusual content: control characters, U+0000, U+FEFF, noncharacters, unpaired
/// surrogates, emoji, quotes, braces and placeholders.
QString randomText(Generator* generator);

/// Returns a citation cluster of about `size` random values, nested to a depth of at least `depth`.
/// It has the two strings in "tessaron" that the program reads.
JsonValue randomCluster(Generator* generator, int size, int depth);

/// The encoding of a JSON text.
enum class Encoding {
    Utf16, ///< an unpaired surrogate need not be escaped
    Utf8 ///< an unpaired surrogate has to be escaped
};

/// Writes `value` as JSON with random whitespace, escape sequences, case of hexadecimal digits and
/// exponents. Always escapes U+0001, which separates the strings of a list file.
QString writeRandomForm(const JsonValue& value, Generator* generator, Encoding encoding);

/// Reads a JSON text. Sets `*ok` to false if it is malformed or followed by more.
JsonValue readJson(const QString& json, bool* ok);
