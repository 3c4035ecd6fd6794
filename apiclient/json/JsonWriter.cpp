#include "apiclient/json/JsonUtils.h"

#include <QLocale>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <type_traits>
#include <utility>

namespace {

constexpr int chunkSize = 16; // code units that are written after one check of the buffer's size
constexpr int longestEscape = 6; // \uXXXX
constexpr int initialSize = 16 * 1024; // enough for nearly every citation

// The ASCII characters that need no escaping.
constexpr std::array<bool, 0x80> plainAscii = []() {
    std::array<bool, 0x80> plain{};
    for (unsigned unit = 0x20; unit < plain.size(); ++unit) {
        plain[unit] = unit != '"' && unit != '\\';
    }
    return plain;
}();

/// Writes JSON as UTF-8 (Text = QByteArray) or UTF-16 (Text = QString).
template <typename Text> class Writer {
    static constexpr bool isUtf8 = std::is_same_v<Text, QByteArray>;
    using Unit = std::conditional_t<isUtf8, uchar, ushort>;
    // Qt 5's containers abort the process above 2 GB.
    static constexpr qint64 largestSize = std::numeric_limits<int>::max() / int(sizeof(Unit)) - 64;

public:
    explicit Writer(const Text& prefix)
        : text(prefix)
        , used(int(prefix.size()))
    {
        text.resize(used + initialSize);
    }

    Text take()
    {
        if (overflow) {
            return Text();
        }
        if (used <= initialSize) {
            // A copy of the exact size: thousands of field codes are kept, and each would
            // otherwise keep its whole buffer.
            return Text(text.constData(), used);
        }
        text.resize(used);
        return std::move(text);
    }

    void writeValue(const QVariant& value)
    {
        switch (value.userType()) {
        case QMetaType::QVariantMap:
            return writeMap(*static_cast<const QVariantMap*>(value.constData()));
        case QMetaType::QVariantList:
            return writeList(*static_cast<const QVariantList*>(value.constData()));
        case QMetaType::QString:
            return writeString(*static_cast<const QString*>(value.constData()));
        case QMetaType::QStringList:
            return writeList(value.toList());
        case QMetaType::QVariantHash:
            return writeMap(value.toMap());
        case QMetaType::Bool:
            return writeAscii(value.toBool() ? "true" : "false");
        case QMetaType::Int:
        case QMetaType::Long:
        case QMetaType::LongLong:
        case QMetaType::Short:
            return writeInteger(value.toLongLong());
        case QMetaType::UInt:
        case QMetaType::ULong:
        case QMetaType::ULongLong:
        case QMetaType::UShort:
            return writeInteger(value.toULongLong());
        case QMetaType::Double:
        case QMetaType::Float:
            return writeDouble(value.toDouble());
        default:
            return value.isNull() || !value.canConvert<QString>() ? writeAscii("null")
                                                                  : writeString(value.toString());
        }
    }

private:
    /// Returns where the next `count` units can be written.
    Unit* reserve(int count)
    {
        if (text.size() - used < count) {
            if (qint64(used) + count > largestSize) {
                // Starts again in the same buffer; take() discards everything.
                overflow = true;
                used = 0;
            } else {
                const qint64 wanted = std::max(qint64(used) + count, qint64(used) * 3 / 2);
                text.resize(int(std::min(wanted, largestSize)));
            }
        }
        return reinterpret_cast<Unit*>(text.data()) + used;
    }

    void writeUnit(uchar unit)
    {
        *reserve(1) = unit;
        ++used;
    }

    void writeAscii(const char* ascii)
    {
        while (*ascii != '\0') {
            writeUnit(uchar(*ascii++));
        }
    }

    template <typename Integer> void writeInteger(Integer number)
    {
        std::array<char, 24> digits{};
        *std::to_chars(digits.data(), digits.data() + digits.size() - 1, number).ptr = '\0';
        writeAscii(digits.data());
    }

    void writeDouble(double number)
    {
        if (!std::isfinite(number)) {
            return writeAscii("null");
        }
        if (number == 0.0 && std::signbit(number)) {
            return writeAscii("-0.0"); // QByteArray::number() drops the sign
        }
        QByteArray digits = QByteArray::number(number, 'g', QLocale::FloatingPointShortest);
        if (!digits.contains('.') && !digits.contains('e')) {
            digits += ".0";
        }
        writeAscii(digits.constData());
    }

    void writeMap(const QVariantMap& map)
    {
        writeUnit('{');
        for (auto entry = map.constBegin(); entry != map.constEnd(); ++entry) {
            if (entry != map.constBegin()) {
                writeUnit(',');
            }
            writeString(entry.key());
            writeUnit(':');
            writeValue(entry.value());
        }
        writeUnit('}');
    }

    void writeList(const QVariantList& list)
    {
        writeUnit('[');
        for (auto element = list.constBegin(); element != list.constEnd(); ++element) {
            if (element != list.constBegin()) {
                writeUnit(',');
            }
            writeValue(*element);
        }
        writeUnit(']');
    }

    void writeString(const QString& string)
    {
        const auto* next = reinterpret_cast<const ushort*>(string.constData());
        const ushort* const end = next + string.size();
        writeUnit('"');
        while (next != end) {
            const Unit* const start = reserve(chunkSize * longestEscape);
            auto* out = const_cast<Unit*>(start);
            const ushort* const chunkEnd = next + std::min(chunkSize, int(end - next));
            while (next < chunkEnd) {
                if (*next < 0x80 && plainAscii[*next]) {
                    *out++ = Unit(*next++);
                } else {
                    out = writeSpecial(next, end, out);
                }
            }
            used += int(out - start);
        }
        writeUnit('"');
    }

    /// Writes the code point at `next`, which is not plain ASCII, and moves `next` past it.
    /// Returns the end of the output.
    static Unit* writeSpecial(const ushort*& next, const ushort* end, Unit* out)
    {
        const ushort unit = *next++;
        if (unit == '"' || unit == '\\') {
            *out++ = '\\';
            *out++ = Unit(unit);
            return out;
        }
        if (unit < 0x20) {
            return writeControlCharacter(unit, out);
        }
        if (!QChar::isSurrogate(unit)) {
            return writeNonAscii(unit, out);
        }
        if (QChar::isHighSurrogate(unit) && next != end && QChar::isLowSurrogate(*next)) {
            return writeNonAscii(QChar::surrogateToUcs4(unit, *next++), out);
        }
        return writeHexEscape(unit, out);
    }

    static Unit* writeNonAscii(uint character, Unit* out)
    {
        if constexpr (isUtf8) {
            if (character < 0x800) {
                *out++ = Unit(0xC0U | (character >> 6));
            } else {
                if (character < 0x10000) {
                    *out++ = Unit(0xE0U | (character >> 12));
                } else {
                    *out++ = Unit(0xF0U | (character >> 18));
                    *out++ = Unit(0x80U | ((character >> 12) & 0x3FU));
                }
                *out++ = Unit(0x80U | ((character >> 6) & 0x3FU));
            }
            *out++ = Unit(0x80U | (character & 0x3FU));
        } else if (QChar::requiresSurrogates(character)) {
            *out++ = QChar::highSurrogate(character);
            *out++ = QChar::lowSurrogate(character);
        } else {
            *out++ = Unit(character);
        }
        return out;
    }

    static Unit* writeControlCharacter(ushort unit, Unit* out)
    {
        constexpr std::array<uchar, 0x20> letters = {
            0, 0, 0, 0, 0, 0, 0, 0, 'b', 't', 'n', 0, 'f', 'r'};
        if (letters[unit] == 0) {
            return writeHexEscape(unit, out);
        }
        *out++ = '\\';
        *out++ = letters[unit];
        return out;
    }

    static Unit* writeHexEscape(ushort unit, Unit* out)
    {
        constexpr uchar digits[] = "0123456789abcdef";
        *out++ = '\\';
        *out++ = 'u';
        for (int shift = 12; shift >= 0; shift -= 4) {
            *out++ = digits[(unit >> shift) & 0xF];
        }
        return out;
    }

    Text text;
    int used;
    bool overflow = false;
};

template <typename Text> Text write(const QVariant& value, const Text& prefix)
{
    Writer<Text> writer(prefix);
    writer.writeValue(value);
    return writer.take();
}

} // namespace

namespace JsonUtils {

QByteArray serialize(const QVariant& value)
{
    return write(value, QByteArray());
}

QString serializeToText(const QVariant& value, const QString& prefix)
{
    return write(value, prefix);
}

} // namespace JsonUtils
