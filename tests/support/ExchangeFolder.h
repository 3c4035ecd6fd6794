#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

/// Returns the content of a file, or "(cannot be read)".
QByteArray bytesOf(const QString& path);

/// Writes a file. Aborts the test program on failure.
void putFile(const QString& path, const QByteArray& bytes);

/// Returns the sorted names of all files and folders in `folder`.
QStringList namesIn(const QString& folder);

/// A temporary folder like the one that the macro shares with the bridge.
class ExchangeFolder {
public:
    /// Creates a folder called `name` in a temporary one.
    explicit ExchangeFolder(const QString& name = QStringLiteral("exchange"));

    QString path() const { return parent.filePath(folderName); }
    QString argumentsPath() const;
    QString resultsPath() const;
    QString readyPath() const;

    void putArguments(const QStringList& arguments) const;

    QByteArray results() const { return bytesOf(resultsPath()); }
    QByteArray ready() const { return bytesOf(readyPath()); }
    QStringList names() const { return namesIn(path()); }

private:
    QTemporaryDir parent;
    QString folderName;
};
