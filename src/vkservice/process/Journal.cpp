#include "process/Journal.h"

#include "internal/PlainText.h"

#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

#include <sys/stat.h>

#include <vector>

namespace tarn::vkservice::process {

bool leadsToJournal(int pFd)
{
    struct stat tStat;
    const QByteArray tStream = qgetenv("JOURNAL_STREAM");
    return !tStream.isEmpty() && ::fstat(pFd, &tStat) == 0 &&
           tStream == QByteArray::number(tStat.st_dev) + ':' + QByteArray::number(tStat.st_ino);
}

QByteArrayList journalFields(int pPriority, const QString& pText, const JournalEvent& pEvent)
{
    QByteArrayList tFields{"MESSAGE=" + pText.toUtf8(), "PRIORITY=" + QByteArray::number(pPriority)};
    if (pEvent.mId != nullptr) {
        tFields.append(QByteArray("MESSAGE_ID=") + pEvent.mId);
    }
    for (const auto& [tName, tValue] : pEvent.mFields) {
        tFields.append(QByteArray(tName) + '=' + vkcore::singleLine(tValue, vkcore::sMaxMessage).toUtf8());
    }
    return tFields;
}

bool sendToJournal(int pPriority, const QString& pText, const JournalEvent& pEvent)
{
    QByteArrayList tFields = journalFields(pPriority, pText, pEvent);
    std::vector<iovec> tVectors;
    for (QByteArray& tField : tFields) {
        tVectors.push_back({tField.data(), static_cast<size_t>(tField.size())});
    }
    return sd_journal_sendv(tVectors.data(), static_cast<int>(tVectors.size())) >= 0;
}

} // namespace tarn::vkservice::process
