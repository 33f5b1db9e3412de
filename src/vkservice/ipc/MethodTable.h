#pragma once

#include "internal/Failure.h"

#include <QtCore/QHash>
#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <functional>

namespace tarn::vkservice::ipc {

class Peer;

// The answer of a method: a result, or an error with its protocol code and a readable text.
struct Reply
{
    QJsonValue mResult;
    int mErrorCode = 0; // 0: no error
    QString mMessage;

    static Reply result(const QJsonValue& pResult) { return {pResult, 0, {}}; }
    static Reply done() { return result(true); }
    static Reply refused(const QString& pMessage);
    // pFault: "settings.clientName is not a text".
    static Reply invalidParams(const QString& pFault);
    // Success, or a refusal with the reason.
    static Reply of(bool pDone, const QString& pReason) { return pDone ? done() : refused(pReason); }
    static Reply of(const Failure& pFailure) { return of(!pFailure, pFailure.mText + u'.'); }

    bool isError() const { return mErrorCode != 0; }
};

// The methods of the socket by name. A handler returns before the next line of any peer is read.
class MethodTable
{
public:
    using Handler = std::function<Reply(Peer& pPeer, const QJsonObject& pParams)>;

    enum class Kind
    {
        Query,
        Change, // changes a setting, so it passes the guard first
    };

    void add(const QString& pName, Kind pKind, Handler pHandler);
    // Returns the reason why settings cannot be changed now, a null text if they can.
    void setChangeGuard(std::function<QString()> pGuard) { mGuard = std::move(pGuard); }

    Reply call(Peer& pPeer, const QString& pName, const QJsonObject& pParams) const;
    QStringList names() const { return mMethods.keys(); }

private:
    struct Method
    {
        Kind mKind;
        Handler mHandler;
    };

    QHash<QString, Method> mMethods;
    std::function<QString()> mGuard;
};

} // namespace tarn::vkservice::ipc
