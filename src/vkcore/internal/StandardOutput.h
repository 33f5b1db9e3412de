// What a program says to its user, and whether it has arrived: a script must not take an answer that was cut
// off, or is empty, for a whole one.
#pragma once

#include <QtCore/QByteArray>

namespace tarn::vkcore {

// Keeps the standard descriptors that are closed from being given to other files, which would then get what
// is meant for the user. Writing to them fails. To be called before anything is opened.
void holdStandardDescriptors();

// To standard output, in a buffer.
void writeOutput(const QByteArray& pBytes);
// Empties the buffer. 0, or the first errno since the program has started: something was lost.
int flushOutput();
// To standard error, at once, after what was written to standard output.
void writeError(const QByteArray& pBytes);

} // namespace tarn::vkcore
