#include "tests/support/TemporaryHome.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

constexpr const char* xdgVariables[] = {
    "XDG_CONFIG_HOME", "XDG_CONFIG_DIRS", "XDG_DATA_HOME", "XDG_DATA_DIRS"};

} // namespace

TemporaryHome::TemporaryHome()
{
    const auto set = [this](const char* variable, const QString& value) {
        formerVariables.insert(variable, qgetenv(variable));
        qputenv(variable, QFile::encodeName(value));
    };
    set("HOME", folder.path());
    for (const char* variable : xdgVariables) {
        set(variable, path(QString::fromLatin1(variable).toLower()));
    }
}

TemporaryHome::~TemporaryHome()
{
    for (auto i = formerVariables.constBegin(); i != formerVariables.constEnd(); ++i) {
        if (i->isNull()) {
            qunsetenv(i.key().constData());
        } else {
            qputenv(i.key().constData(), *i);
        }
    }
}

void TemporaryHome::writeSettings(const QByteArray& content) const
{
    writeFile(QStringLiteral("xdg_config_home/tessaron.com/Tessaron Desktop.conf"), content);
}

void TemporaryHome::writePort(int port) const
{
    // The key is "General/httpServerPort"; a plain [General] group would be another one.
    writeSettings("[%General]\nhttpServerPort=" + QByteArray::number(port) + "\n");
}

QString TemporaryHome::writeFile(const QString& name, const QByteArray& content) const
{
    const QString filePath = path(name);
    QDir().mkpath(QFileInfo(filePath).path());
    QFile file(filePath);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
        qFatal("Cannot write %s", qPrintable(filePath));
    }
    return filePath;
}
