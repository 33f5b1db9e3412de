// What a client sends to vkprocesses, and what vkprocesses answers: the same bytes are read as a question and
// as both kinds of answers. What is read has to come back from its own bytes, and no answer may tell more
// than was asked.
#include "os/ProcessQuestion.h"

#include <cstdlib>

using namespace Qt::StringLiterals;
using namespace tarn::os;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t pSize)
{
    const QByteArray tBytes(reinterpret_cast<const char*>(pData), static_cast<qsizetype>(pSize));
    if (const auto tQuestion = ProcessQuestion::fromBytes(tBytes)) {
        const auto tAgain = ProcessQuestion::fromBytes(tQuestion->toBytes());
        if (!tAgain || tAgain->mKind != tQuestion->mKind || tAgain->mSearch != tQuestion->mSearch) {
            std::abort();
        }
    }
    const ProgramSearch tAsked{.mFolders = {u"/f"_s}, .mScripts = {u"/s"_s}, .mPlaces = {}};
    if (const auto tProcesses = processesFromBytes(tBytes, tAsked)) {
        for (const Process& tProcess : *tProcesses) {
            if (tProcess.mPid <= 0 || (tProcess.mFile != "/s"_L1 && !tProcess.mFile.startsWith("/f/"_L1))) {
                std::abort();
            }
        }
    }
    const auto tFolders = foldersFromBytes(tBytes, tAsked.mFolders);
    if (tFolders && tFolders->count(u"/f"_s) != tFolders->size()) {
        std::abort();
    }
    return 0;
}
