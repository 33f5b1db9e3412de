// Malformed rows of the install log. Each line of an input is a row with tabs between its columns: date,
// package, parent, version, date of the version, status, title, report. SQLite accepts any text in any
// column.
#include "support/ScratchFolder.h"

#include "sqlite/InstallLogStore.h"

#include <QtCore/QByteArrayList>
#include <QtCore/QFile>

#include <cstdlib>
#include <limits>

using namespace Qt::StringLiterals;

using namespace tarn;
using namespace tarn::vkcore;

namespace {

// A number if the text is one, as the service writes it.
void bind(Statement& pStatement, int pIndex, const QByteArray& pText)
{
    bool tIsNumber = false;
    const qint64 tNumber = pText.toLongLong(&tIsNumber);
    if (tIsNumber) {
        pStatement.bind(pIndex, tNumber);
    } else if (pText != "null") {
        pStatement.bind(pIndex, pText);
    }
}

void fill(const QString& pPath, const QByteArrayList& pLines)
{
    Database tDatabase;
    if (!tDatabase.open(pPath, Database::Mode::ReadWrite) ||
        !tDatabase.execute("PRAGMA synchronous = OFF; DELETE FROM entry")) {
        std::abort();
    }
    tDatabase.transaction([&] {
        for (const QByteArray& tLine : pLines) {
            const QByteArrayList tColumns = tLine.split('\t');
            Statement tInsert(
                tDatabase,
                "INSERT OR IGNORE INTO entry (date, package, parent, version, version_date, status, title, "
                "report) VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
            for (int i = 0; i < 8; ++i) {
                bind(tInsert, i + 1, tColumns.value(i));
            }
            tInsert.run();
        }
        return true;
    });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t pSize)
{
    static const fuzz::ScratchFolder sFolder;
    static const QString sPath = sFolder.path(InstallLogStore::fileName());
    static InstallLogStore sMaker; // keeps the file with its tables
    static const bool sMade = sMaker.openForWriting(sPath);
    const QByteArray tInput(reinterpret_cast<const char*>(pData), static_cast<qsizetype>(pSize));
    fill(sPath, tInput.split('\n'));

    InstallLogStore tStore;
    if (!sMade || !tStore.openForReading(sPath)) {
        std::abort();
    }
    for (const int tMost : {2, std::numeric_limits<int>::max()}) {
        QList<GRef2<InstLogEntry>> tEntries;
        tStore.read(&tEntries, {}, {}, tMost, tMost == 2);
        for (const GRef2<InstLogEntry>& tEntry : tEntries) {
            tEntry->mDate.toString(Qt::ISODate);
            tEntry->mName.bestValue(u"de_AT"_s);
            tEntry->mVersion.toTarnAppFormat();
        }
    }
    return 0;
}
