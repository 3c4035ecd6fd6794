#pragma once

#include <QByteArray>
#include <QString>

/// The reply to one request.
struct NetworkResponse {
    /// The HTTP status code; 0 if the reply's headers were not received completely.
    int status = 0;
    /// The complete body as received; may be empty.
    QByteArray body;
};

/// Performs one blocking HTTP request at a time. The class is abstract so that nothing above the
/// transport depends on Qt Network and tests can pass a fake. The program uses QtNetworkClient.
class NetworkClient {
public:
    virtual ~NetworkClient() = default;

    /// Sets the destination of later requests. Returns false if the transport refuses it; later
    /// requests then return status 0.
    virtual bool connect(const QString& host, quint16 port) = 0;
    /// Clears host and port. Later requests return status 0 until connect() is called again.
    virtual void disconnect() = 0;
    /// Limits how long sending and receiving may take. An implementation may ignore the limit.
    virtual void setSendReceiveTimeout(int timeoutMs) = 0;
    /// Sends a GET for the absolute path `path` ("/userUuid") and blocks until the reply is
    /// complete. On failure the status is 0 or the server's, and lastError() has the reason. A
    /// reply that is cut off in its body keeps its status. A reply of more than 512 MB is a failure
    /// with status 0.
    virtual NetworkResponse get(const QString& path) = 0;
    /// Sends `body`, a JSON text, in a POST for `path`; otherwise like get().
    virtual NetworkResponse post(const QString& path, const QByteArray& body) = 0;
    /// The transport's error text for the last request.
    virtual QString lastError() const = 0;

protected:
    NetworkClient() = default;
    Q_DISABLE_COPY(NetworkClient)
};
