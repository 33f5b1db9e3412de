#include <vkcore/Util.h>

#include <QtCore/QSysInfo>

#include <sys/utsname.h>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

QString Util::prettyOsVersion() const
{
    const QString tProduct = QSysInfo::prettyProductName();
    utsname tName{};
    if (::uname(&tName) != 0) {
        return tProduct;
    }
    return u"%1, %2 %3 %4"_s.arg(tProduct, QString::fromLocal8Bit(tName.sysname),
                                 QString::fromLocal8Bit(tName.release),
                                 QString::fromLocal8Bit(tName.machine));
}

} // namespace tarn::vkcore
