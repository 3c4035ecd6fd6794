#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

/// JSON as this program needs it: every value that passes through comes out as it went in.
///
/// Objects are QVariantMap (so keys come out in ascending order), arrays are QVariantList.
/// Integers of 64 bits are kept exactly (qlonglong, above its range qulonglong), all other
/// numbers are doubles; an integer of more than 64 bits becomes the nearest double. Texts keep
/// every UTF-16 code unit: U+0000, U+FEFF, noncharacters and unpaired surrogates included.
/// docs/architecture.md tells why no library stands here.
namespace JsonUtils {

/// The deepest nesting of objects and arrays that is read; anything deeper counts as malformed.
constexpr int maximumDepth = 1024;

/// Descends through nested maps along `path`, keys joined with ".". Returns the value under the
/// last key; an invalid QVariant when a key is missing or a value on the way is not a map.
QVariant getValueAtPath(const QVariantMap& map, const QString& path);

/// Reads one JSON text (RFC 8259) in UTF-8; a byte-order mark in front of it is passed over.
/// More lenient than the RFC in two points: control characters may stand unescaped in a string,
/// and an escaped surrogate needs no partner. Of keys that occur twice the last one counts.
/// Returns an invalid QVariant for malformed input (invalid UTF-8, numbers beyond a double's
/// range and nesting deeper than maximumDepth included); JSON's null is a valid null variant.
QVariant parse(const QByteArray& json);

/// The same for a text in UTF-16, in which an unpaired surrogate may also stand unescaped.
QVariant parseText(const QString& json);

/// Writes `value` as compact JSON in UTF-8. Escapes only quotes, backslashes, control characters
/// and unpaired surrogates. Writes an integral double with a fraction (2.0), so that it is read as
/// a double again. A value without a JSON form (invalid, NaN, infinity) is written as null; other
/// types are written as the text they convert to. Returns a null array (isNull()) if the JSON would
/// exceed QByteArray's limit of 2 GB.
QByteArray serialize(const QVariant& value);

/// Writes the same JSON as UTF-16 after `prefix`. Returns a null string (isNull()) if the text
/// would exceed QString's limit of some thousand million characters.
QString serializeToText(const QVariant& value, const QString& prefix = QString());

} // namespace JsonUtils
