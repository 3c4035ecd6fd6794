#include "tests/support/Texts.h"

#include <QJsonDocument>
#include <QVector>

QString text(const char* utf8)
{
    return QString::fromUtf8(utf8);
}

QByteArray utf16le(const QString& text)
{
    QByteArray bytes;
    bytes.reserve(2 * text.size());
    for (const QChar unit : text) {
        bytes.append(char(unit.unicode() & 0xff));
        bytes.append(char(unit.unicode() >> 8));
    }
    return bytes;
}

QByteArray listBytes(const QStringList& strings)
{
    QByteArray bytes;
    for (int i = 0; i < strings.size(); ++i) {
        if (i > 0) {
            bytes.append("\x01\x00", 2);
        }
        bytes.append(utf16le(strings.at(i)));
    }
    return bytes;
}

QString textOfUnits(std::initializer_list<ushort> units)
{
    QString text;
    for (const ushort unit : units) {
        text.append(QChar(unit));
    }
    return text;
}

QString everyCharacterFrom(uint first)
{
    QVector<uint> characters;
    for (uint character = first; character <= 0x10FFFF; ++character) {
        if (!QChar::isSurrogate(character) && character != '"' && character != '\\') {
            characters.append(character);
        }
    }
    return QString::fromUcs4(characters.constData(), characters.size());
}

QByteArray compactJson(const QByteArray& json)
{
    const QJsonDocument document = QJsonDocument::fromJson(json);
    return document.isNull() ? "not JSON" : document.toJson(QJsonDocument::Compact);
}
