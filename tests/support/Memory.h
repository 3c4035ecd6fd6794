#pragma once

#include <QByteArray>
#include <QFile>

#include <limits>

/// Returns the available memory in GB, for tests of the largest inputs. Returns the largest int if
/// /proc/meminfo is missing.
inline int availableGigabytes()
{
    QFile file(QStringLiteral("/proc/meminfo"));
    if (!file.open(QIODevice::ReadOnly)) {
        return std::numeric_limits<int>::max();
    }
    constexpr char name[] = "MemAvailable:";
    const QByteArray content = file.readAll();
    const QByteArray kilobytes = content.mid(content.indexOf(name) + int(sizeof name)).trimmed();
    return int(kilobytes.left(kilobytes.indexOf(' ')).toLongLong() / (1024 * 1024));
}
