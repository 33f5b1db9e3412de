#include "commands/DraftReport.h"

#include "CommandLine.h"
#include "keys/KeyFolder.h"
#include "publication/Drafts.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

Result<QString> draftReport(const KeyFolder& pKeys, const Draft& pDraft, const CommandLine& pLine)
{
    const Result<int> tMissing = missingSignatures(pKeys, pDraft, QDateTime::currentDateTimeUtc());
    if (!tMissing) {
        return tMissing.failure();
    }
    const QString tDraft =
        u"Draft of the %1, version %2: "_s.arg(pDraft.mRole).arg(pDraft.toSigned().mVersion);
    const QString tRepository = pLine.argument(0);
    if (*tMissing == 0) {
        return tDraft + u"no signature is missing. Next: vkpublish publish %1"_s.arg(tRepository);
    }
    return tDraft + missingText(*tMissing) +
           u". Next: vkpublish payload %1 %2 --output FILE, and then sign and add-signature"_s.arg(
               tRepository, pDraft.mRole);
}

bool isDraftRole(const QString& pRole)
{
    const bool tIs = pRole == tuf::sRoot || pRole == tuf::sTargets;
    if (!tIs) {
        complain(u"\"%1\" is neither root nor targets: the others are signed where they are published"_s.arg(
            pRole));
    }
    return tIs;
}

} // namespace tarn::vkpublish
