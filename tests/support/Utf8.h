#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

/// Decodes `bytes` and keeps every U+FEFF. Returns nothing if they are not UTF-8.
inline std::optional<QString> textFromUtf8(const QByteArray& bytes)
{
    // Qt drops a U+FEFF at the start and replaces invalid bytes.
    const QByteArray afterLetter = 'x' + bytes;
    const QString text = QString::fromUtf8(afterLetter.constData(), afterLetter.size());
    return text.toUtf8() == afterLetter ? std::optional(text.mid(1)) : std::nullopt;
}
