#pragma once

#include <QtCore/QHash>
#include <QtCore/QString>

namespace tarn::vkpublish {

// The files in a folder, name -> bytes, and links to files; without what can't be read.
QHash<QString, qint64> filesIn(const QString& pFolder);

} // namespace tarn::vkpublish
