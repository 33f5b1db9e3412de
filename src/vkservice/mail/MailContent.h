#pragma once

#include "mail/MachineStatus.h"

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkservice::mail {

// What a mail says, apart from how it looks. All texts may come from anywhere: the two renderings clean and
// escape them, and shorten lists and reports that have no end.
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
