<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de" sourcelanguage="en">
<context>
    <name>tarn::vkc::ClientApplication</name>
    <message>
        <source>Failed to load file &quot;%1&quot;. Application will be terminated now.</source>
        <translation>Die Datei „%1“ konnte nicht geladen werden. Das Programm wird beendet.</translation>
    </message>
</context>
<context>
    <name>tarn::vkc::VKCApplication</name>
    <message>
        <source>Unknown option: &apos;%1&apos;</source>
        <translation>Unbekannte Option: „%1“</translation>
    </message>
    <message>
        <source>Option &apos;%1&apos; requires an argument</source>
        <translation>Die Option „%1“ braucht einen Wert</translation>
    </message>
    <message>
        <source>Invalid interval &apos;%1&apos;</source>
        <translation>Ungültiger Zeitabstand „%1“</translation>
    </message>
    <message>
        <source>Could not get installation log.</source>
        <translation>Das Installationsprotokoll konnte nicht gelesen werden.</translation>
    </message>
    <message>
        <source>Name: %1</source>
        <translation>Name: %1</translation>
    </message>
    <message>
        <source>Date: %1</source>
        <translation>Datum: %1</translation>
    </message>
    <message>
        <source>Version: %1</source>
        <translation>Version: %1</translation>
    </message>
    <message>
        <source>Status: %1</source>
        <translation>Status: %1</translation>
    </message>
    <message>
        <source>Install report: %1</source>
        <translation>Installationsbericht: %1</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>Warning</source>
        <translation>Warnung</translation>
    </message>
    <message>
        <source>Error</source>
        <translation>Fehler</translation>
    </message>
    <message>
        <source>Failed to get monitoring settings</source>
        <translation>Die Einstellungen der Überwachung konnten nicht abgefragt werden</translation>
    </message>
    <message>
        <source>Send event e-mails: %1</source>
        <translation>E-Mails zu Ereignissen senden: %1</translation>
    </message>
    <message>
        <source>When an update is performed: %1</source>
        <translation>Wenn eine Aktualisierung durchgeführt wurde: %1</translation>
    </message>
    <message>
        <source>When an update is overdue: %1</source>
        <translation>Wenn eine Aktualisierung überfällig ist: %1</translation>
    </message>
    <message>
        <source>When manual intervention is necessary: %1</source>
        <translation>Wenn jemand eingreifen muss: %1</translation>
    </message>
    <message>
        <source>Send summarized status e-mail: %1</source>
        <translation>Zusammenfassung des Zustands per E-Mail senden: %1</translation>
    </message>
    <message>
        <source>Only send on status changes: %1</source>
        <translation>Nur senden, wenn sich der Zustand geändert hat: %1</translation>
    </message>
    <message numerus="yes">
        <source>Send interval: %n day(s)</source>
        <translation>
            <numerusform>Sendeabstand: %n Tag</numerusform>
            <numerusform>Sendeabstand: %n Tage</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>An update is considered overdue after %n day(s)</source>
        <translation>
            <numerusform>Eine Aktualisierung gilt nach %n Tag als überfällig</numerusform>
            <numerusform>Eine Aktualisierung gilt nach %n Tagen als überfällig</numerusform>
        </translation>
    </message>
    <message>
        <source>Computer name: %1</source>
        <translation>Name des Rechners: %1</translation>
    </message>
    <message>
        <source>verified</source>
        <translation>bestätigt</translation>
    </message>
    <message>
        <source>Failed to update monitoring settings</source>
        <translation>Die Einstellungen der Überwachung konnten nicht geändert werden</translation>
    </message>
    <message>
        <source>The changes were successfully applied.</source>
        <translation>Die Änderungen wurden übernommen.</translation>
    </message>
    <message>
        <source>Invalid summary interval &apos;%1&apos;</source>
        <translation>Ungültiger Abstand der Zusammenfassungen „%1“</translation>
    </message>
    <message>
        <source>Invalid overdue tolerance &apos;%1&apos;</source>
        <translation>Ungültige Frist für überfällige Aktualisierungen „%1“</translation>
    </message>
    <message>
        <source>Invalid e-mail address &apos;%1&apos;</source>
        <translation>Ungültige E-Mail-Adresse „%1“</translation>
    </message>
    <message>
        <source>Manual updates</source>
        <translation>Aktualisierung von Hand</translation>
    </message>
    <message>
        <source>Update notification</source>
        <translation>Benachrichtigung über Aktualisierungen</translation>
    </message>
    <message>
        <source>Automatic updates</source>
        <translation>Automatische Aktualisierung</translation>
    </message>
    <message>
        <source>On user login</source>
        <translation>Bei der Anmeldung eines Benutzers</translation>
    </message>
    <message numerus="yes">
        <source>%n hour(s)</source>
        <translation>
            <numerusform>%n Stunde</numerusform>
            <numerusform>%n Stunden</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n day(s)</source>
        <translation>
            <numerusform>%n Tag</numerusform>
            <numerusform>%n Tage</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n week(s)</source>
        <translation>
            <numerusform>%n Woche</numerusform>
            <numerusform>%n Wochen</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n month(s)</source>
        <translation>
            <numerusform>%n Monat</numerusform>
            <numerusform>%n Monate</numerusform>
        </translation>
    </message>
    <message>
        <source>Failed to get current schedule parameters.</source>
        <translation>Der Zeitplan konnte nicht abgefragt werden.</translation>
    </message>
    <message>
        <source>Automatic installation mode: %1</source>
        <translation>Art der automatischen Installation: %1</translation>
    </message>
    <message>
        <source>Update period: %1</source>
        <translation>Zeitabstand der Aktualisierungen: %1</translation>
    </message>
    <message>
        <source>Next scheduled check: %1</source>
        <translation>Nächste geplante Prüfung: %1</translation>
    </message>
    <message>
        <source>Failed to update settings.</source>
        <translation>Die Einstellungen konnten nicht geändert werden.</translation>
    </message>
    <message>
        <source>Update notifications are not available on your operating system</source>
        <translation>Benachrichtigungen über Aktualisierungen gibt es auf diesem Betriebssystem nicht</translation>
    </message>
    <message>
        <source>Invalid mode &apos;%1&apos;</source>
        <translation>Ungültige Art „%1“</translation>
    </message>
    <message>
        <source>The interval &apos;login&apos; only works in the notification mode.</source>
        <translation>Der Zeitabstand „login“ ist nur für Benachrichtigungen möglich.</translation>
    </message>
    <message>
        <source>Invalid date for next update &apos;%1&apos;</source>
        <translation>Ungültiges Datum für die nächste Aktualisierung „%1“</translation>
    </message>
    <message>
        <source>NOTICE: the date &apos;%1&apos; is in the past and has been adjusted to &apos;%2&apos;</source>
        <translation>HINWEIS: Das Datum „%1“ liegt in der Vergangenheit und wurde auf „%2“ verlegt</translation>
    </message>
    <message>
        <source>Failed to get server list!</source>
        <translation>Die Serverliste konnte nicht abgefragt werden!</translation>
    </message>
    <message>
        <source>Invalid or unsupported URL: %1</source>
        <translation>Ungültige oder nicht unterstützte URL: %1</translation>
    </message>
    <message>
        <source>Address: %1</source>
        <translation>Adresse: %1</translation>
    </message>
    <message>
        <source>Username: %1</source>
        <translation>Benutzername: %1</translation>
    </message>
    <message>
        <source>Enabled: %1</source>
        <translation>Aktiviert: %1</translation>
    </message>
    <message>
        <source>Default server: %1</source>
        <translation>Standardserver: %1</translation>
    </message>
    <message>
        <source>Invalid server number %1.</source>
        <translation>Ungültige Servernummer %1.</translation>
    </message>
    <message>
        <source>Server name or number must be specified.</source>
        <translation>Name oder Nummer des Servers muss angegeben werden.</translation>
    </message>
    <message>
        <source>The server was enabled successfully.</source>
        <translation>Der Server wurde aktiviert.</translation>
    </message>
    <message>
        <source>Server address must be specified</source>
        <translation>Die Adresse des Servers muss angegeben werden</translation>
    </message>
    <message>
        <source>Server password:</source>
        <translation>Passwort für den Server:</translation>
    </message>
    <message>
        <source>Invalid server number %1</source>
        <translation>Ungültige Servernummer %1</translation>
    </message>
    <message>
        <source>Server name to match against must not be empty.</source>
        <translation>Der gesuchte Servername darf nicht leer sein.</translation>
    </message>
    <message>
        <source>The name &apos;%1&apos; does not uniquely identify a server.</source>
        <translation>Der Name „%1“ bezeichnet nicht genau einen Server.</translation>
    </message>
    <message>
        <source>Failed to query current server</source>
        <translation>Der eingestellte Server konnte nicht abgefragt werden</translation>
    </message>
    <message>
        <source>Default server: %1 (username=%2)</source>
        <translation>Standardserver: %1 (Benutzername=%2)</translation>
    </message>
    <message>
        <source>Failed to query proxy settings</source>
        <translation>Die Proxy-Einstellungen konnten nicht abgefragt werden</translation>
    </message>
    <message>
        <source>%1:%2 (username=%3)</source>
        <comment>%1 and %2 are the proxy host/port %3 is the username</comment>
        <translation>%1:%2 (Benutzername=%3)</translation>
    </message>
    <message>
        <source>disabled</source>
        <translation>abgeschaltet</translation>
    </message>
    <message>
        <source>Using operating system settings</source>
        <translation>Einstellungen des Betriebssystems</translation>
    </message>
    <message>
        <source>Proxy: %1</source>
        <translation>Proxy: %1</translation>
    </message>
    <message>
        <source>Failed to query the kdml data directory</source>
        <translation>Das KDML-Datenverzeichnis konnte nicht abgefragt werden</translation>
    </message>
    <message>
        <source>Data directory: %1</source>
        <translation>Datenverzeichnis: %1</translation>
    </message>
    <message>
        <source>Failed to query languages.</source>
        <translation>Die Sprachen konnten nicht abgefragt werden.</translation>
    </message>
    <message>
        <source>Application language: %1 (%2)</source>
        <translation>Sprache der Anwendungen: %1 (%2)</translation>
    </message>
    <message>
        <source>Data language: %1 (%2)</source>
        <translation>Sprache der Daten: %1 (%2)</translation>
    </message>
    <message>
        <source>Invalid application language &apos;%1&apos;</source>
        <translation>Ungültige Sprache der Anwendungen „%1“</translation>
    </message>
    <message>
        <source>Failed to set the application language</source>
        <translation>Die Sprache der Anwendungen konnte nicht eingestellt werden</translation>
    </message>
    <message>
        <source>Available application languages:</source>
        <translation>Mögliche Sprachen der Anwendungen:</translation>
    </message>
    <message>
        <source>Invalid data language &apos;%1&apos;</source>
        <translation>Ungültige Sprache der Daten „%1“</translation>
    </message>
    <message>
        <source>Failed to set the data language</source>
        <translation>Die Sprache der Daten konnte nicht eingestellt werden</translation>
    </message>
    <message>
        <source>Available data languages:</source>
        <translation>Mögliche Sprachen der Daten:</translation>
    </message>
    <message>
        <source>Failed to reload the service configuration</source>
        <translation>Der Dienst konnte seine Konfiguration nicht neu laden</translation>
    </message>
    <message>
        <source>Failed to update default server</source>
        <translation>Der Standardserver konnte nicht geändert werden</translation>
    </message>
    <message>
        <source>Invalid proxy mode %1</source>
        <translation>Ungültige Proxy-Art %1</translation>
    </message>
    <message>
        <source>Invalid proxy &apos;%1&apos;</source>
        <translation>Ungültiger Proxy „%1“</translation>
    </message>
    <message>
        <source>Proxy password:</source>
        <translation>Passwort für den Proxy:</translation>
    </message>
    <message>
        <source>Failed to update proxy settings</source>
        <translation>Die Proxy-Einstellungen konnten nicht geändert werden</translation>
    </message>
    <message>
        <source>Failed to set the kdml data directory</source>
        <translation>Das KDML-Datenverzeichnis konnte nicht eingestellt werden</translation>
    </message>
    <message>
        <source>Invalid argument to --config-var: &apos;%1&apos;</source>
        <translation>Ungültiger Wert für --config-var: „%1“</translation>
    </message>
    <message>
        <source>Failed to set configuration variable &apos;%1&apos;</source>
        <translation>Die Konfigurationsvariable „%1“ konnte nicht gesetzt werden</translation>
    </message>
    <message>
        <source>Automatic updates are not enabled.</source>
        <translation>Automatische Aktualisierungen sind nicht eingeschaltet.</translation>
    </message>
    <message>
        <source>Automatic updates are enabled but the service is currently not running.</source>
        <translation>Automatische Aktualisierungen sind eingeschaltet, aber der Dienst läuft zurzeit nicht.</translation>
    </message>
    <message>
        <source>never</source>
        <translation>noch nie</translation>
    </message>
    <message>
        <source>Last update: %1</source>
        <translation>Letzte Aktualisierung: %1</translation>
    </message>
    <message>
        <source>Last result: %1</source>
        <translation>Letztes Ergebnis: %1</translation>
    </message>
    <message>
        <source>Current status: %1</source>
        <translation>Zustand: %1</translation>
    </message>
    <message>
        <source>Current progress: %1</source>
        <translation>Fortschritt: %1</translation>
    </message>
    <message>
        <source>Cannot perform an update while the wizard is active.</source>
        <translation>Solange der Assistent arbeitet, ist keine Aktualisierung möglich.</translation>
    </message>
    <message>
        <source>Failed to start update</source>
        <translation>Die Aktualisierung konnte nicht gestartet werden</translation>
    </message>
    <message>
        <source>Update started</source>
        <translation>Die Aktualisierung läuft</translation>
    </message>
    <message>
        <source>Lost connection to the service</source>
        <translation>Die Verbindung zum Dienst ist abgebrochen</translation>
    </message>
    <message>
        <source>Update finished: %1</source>
        <translation>Aktualisierung beendet: %1</translation>
    </message>
    <message>
        <source>Aborting the installation process can lead to inconsistent installations. If you want to abort the update anyway, please press Ctrl-C again.</source>
        <translation>Ein Abbruch während der Installation kann zu einem uneinheitlichen Stand führen. Wenn Sie die Aktualisierung trotzdem abbrechen wollen, drücken Sie bitte noch einmal Strg-C.</translation>
    </message>
    <message>
        <source>Aborting update ...</source>
        <translation>Die Aktualisierung wird abgebrochen ...</translation>
    </message>
    <message>
        <source>Error:</source>
        <translation>Fehler:</translation>
    </message>
    <message>
        <source>Warning:</source>
        <translation>Warnung:</translation>
    </message>
    <message>
        <source>Information:</source>
        <translation>Information:</translation>
    </message>
    <message>
        <source>Password: </source>
        <translation>Passwort: </translation>
    </message>
    <message>
        <source>yes</source>
        <translation>ja</translation>
    </message>
    <message>
        <source>no</source>
        <translation>nein</translation>
    </message>
    <message>
        <source>Unknown command: %1</source>
        <translation>Unbekannter Befehl: %1</translation>
    </message>
    <message>
        <source>Unhandled argument &apos;%1&apos;</source>
        <translation>Überzähliges Argument „%1“</translation>
    </message>
    <message>
        <source>Connection to the service failed!</source>
        <translation>Die Verbindung zum Dienst ist fehlgeschlagen!</translation>
    </message>
    <message>
        <source>Please check the permissions of %1</source>
        <translation>Bitte prüfen Sie die Zugriffsrechte von %1</translation>
    </message>
    <message>
        <source>Cannot update settings while the service is active.</source>
        <translation>Solange der Dienst arbeitet, können Einstellungen nicht geändert werden.</translation>
    </message>
    <message>
        <source>Cannot update settings while the wizard is active.</source>
        <translation>Solange der Assistent arbeitet, können Einstellungen nicht geändert werden.</translation>
    </message>
    <message>
        <source>Details:</source>
        <translation>Einzelheiten:</translation>
    </message>
    <message>
        <source>Idle</source>
        <translation>Bereit</translation>
    </message>
    <message>
        <source>Updates are currently suppressed</source>
        <translation>Aktualisierungen sind zurzeit ausgesetzt</translation>
    </message>
    <message>
        <source>Update is in progress</source>
        <translation>Eine Aktualisierung läuft</translation>
    </message>
    <message>
        <source>Process is being aborted</source>
        <translation>Der Vorgang wird abgebrochen</translation>
    </message>
    <message>
        <source>An error occurred during the last update</source>
        <translation>Bei der letzten Aktualisierung ist ein Fehler aufgetreten</translation>
    </message>
    <message>
        <source>Downloading updates (%1% complete)</source>
        <translation>Aktualisierungen werden heruntergeladen (%1% fertig)</translation>
    </message>
    <message>
        <source>Verifying updates (%1% complete)</source>
        <translation>Aktualisierungen werden geprüft (%1% fertig)</translation>
    </message>
    <message>
        <source>Waiting for Tavo applications to be closed.</source>
        <translation>Es wird gewartet, bis die Tavo-Anwendungen geschlossen sind.</translation>
    </message>
    <message>
        <source>Preparing installation (%1% complete)</source>
        <translation>Die Installation wird vorbereitet (%1% fertig)</translation>
    </message>
    <message>
        <source>Installing updates (%1% complete)</source>
        <translation>Aktualisierungen werden installiert (%1% fertig)</translation>
    </message>
    <message>
        <source>Removing obsolete files (%1% complete)</source>
        <translation>Veraltete Dateien werden entfernt (%1% fertig)</translation>
    </message>
</context>
</TS>
