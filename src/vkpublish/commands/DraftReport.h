#pragma once

#include "record/Draft.h"

#include "internal/Failure.h"

#include <QtCore/QString>

namespace tarn::vkpublish {

class CommandLine;
class KeyFolder;

// "The draft of the root, version 3, has its signatures. Next: ..."
Result<QString> draftReport(const KeyFolder& pKeys, const Draft& pDraft, const CommandLine& pLine);

// False, after an error message, if drafts are not made of this role.
bool isDraftRole(const QString& pRole);

} // namespace tarn::vkpublish
