#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QMap>
#include <QtCore/QSet>
#include <QtCore/QString>

#include <optional>

namespace tarn::vkpublish {

// What a mirror has written into its folder. Paths are below that folder. Only files in here are ever
// removed.
struct MirrorRecord
{
    QByteArray mRoot; // the first one, which a person trusts
    // The SHA-256 of the timestamp of a complete copy; empty while files are copied.
    QByteArray mComplete;
    QDateTime mExpires;                // when machines refuse that copy
    QSet<QString> mNamed;              // by the state that machines see, and by one that is copied
    QMap<QString, QDateTime> mUnnamed; // since then: a machine may be in the middle of an older state

    // Ends a copy: what is in mNamed and not in pNamed is unnamed from now on.
    void setNamed(const QSet<QString>& pNamed, const QDateTime& pNow);
    bool knows(const QString& pPath) const { return mNamed.contains(pPath) || mUnnamed.contains(pPath); }

    QByteArray toJson() const;
    // None for any other text.
    static std::optional<MirrorRecord> fromJson(const QByteArray& pText);
};

} // namespace tarn::vkpublish
