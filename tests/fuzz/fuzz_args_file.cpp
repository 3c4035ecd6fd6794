// The argument file. Input: one byte that chooses how many units stand in front, so that also
// the places where the reader goes on with its next piece are met, and behind it the file's bytes.

#include "frontend/ArgsFile.h"
#include "tests/fuzz/Check.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTextCodec>

namespace {

constexpr int pieceUnits = 256 * 1024;

/// Below 240, as most inputs should be, for it costs time: nothing. From there on some units less
/// or more than a piece, and for 255 two pieces.
QByteArray padding(uint8_t choice)
{
    if (choice < 240) {
        return {};
    }
    const int units = choice < 255 ? pieceUnits - 248 + choice : 2 * pieceUnits;
    return QByteArray("x\0", 2).repeated(units);
}

/// The list in `bytes` as Qt's own decoder sees it.
QStringList expectedList(const QByteArray& bytes)
{
    return QTextCodec::codecForName("UTF-16LE")->toUnicode(bytes).split(QChar(argsFileSeparator));
}

QByteArray readBytes(const QString& path)
{
    QFile file(path);
    check(file.open(QIODevice::ReadOnly), "the file is there");
    return file.readAll();
}

void checkReading(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    check(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush(),
        "the folder for the files has room");
    bool success = false;
    const QStringList list = readArgsFile(path, &success);
    check(success, "a file that is there can be read");
    check(list == expectedList(bytes), "the list is what the decoded text holds");
}

/// Two things do not come back: a separator inside a string parts it, and a byte-order mark at
/// the start of the file is dropped.
void checkWriting(const QString& path, const QStringList& list)
{
    QString text = list.join(QChar(argsFileSeparator));
    bool success = false;
    const int byteCount = writeArgsFile(path, list, &success);
    check(success && byteCount == 2 * text.size(), "the number of bytes is returned");
    check(
        readBytes(path) == QByteArray(reinterpret_cast<const char*>(text.utf16()), 2 * text.size()),
        "the file is the joined text in UTF-16");
    if (text.startsWith(QChar(QChar::ByteOrderMark))) {
        text.remove(0, 1);
    }
    check(readArgsFile(path, &success) == text.split(QChar(argsFileSeparator)) && success,
        "read(write(list)) is list");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const QTemporaryDir folder;
    if (size == 0) {
        return 0;
    }
    const QByteArray bytes =
        padding(data[0]) + QByteArray(reinterpret_cast<const char*>(data) + 1, int(size) - 1);
    checkReading(folder.filePath(QStringLiteral("read")), bytes);

    // Parted elsewhere, the strings may hold what parts them in the file.
    const QString text =
        QString::fromUtf16(reinterpret_cast<const ushort*>(bytes.constData()), bytes.size() / 2);
    checkWriting(folder.filePath(QStringLiteral("written")), text.split(QLatin1Char('|')));
    return 0;
}
