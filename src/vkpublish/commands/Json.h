// What the commands print with --json: one object on one line of standard output, with "format" 1. Members
// are described in vkpublish(1); their names never change.
#pragma once

#include "publication/RepositoryState.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QStringList>

namespace tarn::vkpublish {

void sayJson(QJsonObject pObject);

QJsonValue jsonDate(const QDateTime& pDate); // null for an invalid one
QJsonValue jsonText(const QString& pText);   // null for an empty one
// Role -> version, expiry and the days until then.
QJsonObject jsonRoles(const RepositoryState& pState, const QDateTime& pNow);
// The first expiry of all, and the days until then.
void addValidity(const RepositoryState& pState, const QDateTime& pNow, QJsonObject* pTo);

} // namespace tarn::vkpublish
