#pragma once

#include "update/RunRequest.h"

#include <QtCore/QMutex>

#include <functional>

namespace tarn::vkservice::update {

enum MessageType : int
{
    MessageError = 0,
    MessageWarning = 1,
    MessageInformation = 4,
};

// The reports of a run: its progress, which can be read at any time, and messages. Thread-safe.
class Reporter
{
public:
    using ActivityFunction = std::function<void(vkcore::ServiceActivity)>;
    using MessageFunction = std::function<void(int, const QString&, const QString&)>;

    using LineFunction = std::function<void(const QString&)>;

    Reporter(ActivityFunction pOnActivity, MessageFunction pOnNotification, MessageFunction pOnError,
             LineFunction pOnLine = nullptr);

    // Starts a new activity at 0 of pTotal. pInBytes: the amounts are bytes.
    void begin(vkcore::ServiceActivity pActivity, bool pCancelable, qint64 pTotal, bool pInBytes);
    void advance(qint64 pAmount);
    // Sets the package that the run works on, counted from 1.
    void atPackage(int pIndex, int pCount, const QString& pText);
    void setText(const QString& pText);
    void setFailedCount(int pCount);

    void notify(MessageType pType, const QString& pText, const QString& pDetails = QString());
    void error(const QString& pText, const QString& pDetails);

    // For the log alone.
    void write(const QString& pLine);

    Progress progress() const;

private:
    ActivityFunction mOnActivity;
    MessageFunction mOnNotification;
    MessageFunction mOnError;
    LineFunction mOnLine;
    mutable QMutex mMutex;
    Progress mProgress;
    bool mInBytes = false;
};

} // namespace tarn::vkservice::update
