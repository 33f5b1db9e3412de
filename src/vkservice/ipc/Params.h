#pragma once

#include "internal/Protocol.h"
#include "ipc/MethodTable.h"

#include <QtCore/QJsonObject>

namespace tarn::vkservice::ipc {

// Reads the parameters of one request and remembers the first that is missing or of another type.
class Params
{
public:
    explicit Params(const QJsonObject& pParams) : mParams(pParams) {}

    template <typename T>
    T get(const char* pName)
    {
        T tValue{};
        const QString tName = QLatin1String(pName);
        note(vkcore::protocol::read(mParams, tName, &tValue), tName);
        return tValue;
    }

    // A member that is an object with a reader of its own.
    template <typename T>
    void object(const char* pName, T* pTo)
    {
        const QString tName = QLatin1String(pName);
        const QJsonValue tValue = mParams.value(tName);
        note(tValue.isObject() && vkcore::protocol::read(tValue.toObject(), pTo), tName);
    }

    // One of an enumeration's values, 0 to pLast.
    template <typename T>
    T enumerator(const char* pName, T pLast)
    {
        const int tValue = get<int>(pName);
        note(tValue >= 0 && tValue <= static_cast<int>(pLast), QLatin1String(pName));
        return static_cast<T>(tValue);
    }

    bool ok() const { return mBad.isNull(); }
    Reply invalid() const
    {
        return Reply::invalidParams(
            QStringLiteral("The parameter \"%1\" is missing or of the wrong type.").arg(mBad));
    }

private:
    void note(bool pOk, const QString& pName)
    {
        if (!pOk && mBad.isNull()) {
            mBad = pName;
        }
    }

    const QJsonObject& mParams;
    QString mBad;
};

} // namespace tarn::vkservice::ipc
