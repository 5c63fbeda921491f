<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr_FR" sourcelanguage="en">
<context>
    <name>UninstallMainWindow</name>
    <message>
        <source>MainWindow</source>
        <translation>Fenêtre principale</translation>
    </message>
    <message>
        <source>Brisvnae Uninstall</source>
        <translation>Désinstaller Brisvane</translation>
    </message>
    <message>
        <source>Backup Keys</source>
        <translation>Sauvegarder les clés</translation>
    </message>
    <message>
        <source>uninstalling ...</source>
        <translation>Désinstallation en cours ...</translation>
    </message>
</context>
<context>
    <name>CMainWindow</name>
    <message>
        <source>Brisvane Uninstaller</source>
        <translation>Désinstallation de Brisvane</translation>
    </message>
    <message>
        <source>Uninstall</source>
        <translation>Désinstaller</translation>
    </message>
    <message>
        <source>This will uninstall Brisvane including all Spaces and user settings.</source>
        <translation>Brisvane sera désinstallé avec tous les Spaces et tous les réglages de l'utilisateur.</translation>
    </message>
    <message>
        <source>Backup</source>
        <translation>Sauvegarde</translation>
    </message>
    <message>
        <source>You will no be able to access your Spaces anymore</source>
        <translation>Vous ne pourrez plus accéder à vos Spaces</translation>
    </message>
    <message>
        <source>quiting Brisvane ...</source>
        <translation>Fermeture de Brisvane ...</translation>
    </message>
    <message>
        <source>backing up key file ...</source>
        <translation>Sauvegarde du fichier de clés ...</translation>
    </message>
    <message>
        <source>deleting configuration ...</source>
        <translation>Suppression de la configuration ...</translation>
    </message>
    <message>
        <source>deleting application data ...</source>
        <translation>Suppression des données de l'application ...</translation>
    </message>
    <message>
        <source>removing application bundle ...</source>
        <translation>Suppression du paquet de l'application ...</translation>
    </message>
    <message>
        <source>Uninstall successful.</source>
        <translation>Désinstallation réussie.</translation>
    </message>
    <message>
        <source>https://www.brisvane.com/redirector.php?lang=en&amp;page=uninstall</source>
        <translation>https://www.brisvane.com/redirector.php?lang=en&amp;page=uninstall</translation>
    </message>
    <message>
        <source>Unable to quit Brisvane.</source>
        <translation>Impossible de quitter Brisvane.</translation>
    </message>
    <message>
        <source>Unable to backup key files</source>
        <translation>Impossible de sauvegarder les fichiers de clés</translation>
    </message>
    <message>
        <source>Failed to delete %1.
Please delete by yourself.</source>
        <translation>Impossible de supprimer %1.
Veuillez le supprimer vous-même.</translation>
    </message>
    <message>
        <source>Unable to uninstall Brisvane</source>
        <translation>Impossible de désinstaller Brisvane</translation>
    </message>
    <message>
        <source>Another uninstall is running.</source>
        <translation>Une autre désinstallation est en cours.</translation>
    </message>
    <message>
        <source>not a folder, file or link</source>
        <translation>ni un dossier, ni un fichier, ni un lien</translation>
    </message>
    <message>
        <source>the copy differs from the original</source>
        <translation>la copie diffère de l'original</translation>
    </message>
    <message>
        <source>Permission denied</source>
        <translation>Permission non accordée</translation>
    </message>
    <message>
        <source>Operation not permitted</source>
        <translation>Opération non permise</translation>
    </message>
    <message>
        <source>No space left on device</source>
        <translation>Aucun espace disponible sur le périphérique</translation>
    </message>
    <message>
        <source>Read-only file system</source>
        <translation>Système de fichiers accessible en lecture seulement</translation>
    </message>
    <message>
        <source>Directory not empty</source>
        <translation>Le dossier n'est pas vide</translation>
    </message>
    <message>
        <source>No such file or directory</source>
        <translation>Aucun fichier ou dossier de ce type</translation>
    </message>
    <message>
        <source>Not a directory</source>
        <translation>N'est pas un dossier</translation>
    </message>
    <message>
        <source>Too many levels of symbolic links</source>
        <translation>Trop de niveaux de liens symboliques</translation>
    </message>
    <message>
        <source>Input/output error</source>
        <translation>Erreur d'entrée/sortie</translation>
    </message>
    <message>
        <source>deleting other files of Brisvane ...</source>
        <translation>Suppression des autres fichiers de Brisvane ...</translation>
    </message>
    <message>
        <source>en</source>
        <extracomment>The language of this catalogue as a locale name: sizes are written in its format.</extracomment>
        <translation>fr</translation>
    </message>
    <message>
        <source>Show Details</source>
        <translation>Afficher les détails</translation>
    </message>
    <message>
        <source>Hide Details</source>
        <translation>Masquer les détails</translation>
    </message>
    <message>
        <source>%1 will be freed</source>
        <translation>%1 seront libérés</translation>
    </message>
    <message>
        <source>Calculating…</source>
        <translation>Calcul en cours…</translation>
    </message>
    <message>
        <source>%1 freed.</source>
        <translation>%1 libérés.</translation>
    </message>
</context>
</TS>
