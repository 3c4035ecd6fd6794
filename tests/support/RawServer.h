#pragma once

#include <QByteArray>
#include <QHash>
#include <QTcpServer>

#include <limits>

/// What a server does to its first connection.
struct Misbehaviour {
    enum Ending {
        Close, ///< closes the socket, as when a process exits; later bytes get a reset
        HalfClose, ///< closes its own direction and keeps reading
        Reset,
        CloseLater ///< keeps the connection open for a while first
    };

    static constexpr qint64 atOnce = -1;
    static constexpr qint64 wholeBody = std::numeric_limits<qint64>::max();

    /// The number of body bytes after which it happens: 0 is after the headers, and atOnce before
    /// anything is read.
    qint64 afterBodyBytes = wholeBody;
    /// What is sent first.
    QByteArray bytes;
    Ending ending = Close;
};

/// A server on a free port of 127.0.0.1 that sends raw bytes. It misbehaves on its first connection
/// and replies to every later one with a success, so that a repeated request shows in postCount()
/// and in the sender's results.
class RawServer : public QTcpServer {
public:
    explicit RawServer(const Misbehaviour& misbehaviour);

    int connectionCount() const { return connections; }
    int openConnectionCount() const { return received.size(); }
    /// The number of POSTs begun on all connections.
    int postCount() const;
    /// The number of success replies sent, all of them on later connections.
    int successCount() const { return successes; }

private:
    struct Connection {
        QByteArray bytes;
        bool isFirst = false;
        bool isDone = false;
    };

    void accept(QTcpSocket* socket);
    void read(QTcpSocket* socket);
    void misbehave(QTcpSocket* socket);

    const Misbehaviour first;
    QHash<QTcpSocket*, Connection> received;
    int connections = 0;
    int closedPosts = 0;
    int successes = 0;
};
