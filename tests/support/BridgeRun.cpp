#include "tests/support/BridgeRun.h"

#include "tests/support/ChildProcess.h"
#include "tests/support/ExchangeFolder.h"
#include "tests/support/Texts.h"

#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTimer>

#include <sys/stat.h>
#include <unistd.h>

namespace {

#if QT_VERSION_MAJOR < 6
class PreparedProcess : public QProcess {
public:
    explicit PreparedProcess(const std::function<void()>& preparation)
        : prepare(preparation)
    {
    }

protected:
    void setupChildProcess() override
    {
        if (prepare) {
            prepare();
        }
    }

private:
    const std::function<void()> prepare;
};
#else
class PreparedProcess : public QProcess {
public:
    explicit PreparedProcess(const std::function<void()>& preparation)
    {
        setChildProcessModifier(preparation);
    }
};
#endif

/// The test's environment without the variables that change what Qt logs.
QProcessEnvironment plainEnvironment()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const QStringList variables = environment.keys();
    for (const QString& variable : variables) {
        if (variable.startsWith(QStringLiteral("QT_"))) {
            environment.remove(variable);
        }
    }
    return environment;
}

} // namespace

BridgeStart BridgeStart::prepared(const std::function<void()>& prepare)
{
    BridgeStart start;
    start.prepare = prepare;
    return start;
}

BridgeStart BridgeStart::withVariables(const QMap<QString, QString>& environment)
{
    BridgeStart start;
    start.environment = environment;
    return start;
}

BridgeStart BridgeStart::inFolder(const QString& workingDirectory)
{
    BridgeStart start;
    start.workingDirectory = workingDirectory;
    return start;
}

BridgeStart BridgeStart::inShell(const QString& shellCommand)
{
    BridgeStart start;
    start.shellCommand = shellCommand;
    return start;
}

BridgeStart BridgeStart::asOrdinaryUser(const QString& folder, const std::function<void()>& prepare)
{
    BridgeStart start = prepared([prepare] {
        if (prepare) {
            prepare();
        }
        if (!becomeOrdinaryUser()) {
            _exit(77);
        }
    });
    start.program = folder + QStringLiteral("/bridge");
    QFile::copy(bridgePath(), start.program);
    giveToOrdinaryUser(folder);
    chmod(QFile::encodeName(start.program).constData(), 0755);
    return start;
}

QString bridgePath()
{
    return QStringLiteral(BRIDGE_PATH);
}

BridgeOutcome runBridge(const QStringList& arguments, const BridgeStart& start)
{
    PreparedProcess process(start.prepare);
    QProcessEnvironment environment = plainEnvironment();
    for (auto i = start.environment.constBegin(); i != start.environment.constEnd(); ++i) {
        environment.insert(i.key(), i.value());
    }
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(start.workingDirectory);
    const QString program = start.program.isEmpty() ? bridgePath() : start.program;
    QEventLoop loop;
    const auto ended = QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished);
    QObject::connect(&process, ended, &loop, &QEventLoop::quit);
    if (start.shellCommand.isEmpty()) {
        process.start(program, arguments);
    } else {
        process.start(QStringLiteral("/bin/sh"),
            QStringList{QStringLiteral("-c"), start.shellCommand, program} + arguments);
    }
    if (!process.waitForStarted()) {
        return {-1, {}, "The bridge did not start: " + process.errorString().toUtf8()};
    }
    QTimer::singleShot(start.longestRunMs, &loop, &QEventLoop::quit);
    if (process.state() != QProcess::NotRunning) {
        loop.exec();
    }
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished();
        return {-1, process.readAllStandardOutput(), "The bridge did not end."};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
        process.readAllStandardOutput(), process.readAllStandardError()};
}

BridgeOutcome runCommand(
    const char* command, const ExchangeFolder& folder, const BridgeStart& start)
{
    return runBridge({text(command), folder.path()}, start);
}

QByteArray problem(const BridgeOutcome& run, const ExchangeFolder& folder, const QByteArray& errors)
{
    const QByteArray status = QByteArray::number(folder.results().size());
    if (run.exitStatus != 0) {
        return "exit status " + QByteArray::number(run.exitStatus) + ": " + run.errors;
    }
    if (run.errors != errors) {
        return "standard error: " + run.errors;
    }
    if (run.output != status + '\n') {
        return "standard output: " + run.output;
    }
    if (folder.ready() != utf16le(QString::fromLatin1(status))) {
        return "ready file: " + folder.ready();
    }
    return {};
}
