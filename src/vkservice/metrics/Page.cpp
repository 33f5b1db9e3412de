#include "metrics/Page.h"

namespace tarn::vkservice::metrics {

namespace {

QByteArray escaped(const QString& pText)
{
    QByteArray tText = pText.toUtf8();
    return tText.replace('\\', "\\\\").replace('"', "\\\"").replace('\n', "\\n");
}

} // namespace

void Page::family(const char* pName, const char* pType, const char* pHelp)
{
    mName = pName;
    mText += "# HELP " + mName + ' ' + pHelp + "\n# TYPE " + mName + ' ' + pType + '\n';
}

void Page::value(qint64 pValue, const Labels& pLabels)
{
    QByteArrayList tLabels;
    for (const auto& [tName, tValue] : pLabels) {
        tLabels.append(QByteArray(tName) + "=\"" + escaped(tValue) + '"');
    }
    mText += mName + (tLabels.isEmpty() ? QByteArray() : '{' + tLabels.join(',') + '}') + ' ' +
             QByteArray::number(pValue) + '\n';
}

} // namespace tarn::vkservice::metrics
