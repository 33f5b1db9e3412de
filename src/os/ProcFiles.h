#pragma once

#include <QtCore/QByteArrayList>

// Reads the folder of a process in /proc. All functions return an empty result if the kernel refuses or the
// process has ended.
namespace tarn::os {

// Names in a folder, but for hidden ones.
QByteArrayList entries(const QByteArray& pDir);
// As reported by the kernel, without its mark for deleted files. Does not access other file systems.
QByteArray linkTarget(const QByteArray& pLink);
QByteArray readProcFile(const QByteArray& pPath);
// The first arguments after the program's name as absolute paths, whether such a file exists or not.
QByteArrayList argumentPaths(const QByteArray& pProcDir);

} // namespace tarn::os
