#include "tests/support/JsonModel.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

bool operator==(const JsonValue& left, const JsonValue& right)
{
    const auto* const number = std::get_if<double>(&left.content);
    const auto* const other = std::get_if<double>(&right.content);
    if (number != nullptr && other != nullptr) {
        return std::memcmp(number, other, sizeof *number) == 0;
    }
    return left.content == right.content;
}

int valueCount(const JsonValue& value)
{
    int count = 1;
    if (const auto* const list = std::get_if<JsonValue::List>(&value.content)) {
        for (const JsonValue& element : *list) {
            count += valueCount(element);
        }
    } else if (const auto* const object = std::get_if<JsonValue::Object>(&value.content)) {
        for (const auto& entry : *object) {
            count += valueCount(entry.second);
        }
    }
    return count;
}

namespace {

class Reader {
public:
    explicit Reader(const QString& json)
        : text(json)
    {
    }

    JsonValue read(bool* ok)
    {
        JsonValue value = readValue();
        skipWhitespace();
        *ok = valid && at == text.size();
        return value;
    }

private:
    ushort peek() const { return at < text.size() ? text.at(at).unicode() : ushort(0); }

    void skipWhitespace()
    {
        while (peek() == ' ' || peek() == '\t' || peek() == '\r' || peek() == '\n') {
            ++at;
        }
    }

    /// Skips `wanted` and returns true if it comes next.
    bool take(const char* wanted)
    {
        const QLatin1String characters(wanted);
        if (QStringView(text).mid(at, characters.size()) != characters) {
            return false;
        }
        at += characters.size();
        return true;
    }

    JsonValue fail()
    {
        valid = false;
        at = text.size();
        return {};
    }

    JsonValue readValue()
    {
        skipWhitespace();
        if (take("{")) {
            return readObject();
        }
        if (take("[")) {
            return readList();
        }
        if (take("\"")) {
            return {readString()};
        }
        if (take("null")) {
            return {nullptr};
        }
        if (take("true")) {
            return {true};
        }
        return take("false") ? JsonValue{false} : readNumber();
    }

    JsonValue readObject()
    {
        JsonValue::Object object;
        skipWhitespace();
        if (take("}")) {
            return {object};
        }
        while (valid) {
            skipWhitespace();
            if (!take("\"")) {
                return fail();
            }
            const QString key = readString();
            skipWhitespace();
            if (!take(":") || !object.emplace(key, readValue()).second) {
                return fail();
            }
            skipWhitespace();
            if (take("}")) {
                return {std::move(object)};
            }
            if (!take(",")) {
                return fail();
            }
        }
        return {};
    }

    JsonValue readList()
    {
        JsonValue::List list;
        skipWhitespace();
        if (take("]")) {
            return {list};
        }
        while (valid) {
            list.push_back(readValue());
            skipWhitespace();
            if (take("]")) {
                return {std::move(list)};
            }
            if (!take(",")) {
                return fail();
            }
        }
        return {};
    }

    QString readString()
    {
        QString string;
        while (at < text.size()) {
            const QChar unit = text.at(at++);
            if (unit == QLatin1Char('"')) {
                return string;
            }
            string.append(unit == QLatin1Char('\\') ? readEscape() : unit);
        }
        fail();
        return {};
    }

    QChar readEscape()
    {
        constexpr char letters[] = "\"\\/bfnrt";
        constexpr char meanings[] = "\"\\/\b\f\n\r\t";
        const ushort letter = peek();
        ++at;
        if (letter == 'u') {
            bool ok = false;
            const ushort unit = text.mid(at, 4).toUShort(&ok, 16);
            at += 4;
            valid = valid && ok;
            return QChar(unit);
        }
        const char* const found =
            letter == 0 || letter > 127 ? nullptr : std::strchr(letters, letter);
        valid = valid && found != nullptr;
        return found == nullptr ? QChar() : QLatin1Char(meanings[found - letters]);
    }

    JsonValue readNumber()
    {
        const int start = at;
        while (
            peek() != 0 && std::strchr("+-.0123456789eE", peek() < 128 ? peek() : ' ') != nullptr) {
            ++at;
        }
        const QByteArray digits = text.mid(start, at - start).toLatin1();
        char* end = nullptr;
        errno = 0;
        JsonValue number;
        if (digits.contains('.') || digits.contains('e') || digits.contains('E')) {
            number = {std::strtod(digits.constData(), &end)};
        } else if (digits.startsWith('-') || digits.size() < 19) {
            number = {qint64(std::strtoll(digits.constData(), &end, 10))};
        } else {
            const quint64 large = std::strtoull(digits.constData(), &end, 10);
            number = large <= quint64(INT64_MAX) ? JsonValue{qint64(large)} : JsonValue{large};
        }
        const bool isDouble = std::holds_alternative<double>(number.content);
        return digits.isEmpty() || *end != '\0' || (!isDouble && errno == ERANGE) ? fail() : number;
    }

    const QString& text;
    int at = 0;
    bool valid = true;
};

} // namespace

JsonValue readJson(const QString& json, bool* ok)
{
    return Reader(json).read(ok);
}
