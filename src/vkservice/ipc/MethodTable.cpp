#include "ipc/MethodTable.h"

#include "internal/Protocol.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::ipc {

using namespace vkcore;

Reply Reply::refused(const QString& pMessage)
{
    return {{}, protocol::Refused, pMessage};
}
Reply Reply::invalidParams(const QString& pFault)
{
    return {{}, protocol::InvalidParams, u"Invalid parameters: %1."_s.arg(pFault)};
}

void MethodTable::add(const QString& pName, Kind pKind, Handler pHandler)
{
    Q_ASSERT(!mMethods.contains(pName));
    mMethods.insert(pName, {pKind, std::move(pHandler)});
}

Reply MethodTable::call(Peer& pPeer, const QString& pName, const QJsonObject& pParams) const
{
    const auto tMethod = mMethods.constFind(pName);
    if (tMethod == mMethods.constEnd()) {
        return {{}, protocol::MethodNotFound, u"Unknown method."_s};
    }
    if (tMethod->mKind == Kind::Change && mGuard) {
        const QString tReason = mGuard();
        if (!tReason.isNull()) {
            return Reply::refused(tReason);
        }
    }
    return tMethod->mHandler(pPeer, pParams);
}

} // namespace tarn::vkservice::ipc
