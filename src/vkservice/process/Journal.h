#pragma once

#include "process/JournalEvent.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace tarn::vkservice::process {

// True if this descriptor is the one that systemd has connected to the journal.
bool leadsToJournal(int pFd);
// Sends a line with its fields. False if the journal does not take it.
bool sendToJournal(int pPriority, const QString& pText, const JournalEvent& pEvent);
// The fields of such a line, each "NAME=value".
QByteArrayList journalFields(int pPriority, const QString& pText, const JournalEvent& pEvent);

} // namespace tarn::vkservice::process
