#pragma once

#include <QJsonDocument>
#include <QVariant>

#include <optional>

/// Whether both are the same JSON value of the same types, doubles bit by bit.
bool isSameValue(const QVariant& left, const QVariant& right);

/// Checks the properties of every text, valid JSON or not: it reads the same as UTF-8 and as
/// UTF-16, Qt's own reader agrees, and the value stays the same when it is written and read again.
void checkJsonProperties(const QByteArray& json);

/// Checks that `value` stays the same when it is written and read again, in UTF-8 and in UTF-16.
void checkSurvivesWriting(const QVariant& value);

/// Reads `json` with Qt's own reader, which returns a null document if it is malformed. Returns no
/// value for texts that Qt is known to read differently.
std::optional<QJsonDocument> readByQt(const QByteArray& json);
