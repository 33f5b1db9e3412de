#include "update/OsProxy.h"

#include <QtCore/QFile>

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
                         (pText.front() == QLatin1Char('"') || pText.front() == QLatin1Char('\''));
    return tQuoted ? pText.mid(1, pText.size() - 2) : pText;
}

QProcessEnvironment readFile(const QString& pPath)
{
    QProcessEnvironment tEnvironment;
    QFile tFile(pPath);
    if (!tFile.open(QIODevice::ReadOnly)) {
        return tEnvironment;
    }
    const QStringList tLines = QString::fromUtf8(tFile.read(sMaxFileSize)).split(QLatin1Char('\n'));
    for (QString tLine : tLines) {
        tLine = tLine.trimmed();
        if (tLine.startsWith(QLatin1String("export "))) {
            tLine = tLine.mid(7).trimmed();
        }
        const qsizetype tEquals = tLine.indexOf(QLatin1Char('='));
        if (tEquals > 0 && !tLine.startsWith(QLatin1Char('#'))) {
            tEnvironment.insert(tLine.left(tEquals), unquoted(tLine.mid(tEquals + 1)));
        }
    }
    return tEnvironment;
}

OsProxy proxyOf(const QProcessEnvironment& pEnvironment)
{
    const QString tHttps = valueOf(pEnvironment, QStringLiteral("https_proxy"));
    return {tHttps.isEmpty() ? valueOf(pEnvironment, QStringLiteral("all_proxy")) : tHttps,
            valueOf(pEnvironment, QStringLiteral("no_proxy"))};
}

} // namespace

OsProxy osProxy(const QProcessEnvironment& pEnvironment, const QString& pEnvironmentFile)
{
    const OsProxy tOwn = proxyOf(pEnvironment);
    return tOwn.mProxy.isEmpty() ? proxyOf(readFile(pEnvironmentFile)) : tOwn;
}

} // namespace tarn::vkservice::update
