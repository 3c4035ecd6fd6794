#include "frontend/ProcessSetup.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/ExchangeFolder.h"

#include <QFile>
#include <QtTest>

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

/// Where the stream leads: "null" for the null device, "closed", else "other".
QByteArray target(int stream)
{
    struct stat found;
    struct stat null;
    if (fstat(stream, &found) != 0) {
        return "closed";
    }
    return stat("/dev/null", &null) == 0 && found.st_rdev == null.st_rdev && S_ISCHR(found.st_mode)
        ? "null"
        : "other";
}

} // namespace

class tst_ProcessSetup : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void opensWhatIsClosed_data();
    void opensWhatIsClosed();
    void printsALine_data();
    void printsALine();
    void printsIntoNothing_data();
    void printsIntoNothing();
    void livesPastAFileSizeLimit();
    void logsOnlyTheMessagesOfItsThread();
};

void tst_ProcessSetup::opensWhatIsClosed_data()
{
    QTest::addColumn<QVector<int>>("closedStreams");
    QTest::newRow("none") << QVector<int>();
    QTest::newRow("input") << QVector<int>{0};
    QTest::newRow("output") << QVector<int>{1};
    QTest::newRow("error") << QVector<int>{2};
    QTest::newRow("input and error") << QVector<int>{0, 2};
    QTest::newRow("output and error") << QVector<int>{1, 2};
    QTest::newRow("all") << QVector<int>{0, 1, 2};
}

void tst_ProcessSetup::opensWhatIsClosed()
{
    QFETCH(QVector<int>, closedStreams);
    const QTemporaryDir folder;
    const QByteArray other = QFile::encodeName(folder.filePath(QStringLiteral("other")));
    const QByteArray answer = inChildProcess([&]() -> QByteArray {
        // Three streams that are not the null device, whatever the test was started with.
        const int file = open(other.constData(), O_CREAT | O_RDWR, 0600);
        for (int stream = 0; stream < 3; ++stream) {
            dup2(file, stream);
        }
        std::for_each(closedStreams.begin(), closedStreams.end(), [](int s) { close(s); });
        startProcessSetup();
        const int next = open(other.constData(), O_RDONLY);
        return target(0) + ' ' + target(1) + ' ' + target(2) + (next > 2 ? "" : " in between");
    });
    QList<QByteArray> expected{"other", "other", "other"};
    std::for_each(closedStreams.begin(), closedStreams.end(), [&](int s) { expected[s] = "null"; });
    QCOMPARE(answer, expected.join(' '));
}

void tst_ProcessSetup::printsALine_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("a number") << QByteArray("1234");
    QTest::newRow("nothing") << QByteArray("");
    QTest::newRow("percent signs") << QByteArray("%s %n %");
    QTest::newRow("a newline of its own") << QByteArray("a\nb");
    QTest::newRow("much") << QByteArray(100000, 'm');
}

void tst_ProcessSetup::printsALine()
{
    QFETCH(QByteArray, text);
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("output"));
    putFile(path, QByteArray());
    const QByteArray answer = inChildProcess([&]() -> QByteArray {
        dup2(open(QFile::encodeName(path).constData(), O_WRONLY), STDOUT_FILENO);
        printLine(text.constData());
        // Before this process ends: what is printed must have been flushed.
        return bytesOf(path);
    });
    QCOMPARE(answer, text + '\n');
}

void tst_ProcessSetup::printsIntoNothing_data()
{
    QTest::addColumn<bool>("closed");
    QTest::newRow("a pipe without a reader") << false;
    QTest::newRow("a closed output") << true;
}

void tst_ProcessSetup::printsIntoNothing()
{
    QFETCH(bool, closed);
    const QByteArray answer = inChildProcess([closed]() -> QByteArray {
        int ends[2];
        if (pipe(ends) != 0) {
            return "no pipe";
        }
        dup2(ends[1], STDOUT_FILENO);
        close(ends[1]);
        close(ends[0]);
        if (closed) {
            close(STDOUT_FILENO);
        }
        startProcessSetup();
        printLine("status");
        return "alive";
    });
    QCOMPARE(answer, QByteArray("alive"));
}

void tst_ProcessSetup::livesPastAFileSizeLimit()
{
    const QTemporaryDir folder;
    const QByteArray path = QFile::encodeName(folder.filePath(QStringLiteral("file")));
    const QByteArray answer = inChildProcess([&path]() -> QByteArray {
        startProcessSetup();
        const int file = open(path.constData(), O_CREAT | O_WRONLY, 0600);
        if (file < 0 || !limitFileSize(4)) {
            return "no limit";
        }
        const ssize_t first = write(file, "abcdef", 6);
        const ssize_t second = write(file, "ef", 2);
        return QByteArray::number(int(first)) + ' ' + QByteArray::number(int(second));
    });
    QCOMPARE(answer, QByteArray("4 -1"));
}

void tst_ProcessSetup::logsOnlyTheMessagesOfItsThread()
{
    const QByteArray answer = inChildProcess([] {
        startProcessSetup();
        qWarning("first");
        std::thread([] { qWarning("from another thread"); }).join();
        qWarning("last");
        return QByteArray("done");
    });
    QCOMPARE(answer, QByteArray("done|first|last"));
}

QTEST_GUILESS_MAIN(tst_ProcessSetup)
#include "tst_processsetup.moc"
