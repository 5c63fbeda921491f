<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>CMainWindow</name>
    <message>
        <source>Uninstall</source>
        <translation>Deinstallieren (Werkzeugkatalog)</translation>
    </message>
</context>
</TS>
