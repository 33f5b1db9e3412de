#include "vkc_Application.h"

#include <algorithm>
#include <cstdio>

#include <termios.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tarn::vkc {

// Texts of the service and of its log may come from a user who must not control root's terminal.
static QString plainFor(int pFd, QString pText)
{
    const auto tIsControl = [](QChar pChar) {
        return pChar.category() == QChar::Other_Control && pChar != u'\n' && pChar != u'\t';
    };
    if (std::any_of(pText.cbegin(), pText.cend(), tIsControl) && ::isatty(pFd) != 0) {
        std::replace_if(pText.begin(), pText.end(), tIsControl, QChar(u' '));
    }
    return pText;
}

static void write(QTextStream& pStream, const QString& pText, bool pNewline, bool pFlush)
{
    pStream << pText;
    if (pNewline) {
        pStream << u'\n';
    }
    if (pFlush) {
        pStream.flush();
    }
}

void VKCApplication::writeStdOut(const QString& pText, bool pNewline, bool pFlush)
{
    write(mStdOut, plainFor(STDOUT_FILENO, pText), pNewline, pFlush);
}

void VKCApplication::writeStdErr(const QString& pText, bool pNewline, bool pFlush)
{
    write(mStdErr, plainFor(STDERR_FILENO, pText), pNewline, pFlush);
}

void VKCApplication::printLine(const QString& pText)
{
    writeStdOut(pText, true, true);
}

bool VKCApplication::printError(const QString& pText)
{
    writeStdErr(pText, true, true);
    return false;
}

int VKCApplication::fail(const QString& pText)
{
    printError(pText);
    return 1;
}

void VKCApplication::clearCurrentLine()
{
    write(mStdOut, u"\x1b[1G\x1b[K"_s, false, true);
}

void VKCApplication::writeMsgType(int pMsgType)
{
    QString tLabel;
    switch (pMsgType) {
    case 0:
        tLabel = tr("Error:");
        break;
    case 1:
        tLabel = tr("Warning:");
        break;
    default:
        tLabel = tr("Information:");
        break;
    }
    writeStdOut(tLabel + u' ', false, false);
}

void VKCApplication::writeProgress(const QString& pText)
{
    clearCurrentLine();
    writeStdOut(pText, false, true);
}

QString VKCApplication::readPassword(const QString& pPrompt)
{
    writeStdOut(pPrompt.isEmpty() ? tr("Password: ") : pPrompt, false, true);

    const int tFd = fileno(stdin);
    termios tKept = {};
    const bool tIsTerminal = tcgetattr(tFd, &tKept) == 0;
    if (tIsTerminal) {
        termios tSilent = tKept;
        tSilent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(tFd, TCSANOW, &tSilent);
    }
    const QString tLine = mStdIn.readLine();
    if (tIsTerminal) {
        tcsetattr(tFd, TCSANOW, &tKept);
    }
    return tLine.isNull() ? u""_s : tLine; // a null text would mean that none was given
}

QString VKCApplication::yesNo(bool pValue)
{
    return pValue ? tr("yes") : tr("no");
}

} // namespace tarn::vkc
