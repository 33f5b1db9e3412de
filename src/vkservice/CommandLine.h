#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkservice {

// The options that the service was started with.
struct CommandLine
{
    enum class Order
    {
        Run,
        Help,
        Version,
        HandOver, // change the owner of the service's files, and end
        HandBack,
        Refuse, // mComplaint holds the error
    };

    Order mOrder = Order::Run;
    QString mComplaint;
    bool mForeground = false; // -e: log to the log file
    bool mWorker = false;     // -worker: only for the parent process
    QString mSocketName;      // -s=NAME, empty if not given

    // pArguments without the program name.
    static CommandLine parse(const QStringList& pArguments);
    static QString usage();
};

} // namespace tarn::vkservice
