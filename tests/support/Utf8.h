#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

/// Returns the text of `bytes`, every U+FEFF kept; nothing if they are not UTF-8.
inline std::optional<QString> textFromUtf8(const QByteArray& bytes)
{
    // Qt drops a leading U+FEFF and replaces what is not UTF-8.
    const QByteArray marked = 'x' + bytes;
    const QString text = QString::fromUtf8(marked.constData(), marked.size());
    return text.toUtf8() == marked ? std::optional(text.mid(1)) : std::nullopt;
}
