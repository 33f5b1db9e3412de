#pragma once

#include "internal/Values.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDateTime>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkctl {

// What the last update left out, for people.
class LeftOut
{
    Q_DECLARE_TR_FUNCTIONS(tarn::vkctl::LeftOut)

public:
    // A heading and a line for each package; none for an empty list.
    static QStringList lines(const vkcore::protocol::LeftOutPackages& pPackages);
    static QString dateText(const QDateTime& pDate);

private:
    static QString reasonText(const vkcore::protocol::LeftOutPackage& pPackage);
};

} // namespace tarn::vkctl
