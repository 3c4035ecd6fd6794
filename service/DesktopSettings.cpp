#include "service/DesktopSettings.h"

#include <QSettings>

QSettings* tessaronDesktopSettings()
{
    static QSettings settings(QStringLiteral("tessaron.com"), QStringLiteral("Tessaron Desktop"));
    return &settings;
}

QString tessaronDesktopPath()
{
    return tessaronDesktopSettings()->value(QStringLiteral("ExecutablePath")).toString();
}

int tessaronDesktopTcpPort()
{
    constexpr int defaultPort = 50002;
    return tessaronDesktopSettings()
        ->value(QStringLiteral("General/httpServerPort"), defaultPort)
        .toInt();
}
