#pragma once

#include <QtCore/QString>

namespace tarn::vkcore {

// Which process holds a lock on the database at pPath, which this process has open: "the process 12 (name,
// user 0)", or "another process" if unknown.
QString lockHolder(const QString& pPath);

} // namespace tarn::vkcore
