#include "frontend/ProcessSetup.h"
#include "frontend/TextCodec.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/ExchangeFolder.h"

#include <QFile>
#include <QtTest>

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

/// Returns "null" for a stream that is open on the null device for reading and writing, "closed"
/// for a closed one, and otherwise "other".
QByteArray target(int stream)
{
    struct stat found;
    struct stat null;
    if (fstat(stream, &found) != 0) {
        return "closed";
    }
    return stat("/dev/null", &null) == 0 && S_ISCHR(found.st_mode) && found.st_rdev == null.st_rdev
            && (fcntl(stream, F_GETFL) & O_ACCMODE) == O_RDWR
        ? "null"
        : "other";
}

} // namespace

class tst_ProcessSetup : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void opensClosedStreamsOnNullDevice_data();
    void opensClosedStreamsOnNullDevice();
    void printsLine_data();
    void printsLine();
    void survivesOutputWithoutReader_data();
    void survivesOutputWithoutReader();
    void survivesFileSizeLimit();
    void dropsMessagesOfOtherThreads();
    void logsFatalMessagesOfOtherThreads();
    void countsFailedThreadStartsOfOwnThread();
    void restoresLocaleVariable_data();
    void restoresLocaleVariable();
    void makesFileNamesUtf8();
};

void tst_ProcessSetup::opensClosedStreamsOnNullDevice_data()
{
    QTest::addColumn<QVector<int>>("closedStreams");
    QTest::newRow("all open") << QVector<int>();
    QTest::newRow("input") << QVector<int>{0};
    QTest::newRow("output") << QVector<int>{1};
    QTest::newRow("error") << QVector<int>{2};
    QTest::newRow("input and error") << QVector<int>{0, 2};
    QTest::newRow("output and error") << QVector<int>{1, 2};
    QTest::newRow("all") << QVector<int>{0, 1, 2};
}

void tst_ProcessSetup::opensClosedStreamsOnNullDevice()
{
    QFETCH(QVector<int>, closedStreams);
    const QTemporaryDir folder;
    const QByteArray other = QFile::encodeName(folder.filePath(QStringLiteral("other")));
    const QByteArray result = inChildProcess([&]() -> QByteArray {
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
    QCOMPARE(result, expected.join(' '));
}

void tst_ProcessSetup::printsLine_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("number") << QByteArray("1234");
    QTest::newRow("empty text") << QByteArray("");
    QTest::newRow("percent signs") << QByteArray("%s %n %");
    QTest::newRow("newline inside") << QByteArray("a\nb");
    QTest::newRow("100,000 characters") << QByteArray(100000, 'm');
}

void tst_ProcessSetup::printsLine()
{
    QFETCH(QByteArray, text);
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("output"));
    putFile(path, QByteArray());
    const QByteArray result = inChildProcess([&]() -> QByteArray {
        dup2(open(QFile::encodeName(path).constData(), O_WRONLY), STDOUT_FILENO);
        printLine(text.constData());
        // Read before this process ends, so that the line must have been flushed.
        return bytesOf(path);
    });
    QCOMPARE(result, text + '\n');
}

void tst_ProcessSetup::survivesOutputWithoutReader_data()
{
    QTest::addColumn<bool>("closed");
    QTest::newRow("pipe without a reader") << false;
    QTest::newRow("closed output") << true;
}

void tst_ProcessSetup::survivesOutputWithoutReader()
{
    QFETCH(bool, closed);
    const QByteArray result = inChildProcess([closed]() -> QByteArray {
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
    QCOMPARE(result, QByteArray("alive"));
}

void tst_ProcessSetup::survivesFileSizeLimit()
{
    const QTemporaryDir folder;
    const QByteArray path = QFile::encodeName(folder.filePath(QStringLiteral("file")));
    const QByteArray result = inChildProcess([&path]() -> QByteArray {
        startProcessSetup();
        const int file = open(path.constData(), O_CREAT | O_WRONLY, 0600);
        if (file < 0 || !limitFileSize(4)) {
            return "no limit";
        }
        const ssize_t first = write(file, "abcdef", 6);
        const ssize_t second = write(file, "ef", 2);
        return QByteArray::number(int(first)) + ' ' + QByteArray::number(int(second));
    });
    QCOMPARE(result, QByteArray("4 -1"));
}

void tst_ProcessSetup::dropsMessagesOfOtherThreads()
{
    const QByteArray result = inChildProcess([] {
        startProcessSetup();
        std::thread([] { qWarning("first in another thread"); }).join();
        qWarning("first");
        std::thread([] { qWarning("second in another thread"); }).join();
        qWarning("last");
        return QByteArray("done");
    });
    QCOMPARE(result, QByteArray("done|first|last"));
}

void tst_ProcessSetup::logsFatalMessagesOfOtherThreads()
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("errors"));
    putFile(path, QByteArray());
    const QByteArray result = inChildProcess([&path]() -> QByteArray {
        const rlimit noCoreFile{0, 0};
        setrlimit(RLIMIT_CORE, &noCoreFile);
        std::signal(SIGABRT, SIG_DFL); // Qt Test 6 would print a stack trace
        dup2(open(QFile::encodeName(path).constData(), O_WRONLY), STDERR_FILENO);
        qInstallMessageHandler(nullptr);
        startProcessSetup();
        std::thread([] { qFatal("fatal in another thread"); }).join();
        return "alive";
    });
    QCOMPARE(bytesOf(path), QByteArray("fatal in another thread\n"));
    QCOMPARE(result, "the child ended with " + QByteArray::number(SIGABRT));
}

void tst_ProcessSetup::countsFailedThreadStartsOfOwnThread()
{
    const QByteArray answer = inChildProcess([] {
        startProcessSetup();
        const auto report = [] { qWarning("QThread::start: Thread creation error"); };
        // Where QtNetworkClient keeps the number.
        const auto count = [] {
            const QVariant number =
                QCoreApplication::instance()->property("tessaronFailedThreadStarts");
            return QByteArray::number(number.toInt());
        };
        std::thread(report).join();
        const QByteArray fromOtherThread = count();
        report();
        return fromOtherThread + ' ' + count();
    });
    QCOMPARE(answer, QByteArray("0 1"));
}

void tst_ProcessSetup::restoresLocaleVariable_data()
{
    QTest::addColumn<QByteArray>("former"); // null if the variable is unset
    QTest::addColumn<QByteArray>("states");
    QTest::newRow("unset") << QByteArray() << QByteArray("C, unset");
    QTest::newRow("empty") << QByteArray("") << QByteArray("C, ");
    QTest::newRow("value") << QByteArray("xx_XX.UTF-8") << QByteArray("C, xx_XX.UTF-8");
}

void tst_ProcessSetup::restoresLocaleVariable()
{
    QFETCH(QByteArray, former);
    const QByteArray result = inChildProcess([&former] {
        if (former.isNull()) {
            unsetenv("LC_ALL");
        } else {
            setenv("LC_ALL", former.constData(), 1);
        }
        const QByteArray kept = startProcessSetup();
        const QByteArray during = getenv("LC_ALL");
        finishProcessSetup(kept);
        const char* const after = getenv("LC_ALL");
        return during + ", " + (after == nullptr ? "unset" : after);
    });
    QTEST(result, "states");
}

void tst_ProcessSetup::makesFileNamesUtf8()
{
    const QByteArray result = inChildProcess([] {
#if QT_VERSION_MAJOR < 6 // in Qt 6 they always are
        QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
#endif
        finishProcessSetup(startProcessSetup());
        return QFile::encodeName(QStringLiteral("\u0416"));
    });
    QCOMPARE(result, QByteArray("\xd0\x96"));
}

QTEST_GUILESS_MAIN(tst_ProcessSetup)
#include "tst_processsetup.moc"
