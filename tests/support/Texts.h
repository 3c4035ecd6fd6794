#pragma once

#include <QByteArray>
#include <QStringList>

#include <initializer_list>

/// Shorthand for QString::fromUtf8().
QString text(const char* utf8);

/// Returns `text` as UTF-16LE without a byte order mark.
QByteArray utf16le(const QString& text);

/// Returns the bytes of a list file: `strings` as UTF-16LE, separated by U+0001.
QByteArray listBytes(const QStringList& strings);

/// Returns the string with the UTF-16 code units `units`, including unpaired surrogates and U+0000.
QString textOfUnits(std::initializer_list<ushort> units);

/// Returns a string of all characters from `first` on, except quotes, backslashes and surrogates.
QString everyCharacterFrom(uint first);

/// Returns `json` in its compact form, for comparison, or "not JSON". Uses Qt's reader and writer,
/// not the code under test.
QByteArray compactJson(const QByteArray& json);
