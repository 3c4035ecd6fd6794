#include "tests/support/RecordingApplication.h"

#include "tests/support/ExchangeFolder.h"
#include "tests/support/TemporaryHome.h"

#include <QFile>

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>

RecordingApplication::RecordingApplication(const TemporaryHome& home, Ending ending)
    : entryPath(
        home.path(QStringLiteral("xdg_data_home/applications/com.tessaron.desktop.desktop")))
    , recordPath(home.path(QStringLiteral("record")))
{
    // What the bridge starts becomes a child of this process when the bridge ends.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    home.writeFile(QStringLiteral("xdg_data_home/applications/com.tessaron.desktop.desktop"),
        "[Desktop Entry]\nType=Application\nName=T\nExec=\"" START_RECORDER "\" \""
            + recordPath.toUtf8() + (ending == Stays ? "\" stay\n" : "\"\n"));
}

RecordingApplication::~RecordingApplication()
{
    QFile::remove(entryPath);
    if (processId() > 0) {
        kill(processId(), SIGKILL);
        waitpid(processId(), nullptr, 0);
    }
    QFile::remove(recordPath);
    prctl(PR_SET_CHILD_SUBREAPER, 0);
}

bool RecordingApplication::isRealOneInstalled()
{
    return QFile::exists(QStringLiteral("/opt/Tessaron Desktop/tessaron-desktop"));
}

bool RecordingApplication::hasRecord() const
{
    return QFile::exists(recordPath);
}

QByteArrayList RecordingApplication::recorded(const QByteArray& key) const
{
    QByteArrayList values;
    const QByteArrayList lines = bytesOf(recordPath).split('\n');
    for (const QByteArray& line : lines) {
        if (line.startsWith(key)) {
            values << line.mid(key.size()).trimmed();
        }
    }
    return values;
}

quint64 RecordingApplication::recordedSignals(const QByteArray& key) const
{
    constexpr quint64 librarySignals = 0x180000000;
    bool ok = false;
    const quint64 set = recorded(key).value(0).toULongLong(&ok, 16);
    return ok ? set & ~librarySignals : ~quint64(0);
}
