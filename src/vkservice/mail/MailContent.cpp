#include "mail/MailContent.h"

#include "internal/PlainText.h"

#include <algorithm>

namespace tarn::vkservice::mail {

using vkcore::manyLines;
using vkcore::singleLine;

namespace {

constexpr qsizetype sMaxPackages = 200;

QString packageTitle(const PackageLine& pPackage)
{
    QString tTitle = singleLine(pPackage.mTitle) + QLatin1Char(' ') + singleLine(pPackage.mVersion, 64);
    if (!pPackage.mStatus.isEmpty() && pPackage.mStatus != QLatin1String("ok")) {
        tTitle += QStringLiteral(" [%1]").arg(singleLine(pPackage.mStatus, 64));
    }
    return tTitle;
}

QString omittedPackages(const MailContent& pContent)
{
    const qsizetype tCount = pContent.mPackages.size() - sMaxPackages;
    return tCount > 0 ? QStringLiteral("and %1 more").arg(tCount) : QString();
}

QString escaped(const QString& pText)
{
    return singleLine(pText, 1000).toHtmlEscaped();
}

QString factsAsText(const QList<MailContent::Fact>& pFacts)
{
    qsizetype tWidth = 0;
    for (const MailContent::Fact& tFact : pFacts) {
        tWidth = std::max(tWidth, tFact.mLabel.size());
    }
    QString tText;
    for (const MailContent::Fact& tFact : pFacts) {
        tText += (tFact.mLabel + QLatin1Char(':')).leftJustified(tWidth + 2) + singleLine(tFact.mValue) +
                 QLatin1Char('\n');
    }
    return tText.isEmpty() ? tText : tText + QLatin1Char('\n');
}

// Reports are indented behind a bar, so that none can pass for a line of the mail itself.
QString packagesAsText(const MailContent& pContent)
{
    if (pContent.mPackages.isEmpty()) {
        return {};
    }
    QString tText = pContent.mPackagesTitle + QLatin1String(":\n");
    for (const PackageLine& tPackage : pContent.mPackages.mid(0, sMaxPackages)) {
        tText += QLatin1String("  * ") + packageTitle(tPackage) + QLatin1Char('\n');
        const QString tReport = manyLines(tPackage.mReport);
        for (const QString& tLine : tReport.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
            tText += QLatin1String("      | ") + tLine + QLatin1Char('\n');
        }
    }
    const QString tOmitted = omittedPackages(pContent);
    return tText + (tOmitted.isEmpty() ? QString() : QLatin1String("  ") + tOmitted + QLatin1Char('\n')) +
           QLatin1Char('\n');
}

QString factsAsHtml(const QList<MailContent::Fact>& pFacts)
{
    QString tHtml;
    for (const MailContent::Fact& tFact : pFacts) {
        tHtml += QLatin1String("<tr><th align=\"left\">") + escaped(tFact.mLabel) +
                 QLatin1String("</th><td>") + escaped(tFact.mValue) + QLatin1String("</td></tr>\n");
    }
    return tHtml.isEmpty() ? tHtml : QLatin1String("<table>\n") + tHtml + QLatin1String("</table>\n");
}

QString packagesAsHtml(const MailContent& pContent)
{
    if (pContent.mPackages.isEmpty()) {
        return {};
    }
    QString tHtml = QLatin1String("<p>") + escaped(pContent.mPackagesTitle) + QLatin1String(":</p>\n<ul>\n");
    for (const PackageLine& tPackage : pContent.mPackages.mid(0, sMaxPackages)) {
        tHtml += QLatin1String("<li>") + escaped(packageTitle(tPackage));
        const QString tReport = manyLines(tPackage.mReport);
        if (!tReport.isEmpty()) {
            tHtml += QLatin1String("<pre>") + tReport.toHtmlEscaped() + QLatin1String("</pre>");
        }
        tHtml += QLatin1String("</li>\n");
    }
    const QString tOmitted = omittedPackages(pContent);
    return tHtml +
           (tOmitted.isEmpty() ? QString() : QLatin1String("<li>") + tOmitted + QLatin1String("</li>\n")) +
           QLatin1String("</ul>\n");
}

} // namespace

QString plainText(const MailContent& pContent)
{
    QString tText;
    for (const QString& tParagraph : pContent.mParagraphs) {
        tText += singleLine(tParagraph, 1000) + QLatin1String("\n\n");
    }
    return tText + factsAsText(pContent.mFacts) + packagesAsText(pContent) + QLatin1String("-- \n") +
           singleLine(pContent.mFooter) + QLatin1Char('\n');
}

QString html(const MailContent& pContent)
{
    QString tHtml = QLatin1String("<!DOCTYPE html>\n<html>\n<head><meta charset=\"utf-8\"><title>") +
                    escaped(pContent.mSubject) + QLatin1String("</title></head>\n<body>\n");
    for (const QString& tParagraph : pContent.mParagraphs) {
        tHtml += QLatin1String("<p>") + escaped(tParagraph) + QLatin1String("</p>\n");
    }
    return tHtml + factsAsHtml(pContent.mFacts) + packagesAsHtml(pContent) +
           QLatin1String("<hr>\n<p><small>") + escaped(pContent.mFooter) +
           QLatin1String("</small></p>\n</body>\n</html>\n");
}

} // namespace tarn::vkservice::mail
