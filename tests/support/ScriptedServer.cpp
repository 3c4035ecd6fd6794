#include "tests/support/ScriptedServer.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpSocket>

#include <sys/socket.h>

#include <numeric>

QVariantMap ReceivedRequest::json() const
{
    return QJsonDocument::fromJson(body).object().toVariantMap();
}

ScriptedReply ScriptedReply::json(const QByteArray& body, int status)
{
    return withBody(status, "application/json", body);
}

ScriptedReply ScriptedReply::withBody(
    int status, const QByteArray& contentType, const QByteArray& body)
{
    return {"HTTP/1.1 " + QByteArray::number(status) + " Scripted\r\nContent-Type: " + contentType
            + "\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body,
        KeepOpen, -1};
}

ScriptedServer::ScriptedServer(QObject* parent)
    : QObject(parent)
{
    if (!server.listen(QHostAddress::LocalHost)) {
        qFatal("The scripted server cannot listen on 127.0.0.1");
    }
    connect(&server, &QTcpServer::newConnection, this, &ScriptedServer::accept);
}

bool ScriptedServer::listenOn(quint16 port)
{
    server.close();
    return server.listen(QHostAddress::LocalHost, port);
}

void ScriptedServer::expect(
    const QByteArray& method, const QByteArray& path, const ScriptedReply& reply)
{
    script.append({method, path, reply});
}

QString ScriptedServer::problem() const
{
    QStringList all = problems;
    for (const Expectation& unused : script) {
        all << QStringLiteral("never asked for: ") + QString::fromUtf8(unused.method)
                + QLatin1Char(' ') + QString::fromUtf8(unused.path);
    }
    return all.join(QStringLiteral("; "));
}

void ScriptedServer::reset()
{
    script.clear();
    received.clear();
    problems.clear();
    stray.clear();
    connections = 0;
    incoming.clear();
}

QByteArray ScriptedServer::strayBytes() const
{
    return std::accumulate(incoming.begin(), incoming.end(), stray);
}

void ScriptedServer::accept()
{
    while (QTcpSocket* const socket = server.nextPendingConnection()) {
        ++connections;
        ++openConnections;
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            --openConnections;
            stray += incoming.take(socket);
            socket->deleteLater();
        });
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
        read(socket);
    }
}

void ScriptedServer::read(QTcpSocket* socket)
{
    QByteArray& bytes = incoming[socket];
    bytes += socket->readAll();
    const int headEnd = bytes.indexOf("\r\n\r\n");
    if (headEnd < 0) {
        return;
    }
    const QList<QByteArray> lines = bytes.left(headEnd).split('\n');
    const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
    ReceivedRequest request{requestLine.value(0), requestLine.value(1), {}, {}};
    for (const QByteArray& line : lines.mid(1)) {
        const int colon = line.indexOf(':');
        request.headers.insert(line.left(colon).toLower(), line.mid(colon + 1).trimmed());
    }
    const int bodyStart = headEnd + 4;
    const qint64 wholeBody = request.headers.value("content-length").toLongLong();
    const qint64 cut = script.isEmpty() ? -1 : script.first().reply.endAfterBodyBytes;
    if (bytes.size() - bodyStart < (cut < 0 ? wholeBody : qMin(cut, wholeBody))) {
        return;
    }
    request.body = bytes.mid(bodyStart);
    incoming.remove(socket);
    received.append(request);
    reply(socket, request);
}

void ScriptedServer::reply(QTcpSocket* socket, const ReceivedRequest& request)
{
    const QString asked =
        QString::fromUtf8(request.method) + QLatin1Char(' ') + QString::fromUtf8(request.path);
    if (script.isEmpty() || script.first().method != request.method
        || script.first().path != request.path) {
        problems << QStringLiteral("not scripted: ") + asked;
        socket->write(ScriptedReply::json(R"({"error":"not scripted"})", 599).bytes);
        return;
    }
    const ScriptedReply reply = script.takeFirst().reply;
    socket->write(reply.bytes);
    if (reply.ending == ScriptedReply::KeepOpen) {
        return;
    }
    if (reply.endAfterBodyBytes >= 0) {
        // Ignore the rest of the body.
        QObject::disconnect(socket, &QTcpSocket::readyRead, this, nullptr);
    }
    socket->flush();
    if (reply.ending == ScriptedReply::Reset) {
        const linger atOnce{1, 0};
        setsockopt(int(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        socket->abort();
    } else {
        socket->disconnectFromHost();
    }
}
