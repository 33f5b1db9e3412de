#pragma once

#include <vkcore/Version.h>

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QSet>
#include <QtCore/QString>

namespace tarn::vkservice::update {

// A package that the administrator wants to stay as it is, or within some versions.
struct Hold
{
    QString mName;
    QList<int> mVersions; // the first numbers of those that may be installed; empty: none at all
    QDateTime mUntil;     // invalid: without end

    bool isOver(const QDateTime& pNow) const { return mUntil.isValid() && pNow >= mUntil; }
    bool lets(const vkcore::Version& pVersion) const;
};

// "1.2" as the first numbers of a version, at most four; empty if the text is none.
QList<int> versionPrefix(const QString& pText);

// What decides on this machine which of the offered packages it takes.
struct Choices
{
    QList<Hold> mHolds;
    QString mChannel;          // empty: stable
    QSet<QByteArray> mRefused; // SHA-256, in hex, of archives that must not be installed again
    QByteArray mSeed;          // tells this machine from others, for its place in phases
    bool mIsScheduled = false; // by hand, nothing waits for its phase
    // Only fixes for installed packages, and what they require; all where nothing is installed yet.
    bool mOnlySecurity = false;

    // For comparing: what else but phases decides at this time. A hold that is over is left out.
    QByteArray state(const QDateTime& pNow) const;
    // When state() changes by itself: the end of the next hold; invalid: never.
    QDateTime nextEnd(const QDateTime& pNow) const;
};

} // namespace tarn::vkservice::update
