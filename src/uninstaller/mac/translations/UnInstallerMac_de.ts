<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE" sourcelanguage="en">
<context>
    <name>UninstallMainWindow</name>
    <message>
        <source>MainWindow</source>
        <translation>Hauptfenster</translation>
    </message>
    <message>
        <source>Brisvnae Uninstall</source>
        <translation>Brisvane deinstallieren</translation>
    </message>
    <message>
        <source>Backup Keys</source>
        <translation>Schlüssel sichern</translation>
    </message>
    <message>
        <source>uninstalling ...</source>
        <translation>Deinstallation läuft ...</translation>
    </message>
</context>
<context>
    <name>CMainWindow</name>
    <message>
        <source>Brisvane Uninstaller</source>
        <translation>Brisvane-Deinstallation</translation>
    </message>
    <message>
        <source>Uninstall</source>
        <translation>Deinstallieren</translation>
    </message>
    <message>
        <source>This will uninstall Brisvane including all Spaces and user settings.</source>
        <translation>Brisvane wird mitsamt allen Spaces und Benutzereinstellungen deinstalliert.</translation>
    </message>
    <message>
        <source>Backup</source>
        <translation>Sicherung</translation>
    </message>
    <message>
        <source>You will no be able to access your Spaces anymore</source>
        <translation>Sie können danach nicht mehr auf Ihre Spaces zugreifen</translation>
    </message>
    <message>
        <source>quiting Brisvane ...</source>
        <translation>Brisvane wird beendet ...</translation>
    </message>
    <message>
        <source>backing up key file ...</source>
        <translation>Schlüsseldatei wird gesichert ...</translation>
    </message>
    <message>
        <source>deleting configuration ...</source>
        <translation>Konfiguration wird gelöscht ...</translation>
    </message>
    <message>
        <source>deleting application data ...</source>
        <translation>Programmdaten werden gelöscht ...</translation>
    </message>
    <message>
        <source>removing application bundle ...</source>
        <translation>Programmpaket wird entfernt ...</translation>
    </message>
    <message>
        <source>Uninstall successful.</source>
        <translation>Deinstallation erfolgreich.</translation>
    </message>
    <message>
        <source>https://www.brisvane.com/redirector.php?lang=en&amp;page=uninstall</source>
        <translation>https://www.brisvane.com/redirector.php?lang=en&amp;page=uninstall</translation>
    </message>
    <message>
        <source>Unable to quit Brisvane.</source>
        <translation>Brisvane konnte nicht beendet werden.</translation>
    </message>
    <message>
        <source>Unable to backup key files</source>
        <translation>Die Schlüsseldateien konnten nicht gesichert werden</translation>
    </message>
    <message>
        <source>Failed to delete %1.
Please delete by yourself.</source>
        <translation>Löschen fehlgeschlagen: %1
Bitte selbst löschen.</translation>
    </message>
    <message>
        <source>Unable to uninstall Brisvane</source>
        <translation>Brisvane konnte nicht deinstalliert werden</translation>
    </message>
    <message>
        <source>Another uninstall is running.</source>
        <translation>Eine andere Deinstallation läuft bereits.</translation>
    </message>
    <message>
        <source>not a folder, file or link</source>
        <translation>weder Ordner noch Datei noch Verknüpfung</translation>
    </message>
    <message>
        <source>the copy differs from the original</source>
        <translation>die Kopie weicht vom Original ab</translation>
    </message>
    <message>
        <source>Permission denied</source>
        <translation>Keine Berechtigung</translation>
    </message>
    <message>
        <source>Operation not permitted</source>
        <translation>Vorgang nicht zulässig</translation>
    </message>
    <message>
        <source>No space left on device</source>
        <translation>Auf dem Gerät ist kein Speicherplatz mehr verfügbar</translation>
    </message>
    <message>
        <source>Read-only file system</source>
        <translation>Dateisystem ist nur lesbar</translation>
    </message>
    <message>
        <source>Directory not empty</source>
        <translation>Verzeichnis nicht leer</translation>
    </message>
    <message>
        <source>No such file or directory</source>
        <translation>Datei oder Verzeichnis nicht gefunden</translation>
    </message>
    <message>
        <source>Not a directory</source>
        <translation>Ist kein Verzeichnis</translation>
    </message>
    <message>
        <source>Too many levels of symbolic links</source>
        <translation>Zu viele Ebenen aus symbolischen Links</translation>
    </message>
    <message>
        <source>Input/output error</source>
        <translation>Eingabe-/Ausgabefehler</translation>
    </message>
    <message>
        <source>deleting other files of Brisvane ...</source>
        <translation>Weitere Dateien von Brisvane werden gelöscht ...</translation>
    </message>
    <message>
        <source>en</source>
        <extracomment>The language of this catalogue as a locale name: sizes are written in its format.</extracomment>
        <translation>de</translation>
    </message>
    <message>
        <source>Show Details</source>
        <translation>Details einblenden</translation>
    </message>
    <message>
        <source>Hide Details</source>
        <translation>Details ausblenden</translation>
    </message>
    <message>
        <source>%1 will be freed</source>
        <translation>%1 werden freigegeben</translation>
    </message>
    <message>
        <source>Calculating…</source>
        <translation>Wird berechnet…</translation>
    </message>
    <message>
        <source>%1 freed.</source>
        <translation>%1 freigegeben.</translation>
    </message>
</context>
</TS>
