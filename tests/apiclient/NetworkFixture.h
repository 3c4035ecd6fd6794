#pragma once

#include "apiclient/QtNetworkClient.h"
#include "tests/support/ScriptedServer.h"

#include <QCoreApplication>
#include <QFile>
#include <QScopedPointer>
#include <QTcpSocket>
#include <QTemporaryDir>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

/// A system bus that takes connections and never answers.
class SilentBus {
public:
    SilentBus()
    {
        const QByteArray path = QFile::encodeName(folder.filePath(QStringLiteral("bus")));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, path.constData(), sizeof address.sun_path);
        descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
        works = fcntl(descriptor, F_SETFL, O_NONBLOCK) == 0
            && bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0
            && listen(descriptor, 5) == 0;
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + path);
    }

    ~SilentBus() { close(descriptor); }
    Q_DISABLE_COPY(SilentBus)

    bool isListening() const { return works; }
    /// Whether anybody waits to be let in; the kernel completes connections by itself.
    bool hasVisitor() const
    {
        const int visitor = accept(descriptor, nullptr, nullptr);
        close(visitor);
        return visitor >= 0;
    }

private:
    QTemporaryDir folder;
    int descriptor = -1;
    bool works = false;
};

/// What each test of the transport stands on: a server, a client of it, a bus that nobody asks,
/// and a record of Qt's messages, of which there must be none.
class NetworkFixture {
protected:
    void setUp()
    {
        recorded().clear();
        formerHandler =
            qInstallMessageHandler([](QtMsgType, const QMessageLogContext&,
                                       const QString& message) { recorded() << message; });
        bus.reset(new SilentBus);
        server.reset(new ScriptedServer);
        connectAfresh();
    }

    /// A client that knows of no former connection.
    void connectAfresh()
    {
        client.reset(new QtNetworkClient);
        client->connect(QStringLiteral("127.0.0.1"), server->port());
    }

    /// Empty when everything scripted was used, nothing else was sent and nothing was said.
    QString tearDown()
    {
        // Nothing comes late: the manager's thread has ended, and what it sent is read.
        client.reset();
        QCoreApplication::processEvents();
        qInstallMessageHandler(formerHandler);
        QStringList problems = recorded();
        if (!bus->isListening() || bus->hasVisitor()) {
            problems << QStringLiteral("the system bus was asked");
        }
        if (!server->strayBytes().isEmpty()) {
            problems << QStringLiteral("half a request: ")
                    + QString::fromLatin1(server->strayBytes().left(200));
        }
        return (problems << server->problem()).join(QLatin1Char(' ')).trimmed();
    }

    static quint16 portWithoutServer()
    {
        QTcpServer unused;
        unused.listen(QHostAddress::LocalHost);
        return unused.serverPort();
    }

    /// Bytes of every value, without a short period.
    static QByteArray pattern(int size)
    {
        QByteArray bytes(size, Qt::Uninitialized);
        for (int i = 0; i < size; ++i) {
            bytes[i] = char((uint(i) * 2654435761U) >> 24);
        }
        return bytes;
    }

    QScopedPointer<SilentBus> bus;
    QScopedPointer<ScriptedServer> server;
    QScopedPointer<QtNetworkClient> client;

private:
    static QStringList& recorded()
    {
        static QStringList messages;
        return messages;
    }

    QtMessageHandler formerHandler = nullptr;
};
