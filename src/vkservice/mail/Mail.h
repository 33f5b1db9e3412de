#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QString>

namespace tarn::vkservice::mail {

// One mail to one address, as it waits in the queue and goes to the mail server.
struct Mail
{
    QString mRecipient;
    QString mMessageId; // with its angle brackets; the same at every attempt
    QDateTime mDate;
    QString mSubject;
    QString mText; // lines end in "\n"
    QString mHtml;
};

} // namespace tarn::vkservice::mail
