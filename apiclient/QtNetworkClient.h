#pragma once

#include "apiclient/NetworkClient.h"

#include <QScopedPointer>

class QNetworkAccessManager;

/// A NetworkClient that uses QNetworkAccessManager. It needs a QCoreApplication and runs a local
/// event loop for each request. There is no timeout: a request waits as long as a dialog of the
/// application stays open. Redirects are not followed and proxies are not used.
///
/// Several clients may have a request in progress at the same time; one client may not be called
/// while its own request is in progress.
class QtNetworkClient : public NetworkClient {
public:
    /// Clears Qt's library paths for the whole process, so that Qt loads no plug-ins later.
    QtNetworkClient();
    ~QtNetworkClient() override;

    /// The process's message filter must call this, on the thread that sends requests, when Qt logs
    /// that a thread could not be started. Qt reports a failed thread start only as a log message,
    /// and the request that needs the thread would never finish. After this call, that request
    /// returns status 0 and is not sent. The next request works if threads can be started again.
    /// Does nothing if there is no application object, because no request can be running then.
    static void countFailedThreadStart();

    /// Stores both. Opens no connection and always returns true, also for an empty host.
    bool connect(const QString& host, quint16 port) override;
    void disconnect() override;
    /// Does nothing: there is no timeout.
    void setSendReceiveTimeout(int timeoutMs) override;
    NetworkResponse get(const QString& path) override;
    /// Sends an empty `body` as a GET without a content type. A body reaches the server at most
    /// once, whatever happens to the connection.
    NetworkResponse post(const QString& path, const QByteArray& body) override;
    /// The last reply's error string, also after a success ("Unknown error"), or the reason why
    /// there is no reply: it was too large, or its thread could not be started. Empty before the
    /// first request.
    QString lastError() const override;

private:
    NetworkResponse doRequest(const QString& path, const QByteArray& body);

    QScopedPointer<QNetworkAccessManager> manager;
    QString host;
    quint16 port = 0;
    QString errorText;
    int exchange = 0; // the number of the last request, for the trace
};
