#include "tests/support/JsonModel.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace {

int below(Generator* generator, int limit)
{
    return int((*generator)() % uint(limit));
}

/// A piece of a random text, mostly one character.
QString randomPiece(Generator* generator)
{
    const char* const words[] = {"%1", "%2", "%%", "%L1", "{", "}", "\"", "\\", "/", ".", ","};
    const ushort rareUnits[] = {0, 1, 2, 8, 9, 10, 12, 13, 31, 127, 0x85, 0xfeff, 0xfffe, 0xffff,
        0xfdd0, 0xfdef, 0x2028, 0x2029, 0xd800, 0xdbff, 0xdc00, 0xdfff, 0xfffd, 0x301};
    const uint astral[] = {0x1f600, 0x10000, 0x10ffff, 0x1fffe, 0x1d11e};
    switch (below(generator, 8)) {
    case 0:
        return QString::fromLatin1(words[below(generator, int(std::size(words)))]);
    case 1:
        return QChar(rareUnits[below(generator, int(std::size(rareUnits)))]);
    case 2: {
        const uint character = astral[below(generator, int(std::size(astral)))];
        return QString::fromUcs4(&character, 1);
    }
    case 3:
        return QChar(ushort(below(generator, 0x10000)));
    default:
        return QChar(ushort(' ' + below(generator, 95)));
    }
}

QString randomKey(Generator* generator)
{
    const char* const keys[] = {"", ".", "a.b", "tessaron.manualFormatting", "%1", "%%", "id",
        "citationItems", "itemData", "\"", "%1.%2"};
    return below(generator, 2) == 0
        ? QString::fromLatin1(keys[below(generator, int(std::size(keys)))])
        : randomText(generator);
}

double randomDouble(Generator* generator)
{
    for (;;) {
        const quint64 bits = (*generator)();
        double number = 0;
        std::memcpy(&number, &bits, sizeof number);
        if (std::isfinite(number)) { // JSON cannot represent infinity and NaN
            return number;
        }
    }
}

JsonValue randomInteger(Generator* generator)
{
    constexpr quint64 largest = quint64(std::numeric_limits<qint64>::max());
    const quint64 near53 = (quint64(1) << 53) - 2;
    const quint64 edges[] = {
        0, 1, near53, near53 + 3, largest - 1, largest, largest + 1, largest + 2, ~quint64(0)};
    const quint64 number = below(generator, 4) == 0 ? edges[below(generator, int(std::size(edges)))]
                                                    : (*generator)() >> below(generator, 64);
    if (number > largest && below(generator, 2) == 0) {
        return {number};
    }
    const auto small = qint64(number);
    return {below(generator, 2) == 0 || small == 0 ? small : qint64(0 - quint64(small))};
}

JsonValue randomScalar(Generator* generator)
{
    const double doubles[] = {0.0, -0.0, 0.1, 1.0, -1.0, 1e300, 5e-324, 2.2250738585072014e-308,
        9007199254740993.0, 18446744073709551616.0, 1.7976931348623157e308};
    switch (below(generator, 8)) {
    case 0:
        return {nullptr};
    case 1:
        return {below(generator, 2) == 0};
    case 2:
    case 3:
        return randomInteger(generator);
    case 4:
        return {randomDouble(generator)};
    case 5:
        return {doubles[below(generator, int(std::size(doubles)))]};
    default:
        return {randomText(generator)};
    }
}

/// Returns a random value. Subtracts the number of its values from `*budget`.
JsonValue randomValue(Generator* generator, int* budget)
{
    --*budget;
    const int kind = below(generator, 8);
    const int size = below(generator, 8);
    if (kind == 0) {
        JsonValue::List list;
        while (int(list.size()) < size && *budget > 0) {
            list.push_back(randomValue(generator, budget));
        }
        return {std::move(list)};
    }
    if (kind == 1) {
        JsonValue::Object object;
        for (int i = 0; (i < size) && (*budget > 0); ++i) {
            object.insert_or_assign(randomKey(generator), randomValue(generator, budget));
        }
        return {std::move(object)};
    }
    return randomScalar(generator);
}

JsonValue nested(Generator* generator, int depth)
{
    JsonValue value = randomScalar(generator);
    for (int i = 0; i < depth; ++i) {
        value = below(generator, 2) == 0
            ? JsonValue{JsonValue::List{std::move(value)}}
            : JsonValue{JsonValue::Object{{randomKey(generator), std::move(value)}}};
    }
    return value;
}

} // namespace

QString randomText(Generator* generator)
{
    const int length = below(generator, 500) == 0 ? 5000 : below(generator, 20);
    QString text;
    while (text.size() < length) {
        text += randomPiece(generator);
    }
    return text;
}

JsonValue randomCluster(Generator* generator, int size, int depth)
{
    JsonValue::Object cluster;
    int budget = size;
    while (budget > 0) {
        cluster.insert_or_assign(randomKey(generator), randomValue(generator, &budget));
    }
    if (depth > 1) {
        cluster.insert_or_assign(QStringLiteral("deep"), nested(generator, depth - 1));
    }
    cluster.insert_or_assign(QStringLiteral("tessaron"),
        JsonValue{JsonValue::Object{
            {QStringLiteral("previouslyFormattedCitation"), {randomText(generator)}},
            {QStringLiteral("plainTextFormattedCitation"), {randomText(generator)}}}});
    return {std::move(cluster)};
}
