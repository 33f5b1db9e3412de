// Makes an install log of COUNT entries over the last PERIOD days: "fill_log FILE COUNT PERIOD".
#include "sqlite/InstallLogStore.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QTextStream>

using namespace Qt::StringLiterals;

using tarn::vkcore::InstallLogStore;
using tarn::vkcore::LogRecord;

int main(int argc, char** argv)
{
    QCoreApplication tApp(argc, argv);
    const QStringList tArguments = QCoreApplication::arguments();
    const qint64 tCount = tArguments.value(2).toLongLong();
    const qint64 tSeconds = tArguments.value(3).toLongLong() * 86400;
    constexpr qint64 sPerRun = 1000;

    InstallLogStore tLog;
    if (tCount < sPerRun || !tLog.openForWriting(tArguments.value(1))) {
        QTextStream(stderr) << "usage: fill_log FILE COUNT DAYS\n" << tLog.errorText() << '\n';
        return 1;
    }
    const QDateTime tNow = QDateTime::currentDateTime();
    for (qint64 tDone = 0; tDone < tCount; tDone += sPerRun) {
        const QDateTime tDate = tNow.addSecs(-tSeconds + tSeconds * tDone / tCount);
        QList<LogRecord> tRecords;
        for (qint64 i = 0; i < sPerRun; ++i) {
            LogRecord tRecord;
            tRecord.mPackage = u"package-%1"_s.arg(i);
            tRecord.mVersion = u"1.%1.0.0"_s.arg(tDone / sPerRun);
            tRecord.mStatus = u"ok"_s;
            tRecord.mVersionDate = tDate;
            tRecord.mTitle.setValue(u"en"_s, u"Package %1"_s.arg(i));
            tRecord.mTitle.setValue(u"de"_s, u"Paket %1"_s.arg(i));
            tRecords.append(tRecord);
        }
        if (!tLog.append(u"run-%1"_s.arg(tDone), tDate, tRecords)) {
            QTextStream(stderr) << tLog.errorText() << '\n';
            return 1;
        }
    }
    return 0;
}
