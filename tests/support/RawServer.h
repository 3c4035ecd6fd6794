#pragma once

#include <QByteArray>
#include <QHash>
#include <QTcpServer>

#include <limits>

/// What a server does to the first connection that it gets.
struct Misbehaviour {
    enum Ending {
        Close, ///< as a program that ends: what still comes in is answered with a reset
        HalfClose, ///< says that nothing more will come, and reads on
        Reset,
        CloseLater ///< keeps the connection open for a while first
    };

    static constexpr qint64 atOnce = -1;
    static constexpr qint64 wholeBody = std::numeric_limits<qint64>::max();

    /// It happens after so many bytes of the request's body, 0 for behind the headers, or atOnce.
    qint64 afterBodyBytes = wholeBody;
    /// Sent first.
    QByteArray bytes;
    Ending ending = Close;
};

/// A server below HTTP on a free port of 127.0.0.1. It misbehaves on its first connection and
/// answers every later one with a perfect success, so that a request that was repeated would
/// show twice: here and in its sender's results.
class RawServer : public QTcpServer {
public:
    explicit RawServer(const Misbehaviour& misbehaviour);

    int connectionCount() const { return connections; }
    int openConnectionCount() const { return received.size(); }
    /// The number of POSTs begun, over all connections.
    int postCount() const;
    /// The number of requests that were answered with a success: those on later connections.
    int answerCount() const { return answers; }

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
    int answers = 0;
};
