#pragma once

#include "apiclient/QtNetworkClient.h"
#include "tests/support/ClosedPort.h"
#include "tests/support/ScriptedServer.h"

#include <QCoreApplication>
#include <QFile>
#include <QScopedPointer>
#include <QTemporaryDir>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

/// A system bus that accepts connections and never replies.
class SilentBus {
public:
    SilentBus()
        : descriptor(socket(AF_UNIX, SOCK_STREAM, 0))
    {
        const QByteArray path = QFile::encodeName(folder.filePath(QStringLiteral("bus")));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, path.constData(), sizeof address.sun_path);
        listening = fcntl(descriptor, F_SETFL, O_NONBLOCK) == 0
            && bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0
            && listen(descriptor, 5) == 0;
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + path);
    }

    ~SilentBus() { close(descriptor); }
    Q_DISABLE_COPY(SilentBus)

    bool isListening() const { return listening; }

    /// Whether a connection is waiting. The kernel completes connections without accept().
    bool hasConnection() const
    {
        const int connection = accept(descriptor, nullptr, nullptr);
        close(connection);
        return connection >= 0;
    }

private:
    QTemporaryDir folder;
    const int descriptor;
    bool listening = false;
};

/// What each test of the transport needs: a server, a connected client, a system bus that must not
/// be used, and a record of Qt's messages, which must stay empty.
class NetworkFixture {
protected:
    void setUp()
    {
        messages().clear();
        formerHandler =
            qInstallMessageHandler([](QtMsgType, const QMessageLogContext&,
                                       const QString& message) { messages() << message; });
        bus.reset(new SilentBus);
        server.reset(new ScriptedServer);
        replaceClient();
    }

    /// Replaces the client with one that has no open connections.
    void replaceClient()
    {
        client.reset(new QtNetworkClient);
        client->connect(QStringLiteral("127.0.0.1"), server->port());
    }

    /// Returns an empty text if every scripted reply was used, nothing else was sent and Qt logged
    /// nothing; otherwise what was wrong.
    QString tearDown()
    {
        // Ends the network thread. Everything that it sent has then arrived.
        client.reset();
        QCoreApplication::processEvents();
        qInstallMessageHandler(formerHandler);
        QStringList problems = messages();
        if (!bus->isListening() || bus->hasConnection()) {
            problems << QStringLiteral("connected to the system bus");
        }
        if (!server->strayBytes().isEmpty()) {
            problems << QStringLiteral("incomplete request: ")
                    + QString::fromLatin1(server->strayBytes().left(200));
        }
        return (problems << server->problem()).join(QLatin1Char(' ')).trimmed();
    }

    /// Returns `size` bytes that contain every byte value and repeat only after a long period.
    static QByteArray pattern(int size)
    {
        QByteArray bytes(size, Qt::Uninitialized);
        for (int i = 0; i < size; ++i) {
            bytes[i] = char((uint(i) * 2654435761U) >> 24);
        }
        return bytes;
    }

    const ClosedPort closedPort;
    QScopedPointer<SilentBus> bus;
    QScopedPointer<ScriptedServer> server;
    QScopedPointer<QtNetworkClient> client;

    /// The messages since setUp(). A test that expects some must clear them.
    static QStringList& messages()
    {
        static QStringList recorded;
        return recorded;
    }

private:
    QtMessageHandler formerHandler = nullptr;
};
