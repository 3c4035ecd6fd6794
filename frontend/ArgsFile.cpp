#include "frontend/ArgsFile.h"

#include <QDebug>
#include <QFile>
#include <QTextCodec>
#include <QtEndian>

#include <limits>

namespace {

constexpr qint64 unitSize = sizeof(ushort);

// What one text can hold.
constexpr qint64 largestFileSize = std::numeric_limits<int>::max() - 64;

/// Reads all of `file` as UTF-16LE, straight into the text: a long document's arguments are tens
/// of megabytes, and every copy of them costs the user time.
QString readText(QFile* file)
{
    QString text(int(file->size() / unitSize), Qt::Uninitialized);
    char* const bytes = reinterpret_cast<char*>(text.data());
    const qint64 byteCount = file->read(bytes, text.size() * unitSize);
    text.resize(int(qMax(byteCount, qint64(0)) / unitSize));
    qFromLittleEndian<ushort>(bytes, text.size(), bytes);
    if (text.startsWith(QChar(QChar::ByteOrderMark))) {
        text.remove(0, 1);
    }
    return text;
}

/// The bytes of `content` in UTF-16LE without a byte-order mark. On a little-endian machine
/// these are the text's own, which must outlive them.
QByteArray encode(const QString& content)
{
    const auto* const units = reinterpret_cast<const char*>(content.utf16());
    const int byteCount = int(content.size() * unitSize);
    if constexpr (Q_BYTE_ORDER == Q_LITTLE_ENDIAN) {
        return QByteArray::fromRawData(units, byteCount);
    }
    QByteArray bytes(byteCount, Qt::Uninitialized);
    qToLittleEndian<ushort>(units, content.size(), bytes.data());
    return bytes;
}

} // namespace

QTextCodec* argsFileCodec()
{
    QTextCodec* const codec = QTextCodec::codecForName("UTF-16LE");
    if (codec == nullptr) {
        qWarning() << "Unable to load args file codec";
    }
    return codec;
}

QStringList readArgsFile(const QString& path, bool* success)
{
    *success = false;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered) || file.size() > largestFileSize) {
        qWarning() << "Unable to open args file" << path;
        return {};
    }
    const QString text = readText(&file);
    if (argsFileCodec() == nullptr) {
        return {};
    }
    *success = true;
    return text.split(QChar(argsFileSeparator));
}

int writeFile(const QString& path, const QString& content, bool* success)
{
    *success = false;
    const QString sidePath = path + QStringLiteral(".temp");
    QFile sideFile(sidePath);
    // Buffered, a full disk would show only when the file is closed.
    if (!sideFile.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        qWarning() << "Unable to write args file" << path;
        return -1;
    }
    if (argsFileCodec() == nullptr) {
        return -1;
    }
    const QByteArray bytes = encode(content);
    if (sideFile.write(bytes) != bytes.size()) {
        return -1;
    }
    sideFile.close();
    QFile::remove(path);
    QFile::rename(sidePath, path);
    *success = true;
    return bytes.size();
}

int writeArgsFile(const QString& path, const QStringList& lines, bool* success)
{
    return writeFile(path, lines.join(QChar(argsFileSeparator)), success);
}
