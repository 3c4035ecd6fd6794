#include "tests/support/FolderWatch.h"

#include <QFile>

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace {

struct Event {
    quint32 kind;
    QString name;
};

/// Reads the events that are in the queue already.
QList<Event> readEvents(int queue)
{
    alignas(inotify_event) char bytes[8192];
    const ssize_t size = read(queue, bytes, sizeof bytes);
    QList<Event> events;
    for (ssize_t at = 0; at < size;) {
        const auto* const event = reinterpret_cast<const inotify_event*>(bytes + at);
        events.append({event->mask, QString::fromUtf8(event->name)});
        at += ssize_t(sizeof *event + event->len);
    }
    return events;
}

} // namespace

FolderWatch::FolderWatch(const QString& folder)
    : queue(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
{
    inotify_add_watch(queue, QFile::encodeName(folder).constData(),
        IN_CREATE | IN_DELETE | IN_MODIFY | IN_MOVED_TO);
}

FolderWatch::~FolderWatch()
{
    close(queue);
}

QStringList FolderWatch::events() const
{
    QStringList texts;
    const QList<Event> events = readEvents(queue);
    for (const Event& event : events) {
        if ((event.kind & IN_CREATE) != 0) {
            texts << QStringLiteral("create ") + event.name;
        } else if ((event.kind & IN_DELETE) != 0) {
            texts << QStringLiteral("delete ") + event.name;
        } else if ((event.kind & IN_MOVED_TO) != 0) {
            texts << QStringLiteral("rename to ") + event.name;
        }
    }
    return texts;
}

bool FolderWatch::waitFor(const QString& name) const
{
    constexpr int longestPauseMs = 10000;
    pollfd ready{queue, POLLIN, 0};
    while (poll(&ready, 1, longestPauseMs) == 1) {
        const QList<Event> events = readEvents(queue);
        for (const Event& event : events) {
            if (event.name == name && (event.kind & IN_DELETE) == 0) {
                return true;
            }
        }
    }
    return false;
}
