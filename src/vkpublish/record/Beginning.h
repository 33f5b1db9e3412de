#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

namespace tarn::vkpublish {

// What stands in place of the record until a new repository is complete: everything that was made for it. If
// that is interrupted, these may be removed, and nothing else.
struct Beginning
{
    QString mRepository;
    QByteArray mRoot;  // the only file that is in the repository
    QStringList mKeys; // files in the key folder

    QByteArray toJson() const;
    // None for a record, and all other texts.
    static std::optional<Beginning> fromJson(const QByteArray& pText);
};

} // namespace tarn::vkpublish
