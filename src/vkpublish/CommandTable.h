#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <span>

namespace tarn::vkpublish {

struct Command
{
    const char* mName; // its first word; its arguments may follow
    const char* mSummary;
    int (*mRun)(const QStringList& pArguments); // those after the name. Returns the exit status
};

// One line for each, with names of at most this width.
QString linesOf(std::span<const Command> pCommands, int pWidth);
// Null for an unknown name.
const Command* findCommand(std::span<const Command> pCommands, const QString& pName);

} // namespace tarn::vkpublish
