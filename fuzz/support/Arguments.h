#pragma once

#include <QtCore/QByteArray>

namespace tarn::fuzz {

// What ProcessArgumentList gives from now on: each line one argument, which ends at a zero byte. A program
// that links this has the fuzzer's arguments in place of the process's own.
void setArguments(const QByteArray& pLines);

} // namespace tarn::fuzz
