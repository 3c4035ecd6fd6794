#pragma once

#include <QByteArray>
#include <QString>

/// What came back for one request.
struct NetworkResponse {
    /// The HTTP status code; 0 when the reply carried none (no connection, no status line).
    int status = 0;
    /// The complete body as it was received; empty when there was none.
    QByteArray body;
};

/// One blocking HTTP request at a time. Abstract so that nothing above the transport depends on
/// Qt Network; QtNetworkClient is the implementation that the program uses.
class NetworkClient {
public:
    virtual ~NetworkClient() = default;

    /// Sets where later requests go. Returns whether the transport accepts that host.
    virtual bool connect(const QString& host, quint16 port) = 0;
    /// Forgets host and port.
    virtual void disconnect() = 0;
    /// Asks for a limit on how long sending and receiving may take.
    virtual void setSendReceiveTimeout(int timeoutMs) = 0;
    /// Sends a GET for `path`, which is absolute ("/userUuid"), and blocks until the reply is
    /// complete. Failures show in the response's status and in lastError(); a reply of more than
    /// 512 MB is one, with status 0.
    virtual NetworkResponse get(const QString& path) = 0;
    /// Sends `body`, a JSON text, in a POST for `path`; otherwise like get().
    virtual NetworkResponse post(const QString& path, const QByteArray& body) = 0;
    /// The transport's own words about the last request.
    virtual QString lastError() const = 0;

protected:
    NetworkClient() = default;
    Q_DISABLE_COPY(NetworkClient)
};
