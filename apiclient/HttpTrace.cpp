#include "apiclient/HttpTrace.h"

#include "apiclient/json/JsonUtils.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QList>
#include <QLoggingCategory>
#include <QVariantMap>

#include <algorithm>

namespace {

Q_LOGGING_CATEGORY(httpLog, "tessaron.http", QtWarningMsg)
Q_LOGGING_CATEGORY(httpBodyLog, "tessaron.http.body", QtWarningMsg)

// The C library splits a longer line into several writes, and another process's line can come
// between them. The smallest buffer is 1024 bytes, on macOS. 980 leaves room for the category's
// name, which Qt puts before the line, and the newline.
constexpr int longestLine = 980;
// The longest part of a body in one line. It leaves 180 bytes for the keys and the quotes. If the
// keys or the escape sequences need more, the piece is halved until the line fits, but not below
// the shortest piece.
constexpr int longestPiece = 800;
constexpr int shortestPiece = 25;
constexpr int longestError = 300;

bool tracesBodies()
{
    if (!httpBodyLog().isDebugEnabled()) {
        return false;
    }
    bool named = false;
    const QList<QByteArray> rules = qgetenv("QT_LOGGING_RULES").split(';');
    for (const QByteArray& rule : rules) {
        const QList<QByteArray> sides = rule.split('=');
        const QByteArray category = sides.first().trimmed();
        if (category == "tessaron.http.body" || category == "tessaron.http.body.debug") {
            named = sides.last().trimmed() == "true";
        }
    }
    return named;
}

/// Returns up to `size` bytes of `body` from `offset`. Never splits a UTF-8 character.
QByteArray pieceOf(const QByteArray& body, int offset, int size)
{
    int end = std::min(offset + size, int(body.size()));
    for (int i = 0; i < 3 && end < body.size() && (uchar(body.at(end)) & 0xC0U) == 0x80; ++i) {
        --end;
    }
    return body.mid(offset, end - offset);
}

QString lineWith(QVariantMap event, const QByteArray& piece)
{
    const QString text = QString::fromUtf8(piece.constData(), piece.size());
    if (text.toUtf8() == piece) {
        event.insert(QStringLiteral("text"), text);
    } else {
        event.insert(QStringLiteral("textBase64"), QString::fromLatin1(piece.toBase64()));
    }
    // In Qt 5, fromUtf8() stops at U+0000. The JSON writer escapes it.
    return QString::fromUtf8(JsonUtils::serialize(event));
}

/// Prints `event` with as much of `body` as fits into a line, and the rest on the following lines.
void printEvent(int exchange, QVariantMap event, const QByteArray& body)
{
    const QVariantMap origin{{QStringLiteral("process"), QCoreApplication::applicationPid()},
        {QStringLiteral("exchange"), exchange}};
    event.insert(origin);
    event.insert(QStringLiteral("at"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
    event.insert(QStringLiteral("bytes"), qint64(body.size()));
    int offset = 0;
    do {
        int size = longestPiece;
        QByteArray piece = pieceOf(body, offset, size);
        QString line = lineWith(event, piece);
        while (line.toUtf8().size() > longestLine && size > shortestPiece) {
            size /= 2;
            piece = pieceOf(body, offset, size);
            line = lineWith(event, piece);
        }
        qCDebug(httpBodyLog).noquote() << line;
        offset += int(piece.size());
        event = origin;
        event.insert(QStringLiteral("offset"), offset);
    } while (offset < body.size());
}

} // namespace

void traceRequest(int exchange, const QString& path, const QByteArray& body)
{
    const QString method = body.isEmpty() ? QStringLiteral("GET") : QStringLiteral("POST");
    qCDebug(httpLog).noquote() << method << path << body.size() << "bytes";
    if (tracesBodies()) {
        printEvent(
            exchange, {{QStringLiteral("method"), method}, {QStringLiteral("path"), path}}, body);
    }
}

void traceReply(
    int exchange, const NetworkResponse& response, qint64 elapsedMs, const QString& error)
{
    // Truncated, because the server may supply part of the text.
    const QString reason = error.left(longestError);
    qCDebug(httpLog).noquote().nospace()
        << response.status << ' ' << response.body.size() << " bytes " << elapsedMs << " ms"
        << (reason.isEmpty() ? QString() : QStringLiteral(", ") + reason);
    if (!tracesBodies()) {
        return;
    }
    QVariantMap event{
        {QStringLiteral("status"), response.status}, {QStringLiteral("elapsedMs"), elapsedMs}};
    if (!reason.isEmpty()) {
        event.insert(QStringLiteral("error"), reason);
    }
    printEvent(exchange, event, response.body);
}
