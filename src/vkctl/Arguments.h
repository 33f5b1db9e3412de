#pragma once

#include <QtCore/QCoreApplication>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

namespace tarn::vkctl {

struct Arguments
{
    Q_DECLARE_TR_FUNCTIONS(tarn::vkctl::Arguments)

public:
    enum class Command
    {
        Status,
        Verify,
        Repair,
        Help,
        Version,
    };

    Command mCommand = Command::Help;
    bool mIsJson = false;
    std::optional<QString> mSocket;

    // None, with the reason in *pError, if the command line is wrong. pWords: without the program's name.
    static std::optional<Arguments> parse(const QStringList& pWords, QString* pError);
    static QString usage();
};

} // namespace tarn::vkctl
