#pragma once

#include <QtCore/QByteArray>

namespace tarn::fuzz {

inline const QByteArray sZstdMagic = QByteArrayLiteral("\x28\xb5\x2f\xfd");

// A zstd frame that stores the bytes as they are, so that a fuzzer can get at them. It tells their length if
// asked to.
inline QByteArray storedFrame(const QByteArray& pBytes, bool pTellsLength = false)
{
    constexpr qsizetype sMaxBlock = 128 * 1024;
    constexpr quint32 sLast = 1;
    const auto tAppend = [](QByteArray* pTo, quint32 pNumber, int pBytesOfIt) {
        for (int i = 0; i < pBytesOfIt; ++i) {
            pTo->append(static_cast<char>(pNumber >> (8 * i)));
        }
    };
    QByteArray tFrame = sZstdMagic;
    if (pTellsLength) {
        tFrame += '\xa0'; // one segment, its length in four bytes
        tAppend(&tFrame, static_cast<quint32>(pBytes.size()), 4);
    } else {
        tFrame += QByteArrayLiteral("\x00\x58"); // no checksum, no length, a window of 2 MiB
    }
    for (qsizetype i = 0; i < pBytes.size(); i += sMaxBlock) {
        const QByteArray tBlock = pBytes.mid(i, sMaxBlock);
        tAppend(&tFrame, static_cast<quint32>(tBlock.size()) << 3, 3);
        tFrame.append(tBlock);
    }
    tAppend(&tFrame, sLast, 3);
    return tFrame;
}

} // namespace tarn::fuzz
