#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <cmath>

/// Describes `value`, including what the comparison of QVariants ignores: the type of each number,
/// the sign of a zero and every code unit of a text. Equal descriptions mean equal values.
inline QByteArray described(const QVariant& value);

inline QByteArray described(const QString& text)
{
    QByteArray units = "'";
    for (const QChar unit : text) {
        const bool readable = unit.unicode() >= 0x20 && unit.unicode() < 0x7F;
        units += readable ? QByteArray(1, char(unit.unicode()))
                          : '<' + QByteArray::number(unit.unicode(), 16) + '>';
    }
    return units + '\'';
}

inline QByteArray described(const QVariant& value)
{
    QByteArray inside;
    switch (value.userType()) {
    case QMetaType::UnknownType:
        return "invalid";
    case QMetaType::Nullptr:
        return "null";
    case QMetaType::QString:
        return described(value.toString());
    case QMetaType::Double:
        // QByteArray::number writes a negative zero without its sign.
        return (std::signbit(value.toDouble()) ? "double -" : "double ")
            + QByteArray::number(std::fabs(value.toDouble()), 'g', 17);
    case QMetaType::QVariantList:
        for (const QVariant& element : value.toList()) {
            inside += described(element) + ", ";
        }
        return '[' + inside + ']';
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        for (auto entry = map.begin(); entry != map.end(); ++entry) {
            inside += described(entry.key()) + ": " + described(entry.value()) + ", ";
        }
        return '{' + inside + '}';
    }
    default:
        return QByteArray(value.typeName()) + ' ' + value.toByteArray();
    }
}
