<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="es_ES" sourcelanguage="en">
<context>
    <name>UninstallMainWindow</name>
    <message>
        <source>MainWindow</source>
        <translation>Ventana principal</translation>
    </message>
    <message>
        <source>Brisvnae Uninstall</source>
        <translation>Desinstalar Brisvane</translation>
    </message>
    <message>
        <source>Backup Keys</source>
        <translation>Copia de seguridad de las claves</translation>
    </message>
    <message>
        <source>uninstalling ...</source>
        <translation>Desinstalando ...</translation>
    </message>
</context>
<context>
    <name>CMainWindow</name>
    <message>
        <source>Brisvane Uninstaller</source>
        <translation>Desinstalador de Brisvane</translation>
    </message>
    <message>
        <source>Uninstall</source>
        <translation>Desinstalar</translation>
    </message>
    <message>
        <source>This will uninstall Brisvane including all Spaces and user settings.</source>
        <translation>Se desinstalará Brisvane con todos los Spaces y los ajustes del usuario.</translation>
    </message>
    <message>
        <source>Backup</source>
        <translation>Copia de seguridad</translation>
    </message>
    <message>
        <source>You will no be able to access your Spaces anymore</source>
        <translation>Ya no podrá acceder a sus Spaces</translation>
    </message>
    <message>
        <source>quiting Brisvane ...</source>
        <translation>Cerrando Brisvane ...</translation>
    </message>
    <message>
        <source>backing up key file ...</source>
        <translation>Copiando el archivo de claves ...</translation>
    </message>
    <message>
        <source>deleting configuration ...</source>
        <translation>Eliminando la configuración ...</translation>
    </message>
    <message>
        <source>deleting application data ...</source>
        <translation>Eliminando los datos de la aplicación ...</translation>
    </message>
    <message>
        <source>removing application bundle ...</source>
        <translation>Eliminando el paquete de la aplicación ...</translation>
    </message>
    <message>
        <source>Uninstall successful.</source>
        <translation>Desinstalación completada.</translation>
    </message>
    <message>
        <source>https://www.brisvane.com/redirector.php?lang=en&amp;page=uninstall</source>
        <translation>https://www.brisvane.com/redirector.php?lang=en&amp;page=uninstall</translation>
    </message>
    <message>
        <source>Unable to quit Brisvane.</source>
        <translation>No se pudo cerrar Brisvane.</translation>
    </message>
    <message>
        <source>Unable to backup key files</source>
        <translation>No se pudo hacer una copia de seguridad de los archivos de claves</translation>
    </message>
    <message>
        <source>Failed to delete %1.
Please delete by yourself.</source>
        <translation>No se pudo eliminar %1.
Elimínelo usted mismo.</translation>
    </message>
    <message>
        <source>Unable to uninstall Brisvane</source>
        <translation>No se pudo desinstalar Brisvane</translation>
    </message>
    <message>
        <source>Another uninstall is running.</source>
        <translation>Hay otra desinstalación en curso.</translation>
    </message>
    <message>
        <source>not a folder, file or link</source>
        <translation>no es una carpeta, un archivo ni un enlace</translation>
    </message>
    <message>
        <source>the copy differs from the original</source>
        <translation>la copia difiere del original</translation>
    </message>
    <message>
        <source>Permission denied</source>
        <translation>Permiso denegado</translation>
    </message>
    <message>
        <source>Operation not permitted</source>
        <translation>Operación no permitida</translation>
    </message>
    <message>
        <source>No space left on device</source>
        <translation>No queda espacio en el dispositivo</translation>
    </message>
    <message>
        <source>Read-only file system</source>
        <translation>Sistema de archivos de solo lectura</translation>
    </message>
    <message>
        <source>Directory not empty</source>
        <translation>La carpeta no está vacía</translation>
    </message>
    <message>
        <source>No such file or directory</source>
        <translation>No existe el archivo o la carpeta</translation>
    </message>
    <message>
        <source>Not a directory</source>
        <translation>No es una carpeta</translation>
    </message>
    <message>
        <source>Too many levels of symbolic links</source>
        <translation>Demasiados niveles de enlaces simbólicos</translation>
    </message>
    <message>
        <source>Input/output error</source>
        <translation>Error de entrada/salida</translation>
    </message>
    <message>
        <source>deleting other files of Brisvane ...</source>
        <translation>Eliminando otros archivos de Brisvane ...</translation>
    </message>
    <message>
        <source>en</source>
        <extracomment>The language of this catalogue as a locale name: sizes are written in its format.</extracomment>
        <translation>es</translation>
    </message>
    <message>
        <source>Show Details</source>
        <translation>Mostrar detalles</translation>
    </message>
    <message>
        <source>Hide Details</source>
        <translation>Ocultar detalles</translation>
    </message>
    <message>
        <source>%1 will be freed</source>
        <translation>Se liberarán %1</translation>
    </message>
    <message>
        <source>Calculating…</source>
        <translation>Calculando…</translation>
    </message>
    <message>
        <source>%1 freed.</source>
        <translation>%1 liberados.</translation>
    </message>
</context>
</TS>
