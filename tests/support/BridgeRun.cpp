#include "tests/support/BridgeRun.h"

#include "tests/support/ChildProcess.h"

#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTimer>

#include <sys/stat.h>
#include <unistd.h>

namespace {

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

/// The test's environment without what makes Qt talk more or otherwise than it does by itself.
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
    return {prepare, {}, {}, {}, {}};
}

BridgeStart BridgeStart::withVariables(const QMap<QString, QString>& environment)
{
    return {{}, environment, {}, {}, {}};
}

BridgeStart BridgeStart::inFolder(const QString& workingDirectory)
{
    return {{}, {}, workingDirectory, {}, {}};
}

BridgeStart BridgeStart::inShell(const QString& shellCommand)
{
    return {{}, {}, {}, shellCommand, {}};
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
    constexpr int longestRunMs = 120000;
    QTimer::singleShot(longestRunMs, &loop, &QEventLoop::quit);
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
