#include "frontend/ArgsFile.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QtEndian>

#include <algorithm>
#include <limits>

namespace {

constexpr qint64 unitSize = sizeof(ushort);

// Larger than any real document. If each code unit becomes six bytes of JSON, the request still
// fits into a QByteArray.
constexpr qint64 largestArgsFile = qint64(512) * 1024 * 1024;

/// Reads the next code units of `file` into `chunk`. If there are fewer than argsFileChunkSize, the
/// file has ended or file->error() reports an error.
void readChunk(QFile* file, QString* chunk)
{
    chunk->resize(argsFileChunkSize);
    char* const bytes = reinterpret_cast<char*>(chunk->data());
    const qint64 byteCount = file->read(bytes, argsFileChunkSize * unitSize);
    chunk->truncate(int(std::max<qint64>(byteCount, 0) / unitSize));
    qFromLittleEndian<ushort>(bytes, chunk->size(), bytes);
}

QStringList readList(QFile* file)
{
    QStringList list;
    QString unfinished; // the start of a string whose end is in a later chunk
    QString chunk;
    readChunk(file, &chunk);
    int start = chunk.startsWith(QChar(QChar::ByteOrderMark)) ? 1 : 0;
    while (!chunk.isEmpty()) {
        int end = 0;
        while ((end = int(chunk.indexOf(QChar(argsFileSeparator), start))) >= 0) {
            list.append(unfinished + chunk.mid(start, end - start));
            unfinished.clear();
            start = end + 1;
        }
        unfinished += chunk.mid(start);
        readChunk(file, &chunk);
        start = 0;
    }
    list.append(unfinished);
    return list;
}

/// Writes strings to a file as UTF-16LE. Errors are reported by finish().
class Utf16Writer {
public:
    explicit Utf16Writer(QFile* target)
        : file(target)
    {
        buffer.reserve(argsFileChunkSize);
    }

    void write(QStringView text)
    {
        while (!text.isEmpty()) {
            const auto count = std::min<qsizetype>(text.size(), argsFileChunkSize - buffer.size());
            buffer.append(text.data(), int(count));
            text = text.mid(count);
            if (buffer.size() == argsFileChunkSize) {
                flush();
            }
        }
    }

    /// Returns the number of bytes written, or -1 if a write failed or the number exceeds an int.
    int finish()
    {
        flush();
        return complete && byteCount <= std::numeric_limits<int>::max() ? int(byteCount) : -1;
    }

private:
    void flush()
    {
        char* const bytes = reinterpret_cast<char*>(buffer.data());
        qToLittleEndian<ushort>(bytes, buffer.size(), bytes);
        const qint64 size = buffer.size() * unitSize;
        complete = complete && file->write(bytes, size) == size;
        byteCount += size;
        buffer.resize(0);
    }

    QFile* const file;
    QString buffer;
    qint64 byteCount = 0;
    bool complete = true;
};

} // namespace

const ArgsFileCodec* argsFileCodec()
{
    const ArgsFileCodec* const codec = ArgsFileCodec::codecForName("UTF-16LE");
    if (codec == nullptr) {
        qWarning() << "Unable to load args file codec";
    }
    return codec;
}

QStringList readArgsFile(const QString& path, bool* success)
{
    *success = false;
    QFile file(path);
    // Opening a named pipe would block until it has a writer.
    const bool opened = QFileInfo(path).isFile()
        && file.open(QIODevice::ReadOnly | QIODevice::Unbuffered) && file.size() <= largestArgsFile;
    if (opened && argsFileCodec() == nullptr) {
        return {};
    }
    QStringList list = opened ? readList(&file) : QStringList();
    // Never pass on a truncated argument list.
    if (!opened || file.error() != QFileDevice::NoError) {
        qWarning() << "Unable to open args file" << path;
        return {};
    }
    *success = true;
    return list;
}

int writeFile(const QString& path, const QString& content, bool* success)
{
    return writeArgsFile(path, {content}, success);
}

int writeArgsFile(const QString& path, const QStringList& strings, bool* success)
{
    *success = false;
    const QString sidePath = path + QStringLiteral(".temp");
    QFile sideFile(sidePath);
    // Unbuffered: a buffered file would report a full disk only on close.
    if (!sideFile.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        qWarning() << "Unable to write args file" << path;
        return -1;
    }
    if (argsFileCodec() == nullptr) {
        return -1;
    }
    Utf16Writer writer(&sideFile);
    for (int i = 0; i < strings.size(); ++i) {
        if (i > 0) {
            writer.write(QStringView(&argsFileSeparator, 1));
        }
        writer.write(strings.at(i));
    }
    const int byteCount = writer.finish();
    if (byteCount < 0) {
        return -1;
    }
    sideFile.close();
    if (sideFile.error() != QFileDevice::NoError) {
        return -1; // Some network file systems report a full disk only on close.
    }
    // The results of both calls are ignored: the interface defines this as success.
    QFile::remove(path);
    QFile::rename(sidePath, path);
    *success = true;
    return byteCount;
}
