#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkservice {

// What the service was started with.
struct CommandLine
{
    enum class Order
    {
        Run,
        Help,
        Version,
        Refuse, // mComplaint says what is wrong
    };

    Order mOrder = Order::Run;
    QString mComplaint;
    bool mForeground = false; // -e: log to the log file
    bool mWorker = false;     // -worker: for the parent process alone
    QString mSocketName;      // -s=NAME, empty if not given

    // pArguments without the program's own name.
    static CommandLine parse(const QStringList& pArguments);
    static QString usage();
};

} // namespace tarn::vkservice
