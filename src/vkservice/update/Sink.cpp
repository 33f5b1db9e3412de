#include "update/Sink.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

Failure MemorySink::restart()
{
    mBytes.clear();
    return {};
}

Failure MemorySink::write(QByteArrayView pData)
{
    if (mBytes.size() + pData.size() > mMaxLength) {
        return {Failure::Kind::Untrusted,
                u"The server sent a file of more than the %1 bytes that it may have"_s.arg(mMaxLength)};
    }
    mBytes.append(pData.data(), pData.size());
    return {};
}

} // namespace tarn::vkservice::update
