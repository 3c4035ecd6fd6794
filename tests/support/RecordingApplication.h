#pragma once

#include <QByteArrayList>
#include <QString>

class TemporaryHome;

/// Installs a program in place of the desktop application while this object exists: a desktop entry
/// in `home` that starts start_recorder, which records how it was started.
class RecordingApplication {
public:
    /// What the started program does after it has written its record.
    enum Ending { Ends, Stays };

    explicit RecordingApplication(const TemporaryHome& home, Ending ending = Ends);
    /// Kills a program that stays.
    ~RecordingApplication();
    Q_DISABLE_COPY(RecordingApplication)

    /// Whether the real application is installed at its fixed path, where it would be started
    /// instead. The test must be skipped then.
    static bool isRealOneInstalled();

    /// Whether the program has been started and its record is complete.
    bool hasRecord() const;

    /// The values of the record's lines that start with `key`.
    QByteArrayList recorded(const QByteArray& key) const;

    /// The set of signals in the line `key`, without the two that the C library uses for its
    /// threads: posix_spawn() leaves them ignored, and the C library resets them when a program
    /// starts threads.
    quint64 recordedSignals(const QByteArray& key) const;

    /// The process id of the started program, 0 if it has not been started.
    int processId() const { return recorded("pid ").value(0).toInt(); }

private:
    const QString entryPath;
    const QString recordPath;
};
