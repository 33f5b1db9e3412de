#include "update/Choices.h"

#include <QtCore/QStringList>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

QList<int> numbers(const vkcore::Version& pVersion)
{
    QList<int> tNumbers;
    for (const QString& tPart : pVersion.toString().split(u'.')) {
        tNumbers.append(tPart.toInt());
    }
    return tNumbers;
}

} // namespace

bool Hold::lets(const vkcore::Version& pVersion) const
{
    return !mVersions.isEmpty() && numbers(pVersion).first(mVersions.size()) == mVersions;
}

QList<int> versionPrefix(const QString& pText)
{
    bool tOk = false;
    const vkcore::Version tVersion = vkcore::Version::fromString(pText, &tOk);
    return tOk ? numbers(tVersion).first(pText.count(u'.') + 1) : QList<int>();
}

QByteArray Choices::state(const QDateTime& pNow) const
{
    QStringList tParts;
    for (const Hold& tHold : mHolds) {
        if (!tHold.isOver(pNow)) {
            QStringList tVersions;
            for (const int tNumber : tHold.mVersions) {
                tVersions.append(QString::number(tNumber));
            }
            tParts.append(u"hold %1 %2"_s.arg(tHold.mName, tVersions.join(u'.')));
        }
    }
    for (const QByteArray& tHash : mRefused) {
        tParts.append(u"refused "_s + QString::fromLatin1(tHash));
    }
    if (mOnlySecurity) {
        tParts.append(u"only security"_s);
    }
    tParts.sort();
    return (QStringList{u"channel "_s + mChannel} + tParts).join(u'\n').toUtf8();
}

QDateTime Choices::nextEnd(const QDateTime& pNow) const
{
    QDateTime tNext;
    for (const Hold& tHold : mHolds) {
        if (tHold.mUntil.isValid() && !tHold.isOver(pNow)) {
            tNext = tNext.isValid() ? std::min(tNext, tHold.mUntil) : tHold.mUntil;
        }
    }
    return tNext;
}

} // namespace tarn::vkservice::update
