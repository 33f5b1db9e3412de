#include "update/Sink.h"

namespace tarn::vkservice::update {

Trouble MemorySink::restart()
{
    mBytes.clear();
    return {};
}

Trouble MemorySink::write(QByteArrayView pData)
{
    if (mBytes.size() + pData.size() > mMaxLength) {
        return {Trouble::Kind::Untrusted,
                QStringLiteral("The server sent a file of more than the %1 bytes that it may have")
                    .arg(mMaxLength)};
    }
    mBytes.append(pData.data(), pData.size());
    return {};
}

} // namespace tarn::vkservice::update
