#include "ArgumentChecks.h"

#include "vkc_Application.h"

#include <QtCore/QTextStream>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace tarn::vkc {

static void writeLine(const QString& pText)
{
    QTextStream tStream(stderr, QIODevice::WriteOnly | QIODevice::Unbuffered);
    tStream.setEncoding(QStringConverter::System);
    tStream << pText << u'\n';
}

static QString nameAsTyped(const option::Option& pOption)
{
    return QString::fromLocal8Bit(pOption.name, pOption.namelen);
}

static QString nameForMessage(const option::Option& pOption)
{
    if (pOption.desc->longopt != nullptr) {
        return u"--%1"_s.arg(QString::fromLocal8Bit(pOption.desc->longopt));
    }
    if (pOption.desc->shortopt != nullptr) {
        return u"-%1"_s.arg(QString::fromLocal8Bit(pOption.desc->shortopt));
    }
    return nameAsTyped(pOption);
}

// The class name is qualified below because lupdate uses it literally as the context of the text.
option::ArgStatus argUnkown(const option::Option& pOption, bool pMessage)
{
    if (pMessage) {
        writeLine(tarn::vkc::VKCApplication::tr("Unknown option: '%1'").arg(nameAsTyped(pOption)));
    }
    return option::ARG_ILLEGAL;
}

option::ArgStatus argRequired(const option::Option& pOption, bool pMessage)
{
    if (pOption.arg != nullptr) {
        return option::ARG_OK;
    }
    if (pMessage) {
        writeLine(
            tarn::vkc::VKCApplication::tr("Option '%1' requires an argument").arg(nameForMessage(pOption)));
    }
    return option::ARG_ILLEGAL;
}

option::ArgStatus argOptional(const option::Option& pOption, bool)
{
    return pOption.arg != nullptr ? option::ARG_OK : option::ARG_IGNORE;
}

} // namespace tarn::vkc
