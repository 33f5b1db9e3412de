#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>

#include <utility>

namespace tarn::vkservice::metrics {

// The text of figures for monitoring, in the exposition format that a textfile collector reads. It ends in
// the line of OpenMetrics that shows a reader that nothing is missing.
class Page
{
public:
    using Labels = QList<std::pair<const char*, QString>>;

    // pName and the names of labels: letters, digits and underscores. A counter's name ends in "_total".
    void gauge(const char* pName, const char* pHelp) { family(pName, "gauge", pHelp); }
    void counter(const char* pName, const char* pHelp) { family(pName, "counter", pHelp); }
    // A value of the family that was begun last. Each has other labels.
    void value(qint64 pValue, const Labels& pLabels = {});
    // The seconds since 1970; 0 for a date that is not set.
    void value(const QDateTime& pDate) { value(pDate.isValid() ? pDate.toSecsSinceEpoch() : 0); }

    const QByteArray& text() const { return mText; }
    QByteArray complete() const { return mText + "# EOF\n"; }

private:
    void family(const char* pName, const char* pType, const char* pHelp);

    QByteArray mName;
    QByteArray mText;
};

} // namespace tarn::vkservice::metrics
