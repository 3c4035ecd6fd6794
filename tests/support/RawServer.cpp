#include "tests/support/RawServer.h"

#include <QTcpSocket>
#include <QTimer>

#include <sys/socket.h>

namespace {

constexpr char successBody[] =
    R"({"citationCluster":{"citationItems":[2]},"citationStyleUrl":"second","bibliography":"b",)"
    R"("citationClusters":[{"citationCluster":{},"formattedText":"second"}]})";

/// Returns the number of body bytes in `bytes`, -1 while the headers are incomplete. Sets `*whole`
/// to the size of the complete body.
qint64 bodySize(const QByteArray& bytes, qint64* whole)
{
    const int headEnd = bytes.indexOf("\r\n\r\n");
    if (headEnd < 0) {
        return -1;
    }
    constexpr char name[] = "content-length:";
    const QByteArray head = bytes.left(headEnd).toLower();
    const int start = head.indexOf(name);
    *whole =
        start < 0 ? 0 : head.mid(start + int(sizeof name) - 1).split('\r').first().toLongLong();
    return bytes.size() - headEnd - 4;
}

} // namespace

RawServer::RawServer(const Misbehaviour& misbehaviour)
    : first(misbehaviour)
{
    if (!listen(QHostAddress::LocalHost)) {
        qFatal("The raw server cannot listen on 127.0.0.1");
    }
    connect(this, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* const socket = nextPendingConnection()) {
            accept(socket);
        }
    });
}

int RawServer::postCount() const
{
    int count = closedPosts;
    for (const Connection& connection : received) {
        count += connection.bytes.count("POST /");
    }
    return count;
}

void RawServer::accept(QTcpSocket* socket)
{
    received[socket].isFirst = ++connections == 1;
    connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
    connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
        closedPosts += received.take(socket).bytes.count("POST /");
        socket->deleteLater();
    });
    if (connections == 1 && first.afterBodyBytes == Misbehaviour::atOnce) {
        received[socket].isDone = true;
        misbehave(socket);
        return;
    }
    read(socket);
}

void RawServer::read(QTcpSocket* socket)
{
    Connection& connection = received[socket];
    connection.bytes += socket->readAll();
    qint64 whole = 0;
    const qint64 size = bodySize(connection.bytes, &whole);
    const qint64 awaited = connection.isFirst ? qMin(first.afterBodyBytes, whole) : whole;
    if (connection.isDone || size < 0 || size < awaited) {
        return;
    }
    connection.isDone = true;
    if (connection.isFirst) {
        misbehave(socket);
    } else {
        ++successes;
        socket->write("HTTP/1.1 200 OK\r\nContent-Length: "
            + QByteArray::number(int(sizeof successBody) - 1) + "\r\n\r\n" + successBody);
    }
}

void RawServer::misbehave(QTcpSocket* socket)
{
    constexpr int delayMs = 20;
    socket->write(first.bytes);
    socket->flush();
    const int descriptor = int(socket->socketDescriptor());
    const linger discard{1, 0};
    switch (first.ending) {
    case Misbehaviour::Close:
        return socket->disconnectFromHost();
    case Misbehaviour::HalfClose:
        shutdown(descriptor, SHUT_WR);
        return;
    case Misbehaviour::Reset:
        setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &discard, sizeof discard);
        return socket->abort();
    case Misbehaviour::CloseLater:
        QTimer::singleShot(delayMs, socket, [socket] { socket->disconnectFromHost(); });
    }
}
