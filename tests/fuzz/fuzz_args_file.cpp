// The argument file. Input: one byte that chooses the padding before the text, so that some inputs
// cross the boundary between two chunks of the reader, and the file's bytes.

#include "frontend/ArgsFile.h"
#include "tests/fuzz/Check.h"

#include <QFile>
#include <QTemporaryDir>

namespace {

/// Returns no padding for a choice below 240, because padding costs time. From 240 on, returns a
/// few units fewer or more than one chunk; for 255, two chunks.
QByteArray padding(uint8_t choice)
{
    if (choice < 240) {
        return {};
    }
    const int units = choice < 255 ? argsFileChunkSize - 248 + choice : 2 * argsFileChunkSize;
    return QByteArray("x\0", 2).repeated(units);
}

/// The list in `bytes`, decoded by Qt.
QStringList expectedList(const QByteArray& bytes)
{
    return argsFileCodec()->toUnicode(bytes).split(QChar(argsFileSeparator));
}

QByteArray readBytes(const QString& path)
{
    QFile file(path);
    check(file.open(QIODevice::ReadOnly), "the file exists");
    return file.readAll();
}

void checkReading(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    check(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush(),
        "the folder has room");
    bool success = false;
    const QStringList list = readArgsFile(path, &success);
    check(success, "reads an existing file");
    check(list == expectedList(bytes), "returns the strings of the decoded text");
}

/// Writing and reading keeps a list, except that a separator inside a string splits it and a byte
/// order mark at the start of the file is dropped.
void checkWriting(const QString& path, const QStringList& list)
{
    QString text = list.join(QChar(argsFileSeparator));
    bool success = false;
    const int byteCount = writeArgsFile(path, list, &success);
    check(success && byteCount == 2 * text.size(), "returns the number of bytes");
    check(
        readBytes(path) == QByteArray(reinterpret_cast<const char*>(text.utf16()), 2 * text.size()),
        "writes the joined text in UTF-16");
    if (text.startsWith(QChar(QChar::ByteOrderMark))) {
        text.remove(0, 1);
    }
    check(readArgsFile(path, &success) == text.split(QChar(argsFileSeparator)) && success,
        "keeps a list that is written and read");
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

    // Split at another character, so that the strings may contain the separator.
    const QString text =
        QString::fromUtf16(reinterpret_cast<const char16_t*>(bytes.constData()), bytes.size() / 2);
    checkWriting(folder.filePath(QStringLiteral("written")), text.split(QLatin1Char('|')));
    return 0;
}
