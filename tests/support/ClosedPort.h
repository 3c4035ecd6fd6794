#pragma once

#include <QHostAddress>
#include <QTcpSocket>

/// A port of 127.0.0.1 that refuses connections. It stays bound, without a listener, for the life
/// of the object, so that no other process can take it.
class ClosedPort {
public:
    ClosedPort()
    {
        if (!socket.bind(QHostAddress(QHostAddress::LocalHost))) {
            qFatal("Unable to bind a port of 127.0.0.1");
        }
    }

    quint16 number() const { return socket.localPort(); }

private:
    QTcpSocket socket;
};
