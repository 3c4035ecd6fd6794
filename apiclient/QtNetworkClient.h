#pragma once

#include "apiclient/NetworkClient.h"

#include <QScopedPointer>

class QNetworkAccessManager;

/// The transport on QNetworkAccessManager. It needs a QCoreApplication, runs a local event loop
/// for each request, and never gives up by itself: a request waits for as long as a dialog of
/// the application stays open. Redirects are not followed and no proxy is asked. Where the system
/// allows no further thread, no request is sent and the status is 0.
class QtNetworkClient : public NetworkClient {
public:
    /// Clears the library paths of the whole process, so that no plug-in of Qt's is loaded later.
    QtNetworkClient();
    ~QtNetworkClient() override;

    /// Stores both; opens no connection and always returns true, also for an empty host.
    bool connect(const QString& host, quint16 port) override;
    void disconnect() override;
    /// Does nothing: there is no time-out.
    void setSendReceiveTimeout(int timeoutMs) override;
    NetworkResponse get(const QString& path) override;
    /// An empty `body` is sent as a GET without a content type. A body reaches the server at
    /// most once, whatever happens to the connection.
    NetworkResponse post(const QString& path, const QByteArray& body) override;
    /// The last reply's error string, after a success too ("Unknown error" then), or why there was
    /// no reply to take: too large, or no thread for it. Empty before the first request.
    QString lastError() const override;

private:
    NetworkResponse doRequest(const QString& path, const QByteArray& body);

    QScopedPointer<QNetworkAccessManager> manager;
    QString host;
    quint16 port = 0;
    QString errorText;
};
