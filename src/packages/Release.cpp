#include "packages/Release.h"

#include "internal/JsonReader.h"

#include <QtCore/QRegularExpression>

using namespace Qt::StringLiterals;

namespace tarn::packages {

using vkcore::JsonReader;

namespace {

QString dateText(const QDateTime& pDate)
{
    return pDate.toUTC().toString(Qt::ISODate);
}

// With its zone: each machine has to read the same moment.
QDateTime readDate(JsonReader* pReader, const char* pName)
{
    const QString tText = pReader->text(pName);
    const QDateTime tDate = QDateTime::fromString(tText, Qt::ISODate);
    pReader->require(tDate.isValid() && tText.endsWith(u'Z'), pName, u"is not a date in UTC"_s);
    return tDate;
}

Phase readPhase(JsonReader pReader)
{
    static const QRegularExpression sFormat(u"\\A[A-Za-z0-9._-]{1,64}\\z"_s);
    const QString tPublication = pReader.text("publication");
    pReader.require(sFormat.match(tPublication).hasMatch(), "publication", u"is not valid"_s);
    return {.mPublication = tPublication,
            .mBegins = readDate(&pReader, "begins"),
            .mSeconds = pReader.integer("seconds", 1, Phase::sMostSeconds)};
}

} // namespace

bool isChannel(const QString& pText)
{
    static const QRegularExpression sFormat(u"\\A[a-z0-9][a-z0-9._-]{0,31}\\z"_s);
    return pText != "stable"_L1 && sFormat.match(pText).hasMatch();
}

void write(const Release& pRelease, QJsonObject* pTo)
{
    if (!pRelease.mChannel.isEmpty()) {
        pTo->insert(u"channel"_s, pRelease.mChannel);
    }
    if (pRelease.mIsCritical) {
        pTo->insert(u"critical"_s, true);
    }
    if (pRelease.mSecuritySince) {
        pTo->insert(u"security"_s, pRelease.mSecuritySince->toString());
    }
    if (pRelease.mHalted) {
        pTo->insert(u"halted"_s, dateText(*pRelease.mHalted));
    }
    if (pRelease.mPhase) {
        pTo->insert(u"phase"_s, QJsonObject{{u"publication"_s, pRelease.mPhase->mPublication},
                                            {u"begins"_s, dateText(pRelease.mPhase->mBegins)},
                                            {u"seconds"_s, pRelease.mPhase->mSeconds}});
    }
}

Release readRelease(JsonReader* pReader)
{
    Release tRelease;
    if (pReader->has("channel")) {
        tRelease.mChannel = pReader->text("channel");
        pReader->require(isChannel(tRelease.mChannel), "channel", u"is not valid"_s);
    }
    tRelease.mIsCritical = pReader->has("critical") && pReader->boolean("critical");
    if (pReader->has("security")) {
        bool tIsVersion = false;
        tRelease.mSecuritySince = vkcore::Version::fromString(pReader->text("security"), &tIsVersion);
        pReader->require(tIsVersion, "security", u"is not a version"_s);
    }
    if (pReader->has("halted")) {
        tRelease.mHalted = readDate(pReader, "halted");
    }
    if (pReader->has("phase")) {
        tRelease.mPhase = readPhase(pReader->object("phase"));
    }
    return tRelease;
}

} // namespace tarn::packages
