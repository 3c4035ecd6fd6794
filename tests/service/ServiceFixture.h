#pragma once

#include "service/DesktopSettings.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryHome.h"

#include <QJsonDocument>
#include <QSettings>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

/// A port of 127.0.0.1 that refuses connections for as long as this lives: it is taken, but
/// nobody listens.
class RefusingPort {
public:
    RefusingPort()
        : socketFd(socket(AF_INET, SOCK_STREAM, 0))
    {
        socklen_t size = sizeof address;
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        if (bind(socketFd, generic, size) != 0 || getsockname(socketFd, generic, &size) != 0) {
            qFatal("Cannot take a port of 127.0.0.1");
        }
    }
    ~RefusingPort() { close(socketFd); }
    Q_DISABLE_COPY(RefusingPort)

    int number() const { return ntohs(address.sin_port); }

private:
    int socketFd;
    sockaddr_in address{};
};

/// A home folder whose settings name the port of a scripted application. One per process: the
/// settings object keeps the folder that it saw first.
class ServiceFixture {
public:
    ServiceFixture() { useScriptedServer(); }

    /// Every service that is made from now on talks to the scripted application.
    void useScriptedServer() { usePort(server.port()); }

    /// Every service that is made from now on finds nobody.
    void useNoServer() { usePort(refusing.number()); }

    TemporaryHome home;
    ScriptedServer server;

private:
    void usePort(int port)
    {
        // A file that kept its size within the clock's resolution would not be read again.
        padding += "; again\n";
        home.writeSettings(
            padding + "[%General]\nhttpServerPort=" + QByteArray::number(port) + "\n");
        tessaronDesktopSettings()->sync();
    }

    RefusingPort refusing;
    QByteArray padding;
};

/// Whether `body` is one JSON object that equals the one in `expected`, types included.
inline bool isSameJson(const QByteArray& body, const QByteArray& expected)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    return document.isObject() && document == QJsonDocument::fromJson(expected);
}
