#pragma once

#include <vkcore/Export.h>
#include <vkcore/MonitoringEmail.h>

#include <QtCore/QDateTime>
#include <QtCore/QString>

namespace tarn::vkcore {

// What the service reports by e-mail. Periods are in days.
class VKCORE_EXPORT MonitoringSettings
{
public:
    // Texts and dates that belong to other clients of the service; they are only carried along.
    struct ClientSettings
    {
        QString mText1;
        QString mText2;
        QString mText3;
        QString mText4;
        QDateTime mDate1;
        QDateTime mDate2;

        bool operator==(const ClientSettings&) const = default;
    };

    bool eventMailsEnabled() const { return mEventMailsEnabled; }
    bool eventMailOnUpdate() const { return mEventMailOnUpdate; }
    bool eventMailOnOverdue() const { return mEventMailOnOverdue; }
    bool eventMailOnManualIntervention() const { return mEventMailOnManualIntervention; }
    bool summarizedMailsEnabled() const { return mSummarizedMailsEnabled; }
    bool summarizedMailsOnChangeOnly() const { return mSummarizedMailsOnChangeOnly; }
    int summarizedMailPeriod() const { return mSummarizedMailPeriod; }
    int updateOverduePeriod() const { return mUpdateOverduePeriod; }
    const QString& clientName() const { return mClientName; }
    const MonitoringEmailList& notificationEmailAddresses() const { return mNotificationEmailAddresses; }

    void setEventMailsEnabled(bool pEnabled) { mEventMailsEnabled = pEnabled; }
    void setEventMailOnUpdate(bool pEnabled) { mEventMailOnUpdate = pEnabled; }
    void setEventMailOnOverdue(bool pEnabled) { mEventMailOnOverdue = pEnabled; }
    void setEventMailOnManualIntervention(bool pEnabled) { mEventMailOnManualIntervention = pEnabled; }
    void setSummarizedMailsEnabled(bool pEnabled) { mSummarizedMailsEnabled = pEnabled; }
    void setSummarizedMailsOnChangeOnly(bool pEnabled) { mSummarizedMailsOnChangeOnly = pEnabled; }
    void setSummarizedMailPeriod(int pDays) { mSummarizedMailPeriod = pDays; }
    void setUpdateOverduePeriod(int pDays) { mUpdateOverduePeriod = pDays; }
    void setClientName(const QString& pName) { mClientName = pName; }
    void setNotificationEmailAddresses(const MonitoringEmailList& pList)
    {
        mNotificationEmailAddresses = pList;
    }

    QDateTime mLastSummary; // when the last summary mail went out; invalid before the first
    ClientSettings mClientSettings;

    bool operator==(const MonitoringSettings&) const = default;

private:
    bool mEventMailsEnabled = false;
    bool mEventMailOnUpdate = false;
    bool mEventMailOnOverdue = false;
    bool mEventMailOnManualIntervention = false;
    bool mSummarizedMailsEnabled = false;
    bool mSummarizedMailsOnChangeOnly = false;
    int mSummarizedMailPeriod = 7;
    int mUpdateOverduePeriod = 7;
    QString mClientName;
    MonitoringEmailList mNotificationEmailAddresses;
};

} // namespace tarn::vkcore
