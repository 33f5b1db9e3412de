#pragma once

#include <QtCore/QString>

namespace tarn::vkservice::ipc {

// Makes the folder of the machine's socket, mode 0755, where it is missing. False, with the reason in
// *pError, where it can't be made or where another user than root and this one could put something in it.
bool makeSocketFolder(const QString& pFolder, QString* pError);

} // namespace tarn::vkservice::ipc
