#pragma once

#include <QStringList>

/// Records what happens to the names in a folder, from the creation of this object on.
class FolderWatch {
public:
    explicit FolderWatch(const QString& folder);
    ~FolderWatch();
    Q_DISABLE_COPY(FolderWatch)

    /// Returns "create NAME", "delete NAME" and "rename to NAME" in order, each event once. Does
    /// not wait.
    QStringList events() const;

    /// Waits until `name` is created, written to or renamed to. Returns false after ten seconds
    /// without any event.
    bool waitFor(const QString& name) const;

private:
    const int queue;
};
