#pragma once

#include <QByteArray>
#include <QFile>

#include <limits>

/// The memory that programs can still use, in GB, for tests of the largest inputs. Where the system
/// does not say (only Linux has /proc/meminfo), it counts as unlimited.
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
