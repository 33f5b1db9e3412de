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
        <source>Show the installed packages and what is known about their files</source>
        <translation>Zeigt die installierten Pakete und was über ihre Dateien bekannt ist</translation>
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
        <source>Failed to start the verification.</source>
        <translation>Die Prüfung konnte nicht gestartet werden.</translation>
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
        <source>The package was not accepted; perhaps an update is running.</source>
        <translation>Das Paket wurde nicht zugelassen; vielleicht läuft eine Aktualisierung.</translation>
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
        <source>The packages were not changed; perhaps an update is running.</source>
        <translation>Die Pakete wurden nicht geändert; vielleicht läuft eine Aktualisierung.</translation>
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
</context>
</TS>
