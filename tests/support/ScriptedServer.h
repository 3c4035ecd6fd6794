#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMap>
#include <QTcpServer>
#include <QVariantMap>

/// A request as the server received it.
struct ReceivedRequest {
    QByteArray method;
    QByteArray path;
    QMap<QByteArray, QByteArray> headers; ///< names in lower case
    QByteArray body;

    /// The body as JSON read by Qt's own reader, not by the code under test.
    QVariantMap json() const;
};

/// What the server sends for one request, byte by byte, and what it then does to the connection.
struct ScriptedReply {
    enum Ending { KeepOpen, Close, Reset };

    QByteArray bytes;
    Ending ending = KeepOpen;
    /// Ends the connection after this many bytes of a request's body instead of after all of it;
    /// -1 waits for the whole request.
    qint64 endAfterBodyBytes = -1;

    static ScriptedReply json(const QByteArray& body, int status = 200);
    static ScriptedReply withBody(
        int status, const QByteArray& contentType, const QByteArray& body);
};

/// An HTTP server on a free port of 127.0.0.1, in the test's own thread: it works while the
/// client waits in its event loop. Replies are used in the order in which they were scripted. A
/// request that was not scripted gets status 599, and problem() reports it.
class ScriptedServer : public QObject {
    Q_OBJECT

public:
    explicit ScriptedServer(QObject* parent = nullptr);

    quint16 port() const { return server.serverPort(); }

    /// Listens on `port` instead. If the port is in use, returns false and no longer listens.
    bool listenOn(quint16 port);

    /// Scripts the reply to the next request, which must be `method` `path`.
    void expect(const QByteArray& method, const QByteArray& path, const ScriptedReply& reply);

    const QList<ReceivedRequest>& requests() const { return received; }
    int connectionCount() const { return connections; }
    int openConnectionCount() const { return openConnections; }

    /// The bytes received after the last complete request of each connection.
    QByteArray strayBytes() const;

    /// Returns which scripted replies were not used and which requests were not scripted. Every
    /// test compares it with an empty string in cleanup().
    QString problem() const;

    /// Discards the script and the received requests.
    void reset();

private:
    struct Expectation {
        QByteArray method;
        QByteArray path;
        ScriptedReply reply;
    };

    void accept();
    void read(QTcpSocket* socket);
    void reply(QTcpSocket* socket, const ReceivedRequest& request);

    QList<Expectation> script;
    QList<ReceivedRequest> received;
    QStringList problems;
    QByteArray stray;
    QHash<QTcpSocket*, QByteArray> incoming;
    int connections = 0;
    int openConnections = 0;
    // Declared last and so destroyed first: closing its connections calls back into this object.
    QTcpServer server;
};
