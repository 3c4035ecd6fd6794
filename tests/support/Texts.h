#pragma once

#include <QByteArray>
#include <QStringList>

#include <initializer_list>

/// Short for QString::fromUtf8().
QString text(const char* utf8);

/// The bytes of `text` in UTF-16, low byte first, without a byte-order mark.
QByteArray utf16le(const QString& text);

/// The bytes of a list file: `strings` in UTF-16 with 01 00 between neighbours.
QByteArray listBytes(const QStringList& strings);

/// The text whose UTF-16 code units are `units`, unpaired surrogates and U+0000 included.
QString textOfUnits(std::initializer_list<ushort> units);

/// JSON in one form, so that two documents can be compared; "not JSON" for anything else. Read
/// and written by Qt, not by the code under test.
QByteArray compactJson(const QByteArray& json);
