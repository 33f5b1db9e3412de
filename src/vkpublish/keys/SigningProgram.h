#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayList>

namespace tarn::vkpublish {

struct ProgramLimits
{
    int mSeconds = 300; // a person looks for a token and types its PIN
    qsizetype mOutput = 16 * 1024;
};

// Runs a program, which is looked for as a shell does, with pInput as its standard input, and returns its
// standard output. It has the terminal, if this process has it, and inherits standard error and no other
// descriptor. Any status but 0 is a failure. What it leaves of its process group is killed.
Result<QByteArray> runSigningProgram(const QByteArrayList& pWords, const QByteArray& pInput,
                                     const ProgramLimits& pLimits);

} // namespace tarn::vkpublish
