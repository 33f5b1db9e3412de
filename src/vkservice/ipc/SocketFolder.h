#pragma once

#include <QtCore/QString>

namespace tarn::vkservice::ipc {

// Creates the folder of the machine's socket, mode 0755, if it is missing. False, with the reason in *pError,
// if that fails or if a user other than root and this one could write to the folder.
bool makeSocketFolder(const QString& pFolder, QString* pError);

} // namespace tarn::vkservice::ipc
