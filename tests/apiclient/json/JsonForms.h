#pragma once

#include "apiclient/json/JsonUtils.h"
#include "tests/apiclient/json/Described.h"

#include <algorithm>
#include <memory>

/// Parses a copy that ends where its memory block ends, so that the address sanitizer reports a
/// read past the end.
inline QVariant parseExactly(const QByteArray& json)
{
    const std::unique_ptr<char[]> copy(new char[size_t(json.size())]);
    std::copy(json.begin(), json.end(), copy.get());
    return JsonUtils::parse(QByteArray::fromRawData(copy.get(), json.size()));
}

/// Returns `json` in UTF-16. QString::fromUtf8 drops a U+FEFF only at the start of its input, so a
/// letter is put before the text and removed again.
inline QString inUtf16(const QByteArray& json)
{
    const QByteArray afterLetter = 'x' + json;
    return QString::fromUtf8(afterLetter.constData(), afterLetter.size()).mid(1);
}

/// Parses `json` in UTF-8 and in UTF-16. Describes the value, or both values if they differ.
inline QByteArray describedFromBothForms(const QByteArray& json)
{
    const QByteArray fromUtf8 = described(parseExactly(json));
    const QByteArray fromUtf16 = described(JsonUtils::parseText(inUtf16(json)));
    return fromUtf8 == fromUtf16 ? fromUtf8 : "UTF-8: " + fromUtf8 + " UTF-16: " + fromUtf16;
}
