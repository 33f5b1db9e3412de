#pragma once

#include "keys/Signer.h"

#include "internal/Failure.h"

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkpublish {

class KeyFolder;

using RoleSigners = QMap<QString, QList<Signer>>; // role -> who signs for it

// Of targets, snapshot and timestamp, or some of them. Failure::Kind::Person if the keys in the folder are
// not enough for a role.
Result<RoleSigners> readSigners(const KeyFolder& pKeys, const QStringList& pRoles, const QDateTime& pNow);

} // namespace tarn::vkpublish
