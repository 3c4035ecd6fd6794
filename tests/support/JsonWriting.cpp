#include "tests/support/JsonModel.h"

#include <cstdio>
#include <cstring>

namespace {

class Writer {
public:
    Writer(Generator* random, Encoding outputEncoding)
        : generator(*random)
        , encoding(outputEncoding)
    {
    }

    QString take() { return json; }

    void write(const JsonValue& value)
    {
        whitespace();
        std::visit([this](const auto& content) { put(content); }, value.content);
        whitespace();
    }

private:
    bool oneIn(uint count) { return generator() % count == 0; }

    void put(std::nullptr_t) { ascii("null"); }
    void put(bool value) { ascii(value ? "true" : "false"); }
    void put(qint64 value) { ascii(std::to_string(value).c_str()); }
    void put(quint64 value) { ascii(std::to_string(value).c_str()); }

    void put(double value)
    {
        char digits[64];
        std::snprintf(digits, sizeof digits, oneIn(2) ? "%.17g" : "%.17E", value);
        ascii(digits);
        if (std::strpbrk(digits, ".eE") == nullptr) {
            ascii(oneIn(2) ? ".0" : "e0"); // otherwise it would be read as an integer
        }
    }

    void put(const JsonValue::List& list)
    {
        ascii("[");
        const char* comma = "";
        for (const JsonValue& element : list) {
            ascii(comma);
            write(element);
            comma = ",";
        }
        ascii("]");
    }

    void put(const JsonValue::Object& object)
    {
        ascii("{");
        const char* comma = "";
        for (const auto& entry : object) {
            ascii(comma);
            whitespace();
            put(entry.first);
            whitespace();
            ascii(":");
            write(entry.second);
            comma = ",";
        }
        ascii("}");
    }

    void put(const QString& text)
    {
        ascii("\"");
        for (int i = 0; i < text.size(); ++i) {
            const QChar unit = text.at(i);
            const bool isPair =
                unit.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate();
            if (isPair && !oneIn(4)) {
                json.append(unit);
                json.append(text.at(++i));
            } else if (isPair) {
                escape(unit);
                escape(text.at(++i));
            } else {
                putUnit(unit);
            }
        }
        ascii("\"");
    }

    void putUnit(QChar unit)
    {
        const bool mustBeEscaped = unit == QLatin1Char('"') || unit == QLatin1Char('\\')
            || unit.unicode() == 1 || (unit.isSurrogate() && encoding == Encoding::Utf8);
        if (mustBeEscaped || oneIn(8)) {
            escape(unit);
        } else {
            json.append(unit);
        }
    }

    void escape(QChar unit)
    {
        constexpr char meanings[] = "\"\\/\b\f\n\r\t";
        constexpr char letters[] = "\"\\/bfnrt";
        const ushort code = unit.unicode();
        const char* const found = code == 0 || code > 127 ? nullptr : std::strchr(meanings, code);
        char escaped[16];
        if (found != nullptr && !oneIn(3)) {
            std::snprintf(escaped, sizeof escaped, "\\%c", letters[found - meanings]);
        } else {
            std::snprintf(escaped, sizeof escaped, oneIn(2) ? "\\u%04x" : "\\u%04X", uint(code));
        }
        ascii(escaped);
    }

    void whitespace()
    {
        while (oneIn(8)) {
            json.append(QLatin1Char(" \t\r\n"[generator() % 4]));
        }
    }

    void ascii(const char* characters) { json.append(QLatin1String(characters)); }

    Generator& generator;
    const Encoding encoding;
    QString json;
};

} // namespace

QString writeRandomForm(const JsonValue& value, Generator* generator, Encoding encoding)
{
    Writer writer(generator, encoding);
    writer.write(value);
    return writer.take();
}
