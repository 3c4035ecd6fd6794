#pragma once

#include <QJsonDocument>
#include <QVariant>

#include <optional>

/// Whether both are the same JSON value of the same types, doubles bit by bit.
bool isSameValue(const QVariant& left, const QVariant& right);

/// Checks what holds for every JSON text, valid or not: reading it as UTF-8 and as UTF-16 gives
/// the same, Qt's own reader agrees, and what was read survives being written and read again.
void checkJsonProperties(const QByteArray& json);

/// Checks that `value` survives being written and read again, in UTF-8 and in UTF-16.
void checkSurvivesWriting(const QVariant& value);

/// What Qt's own reader makes of `json` (a null document where it is malformed); nothing for
/// texts that Qt is known to read otherwise.
std::optional<QJsonDocument> readByQt(const QByteArray& json);
