#include "packages/Attachment.h"

#include <QtCore/QStringDecoder>

#include <algorithm>

namespace tarn::packages {

bool isAdvisory(QByteArrayView pText)
{
    QStringDecoder tDecoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString tText = tDecoder(pText);
    const auto tMayBe = [](QChar pChar) {
        return pChar.category() != QChar::Other_Control || pChar == u'\n' || pChar == u'\r' || pChar == u'\t';
    };
    return pText.size() <= formOf(AttachmentKind::Advisory).mMaxLength && !tDecoder.hasError() &&
           !tText.trimmed().isEmpty() && std::all_of(tText.begin(), tText.end(), tMayBe);
}

} // namespace tarn::packages
