#pragma once

#include <QtCore/QByteArrayList>

// What stands in the folder of a process below /proc. All of these give nothing where the kernel refuses, or
// the process has ended.
namespace tarn::os {

// Names in a folder, but for hidden ones.
QByteArrayList entries(const QByteArray& pDir);
// As the kernel tells it, without its mark of files that were removed. Touches no other file system.
QByteArray linkTarget(const QByteArray& pLink);
QByteArray readProcFile(const QByteArray& pPath);
// What the first arguments behind the program's name are as absolute paths, whether there is such a file or
// not.
QByteArrayList argumentPaths(const QByteArray& pProcDir);

} // namespace tarn::os
