#include "tests/support/ExchangeFolder.h"

#include "tests/support/Texts.h"

#include <QDir>
#include <QFile>

QByteArray bytesOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(cannot be read)");
}

void putFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()) {
        qFatal("Cannot write %s", qPrintable(path));
    }
}

QStringList namesIn(const QString& folder)
{
    return QDir(folder).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

ExchangeFolder::ExchangeFolder(const QString& name)
    : folderName(name)
{
    if (!QDir(parent.path()).mkdir(name)) {
        qFatal("Cannot make a folder in %s", qPrintable(parent.path()));
    }
}

QString ExchangeFolder::argumentsPath() const
{
    return path() + QStringLiteral("/mac-word-plugin-args.txt");
}

QString ExchangeFolder::resultsPath() const
{
    return path() + QStringLiteral("/mac-word-plugin-results.txt");
}

QString ExchangeFolder::readyPath() const
{
    return path() + QStringLiteral("/mac-word-plugin-result-ready.txt");
}

void ExchangeFolder::putArguments(const QStringList& arguments) const
{
    putFile(argumentsPath(), listBytes(arguments));
}
