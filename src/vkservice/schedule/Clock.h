#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QObject>

namespace tarn::vkservice::schedule {

// The time of day, and a wake-up at a given time. Tests have one that they set by hand.
class Clock : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    // In whole seconds: dates are sent and stored in this unit, so a date from this clock survives unchanged.
    QDateTime now() const
    {
        const QDateTime tMoment = moment();
        return tMoment.addMSecs(-tMoment.time().msec());
    }
    // Replaces the previous wake-up; an invalid date cancels it.
    virtual void wakeAt(const QDateTime& pWhen) = 0;

Q_SIGNALS:
    // The requested time has come, or the clock was set, the machine woke up, or the time zone may have
    // changed. The receiver reads the time again and requests its next wake-up.
    void woke();

private:
    virtual QDateTime moment() const = 0;
};

} // namespace tarn::vkservice::schedule
