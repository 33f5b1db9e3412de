#include "internal/Fields.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkcore::protocol {

namespace {

// Each letter d of the format is a digit.
bool hasDateForm(const QString& pText)
{
    static constexpr QLatin1String sForm("dddd-dd-ddTdd:dd:dd");
    return std::equal(pText.cbegin(), pText.cend(), sForm.begin(), sForm.end(), [](QChar pHas, char pWants) {
        return pWants == 'd' ? pHas >= u'0' && pHas <= u'9' : pHas == QLatin1Char(pWants);
    });
}

} // namespace

QJsonValue toJson(const QString& pText)
{
    return pText.isNull() ? QJsonValue() : QJsonValue(pText);
}

QJsonValue toJson(const QDateTime& pDate)
{
    return pDate.isValid() ? pDate.toLocalTime().toString(u"yyyy-MM-ddTHH:mm:ss"_s) : QJsonValue();
}

void read(JsonReader& pFrom, const char* pName, QString* pTo)
{
    *pTo = pFrom.textOrNull(pName);
}

void read(JsonReader& pFrom, const char* pName, QDateTime* pTo)
{
    const QString tText = pFrom.textOrNull(pName);
    *pTo = hasDateForm(tText) ? QDateTime::fromString(tText, u"yyyy-MM-ddTHH:mm:ss"_s) : QDateTime();
    pFrom.require(tText.isNull() || pTo->isValid(), pName, u"is not a date"_s);
}

} // namespace tarn::vkcore::protocol
