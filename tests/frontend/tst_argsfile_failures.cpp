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

/// The two results of a function as one string: the count and the flag.
QByteArray outcome(int count, bool success)
{
    return QByteArray::number(count) + (success ? " true" : " false");
}

/// Tries to read an unreadable file and expects the warning.
QByteArray failedReadOutcome(const QString& path)
{
    const QString escaped = QString(path).replace(QLatin1Char('"'), QStringLiteral("\\\""));
    QTest::ignoreMessage(
        QtWarningMsg, qUtf8Printable(quotedWarning("Unable to open args file", escaped)));
    bool success = true;
    const QStringList strings = readArgsFile(path, &success);
    return outcome(strings.size(), success);
}

QByteArray writeOutcome(const QString& path, const QString& content)
{
    bool success = false;
    const int count = writeFile(path, content, &success);
    return outcome(count, success);
}

} // namespace

/// Replaces the C library's function, for Qt too. It can fail as on a network file system, some of
/// which report a full disk only on close.
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

    void reportsUnreadableFile_data();
    void reportsUnreadableFile();
    void reportsForbiddenFile();
    void readsFileAtLimit();
    void rejectsFileAboveLimit();
    void rejectsUnreadableRegularFile();
    void rejectsNamedPipe();
    void replacesReadOnlyFile();
    void replacesLinkAndKeepsItsTarget();
    void keepsFolderInPlaceOfFile_data();
    void keepsFolderInPlaceOfFile();
    void keepsFileOfAnotherUser();
    void reportsUnwritableFile_data();
    void reportsUnwritableFile();
    void reportsForbiddenFolder_data();
    void reportsForbiddenFolder();
    void keepsOldFileAtFileSizeLimit_data();
    void keepsOldFileAtFileSizeLimit();
    void writesUpToFileSizeLimit();
    void keepsOldFileOnFullDisk();
    void keepsOldFileAfterFailedClose();

private:
    QString file() const { return folder->resultsPath(); }
    QString sideFile() const { return file() + QStringLiteral(".temp"); }

    QScopedPointer<ExchangeFolder> folder;
};

void tst_ArgsFileFailures::reportsUnreadableFile_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("file that is missing") << QStringLiteral("missing.txt");
    QTest::newRow("folder that is missing") << QStringLiteral("missing/args.txt");
    QTest::newRow("folder in place of the file") << QString();
    QTest::newRow("file in place of the folder") << QStringLiteral("file/args.txt");
    QTest::newRow("dangling link") << QStringLiteral("link");
    QTest::newRow("name that is too long") << QString(300, QLatin1Char('n'));
    QTest::newRow("name with a quote and Cyrillic") << QStringLiteral("\" \u0444");
}

void tst_ArgsFileFailures::reportsUnreadableFile()
{
    QFETCH(QString, name);
    putFile(folder->path() + QStringLiteral("/file"), "x");
    QVERIFY(QFile::link(QStringLiteral("/nonexistent"), folder->path() + QStringLiteral("/link")));
    const QString path = name.isEmpty() ? folder->path() : folder->path() + QLatin1Char('/') + name;
    QCOMPARE(failedReadOutcome(path), QByteArray("0 false"));
}

void tst_ArgsFileFailures::reportsForbiddenFile()
{
    const QString path = folder->argumentsPath();
    folder->putArguments({QStringLiteral("secret")});
    giveToOrdinaryUser(folder->path());
    QVERIFY(QFile::setPermissions(path, QFile::Permissions()));
    const QByteArray result = inChildProcess([&path]() -> QByteArray {
        if (!becomeOrdinaryUser()) {
            return "still root";
        }
        bool success = true;
        const QStringList strings = readArgsFile(path, &success);
        return outcome(strings.size(), success);
    });
    QCOMPARE(QString::fromUtf8(result),
        QStringLiteral("0 false|") + quotedWarning("Unable to open args file", path));
}

void tst_ArgsFileFailures::readsFileAtLimit()
{
    QFile largest(file());
    QVERIFY(largest.open(QIODevice::WriteOnly));
    // A sparse file takes no room on the disk. It reads as one string of U+0000.
    QVERIFY(largest.resize(512 * 1024 * 1024));
    largest.close();
    bool success = false;
    const QStringList strings = readArgsFile(file(), &success);
    QVERIFY(success);
    QCOMPARE(strings.size(), 1);
    QCOMPARE(strings.constFirst().size(), 256 * 1024 * 1024);
}

void tst_ArgsFileFailures::rejectsFileAboveLimit()
{
    // A sparse file takes no room on the disk.
    QFile large(file());
    QVERIFY(large.open(QIODevice::WriteOnly));
    QVERIFY(large.resize(512 * 1024 * 1024 + 1));
    large.close();
    QCOMPARE(failedReadOutcome(file()), QByteArray("0 false"));
}

void tst_ArgsFileFailures::rejectsUnreadableRegularFile()
{
    // A regular file that can be opened but not read.
    QVERIFY(QFile::link(QStringLiteral("/proc/self/mem"), file()));
    QCOMPARE(failedReadOutcome(file()), QByteArray("0 false"));
}

void tst_ArgsFileFailures::rejectsNamedPipe()
{
    QCOMPARE(mkfifo(QFile::encodeName(file()).constData(), 0600), 0);
    QCOMPARE(failedReadOutcome(file()), QByteArray("0 false"));
}

void tst_ArgsFileFailures::replacesReadOnlyFile()
{
    putFile(file(), "old");
    giveToOrdinaryUser(folder->path());
    QVERIFY(QFile::setPermissions(file(), QFile::ReadOwner | QFile::ReadOther));
    const QByteArray result = inChildProcess([this]() -> QByteArray {
        return becomeOrdinaryUser() ? writeOutcome(file(), QStringLiteral("new")) : "still root";
    });
    QCOMPARE(result, QByteArray("6 true"));
    QCOMPARE(folder->results(), QByteArray("n\0e\0w\0", 6));
    QCOMPARE(folder->names(), QStringList{QStringLiteral("mac-word-plugin-results.txt")});
}

void tst_ArgsFileFailures::replacesLinkAndKeepsItsTarget()
{
    const QString other = folder->path() + QStringLiteral("/other");
    putFile(other, "other");
    QVERIFY(QFile::link(other, file()));
    QCOMPARE(writeOutcome(file(), QStringLiteral("new")), QByteArray("6 true"));
    QCOMPARE(folder->results(), QByteArray("n\0e\0w\0", 6));
    QCOMPARE(bytesOf(other), QByteArray("other"));
}

void tst_ArgsFileFailures::keepsFolderInPlaceOfFile_data()
{
    QTest::addColumn<QStringList>("content");
    QTest::newRow("empty folder") << QStringList();
    QTest::newRow("folder with content") << QStringList{QStringLiteral("kept")};
}

void tst_ArgsFileFailures::keepsFolderInPlaceOfFile()
{
    QFETCH(QStringList, content);
    QVERIFY(QDir().mkpath(file()));
    for (const QString& name : qAsConst(content)) {
        QVERIFY(QDir(file()).mkdir(name));
    }
    QCOMPARE(writeOutcome(file(), QStringLiteral("new")), QByteArray("6 true"));
    QCOMPARE(namesIn(file()), content);
    QCOMPARE(bytesOf(sideFile()), QByteArray("n\0e\0w\0", 6));
}

void tst_ArgsFileFailures::keepsFileOfAnotherUser()
{
    if (geteuid() != 0) {
        QSKIP("Only root can create a file owned by another user.");
    }
    // In such a folder everyone may create files and delete only their own.
    putFile(file(), "old");
    QCOMPARE(chmod(QFile::encodeName(folder->path()).constData(), 01777), 0);
    QCOMPARE(chmod(QFile::encodeName(QFileInfo(folder->path()).path()).constData(), 0755), 0);
    const QByteArray result = inChildProcess([this]() -> QByteArray {
        return becomeOrdinaryUser() ? writeOutcome(file(), QStringLiteral("new")) : "still root";
    });
    QCOMPARE(result, QByteArray("6 true"));
    QCOMPARE(folder->results(), QByteArray("old"));
    QCOMPARE(bytesOf(sideFile()), QByteArray("n\0e\0w\0", 6));
}

void tst_ArgsFileFailures::reportsUnwritableFile_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("folder that is missing") << QStringLiteral("missing/file.txt");
    QTest::newRow("file in place of the folder") << QStringLiteral("plain/file.txt");
    QTest::newRow("folder in place of the side file") << QStringLiteral("blocked");
    QTest::newRow("dangling link in place of the side file") << QStringLiteral("linked");
    QTest::newRow("name that is too long") << QString(300, QLatin1Char('n'));
    // 251 characters and ".temp" are one more than the file system allows.
    QTest::newRow("side name that is too long") << QString(251, QLatin1Char('n'));
    QTest::newRow("Cyrillic in the path") << QStringLiteral("\u0444/\u0444");
}

void tst_ArgsFileFailures::reportsUnwritableFile()
{
    QFETCH(QString, name);
    putFile(folder->path() + QStringLiteral("/plain"), "plain");
    putFile(folder->path() + QStringLiteral("/blocked"), "old");
    QVERIFY(QDir().mkpath(folder->path() + QStringLiteral("/blocked.temp")));
    QVERIFY(QFile::link(
        QStringLiteral("/nonexistent/file"), folder->path() + QStringLiteral("/linked.temp")));
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

void tst_ArgsFileFailures::reportsForbiddenFolder_data()
{
    QTest::addColumn<bool>("sideFileExists");
    QTest::newRow("folder that cannot be written") << false;
    QTest::newRow("side file that cannot be written") << true;
}

void tst_ArgsFileFailures::reportsForbiddenFolder()
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
    const QByteArray result = inChildProcess([this]() -> QByteArray {
        return becomeOrdinaryUser() ? writeOutcome(file(), QStringLiteral("new")) : "still root";
    });
    QCOMPARE(QString::fromUtf8(result),
        QStringLiteral("-1 false|") + quotedWarning("Unable to write args file", file()));
    QCOMPARE(folder->names(), before);
    QCOMPARE(folder->results(), QByteArray("old"));
    QVERIFY(QFile::setPermissions(
        folder->path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

void tst_ArgsFileFailures::keepsOldFileAtFileSizeLimit_data()
{
    QTest::addColumn<int>("limit");
    QTest::addColumn<int>("units");
    QTest::newRow("limit of zero bytes") << 0 << 1;
    QTest::newRow("limit of half a code unit") << 1 << 1;
    QTest::newRow("one code unit too many") << 4096 << 2049;
    QTest::newRow("two whole chunks") << 4096 << 2 * argsFileChunkSize;
    QTest::newRow("a million code units, one too many") << 1999998 << 1000000;
    QTest::newRow("limit inside a code unit of a later chunk") << 1100001 << 1000000;
}

void tst_ArgsFileFailures::keepsOldFileAtFileSizeLimit()
{
    QFETCH(int, limit);
    QFETCH(int, units);
    putFile(file(), "old");
    const QString content(units, QLatin1Char('n'));
    const QByteArray result = inChildProcess([&]() -> QByteArray {
        std::signal(SIGXFSZ, SIG_IGN);
        return limitFileSize(quint64(limit)) ? writeOutcome(file(), content) : "no limit";
    });
    QCOMPARE(result, QByteArray("-1 false"));
    QCOMPARE(folder->results(), QByteArray("old"));
    QVERIFY(bytesOf(sideFile()) == utf16le(content).left(limit));
}

void tst_ArgsFileFailures::writesUpToFileSizeLimit()
{
    const QString content(2048, QLatin1Char('n'));
    const QByteArray result = inChildProcess([&]() -> QByteArray {
        return limitFileSize(4096) ? writeOutcome(file(), content) : "no limit";
    });
    QCOMPARE(result, QByteArray("4096 true"));
    QCOMPARE(folder->results(), utf16le(content));
    QCOMPARE(folder->names(), QStringList{QStringLiteral("mac-word-plugin-results.txt")});
}

void tst_ArgsFileFailures::keepsOldFileOnFullDisk()
{
    const QByteArray result = inChildProcess([this]() -> QByteArray {
        // Two pages for the files' content, of which the old file takes one.
        if (!mountSmallDisk(QFile::encodeName(folder->path()), 2 * int(sysconf(_SC_PAGESIZE)))) {
            return "no disk";
        }
        putFile(file(), "old");
        const QByteArray written = writeOutcome(file(), QString(100000, QLatin1Char('n')));
        return written + ", " + folder->results() + ", "
            + folder->names().join(QLatin1Char(' ')).toUtf8();
    });
    if (result == "no disk") {
        QSKIP("This user may not mount a disk.");
    }
    QCOMPARE(result,
        QByteArray("-1 false, old, "
                   "mac-word-plugin-results.txt mac-word-plugin-results.txt.temp"));
}

void tst_ArgsFileFailures::keepsOldFileAfterFailedClose()
{
    putFile(file(), "old");
    closeFails = true;
    const QByteArray result = writeOutcome(file(), QStringLiteral("new"));
    closeFails = false;
    QCOMPARE(result, QByteArray("-1 false"));
    QCOMPARE(folder->results(), QByteArray("old"));
    QCOMPARE(bytesOf(sideFile()), utf16le(QStringLiteral("new")));
}

QTEST_GUILESS_MAIN(tst_ArgsFileFailures)
#include "tst_argsfile_failures.moc"
