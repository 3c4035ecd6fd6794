#pragma once

#include <QByteArray>

#include <atomic>
#include <thread>

/// A server in a separate thread that replies to every request with a user id of the chosen length,
/// for runs that the test kills. The id of length n is the first n letters of one random text, so
/// that a truncated or shifted result is never mistaken for a correct one.
class UuidServer {
public:
    explicit UuidServer(int longest);
    ~UuidServer();
    Q_DISABLE_COPY(UuidServer)

    int port() const { return portNumber; }
    void setLength(int newLength) { length = newLength; }
    /// The bytes of a results file that holds the id of `wantedLength`.
    QByteArray results(int wantedLength) const;

private:
    void serve();
    void reply(int connection);

    const QByteArray letters;
    QByteArray resultBytes;
    std::atomic<int> length{0};
    int listener = -1;
    int portNumber = 0;
    std::thread thread;
};
