#include "apiclient/json/JsonUtils.h"

#include <QLocale>
#include <QVarLengthArray>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace {

using Utf16Buffer = QVarLengthArray<ushort, 512>;

template <typename Unit> QString textFrom(const Unit* units, qptrdiff length)
{
    if constexpr (sizeof(Unit) == 1) {
        return QString::fromLatin1(reinterpret_cast<const char*>(units), int(length));
    } else {
        return QString(reinterpret_cast<const QChar*>(units), int(length));
    }
}

int hexDigit(uint unit)
{
    if (unit >= '0' && unit <= '9') {
        return int(unit - '0');
    }
    const uint lower = unit | 0x20U;
    return lower >= 'a' && lower <= 'f' ? int(lower - 'a' + 10) : -1;
}

/// Reads JSON in UTF-8 (Unit = uchar) or UTF-16 (Unit = ushort). Each read function parses one
/// construct at `next` and moves `next` past it, or returns false if the text is malformed.
template <typename Unit> class Reader {
public:
    Reader(const Unit* text, int length, const JsonUtils::ElementReviver& elementReviver)
        : next(text)
        , end(text + length)
        , reviver(elementReviver)
    {
    }

    bool readDocument(QVariant* value)
    {
        skipWhitespace();
        if (!readValue(value)) {
            return false;
        }
        skipWhitespace();
        return next == end;
    }

private:
    /// Returns whether anything follows the whitespace.
    bool skipWhitespace()
    {
        while (next != end && (*next == ' ' || *next == '\n' || *next == '\r' || *next == '\t')) {
            ++next;
        }
        return next != end;
    }

    bool accept(char expected)
    {
        if (next == end || *next != Unit(expected)) {
            return false;
        }
        ++next;
        return true;
    }

    bool readValue(QVariant* value)
    {
        if (next == end) {
            return false;
        }
        switch (*next) {
        case '{':
            return readObject(value);
        case '[':
            return readArray(value);
        case '"':
            return readStringValue(value);
        case 't':
            *value = true;
            return readLiteral("true");
        case 'f':
            *value = false;
            return readLiteral("false");
        case 'n':
            *value = QVariant::fromValue(nullptr);
            return readLiteral("null");
        default:
            return readNumber(value);
        }
    }

    bool readLiteral(const char* literal)
    {
        while (*literal != '\0') {
            if (!accept(*literal++)) {
                return false;
            }
        }
        return true;
    }

    bool readObject(QVariant* value)
    {
        if (++depth > JsonUtils::maximumDepth) {
            return false;
        }
        *value = QVariantMap();
        // Filled in place: a copy would share its data and be detached by the next insertion.
        auto* map = static_cast<QVariantMap*>(value->data());
        ++next;
        if (skipWhitespace() && accept('}')) {
            --depth;
            return true;
        }
        for (;;) {
            QString key;
            if (!readString(&key) || !skipWhitespace() || !accept(':') || !skipWhitespace()) {
                return false;
            }
            const auto entry = map->insert(key, QVariant());
            if (!readMember(key, &entry.value()) || !skipWhitespace()) {
                return false;
            }
            if (accept('}')) {
                --depth;
                return true;
            }
            if (!accept(',') || !skipWhitespace()) {
                return false;
            }
        }
    }

    bool readMember(const QString& key, QVariant* value)
    {
        const bool revived = depth == 1 && *next == '[' && key == reviver.key;
        return revived ? readArray(value, reviver.revive) : readValue(value);
    }

    /// If `revive` is not empty, replaces each element with its result.
    bool readArray(QVariant* value, const JsonUtils::Revive& revive = {})
    {
        if (++depth > JsonUtils::maximumDepth) {
            return false;
        }
        *value = QVariantList();
        auto* list = static_cast<QVariantList*>(value->data());
        ++next;
        if (skipWhitespace() && accept(']')) {
            --depth;
            return true;
        }
        for (;;) {
            list->append(QVariant());
            if (!readValue(&list->last()) || !skipWhitespace()) {
                return false;
            }
            if (revive) {
                list->last() = revive(list->last());
            }
            if (accept(']')) {
                --depth;
                return true;
            }
            if (!accept(',') || !skipWhitespace()) {
                return false;
            }
        }
    }

    bool readStringValue(QVariant* value)
    {
        *value = QString();
        return readString(static_cast<QString*>(value->data()));
    }

    bool readString(QString* text)
    {
        if (!accept('"')) {
            return false;
        }
        const Unit* const start = next;
        skipPlainUnits();
        if (next == end) {
            return false;
        }
        if (*next != '"') {
            return readStringSlowPath(start, text);
        }
        *text = textFrom(start, next - start);
        ++next;
        return true;
    }

    void skipPlainUnits()
    {
        while (next != end && *next != '"' && *next != '\\' && (sizeof(Unit) > 1 || *next < 0x80)) {
            ++next;
        }
    }

    /// Reads the rest of a string with escape sequences or multi-byte characters.
    bool readStringSlowPath(const Unit* start, QString* text)
    {
        scratch.clear();
        for (;;) {
            const int plainLength = int(next - start);
            const int oldSize = int(scratch.size());
            scratch.resize(oldSize + plainLength);
            std::copy(start, next, scratch.data() + oldSize);
            if (next == end) {
                return false;
            }
            if (*next == '"') {
                ++next;
                *text =
                    QString(reinterpret_cast<const QChar*>(scratch.constData()), scratch.size());
                return true;
            }
            if (!(*next == '\\' ? readEscape() : readMultiByteCodePoint())) {
                return false;
            }
            start = next;
            skipPlainUnits();
        }
    }

    bool readEscape()
    {
        ++next;
        if (next == end) {
            return false;
        }
        const uint unit = *next++;
        switch (unit) {
        case '"':
        case '\\':
        case '/':
            scratch.append(ushort(unit));
            return true;
        case 'b':
            scratch.append('\b');
            return true;
        case 'f':
            scratch.append('\f');
            return true;
        case 'n':
            scratch.append('\n');
            return true;
        case 'r':
            scratch.append('\r');
            return true;
        case 't':
            scratch.append('\t');
            return true;
        case 'u':
            return readHexEscape();
        default:
            return false;
        }
    }

    /// Reads one code unit. Surrogates are accepted with or without their partner.
    bool readHexEscape()
    {
        if (end - next < 4) {
            return false;
        }
        int unit = 0;
        for (int i = 0; i < 4; ++i) {
            const int digit = hexDigit(*next++);
            if (digit < 0) {
                return false;
            }
            unit = unit * 16 + digit;
        }
        scratch.append(ushort(unit));
        return true;
    }

    /// Reads a code point of two to four bytes, well-formed according to RFC 3629.
    bool readMultiByteCodePoint()
    {
        const uint lead = *next++;
        const int continuations = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
        if (lead < 0xC2 || lead > 0xF4 || end - next < continuations) {
            return false;
        }
        uint character = lead & (0x3FU >> continuations);
        for (int i = 0; i < continuations; ++i) {
            const uint byte = *next++;
            if ((byte & 0xC0U) != 0x80U) {
                return false;
            }
            character = (character << 6) | (byte & 0x3FU);
        }
        constexpr std::array<uint, 4> smallest{0, 0x80, 0x800, 0x10000};
        if (character < smallest[uint(continuations)] || character > 0x10FFFF
            || QChar::isSurrogate(character)) {
            return false;
        }
        if (QChar::requiresSurrogates(character)) {
            scratch.append(QChar::highSurrogate(character));
            scratch.append(QChar::lowSurrogate(character));
        } else {
            scratch.append(ushort(character));
        }
        return true;
    }

    bool skipDigits()
    {
        const Unit* const start = next;
        while (next != end && *next >= '0' && *next <= '9') {
            ++next;
        }
        return next != start;
    }

    bool readNumber(QVariant* value)
    {
        const Unit* const start = next;
        const bool negative = accept('-');
        const Unit* const digits = next;
        if (!accept('0') && !skipDigits()) {
            return false;
        }
        const Unit* const digitsEnd = next;
        if (accept('.') && !skipDigits()) {
            return false;
        }
        if (accept('e') || accept('E')) {
            if (!accept('+')) {
                accept('-');
            }
            if (!skipDigits()) {
                return false;
            }
        }
        return (next == digitsEnd && toInteger(digits, negative, value)) || toDouble(start, value);
    }

    /// Returns false if the digits up to `next` exceed 64 bits, and for -0, which only a double
    /// can represent.
    bool toInteger(const Unit* digits, bool negative, QVariant* value)
    {
        quint64 magnitude = 0;
        for (; digits != next; ++digits) {
            const auto digit = quint64(*digits - '0');
            if (magnitude > (std::numeric_limits<quint64>::max() - digit) / 10) {
                return false;
            }
            magnitude = magnitude * 10 + digit;
        }
        constexpr auto largestSigned = quint64(std::numeric_limits<qint64>::max());
        if (!negative) {
            *value = magnitude <= largestSigned ? QVariant(qint64(magnitude)) : QVariant(magnitude);
            return true;
        }
        if (magnitude == 0 || magnitude > largestSigned + 1) {
            return false;
        }
        *value = QVariant(qint64(~magnitude + 1));
        return true;
    }

    bool toDouble(const Unit* start, QVariant* value)
    {
        bool converted = false;
        // Not QByteArray::toDouble(), which returns 0 in Qt 6 for a number out of range.
        const double number = QLocale::c().toDouble(textFrom(start, next - start), &converted);
        *value = std::copysign(number, *start == '-' ? -1.0 : 1.0);
        // The syntax is valid, so a failed conversion means that the number is out of range. If it
        // is too small, it is 0, which is not an error.
        return converted || number == 0.0;
    }

    const Unit* next;
    const Unit* const end;
    const JsonUtils::ElementReviver& reviver;
    int depth = 0;
    Utf16Buffer scratch;
};

template <typename Unit>
QVariant read(const Unit* units, int length, const JsonUtils::ElementReviver& reviver = {})
{
    QVariant value;
    return Reader<Unit>(units, length, reviver).readDocument(&value) ? value : QVariant();
}

} // namespace

namespace JsonUtils {

QVariant parse(const QByteArray& json, const ElementReviver& reviver)
{
    const int markLength = json.startsWith("\xEF\xBB\xBF") ? 3 : 0;
    return read(reinterpret_cast<const uchar*>(json.constData()) + markLength,
        int(json.size()) - markLength, reviver);
}

QVariant parseText(const QString& json)
{
    const int markLength = json.startsWith(QChar(QChar::ByteOrderMark)) ? 1 : 0;
    return read(json.utf16() + markLength, int(json.size()) - markLength);
}

} // namespace JsonUtils
