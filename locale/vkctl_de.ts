<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de" sourcelanguage="en">
<context>
    <name>tarn::vkctl::Arguments</name>
    <message>
        <source>The command needs: %1</source>
        <translation>Der Befehl braucht: %1</translation>
    </message>
    <message>
        <source>Option &apos;%1&apos; requires an argument</source>
        <translation>Die Option „%1“ braucht einen Wert</translation>
    </message>
    <message>
        <source>Unknown option: &apos;%1&apos;</source>
        <translation>Unbekannte Option: „%1“</translation>
    </message>
    <message>
        <source>Unknown command: %1</source>
        <translation>Unbekannter Befehl: %1</translation>
    </message>
    <message>
        <source>Unhandled argument &apos;%1&apos;</source>
        <translation>Überzähliges Argument „%1“</translation>
    </message>
</context>
<context>
    <name>tarn::vkctl::CommandTable</name>
    <message>
        <source>USAGE: vkctl &lt;command&gt; [options]</source>
        <translation>Aufruf: vkctl &lt;Befehl&gt; [Optionen]</translation>
    </message>
    <message>
        <source>Commands:</source>
        <translation>Befehle:</translation>
    </message>
    <message>
        <source>Options:</source>
        <translation>Optionen:</translation>
    </message>
    <message>
        <source>Compare all installed files with what was published</source>
        <translation>Vergleicht alle installierten Dateien mit dem Veröffentlichten</translation>
    </message>
    <message>
        <source>Install damaged packages again</source>
        <translation>Installiert beschädigte Pakete neu</translation>
    </message>
    <message>
        <source>Print one JSON object</source>
        <translation>Gibt ein JSON-Objekt aus</translation>
    </message>
    <message>
        <source>Use the service that listens on this socket</source>
        <translation>Benutzt den Dienst, der an diesem Socket lauscht</translation>
    </message>
    <message>
        <source>Show this help</source>
        <translation>Zeigt diese Hilfe</translation>
    </message>
    <message>
        <source>Show the version</source>
        <translation>Zeigt die Version</translation>
    </message>
    <message>
        <source>Show the last and the next update, and what is known about the files</source>
        <translation>Zeigt die letzte und die nächste Aktualisierung, und was über die Dateien bekannt ist</translation>
    </message>
    <message>
        <source>List the installed packages</source>
        <translation>Listet die installierten Pakete auf</translation>
    </message>
    <message>
        <source>List the installed updates, newest first</source>
        <translation>Listet die installierten Aktualisierungen auf, die neuesten zuerst</translation>
    </message>
    <message>
        <source>Keep a package as it is, or within the versions that begin so</source>
        <translation>Belässt ein Paket, wie es ist, oder bei Versionen, die so beginnen</translation>
    </message>
    <message>
        <source>End the hold of a package</source>
        <translation>Gibt ein festgehaltenes Paket frei</translation>
    </message>
    <message>
        <source>Show the held packages</source>
        <translation>Zeigt die festgehaltenen Pakete</translation>
    </message>
    <message>
        <source>Show or choose the channel; &quot;stable&quot; is the usual one</source>
        <translation>Zeigt oder wählt den Kanal; „stable“ ist der übliche</translation>
    </message>
    <message>
        <source>With &quot;hold&quot;: end the hold at this date</source>
        <translation>Bei „hold“: hält nur bis zu diesem Datum fest</translation>
    </message>
    <message>
        <source>Show the states of the packages that are kept</source>
        <translation>Zeigt die aufbewahrten Zustände der Pakete</translation>
    </message>
    <message>
        <source>Go back to an earlier state of the packages</source>
        <translation>Kehrt zu einem früheren Zustand der Pakete zurück</translation>
    </message>
    <message>
        <source>Show the packages that failed and are not installed again</source>
        <translation>Zeigt die Pakete, die versagt haben und nicht wieder installiert werden</translation>
    </message>
    <message>
        <source>Let a refused package be installed again</source>
        <translation>Lässt ein abgelehntes Paket wieder zu</translation>
    </message>
</context>
<context>
    <name>tarn::vkctl::CtlApplication</name>
    <message>
        <source>The standard output can&apos;t be written.</source>
        <translation>In die Standardausgabe kann nicht geschrieben werden.</translation>
    </message>
    <message>
        <source>Interrupted.</source>
        <translation>Unterbrochen.</translation>
    </message>
    <message>
        <source>Interrupted. %1 ends with the service that vkctl has started.</source>
        <translation>Unterbrochen. %1 endet mit dem Dienst, den vkctl gestartet hat.</translation>
    </message>
    <message>
        <source>Interrupted. %1 continues in the service.</source>
        <translation>Unterbrochen. %1 läuft im Dienst weiter.</translation>
    </message>
    <message>
        <source>The verification can&apos;t be started: %1</source>
        <translation>Die Prüfung kann nicht begonnen werden: %1</translation>
    </message>
    <message>
        <source>The verification</source>
        <translation>Die Prüfung</translation>
    </message>
    <message>
        <source>The verification did not come to its end: %1</source>
        <translation>Die Prüfung kam nicht zu ihrem Ende: %1</translation>
    </message>
    <message>
        <source>Cannot perform an update while the wizard is active.</source>
        <translation>Solange der Assistent offen ist, ist keine Aktualisierung möglich.</translation>
    </message>
    <message>
        <source>Failed to start update</source>
        <translation>Die Aktualisierung konnte nicht gestartet werden</translation>
    </message>
    <message>
        <source>The repair</source>
        <translation>Die Reparatur</translation>
    </message>
    <message>
        <source>The packages were not repaired: %1</source>
        <translation>Die Pakete wurden nicht repariert: %1</translation>
    </message>
    <message>
        <source>Update finished: %1</source>
        <translation>Aktualisierung beendet: %1</translation>
    </message>
    <message>
        <source>The damaged packages were installed again.</source>
        <translation>Die beschädigten Pakete wurden neu installiert.</translation>
    </message>
    <message>
        <source>No package is known to be damaged; &quot;vkctl verify&quot; looks for damage.</source>
        <translation>Von keinem Paket ist ein Schaden bekannt; „vkctl verify“ sucht danach.</translation>
    </message>
    <message>
        <source>Connection to the service failed!</source>
        <translation>Der Dienst ist nicht erreichbar!</translation>
    </message>
    <message>
        <source>Lost connection to the service</source>
        <translation>Die Verbindung zum Dienst ist abgebrochen</translation>
    </message>
    <message>
        <source>Failed to get the installed packages.</source>
        <translation>Die installierten Pakete konnten nicht abgefragt werden.</translation>
    </message>
    <message>
        <source>Waiting for the end of the update</source>
        <translation>Wartet auf das Ende der Aktualisierung</translation>
    </message>
    <message>
        <source>Verifying %1 (%2% complete)</source>
        <translation>Prüft %1 (%2% fertig)</translation>
    </message>
    <message>
        <source>Repairing (%1% complete)</source>
        <translation>Repariert (%1% fertig)</translation>
    </message>
    <message>
        <source>installed</source>
        <translation>installiert</translation>
    </message>
    <message>
        <source>not installed</source>
        <translation>nicht installiert</translation>
    </message>
    <message>
        <source>installed with a warning</source>
        <translation>mit einer Warnung installiert</translation>
    </message>
    <message>
        <source>requirements were updated</source>
        <translation>Voraussetzungen wurden aktualisiert</translation>
    </message>
    <message>
        <source>No update has installed anything yet.</source>
        <translation>Noch keine Aktualisierung hat etwas installiert.</translation>
    </message>
    <message>
        <source>Failed to get the installed updates.</source>
        <translation>Die installierten Aktualisierungen konnten nicht abgefragt werden.</translation>
    </message>
    <message>
        <source>Not the beginning of a version: %1</source>
        <translation>Kein Anfang einer Version: %1</translation>
    </message>
    <message>
        <source>Not a date in the future: %1</source>
        <translation>Kein Datum in der Zukunft: %1</translation>
    </message>
    <message>
        <source>%1 until %2</source>
        <translation>%1 bis %2</translation>
    </message>
    <message>
        <source>Failed to get the held packages.</source>
        <translation>Die festgehaltenen Pakete konnten nicht ermittelt werden.</translation>
    </message>
    <message>
        <source>Held packages: %1</source>
        <translation>Festgehaltene Pakete: %1</translation>
    </message>
    <message>
        <source>The package can&apos;t be held: %1</source>
        <translation>Das Paket kann nicht festgehalten werden: %1</translation>
    </message>
    <message>
        <source>The hold can&apos;t be ended: %1</source>
        <translation>Das Paket kann nicht freigegeben werden: %1</translation>
    </message>
    <message>
        <source>Not held: %1</source>
        <translation>Nicht festgehalten: %1</translation>
    </message>
    <message>
        <source>The channel can&apos;t be set: %1</source>
        <translation>Der Kanal kann nicht gewählt werden: %1</translation>
    </message>
    <message>
        <source>Failed to get the channel.</source>
        <translation>Der Kanal konnte nicht ermittelt werden.</translation>
    </message>
    <message>
        <source>Channel: %1</source>
        <translation>Kanal: %1</translation>
    </message>
    <message>
        <source> (on trial)</source>
        <translation> (auf Probe)</translation>
    </message>
    <message>
        <source> (current)</source>
        <translation> (aktuell)</translation>
    </message>
    <message>
        <source>Failed to get the generations.</source>
        <translation>Die Generationen konnten nicht ermittelt werden.</translation>
    </message>
    <message>
        <source>Nothing is installed.</source>
        <translation>Es ist nichts installiert.</translation>
    </message>
    <message>
        <source>Failed to get the refused packages.</source>
        <translation>Die abgelehnten Pakete konnten nicht ermittelt werden.</translation>
    </message>
    <message>
        <source>No package is refused.</source>
        <translation>Kein Paket ist abgelehnt.</translation>
    </message>
    <message>
        <source>The package was not accepted: %1</source>
        <translation>Das Paket wurde nicht zugelassen: %1</translation>
    </message>
    <message>
        <source>The package %1 may be installed again.</source>
        <translation>Das Paket %1 darf wieder installiert werden.</translation>
    </message>
    <message>
        <source>Not a number of a generation: %1</source>
        <translation>Keine Nummer einer Generation: %1</translation>
    </message>
    <message>
        <source>Cannot go back while the wizard is active.</source>
        <translation>Während der Assistent aktiv ist, kann nicht zurückgekehrt werden.</translation>
    </message>
    <message>
        <source>The packages were not changed: %1</source>
        <translation>Die Pakete wurden nicht geändert: %1</translation>
    </message>
    <message>
        <source>Generation %1 is in use.</source>
        <translation>Generation %1 ist in Gebrauch.</translation>
    </message>
    <message>
        <source>Not installed again until &quot;vkctl accept %1&quot;: %1 %2</source>
        <translation>Wird bis „vkctl accept %1“ nicht wieder installiert: %1 %2</translation>
    </message>
</context>
<context>
    <name>tarn::vkctl::Report</name>
    <message>
        <source>%1, lacks the security update %2</source>
        <translation>%1, die Sicherheitsaktualisierung %2 fehlt</translation>
    </message>
    <message>
        <source>sound</source>
        <translation>unversehrt</translation>
    </message>
    <message>
        <source>damaged</source>
        <translation>beschädigt</translation>
    </message>
    <message>
        <source>can&apos;t be proven</source>
        <translation>nicht prüfbar</translation>
    </message>
    <message>
        <source>not verified yet</source>
        <translation>noch nicht geprüft</translation>
    </message>
    <message>
        <source>is missing</source>
        <translation>fehlt</translation>
    </message>
    <message>
        <source>does not belong to the package</source>
        <translation>gehört nicht zum Paket</translation>
    </message>
    <message>
        <source>is of another kind</source>
        <translation>ist von anderer Art</translation>
    </message>
    <message>
        <source>has other permissions or another owner</source>
        <translation>hat andere Rechte oder einen anderen Eigentümer</translation>
    </message>
    <message>
        <source>has another size</source>
        <translation>hat eine andere Größe</translation>
    </message>
    <message>
        <source>has other content</source>
        <translation>hat einen anderen Inhalt</translation>
    </message>
    <message>
        <source>leads elsewhere</source>
        <translation>führt woandershin</translation>
    </message>
    <message>
        <source>can&apos;t be read</source>
        <translation>ist nicht lesbar</translation>
    </message>
    <message>
        <source>Last verification: %1</source>
        <translation>Letzte Prüfung: %1</translation>
    </message>
    <message>
        <source>never</source>
        <translation>nie</translation>
    </message>
    <message>
        <source>A verification waits for the end of the update.</source>
        <translation>Eine Prüfung wartet auf das Ende der Aktualisierung.</translation>
    </message>
    <message>
        <source>A verification is running.</source>
        <translation>Eine Prüfung läuft.</translation>
    </message>
    <message>
        <source>Installed packages: %1</source>
        <translation>Installierte Pakete: %1</translation>
    </message>
    <message>
        <source>Damaged: %1 in %2</source>
        <translation>Beschädigt: %1 in %2</translation>
    </message>
    <message>
        <source>  and %1 more</source>
        <translation>  und %1 weitere</translation>
    </message>
    <message>
        <source>Verified: %1 files, %2; packages: %3</source>
        <translation>Geprüft: %1 Dateien, %2; Pakete: %3</translation>
    </message>
    <message>
        <source>These packages have no index and can&apos;t be proven: %1</source>
        <translation>Diese Pakete haben keinen Index und sind nicht prüfbar: %1</translation>
    </message>
    <message>
        <source>The next update or &quot;vkctl repair&quot; installs the damaged packages again.</source>
        <translation>Die nächste Aktualisierung oder „vkctl repair“ installiert die beschädigten Pakete neu.</translation>
    </message>
    <message>
        <source>All files are as they were published.</source>
        <translation>Alle Dateien sind so, wie sie veröffentlicht wurden.</translation>
    </message>
    <message>
        <source>NAME</source>
        <translation>NAME</translation>
    </message>
    <message>
        <source>VERSION</source>
        <translation>VERSION</translation>
    </message>
    <message>
        <source>LANGUAGE</source>
        <translation>SPRACHE</translation>
    </message>
    <message>
        <source>SIZE</source>
        <translation>GRÖSSE</translation>
    </message>
    <message>
        <source>INSTALLED</source>
        <translation>INSTALLIERT</translation>
    </message>
    <message>
        <source>STATE</source>
        <translation>ZUSTAND</translation>
    </message>
    <message>
        <source>TITLE</source>
        <translation>TITEL</translation>
    </message>
</context>
<context>
    <name>tarn::vkctl::StatusSection</name>
    <message>
        <source>no security update</source>
        <translation>keine Sicherheitsaktualisierung</translation>
    </message>
    <message>
        <source>a security update, </source>
        <translation>eine Sicherheitsaktualisierung, </translation>
    </message>
    <message>
        <source>Updates install: security updates alone</source>
        <translation>Aktualisierungen installieren: nur Sicherheitsaktualisierungen</translation>
    </message>
    <message>
        <source>Security updates that are not installed: %1</source>
        <translation>Sicherheitsaktualisierungen, die nicht installiert sind: %1</translation>
    </message>
    <message>
        <source>held until %1</source>
        <translation>festgehalten bis %1</translation>
    </message>
    <message>
        <source>held</source>
        <translation>festgehalten</translation>
    </message>
    <message>
        <source>waits for its phase until %1</source>
        <translation>wartet auf seine Phase bis %1</translation>
    </message>
    <message>
        <source>stopped by its publisher</source>
        <translation>vom Herausgeber gestoppt</translation>
    </message>
    <message>
        <source>refused</source>
        <translation>abgelehnt</translation>
    </message>
    <message>
        <source>requires %1, which is left out</source>
        <translation>braucht %1, das ausgelassen wird</translation>
    </message>
    <message>
        <source>Left out by the last update: %1</source>
        <translation>Von der letzten Aktualisierung ausgelassen: %1</translation>
    </message>
    <message>
        <source>downloading</source>
        <translation>lädt herunter</translation>
    </message>
    <message>
        <source>verifying</source>
        <translation>prüft</translation>
    </message>
    <message>
        <source>waiting for applications to be closed</source>
        <translation>wartet, bis Anwendungen geschlossen sind</translation>
    </message>
    <message>
        <source>preparing the installation</source>
        <translation>bereitet die Installation vor</translation>
    </message>
    <message>
        <source>installing</source>
        <translation>installiert</translation>
    </message>
    <message>
        <source>removing old packages</source>
        <translation>entfernt alte Pakete</translation>
    </message>
    <message>
        <source>updating</source>
        <translation>aktualisiert</translation>
    </message>
    <message>
        <source>none, updates are suppressed</source>
        <translation>keine, Aktualisierungen sind ausgesetzt</translation>
    </message>
    <message>
        <source>none</source>
        <translation>keine</translation>
    </message>
    <message>
        <source>not known</source>
        <translation>nicht bekannt</translation>
    </message>
    <message>
        <source>%1, which is over</source>
        <translation>%1, das ist vorbei</translation>
    </message>
    <message>
        <source>Last update: %1</source>
        <translation>Letzte Aktualisierung: %1</translation>
    </message>
    <message>
        <source>never</source>
        <translation>nie</translation>
    </message>
    <message>
        <source>Result: %1</source>
        <translation>Ergebnis: %1</translation>
    </message>
    <message>
        <source>Last success: %1</source>
        <translation>Letzter Erfolg: %1</translation>
    </message>
    <message>
        <source>Next check: %1</source>
        <translation>Nächste Suche: %1</translation>
    </message>
    <message>
        <source>not scheduled</source>
        <translation>nicht geplant</translation>
    </message>
    <message>
        <source>Activity: %1</source>
        <translation>Tätigkeit: %1</translation>
    </message>
    <message>
        <source>Trusted metadata is valid until: %1</source>
        <translation>Vertraute Metadaten gelten bis: %1</translation>
    </message>
</context>
</TS>
