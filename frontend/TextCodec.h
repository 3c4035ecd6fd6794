#pragma once

#include <QtGlobal>

#if QT_VERSION_MAJOR < 6

#include <QTextCodec>

using ArgsFileCodec = QTextCodec;

/// Sets the encoding of file names to UTF-8, regardless of the environment.
inline void useUtf8FileNames()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
}

#else

#include <QByteArray>
#include <QString>
#include <QStringConverter>

/// The subset of QTextCodec that the program and its tests use. Qt 6 moved QTextCodec to a
/// compatibility module.
class ArgsFileCodec {
public:
    /// Returns the codec "UTF-16LE"; null for any other name and if Qt does not know that one.
    static const ArgsFileCodec* codecForName(const char* name)
    {
        static const ArgsFileCodec codec;
        return QStringConverter::encodingForName(name) == QStringConverter::Utf16LE ? &codec
                                                                                    : nullptr;
    }

    QByteArray name() const { return QStringConverter::nameForEncoding(QStringConverter::Utf16LE); }

    /// Drops a leading byte order mark and an odd last byte.
    QString toUnicode(const QByteArray& bytes) const
    {
        return QStringDecoder(QStringDecoder::Utf16LE)(bytes);
    }
};

/// Does nothing: file names are UTF-8 in Qt 6.
inline void useUtf8FileNames() { }

#endif
