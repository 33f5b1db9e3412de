#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QString>

namespace tarn::vkservice::mail {

// One mail to one address, as stored in the queue and sent to the mail server.
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
