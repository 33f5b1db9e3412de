#include "mail/MailContent.h"

#include "internal/PlainText.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::mail {

using vkcore::manyLines;
using vkcore::singleLine;

namespace {

constexpr qsizetype sMaxPackages = 200;
constexpr int sMaxReport = 8000;     // an advisory is in it
constexpr int sMaxReports = 300'000; // of all packages

QString packageTitle(const PackageLine& pPackage)
{
    QString tTitle = singleLine(pPackage.mTitle) + u' ' + singleLine(pPackage.mVersion, 64);
    if (!pPackage.mStatus.isEmpty() && pPackage.mStatus != "ok"_L1) {
        tTitle += u" [%1]"_s.arg(singleLine(pPackage.mStatus, 64));
    }
    return tTitle;
}

QString omittedPackages(const MailContent& pContent)
{
    const qsizetype tCount = pContent.mPackages.size() - sMaxPackages;
    return tCount > 0 ? u"and %1 more"_s.arg(tCount) : QString();
}

// Of the packages that are shown, each with what of its report is shown.
QList<PackageLine> shownPackages(const MailContent& pContent)
{
    QList<PackageLine> tShown = pContent.mPackages.mid(0, sMaxPackages);
    int tLeft = sMaxReports;
    for (PackageLine& tPackage : tShown) {
        tPackage.mReport = tLeft > 0 ? manyLines(tPackage.mReport, std::min(sMaxReport, tLeft)) : QString();
        tLeft -= static_cast<int>(tPackage.mReport.size());
    }
    return tShown;
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
        tText += (tFact.mLabel + u':').leftJustified(tWidth + 2) + singleLine(tFact.mValue) + u'\n';
    }
    return tText.isEmpty() ? tText : tText + u'\n';
}

// Reports are indented after a bar, so that no line of a report can imitate a line of the mail itself.
QString packagesAsText(const MailContent& pContent)
{
    if (pContent.mPackages.isEmpty()) {
        return {};
    }
    QString tText = pContent.mPackagesTitle + ":\n"_L1;
    const QList<PackageLine> tShown = shownPackages(pContent);
    for (const PackageLine& tPackage : tShown) {
        tText += "  * "_L1 + packageTitle(tPackage) + u'\n';
        for (const QString& tLine : tPackage.mReport.split(u'\n', Qt::SkipEmptyParts)) {
            tText += "      | "_L1 + tLine + u'\n';
        }
    }
    const QString tOmitted = omittedPackages(pContent);
    return tText + (tOmitted.isEmpty() ? QString() : "  "_L1 + tOmitted + u'\n') + u'\n';
}

QString factsAsHtml(const QList<MailContent::Fact>& pFacts)
{
    QString tHtml;
    for (const MailContent::Fact& tFact : pFacts) {
        tHtml += "<tr><th align=\"left\">"_L1 + escaped(tFact.mLabel) + "</th><td>"_L1 +
                 escaped(tFact.mValue) + "</td></tr>\n"_L1;
    }
    return tHtml.isEmpty() ? tHtml : "<table>\n"_L1 + tHtml + "</table>\n"_L1;
}

QString packagesAsHtml(const MailContent& pContent)
{
    if (pContent.mPackages.isEmpty()) {
        return {};
    }
    QString tHtml = "<p>"_L1 + escaped(pContent.mPackagesTitle) + ":</p>\n<ul>\n"_L1;
    const QList<PackageLine> tShown = shownPackages(pContent);
    for (const PackageLine& tPackage : tShown) {
        tHtml += "<li>"_L1 + escaped(packageTitle(tPackage));
        if (!tPackage.mReport.isEmpty()) {
            tHtml += "<pre>"_L1 + tPackage.mReport.toHtmlEscaped() + "</pre>"_L1;
        }
        tHtml += "</li>\n"_L1;
    }
    const QString tOmitted = omittedPackages(pContent);
    return tHtml + (tOmitted.isEmpty() ? QString() : "<li>"_L1 + tOmitted + "</li>\n"_L1) + "</ul>\n"_L1;
}

} // namespace

QString plainText(const MailContent& pContent)
{
    QString tText;
    for (const QString& tParagraph : pContent.mParagraphs) {
        tText += singleLine(tParagraph, 1000) + "\n\n"_L1;
    }
    return tText + factsAsText(pContent.mFacts) + packagesAsText(pContent) + "-- \n"_L1 +
           singleLine(pContent.mFooter) + u'\n';
}

QString html(const MailContent& pContent)
{
    QString tHtml = "<!DOCTYPE html>\n<html>\n<head><meta charset=\"utf-8\"><title>"_L1 +
                    escaped(pContent.mSubject) + "</title></head>\n<body>\n"_L1;
    for (const QString& tParagraph : pContent.mParagraphs) {
        tHtml += "<p>"_L1 + escaped(tParagraph) + "</p>\n"_L1;
    }
    return tHtml + factsAsHtml(pContent.mFacts) + packagesAsHtml(pContent) + "<hr>\n<p><small>"_L1 +
           escaped(pContent.mFooter) + "</small></p>\n</body>\n</html>\n"_L1;
}

} // namespace tarn::vkservice::mail
