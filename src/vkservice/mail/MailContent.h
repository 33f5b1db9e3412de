#pragma once

#include "mail/MachineStatus.h"

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkservice::mail {

// The content of a mail, without its layout. The texts are untrusted: both renderings clean and escape them,
// and shorten very long lists and reports.
struct MailContent
{
    struct Fact
    {
        QString mLabel;
        QString mValue;
    };

    QString mSubject;
    QStringList mParagraphs;
    QList<Fact> mFacts;
    QString mPackagesTitle;
    QList<PackageLine> mPackages;
    QString mFooter;
};

QString plainText(const MailContent& pContent);
QString html(const MailContent& pContent);

} // namespace tarn::vkservice::mail
