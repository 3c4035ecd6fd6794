#include "frontend/ArgsFile.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/Texts.h"

#include <QFile>
#include <QtTest>

#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

bool closeFails = false;

QString quotedWarning(const char* words, const QString& path)
{
    return QLatin1String(words) + QStringLiteral(" \"") + path + QLatin1Char('"');
}

/// What a write answers: the count and the flag, as one text.
QByteArray told(int count, bool success)
{
    return QByteArray::number(count) + (success ? " true" : " false");
}

QByteArray writeAndTell(const QString& path, const QString& content)
{
    bool success = false;
    const int count = writeFile(path, content, &success);
    return told(count, success);
}

} // namespace

/// Stands in front of the C library's, for Qt too. It can fail as on a network's file system, which
/// may find out only then that there is no room.
extern "C" int close(int descriptor)
{
    const long result = syscall(SYS_close, descriptor);
    if (closeFails) {
        errno = ENOSPC;
        return -1;
    }
    return int(result);
}

/// Files that cannot be read, written or replaced.
class tst_ArgsFileFailures : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { folder.reset(new ExchangeFolder); }
    void cleanup() { folder.reset(); }

    void cannotRead_data();
    void cannotRead();
    void doesNotReadWhatIsForbidden();
    void doesNotReadMoreThanAFileMayHold();
    void doesNotTakeAPartForTheWhole();
    void doesNotWaitAtANamedPipe();
    void replacesAReadOnlyFile();
    void leavesTheFileBehindALink();
    void doesNotReplaceAFolder();
    void cannotWrite_data();
    void cannotWrite();
    void doesNotWriteWhereForbidden_data();
    void doesNotWriteWhereForbidden();
    void stopsAtTheFileSizeLimit_data();
    void stopsAtTheFileSizeLimit();
    void writesUpToTheFileSizeLimit();
    void stopsAtAFullDisk();
    void believesAFailedClose();

private:
    QString file() const { return folder->resultsPath(); }
    QString sideFile() const { return file() + QStringLiteral(".temp"); }

    QScopedPointer<ExchangeFolder> folder;
};

void tst_ArgsFileFailures::cannotRead_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("a file that is missing") << QStringLiteral("missing.txt");
    QTest::newRow("a folder that is missing") << QStringLiteral("missing/args.txt");
    QTest::newRow("a folder in place of the file") << QString();
    QTest::newRow("a file in place of the folder") << QStringLiteral("file/args.txt");
    QTest::newRow("a link to nothing") << QStringLiteral("link");
    QTest::newRow("a name that is too long") << QString(300, QLatin1Char('n'));
    QTest::newRow("a name with a quote and Cyrillic") << QStringLiteral("\" \u0444");
}

void tst_ArgsFileFailures::cannotRead()
{
    QFETCH(QString, name);
    putFile(folder->path() + QStringLiteral("/file"), "x");
    QVERIFY(QFile::link(QStringLiteral("/nonexistent"), folder->path() + QStringLiteral("/link")));
    const QString path = name.isEmpty() ? folder->path() : folder->path() + QLatin1Char('/') + name;
    const QString escaped = QString(path).replace(QLatin1Char('"'), QStringLiteral("\\\""));
    QTest::ignoreMessage(
        QtWarningMsg, qUtf8Printable(quotedWarning("Unable to open args file", escaped)));
    bool success = true;
    QCOMPARE(readArgsFile(path, &success), QStringList());
    QVERIFY(!success);
}

void tst_ArgsFileFailures::doesNotReadWhatIsForbidden()
{
    const QString path = folder->argumentsPath();
    folder->putArguments({QStringLiteral("secret")});
    giveToOrdinaryUser(folder->path());
    QVERIFY(QFile::setPermissions(path, QFile::Permissions()));
    const QByteArray answer = inChildProcess([&path]() -> QByteArray {
        if (!becomeOrdinaryUser()) {
            return "still root";
        }
        bool success = true;
        const QStringList strings = readArgsFile(path, &success);
        return told(strings.size(), success);
    });
    QCOMPARE(QString::fromUtf8(answer),
        QStringLiteral("0 false|") + quotedWarning("Unable to open args file", path));
}

void tst_ArgsFileFailures::doesNotReadMoreThanAFileMayHold()
{
    // A sparse file: it has the size and takes no room.
    QFile large(file());
    QVERIFY(large.open(QIODevice::WriteOnly));
    QVERIFY(large.resize(512 * 1024 * 1024 + 1));
    large.close();
    QTest::ignoreMessage(
        QtWarningMsg, qPrintable(QStringLiteral("Unable to open args file \"%1\"").arg(file())));
    bool success = true;
    QCOMPARE(readArgsFile(file(), &success), QStringList());
    QVERIFY(!success);
}

void tst_ArgsFileFailures::doesNotTakeAPartForTheWhole()
{
    // A regular file that can be opened and not read.
    QVERIFY(QFile::link(QStringLiteral("/proc/self/mem"), file()));
    QTest::ignoreMessage(
        QtWarningMsg, qPrintable(QStringLiteral("Unable to open args file \"%1\"").arg(file())));
    bool success = true;
    QCOMPARE(readArgsFile(file(), &success), QStringList());
    QVERIFY(!success);
}

void tst_ArgsFileFailures::doesNotWaitAtANamedPipe()
{
    QCOMPARE(mkfifo(QFile::encodeName(file()).constData(), 0600), 0);
    QTest::ignoreMessage(
        QtWarningMsg, qPrintable(QStringLiteral("Unable to open args file \"%1\"").arg(file())));
    bool success = true;
    QCOMPARE(readArgsFile(file(), &success), QStringList());
    QVERIFY(!success);
}

void tst_ArgsFileFailures::replacesAReadOnlyFile()
{
    putFile(file(), "old");
    giveToOrdinaryUser(folder->path());
    QVERIFY(QFile::setPermissions(file(), QFile::ReadOwner | QFile::ReadOther));
    const QByteArray answer = inChildProcess([this]() -> QByteArray {
        return becomeOrdinaryUser() ? writeAndTell(file(), QStringLiteral("new")) : "still root";
    });
    QCOMPARE(answer, QByteArray("6 true"));
    QCOMPARE(folder->results(), QByteArray("n\0e\0w\0", 6));
    QCOMPARE(folder->names(), QStringList{QStringLiteral("mac-word-plugin-results.txt")});
}

void tst_ArgsFileFailures::leavesTheFileBehindALink()
{
    const QString other = folder->path() + QStringLiteral("/other");
    putFile(other, "other");
    QVERIFY(QFile::link(other, file()));
    QCOMPARE(writeAndTell(file(), QStringLiteral("new")), QByteArray("6 true"));
    QCOMPARE(folder->results(), QByteArray("n\0e\0w\0", 6));
    QCOMPARE(bytesOf(other), QByteArray("other"));
}

void tst_ArgsFileFailures::doesNotReplaceAFolder()
{
    QVERIFY(QDir().mkpath(file() + QStringLiteral("/kept")));
    QCOMPARE(writeAndTell(file(), QStringLiteral("new")), QByteArray("6 true"));
    QCOMPARE(namesIn(file()), QStringList{QStringLiteral("kept")});
    QCOMPARE(bytesOf(sideFile()), QByteArray("n\0e\0w\0", 6));
}

void tst_ArgsFileFailures::cannotWrite_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("a folder that is missing") << QStringLiteral("missing/file.txt");
    QTest::newRow("a file in place of the folder") << QStringLiteral("plain/file.txt");
    QTest::newRow("a folder in place of the side file") << QStringLiteral("blocked");
    QTest::newRow("a name that is too long") << QString(300, QLatin1Char('n'));
    // 251 and 5 more are one more than a name may have.
    QTest::newRow("a side name that is too long") << QString(251, QLatin1Char('n'));
    QTest::newRow("Cyrillic in the path") << QStringLiteral("\u0444/\u0444");
}

void tst_ArgsFileFailures::cannotWrite()
{
    QFETCH(QString, name);
    putFile(folder->path() + QStringLiteral("/plain"), "plain");
    putFile(folder->path() + QStringLiteral("/blocked"), "old");
    QVERIFY(QDir().mkpath(folder->path() + QStringLiteral("/blocked.temp")));
    const QStringList before = folder->names();
    const QString path = folder->path() + QLatin1Char('/') + name;
    const QString warning = quotedWarning("Unable to write args file", path);

    bool success = true;
    QTest::ignoreMessage(QtWarningMsg, qUtf8Printable(warning));
    QCOMPARE(writeFile(path, QStringLiteral("new"), &success), -1);
    QVERIFY(!success);
    success = true;
    QTest::ignoreMessage(QtWarningMsg, qUtf8Printable(warning));
    QCOMPARE(writeArgsFile(path, {QStringLiteral("new")}, &success), -1);
    QVERIFY(!success);

    QCOMPARE(folder->names(), before);
    QCOMPARE(bytesOf(folder->path() + QStringLiteral("/plain")), QByteArray("plain"));
    QCOMPARE(bytesOf(folder->path() + QStringLiteral("/blocked")), QByteArray("old"));
}

void tst_ArgsFileFailures::doesNotWriteWhereForbidden_data()
{
    QTest::addColumn<bool>("sideFileExists");
    QTest::newRow("a folder that cannot be written") << false;
    QTest::newRow("a side file that cannot be written") << true;
}

void tst_ArgsFileFailures::doesNotWriteWhereForbidden()
{
    QFETCH(bool, sideFileExists);
    putFile(file(), "old");
    giveToOrdinaryUser(folder->path());
    if (sideFileExists) {
        putFile(sideFile(), "side");
        QVERIFY(QFile::setPermissions(sideFile(), QFile::ReadOwner | QFile::ReadOther));
    } else {
        QVERIFY(QFile::setPermissions(folder->path(), QFile::ReadOwner | QFile::ExeOwner));
    }
    const QStringList before = folder->names();
    const QByteArray answer = inChildProcess([this]() -> QByteArray {
        return becomeOrdinaryUser() ? writeAndTell(file(), QStringLiteral("new")) : "still root";
    });
    QCOMPARE(QString::fromUtf8(answer),
        QStringLiteral("-1 false|") + quotedWarning("Unable to write args file", file()));
    QCOMPARE(folder->names(), before);
    QCOMPARE(folder->results(), QByteArray("old"));
    QVERIFY(QFile::setPermissions(
        folder->path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

void tst_ArgsFileFailures::stopsAtTheFileSizeLimit_data()
{
    QTest::addColumn<int>("limit");
    QTest::addColumn<int>("units");
    QTest::newRow("no byte") << 0 << 1;
    QTest::newRow("half a unit") << 1 << 1;
    QTest::newRow("one unit more") << 4096 << 2049;
    QTest::newRow("much more") << 4096 << 1000000;
    QTest::newRow("much more, a power of two") << 4096 << 524288;
    QTest::newRow("a little more than much") << 1999998 << 1000000;
    QTest::newRow("in the middle of much") << 1100001 << 1000000;
}

void tst_ArgsFileFailures::stopsAtTheFileSizeLimit()
{
    QFETCH(int, limit);
    QFETCH(int, units);
    putFile(file(), "old");
    const QString content(units, QLatin1Char('n'));
    const QByteArray answer = inChildProcess([&]() -> QByteArray {
        std::signal(SIGXFSZ, SIG_IGN);
        return limitFileSize(quint64(limit)) ? writeAndTell(file(), content) : "no limit";
    });
    QCOMPARE(answer, QByteArray("-1 false"));
    QCOMPARE(folder->results(), QByteArray("old"));
    QVERIFY(bytesOf(sideFile()) == utf16le(content).left(limit));
}

void tst_ArgsFileFailures::writesUpToTheFileSizeLimit()
{
    const QString content(2048, QLatin1Char('n'));
    const QByteArray answer = inChildProcess([&]() -> QByteArray {
        return limitFileSize(4096) ? writeAndTell(file(), content) : "no limit";
    });
    QCOMPARE(answer, QByteArray("4096 true"));
    QCOMPARE(folder->results(), utf16le(content));
    QCOMPARE(folder->names(), QStringList{QStringLiteral("mac-word-plugin-results.txt")});
}

void tst_ArgsFileFailures::stopsAtAFullDisk()
{
    const QByteArray answer = inChildProcess([this]() -> QByteArray {
        // Two pages for the files' content, of which the old file takes one.
        if (!mountSmallDisk(QFile::encodeName(folder->path()), 2 * int(sysconf(_SC_PAGESIZE)))) {
            return "no disk";
        }
        putFile(file(), "old");
        const QByteArray written = writeAndTell(file(), QString(100000, QLatin1Char('n')));
        return written + ", " + folder->results() + ", "
            + folder->names().join(QLatin1Char(' ')).toUtf8();
    });
    if (answer == "no disk") {
        QSKIP("This user may not mount a disk of its own.");
    }
    QCOMPARE(answer,
        QByteArray("-1 false, old, "
                   "mac-word-plugin-results.txt mac-word-plugin-results.txt.temp"));
}

void tst_ArgsFileFailures::believesAFailedClose()
{
    putFile(file(), "old");
    closeFails = true;
    const QByteArray answer = writeAndTell(file(), QStringLiteral("new"));
    closeFails = false;
    QCOMPARE(answer, QByteArray("-1 false"));
    QCOMPARE(folder->results(), QByteArray("old"));
    QCOMPARE(bytesOf(sideFile()), utf16le(QStringLiteral("new")));
}

QTEST_GUILESS_MAIN(tst_ArgsFileFailures)
#include "tst_argsfile_failures.moc"
