// The parts of review() that depend on the role. pBefore is empty if there is nothing to compare with. The
// lines quote foreign text as it is.
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QStringList>

namespace tarn::vkpublish {

QStringList reviewKeys(const QJsonObject& pNew, const QJsonObject& pBefore);
QStringList reviewPackages(const QJsonObject& pNew, const QJsonObject& pBefore);

} // namespace tarn::vkpublish
