#pragma once

#include "service/DesktopApplication.h"

#include "tests/support/TemporaryHome.h"

#include <QByteArrayList>
#include <QObject>

/// Waits for the started application, which is a child of this process, and returns its exit
/// status. Returns -1 if it did not exit by itself within five seconds.
int waitForApplication();

/// Base of the tests of openDesktopApplication() on Linux. In place of the application they start
/// START_RECORDER, which records its arguments, environment and open files. A test fails if it
/// leaves a child process.
class ApplicationStartTest : public QObject {
    Q_OBJECT

protected:
    /// Installs a desktop entry with `lines` in `dataFolder`, below the home folder.
    void install(const QByteArray& lines, const char* dataFolder = "xdg_data_home") const;

    /// Returns the rest of each line of the record that begins with `key`.
    QByteArrayList recorded(const QByteArray& key) const;

    const TemporaryHome home;

private Q_SLOTS:
    void init();
    void cleanup();

private:
    const QString recordPath = home.path(QStringLiteral("record"));
};
