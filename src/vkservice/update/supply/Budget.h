#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QHash>

namespace tarn::vkservice::update {

// What the packages of a run have cost, whichever servers sent it.
class Budget
{
public:
    // Bytes for the package with this archive, which its name in the folder of downloads identifies.
    void spend(const QByteArray& pArchive, qint64 pBytes) { mSpent[pArchive] += pBytes; }
    // False if it would cost more than its archive and a 20th.
    bool allows(const QByteArray& pArchive, qint64 pLength, qint64 pBytes) const
    {
        return mSpent.value(pArchive) + pBytes <= pLength + pLength / sMostMore;
    }

private:
    static constexpr qint64 sMostMore = 20;

    QHash<QByteArray, qint64> mSpent;
};

} // namespace tarn::vkservice::update
