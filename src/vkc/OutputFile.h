#pragma once

#include <QtCore/QFile>

namespace tarn::vkc {

// Standard output or standard error below a QTextStream: each flush is one write(2). QFile alone would copy
// every line into two more buffers, and a log has half a million lines.
class OutputFile : public QFile
{
public:
    // Does not close the descriptor.
    explicit OutputFile(int pFd);

    // Nothing may seek: the file may be shared, or be appended to.
    bool isSequential() const override { return true; }

protected:
    // Writes all of it, also to a descriptor that does not block; -1 on an error.
    qint64 writeData(const char* pFrom, qint64 pSize) override;
};

} // namespace tarn::vkc
