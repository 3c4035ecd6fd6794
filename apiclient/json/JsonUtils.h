#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <functional>

/// Reads and writes JSON without changing any value. docs/architecture.md explains why no JSON
/// library is used.
///
/// Objects are QVariantMap, so keys are written in ascending order; arrays are QVariantList.
/// 64-bit integers are exact (qlonglong, or qulonglong above its range). All other numbers are
/// doubles; an integer of more than 64 bits becomes the nearest double. Strings keep every UTF-16
/// code unit, including U+0000, U+FEFF, noncharacters and unpaired surrogates.
namespace JsonUtils {

/// The maximum nesting of objects and arrays. Deeper JSON is malformed.
constexpr int maximumDepth = 1024;

/// Returns what replaces `element` in its array.
using Revive = std::function<QVariant(const QVariant& element)>;

/// Replaces the elements of the array under `key` in the outermost object while the JSON is parsed,
/// like the reviver of ECMAScript's JSON.parse(). Only one element of a long array is then in
/// memory at a time. A value that is not an array is not replaced.
struct ElementReviver {
    QString key;
    Revive revive;
};

/// Descends through nested maps along `path`, keys joined with ".". Returns the value of the last
/// key, or an invalid QVariant if a key is missing or an intermediate value is not a map.
QVariant getValueAtPath(const QVariantMap& map, const QString& path);

/// Parses a JSON text (RFC 8259) in UTF-8. Ignores a leading byte order mark. Accepts unescaped
/// control characters in strings, which the RFC does not. Keeps escaped surrogates without a
/// partner, whose meaning the RFC leaves open. The last of duplicate keys wins.
///
/// Returns an invalid QVariant if the text is malformed, which includes invalid UTF-8, numbers
/// beyond the range of a double, and nesting deeper than maximumDepth. JSON's null is a valid null
/// variant (QMetaType::Nullptr).
///
/// Calls `reviver`, if there is one, once for each element, in order, even if the text turns out to
/// be malformed later, or if the key is repeated and its last value replaces the array.
QVariant parse(const QByteArray& json, const ElementReviver& reviver = {});

/// Parses a JSON text in UTF-16. Also accepts unescaped unpaired surrogates.
QVariant parseText(const QString& json);

/// Writes `value` as compact JSON in UTF-8. Escapes only quotes, backslashes, control characters
/// and unpaired surrogates. Writes an integral double with a fraction (2.0), so that it is read as
/// a double again. A value without a JSON form (invalid, NaN, infinity) is written as null; other
/// types are written as the text they convert to. Returns a null array (isNull()) if the JSON would
/// exceed QByteArray's limit of 2 GB.
QByteArray serialize(const QVariant& value);

/// Writes the same JSON as UTF-16 after `prefix`. Returns a null string (isNull()) if the text
/// would exceed QString's limit of about 10^9 code units.
QString serializeToText(const QVariant& value, const QString& prefix = QString());

} // namespace JsonUtils
