<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="it_IT" sourcelanguage="en">
<context>
    <name>UninstallMainWindow</name>
    <message>
        <source>MainWindow</source>
        <translation>Finestra principale</translation>
    </message>
    <message>
        <source>Brisvnae Uninstall</source>
        <translation>Disinstalla Brisvane</translation>
    </message>
    <message>
        <source>Backup Keys</source>
        <translation>Backup delle chiavi</translation>
    </message>
    <message>
        <source>uninstalling ...</source>
        <translation>Disinstallazione in corso ...</translation>
    </message>
</context>
<context>
    <name>CMainWindow</name>
    <message>
        <source>Brisvane Uninstaller</source>
        <translation>Disinstallazione di Brisvane</translation>
    </message>
    <message>
        <source>Uninstall</source>
        <translation>Disinstalla</translation>
    </message>
    <message>
        <source>This will uninstall Brisvane including all Spaces and user settings.</source>
        <translation>Brisvane verrà disinstallato insieme a tutti gli Spaces e alle impostazioni utente.</translation>
    </message>
    <message>
        <source>Backup</source>
        <translation>Backup</translation>
    </message>
    <message>
        <source>You will no be able to access your Spaces anymore</source>
        <translation>Non potrà più accedere ai suoi Spaces</translation>
    </message>
    <message>
        <source>quiting Brisvane ...</source>
        <translation>Chiusura di Brisvane ...</translation>
    </message>
    <message>
        <source>backing up key file ...</source>
        <translation>Backup del file delle chiavi ...</translation>
    </message>
    <message>
        <source>deleting configuration ...</source>
        <translation>Eliminazione della configurazione ...</translation>
    </message>
    <message>
        <source>deleting application data ...</source>
        <translation>Eliminazione dei dati dell'applicazione ...</translation>
    </message>
    <message>
        <source>removing application bundle ...</source>
        <translation>Rimozione del pacchetto dell'applicazione ...</translation>
    </message>
    <message>
        <source>Uninstall successful.</source>
        <translation>Disinstallazione completata.</translation>
    </message>
    <message>
        <source>https://www.brisvane.com/redirector.php?lang=en&amp;page=uninstall</source>
        <translation>https://www.brisvane.com/redirector.php?lang=en&amp;page=uninstall</translation>
    </message>
    <message>
        <source>Unable to quit Brisvane.</source>
        <translation>Impossibile chiudere Brisvane.</translation>
    </message>
    <message>
        <source>Unable to backup key files</source>
        <translation>Impossibile eseguire il backup dei file delle chiavi</translation>
    </message>
    <message>
        <source>Failed to delete %1.
Please delete by yourself.</source>
        <translation>Impossibile eliminare %1.
Eliminarlo manualmente.</translation>
    </message>
    <message>
        <source>Unable to uninstall Brisvane</source>
        <translation>Impossibile disinstallare Brisvane</translation>
    </message>
    <message>
        <source>Another uninstall is running.</source>
        <translation>È in corso un'altra disinstallazione.</translation>
    </message>
    <message>
        <source>not a folder, file or link</source>
        <translation>non è una cartella, un file o un collegamento</translation>
    </message>
    <message>
        <source>the copy differs from the original</source>
        <translation>la copia è diversa dall'originale</translation>
    </message>
    <message>
        <source>Permission denied</source>
        <translation>Permesso negato</translation>
    </message>
    <message>
        <source>Operation not permitted</source>
        <translation>Operazione non permessa</translation>
    </message>
    <message>
        <source>No space left on device</source>
        <translation>Spazio esaurito sul dispositivo</translation>
    </message>
    <message>
        <source>Read-only file system</source>
        <translation>File system in sola lettura</translation>
    </message>
    <message>
        <source>Directory not empty</source>
        <translation>Cartella non vuota</translation>
    </message>
    <message>
        <source>No such file or directory</source>
        <translation>File o cartella inesistente</translation>
    </message>
    <message>
        <source>Not a directory</source>
        <translation>Non è una cartella</translation>
    </message>
    <message>
        <source>Too many levels of symbolic links</source>
        <translation>Troppi livelli di collegamenti simbolici</translation>
    </message>
    <message>
        <source>Input/output error</source>
        <translation>Errore di input/output</translation>
    </message>
    <message>
        <source>deleting other files of Brisvane ...</source>
        <translation>Eliminazione degli altri file di Brisvane ...</translation>
    </message>
    <message>
        <source>en</source>
        <extracomment>The language of this catalogue as a locale name: sizes are written in its format.</extracomment>
        <translation>it</translation>
    </message>
    <message>
        <source>Show Details</source>
        <translation>Mostra dettagli</translation>
    </message>
    <message>
        <source>Hide Details</source>
        <translation>Nascondi dettagli</translation>
    </message>
    <message>
        <source>%1 will be freed</source>
        <translation>Verranno liberati %1</translation>
    </message>
    <message>
        <source>Calculating…</source>
        <translation>Calcolo in corso…</translation>
    </message>
    <message>
        <source>%1 freed.</source>
        <translation>%1 liberati.</translation>
    </message>
</context>
</TS>
