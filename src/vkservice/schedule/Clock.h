#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QObject>

namespace tarn::vkservice::schedule {

// The time of day, and a wake-up at a moment of it. A test has one that it moves by hand.
class Clock : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    // In whole seconds: dates travel and are stored so, and one that is made of this comes back as it was.
    QDateTime now() const
    {
        const QDateTime tMoment = moment();
        return tMoment.addMSecs(-tMoment.time().msec());
    }
    // Replaces the wake-up that was asked for before; an invalid date asks for none.
    virtual void wakeAt(const QDateTime& pWhen) = 0;

Q_SIGNALS:
    // The moment has come, or the clock was set, or the machine woke up, or the time zone may have changed.
    // The receiver looks at the time anew and asks for its next wake-up.
    void woke();

private:
    virtual QDateTime moment() const = 0;
};

} // namespace tarn::vkservice::schedule
