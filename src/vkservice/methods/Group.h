#pragma once

#include "internal/Values.h"
#include "ipc/MethodTable.h"

#include <QtCore/QJsonObject>

namespace tarn::vkservice::methods {

// Adds the methods of one group to the table. The handlers get the parts of the service that the group uses
// and, if they take any, the parameters of the request. They are only called if all parameters could be read.
template <typename Parts>
class Group
{
public:
    using Kind = ipc::MethodTable::Kind;

    Group(ipc::MethodTable& pTable, const Parts& pParts) : mTable(pTable), mParts(pParts) {}

    void add(QLatin1StringView pName, ipc::Reply (*pHandler)(const Parts&)) const
    {
        mTable.add(pName, Kind::Query,
                   [tParts = mParts, pHandler](ipc::Peer&, const QJsonObject&) { return pHandler(tParts); });
    }
    template <vkcore::protocol::HasFields T>
    void add(QLatin1StringView pName, Kind pKind, ipc::Reply (*pHandler)(const Parts&, const T&)) const
    {
        addReading<T>(pName, pKind, [pHandler](const Parts& pParts, ipc::Peer&, const T& pValue) {
            return pHandler(pParts, pValue);
        });
    }
    // Handlers of the peer itself.
    void add(QLatin1StringView pName, ipc::Reply (*pHandler)(const Parts&, ipc::Peer&)) const
    {
        mTable.add(pName, Kind::Query, [tParts = mParts, pHandler](ipc::Peer& pPeer, const QJsonObject&) {
            return pHandler(tParts, pPeer);
        });
    }
    template <vkcore::protocol::HasFields T>
    void add(QLatin1StringView pName, Kind pKind,
             ipc::Reply (*pHandler)(const Parts&, ipc::Peer&, const T&)) const
    {
        addReading<T>(pName, pKind, pHandler);
    }

private:
    template <typename T, typename F>
    void addReading(QLatin1StringView pName, Kind pKind, F pHandler) const
    {
        mTable.add(pName, pKind, [tParts = mParts, pHandler](ipc::Peer& pPeer, const QJsonObject& pParams) {
            QString tFault;
            const auto tValue = vkcore::protocol::fromJson<T>(pParams, &tFault);
            return tValue ? pHandler(tParts, pPeer, *tValue) : ipc::Reply::invalidParams(tFault);
        });
    }

    ipc::MethodTable& mTable;
    Parts mParts;
};

// True if it is a value of an enumeration from 0 to pLast.
template <typename T>
bool isKnown(T pValue, T pLast)
{
    return pValue >= 0 && pValue <= pLast;
}

} // namespace tarn::vkservice::methods
