#pragma once

#include <QtGlobal>

#if QT_VERSION_MAJOR < 6

#include <QTextCodec>

using ArgsFileCodec = QTextCodec;

/// Makes UTF-8 the encoding of file names, whatever the environment says.
inline void useUtf8FileNames()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
}

#else

#include <QByteArray>
#include <QString>
#include <QStringConverter>

/// What this program uses of QTextCodec, which Qt 6 moved to a compatibility module.
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

    /// Drops a byte-order mark and an odd last byte.
    QString toUnicode(const QByteArray& bytes) const
    {
        return QStringDecoder(QStringDecoder::Utf16LE)(bytes);
    }
};

/// Does nothing: file names are UTF-8 in Qt 6.
inline void useUtf8FileNames() { }

#endif
