#pragma once

#include <QtCore/QCoreApplication>
#include <QtCore/QHash>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

namespace tarn::vkctl {

struct Command;

// The command line, checked against the table of commands.
struct Arguments
{
    Q_DECLARE_TR_FUNCTIONS(tarn::vkctl::Arguments)

public:
    const Command* mCommand = nullptr; // null: show the usage
    bool mIsVersion = false;
    bool mIsJson = false;
    std::optional<QString> mSocket;
    QStringList mOperands;
    QHash<QString, QString> mValues; // of the command's own options that were given, by name

    // None, with the reason in *pError, if the command line is wrong. pWords: without the program's name.
    static std::optional<Arguments> parse(const QStringList& pWords, QString* pError);
};

} // namespace tarn::vkctl
