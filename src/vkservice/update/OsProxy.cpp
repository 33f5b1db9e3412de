#include "update/OsProxy.h"

#include <QtCore/QFile>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

constexpr qint64 sMaxFileSize = 64 * 1024;

QString valueOf(const QProcessEnvironment& pEnvironment, const QString& pName)
{
    return pEnvironment.value(pName, pEnvironment.value(pName.toUpper()));
}

QString unquoted(const QString& pText)
{
    const bool tQuoted = pText.size() >= 2 && pText.front() == pText.back() &&
                         (pText.front() == u'"' || pText.front() == u'\'');
    return tQuoted ? pText.mid(1, pText.size() - 2) : pText;
}

QProcessEnvironment readFile(const QString& pPath)
{
    QProcessEnvironment tEnvironment;
    QFile tFile(pPath);
    if (!tFile.open(QIODevice::ReadOnly)) {
        return tEnvironment;
    }
    const QStringList tLines = QString::fromUtf8(tFile.read(sMaxFileSize)).split(u'\n');
    for (QString tLine : tLines) {
        tLine = tLine.trimmed();
        if (tLine.startsWith("export "_L1)) {
            tLine = tLine.mid(7).trimmed();
        }
        const qsizetype tEquals = tLine.indexOf(u'=');
        if (tEquals > 0 && !tLine.startsWith(u'#')) {
            tEnvironment.insert(tLine.left(tEquals), unquoted(tLine.mid(tEquals + 1)));
        }
    }
    return tEnvironment;
}

OsProxy proxyOf(const QProcessEnvironment& pEnvironment)
{
    const QString tHttps = valueOf(pEnvironment, u"https_proxy"_s);
    return {tHttps.isEmpty() ? valueOf(pEnvironment, u"all_proxy"_s) : tHttps,
            valueOf(pEnvironment, u"no_proxy"_s)};
}

} // namespace

OsProxy osProxy(const QProcessEnvironment& pEnvironment, const QString& pEnvironmentFile)
{
    const OsProxy tOwn = proxyOf(pEnvironment);
    return tOwn.mProxy.isEmpty() ? proxyOf(readFile(pEnvironmentFile)) : tOwn;
}

} // namespace tarn::vkservice::update
