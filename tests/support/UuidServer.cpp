#include "tests/support/UuidServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <random>
#include <sys/socket.h>
#include <unistd.h>

namespace {

QByteArray randomLetters(int count)
{
    std::mt19937 generator; // the default seed: always the same text
    QByteArray letters(count, Qt::Uninitialized);
    for (char& letter : letters) {
        letter = char('a' + generator() % 26);
    }
    return letters;
}

/// Returns false if the peer has closed the connection.
bool sendAll(int connection, const char* bytes, int size)
{
    while (size > 0) {
        const ssize_t count = send(connection, bytes, size_t(size), MSG_NOSIGNAL);
        if (count <= 0) {
            return false;
        }
        bytes += count;
        size -= int(count);
    }
    return true;
}

} // namespace

UuidServer::UuidServer(int longest)
    : letters(randomLetters(longest))
    , resultBytes(2 * longest, '\0')
    , listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    for (int i = 0; i < longest; ++i) {
        resultBytes[2 * i] = letters.at(i);
    }
    sockaddr_in address{};
    socklen_t size = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener, generic, size) != 0 || listen(listener, 50) != 0
        || getsockname(listener, generic, &size) != 0) {
        qFatal("The server cannot listen on 127.0.0.1");
    }
    portNumber = ntohs(address.sin_port);
    thread = std::thread([this] { serve(); });
}

UuidServer::~UuidServer()
{
    shutdown(listener, SHUT_RDWR);
    thread.join();
    close(listener);
}

QByteArray UuidServer::results(int wantedLength) const
{
    return QByteArray::fromRawData(resultBytes.constData(), 2 * wantedLength);
}

void UuidServer::serve()
{
    int connection = -1;
    while ((connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0) {
        reply(connection);
        close(connection);
    }
}

void UuidServer::reply(int connection)
{
    QByteArray request;
    char buffer[4096];
    while (!request.contains("\r\n\r\n")) {
        const ssize_t count = recv(connection, buffer, sizeof buffer, 0);
        if (count <= 0) {
            return;
        }
        request.append(buffer, int(count));
    }
    const int wanted = length;
    const QByteArray head = "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: "
        + QByteArray::number(wanted + 11) + "\r\n\r\n{\"uuid\":\"";
    if (sendAll(connection, head.constData(), head.size())
        && sendAll(connection, letters.constData(), wanted)) {
        sendAll(connection, "\"}", 2);
    }
}
