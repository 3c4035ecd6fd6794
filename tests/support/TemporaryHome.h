#pragma once

#include <QByteArray>
#include <QTemporaryDir>

/// A home folder of the test's own: while it lives, every XDG folder of this process and of its
/// children lies in it, and no settings, data or applications of the user's are seen. One at a
/// time.
class TemporaryHome {
public:
    TemporaryHome();
    ~TemporaryHome();
    Q_DISABLE_COPY(TemporaryHome)

    /// A path below the home folder.
    QString path(const QString& name) const { return folder.filePath(name); }

    /// Writes `content` to the desktop application's settings file.
    void writeSettings(const QByteArray& content) const;

    /// Writes settings that hold `port` and nothing else.
    void writePort(int port) const;

    /// Writes the file `name` below the home folder, with the folders on the way.
    QString writeFile(const QString& name, const QByteArray& content) const;

private:
    QTemporaryDir folder;
    QByteArray formerHome;
};
