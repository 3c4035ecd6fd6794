#include "tests/service/ApplicationStart.h"

#include <QDir>
#include <QElapsedTimer>
#include <QtTest>

#include <cerrno>
#include <sys/wait.h>

int waitForApplication()
{
    QElapsedTimer timer;
    timer.start();
    int status = 0;
    while (timer.elapsed() < 5000) {
        const pid_t ended = waitpid(-1, &status, WNOHANG);
        if (ended != 0) {
            return ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        QTest::qSleep(5);
    }
    return -1;
}

void ApplicationStartTest::install(const QByteArray& lines, const char* dataFolder) const
{
    home.writeFile(QString::fromUtf8(dataFolder)
            + QStringLiteral("/applications/com.tessaron.desktop.desktop"),
        "[Desktop Entry]\nType=Application\nName=Tessaron Desktop\n" + lines + '\n');
}

QByteArrayList ApplicationStartTest::recorded(const QByteArray& key) const
{
    QByteArrayList found;
    QFile record(recordPath);
    record.open(QIODevice::ReadOnly);
    const QByteArrayList lines = record.readAll().split('\n');
    for (const QByteArray& line : lines) {
        if (line.startsWith(key)) {
            found << line.mid(key.size()).trimmed();
        }
    }
    return found;
}

void ApplicationStartTest::init()
{
    if (QFileInfo::exists(QStringLiteral("/opt/Tessaron Desktop/tessaron-desktop"))) {
        QSKIP("Tessaron Desktop is installed on this machine");
    }
    for (const char* name : {"xdg_data_home", "data one", "data two"}) {
        QDir(home.path(QString::fromUtf8(name))).removeRecursively();
    }
    QFile::remove(recordPath);
    qputenv("RECORD", recordPath.toUtf8());
}

void ApplicationStartTest::cleanup()
{
    QVERIFY(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD);
}
