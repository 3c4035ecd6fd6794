#pragma once

#include <QByteArray>
#include <QMap>
#include <QTemporaryDir>

/// A temporary home folder. While this object exists, every XDG folder of this process and of its
/// children is inside it, so that they find no settings, data or applications of the user. Only one
/// may exist at a time. The destructor restores the former environment.
class TemporaryHome {
public:
    TemporaryHome();
    ~TemporaryHome();
    Q_DISABLE_COPY(TemporaryHome)

    /// A path below the home folder.
    QString path(const QString& name) const { return folder.filePath(name); }

    /// Writes `content` to the desktop application's settings file.
    void writeSettings(const QByteArray& content) const;

    /// Writes settings that hold only `port`.
    void writePort(int port) const;

    /// Writes the file `name` below the home folder and creates the folders on its path. Returns
    /// its path.
    QString writeFile(const QString& name, const QByteArray& content) const;

private:
    QTemporaryDir folder;
    QMap<QByteArray, QByteArray> formerVariables; // null: the variable was not set
};
