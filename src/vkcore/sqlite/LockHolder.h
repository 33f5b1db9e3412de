#pragma once

#include <QtCore/QString>

namespace tarn::vkcore {

// Who else has a lock on the database at pPath, which this process has open: "the process 12 (name, user 0)",
// or "another process" where that can't be told.
QString lockHolder(const QString& pPath);

} // namespace tarn::vkcore
