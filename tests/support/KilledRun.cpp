#include "tests/support/KilledRun.h"

#include "tests/support/BridgeRun.h"
#include "tests/support/ExchangeFolder.h"

#include <QFile>

#include <csignal>
#include <fcntl.h>
#include <sys/ptrace.h>
#include <unistd.h>

namespace {

/// Returns the content of a file, null if it is missing.
QByteArray contentOf(const QString& path)
{
    if (!QFile::exists(path)) {
        return {};
    }
    const QByteArray bytes = bytesOf(path);
    return bytes.isNull() ? QByteArray("") : bytes;
}

bool isSame(const QByteArray& left, const QByteArray& right)
{
    return left.isNull() == right.isNull() && left == right;
}

void putOrRemove(const QString& path, const QByteArray& bytes)
{
    if (bytes.isNull()) {
        QFile::remove(path);
    } else {
        putFile(path, bytes);
    }
}

} // namespace

QByteArray problemAfterKill(const ExchangeFolder& folder, const ExchangeState& state)
{
    const QByteArray results = contentOf(folder.resultsPath());
    const QByteArray ready = contentOf(folder.readyPath());
    if (!results.isNull() && !isSame(results, state.oldResults)
        && !isSame(results, state.newResults)) {
        return "partial results of " + QByteArray::number(results.size()) + " bytes";
    }
    if (!ready.isNull() && !isSame(ready, state.oldReady) && !isSame(ready, state.newReady)) {
        return "a partial ready file: " + ready.toHex(' ');
    }
    const bool newReady = isSame(ready, state.newReady) && !isSame(ready, state.oldReady);
    if (newReady && !isSame(results, state.newResults)) {
        return "the ready file is new, but the results are not";
    }
    if (isSame(results, state.oldResults) || results.isNull()) {
        return isSame(ready, state.oldReady) ? "" : "the ready file changed before the results";
    }
    return "";
}

void prepareFolder(const ExchangeFolder& folder, const ExchangeState& state)
{
    putOrRemove(folder.resultsPath(), state.oldResults);
    putOrRemove(folder.readyPath(), state.oldReady);
}

int startBridge(const char* command, const ExchangeFolder& folder, bool traced)
{
    const QByteArray program = QFile::encodeName(bridgePath());
    const QByteArray path = QFile::encodeName(folder.path());
    const pid_t child = fork();
    if (child != 0) {
        return child;
    }
    // Runs at a lower priority than the test, so that the kill arrives before it ends.
    (void)!nice(5);
    const int null = open("/dev/null", O_RDWR);
    dup2(null, STDIN_FILENO);
    dup2(null, STDOUT_FILENO);
    if (traced) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
    }
    execl(program.constData(), program.constData(), command, path.constData(), nullptr);
    _exit(127);
}
