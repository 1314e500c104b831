<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de">
<context>
    <name>Cause</name>
    <message>
        <source>silent</source>
        <translation>still</translation>
    </message>
    <message>
        <source>every sample is the same</source>
        <translation>jeder Abtastwert ist gleich</translation>
    </message>
    <message>
        <source>shorter than 0.05 s</source>
        <translation>kürzer als 0,05 s</translation>
    </message>
    <message>
        <source>does not exist</source>
        <translation>existiert nicht</translation>
    </message>
    <message>
        <source>holds no audio file to level</source>
        <translation>enthält keine Audiodatei</translation>
    </message>
    <message>
        <source>already leveled</source>
        <translation>bereits ausgeglichen</translation>
    </message>
    <message>
        <source>not supported</source>
        <translation>nicht unterstützt</translation>
    </message>
    <message>
        <source>its output exists</source>
        <translation>die Ausgabedatei existiert bereits</translation>
    </message>
    <message>
        <source>the output came to exist meanwhile and was kept</source>
        <translation>die Ausgabedatei ist inzwischen entstanden und blieb erhalten</translation>
    </message>
</context>
<context>
    <name>Words</name>
    <message>
        <source>Leveled</source>
        <translation>Ausgeglichen</translation>
    </message>
    <message>
        <source>Leveled; note: %1</source>
        <translation>Ausgeglichen; Hinweis: %1</translation>
    </message>
    <message>
        <source>Copied unchanged: %1</source>
        <translation>Unverändert kopiert: %1</translation>
    </message>
    <message>
        <source>Failed: %1</source>
        <translation>Fehlgeschlagen: %1</translation>
    </message>
    <message>
        <source>Cancelled</source>
        <translation>Abgebrochen</translation>
    </message>
    <message>
        <source>Waiting</source>
        <translation>Wartet</translation>
    </message>
    <message>
        <source>Leveling, %1 %</source>
        <translation>Wird ausgeglichen, %1 %</translation>
    </message>
    <message>
        <source>Range %1 LU</source>
        <translation>Umfang %1 LU</translation>
    </message>
    <message>
        <source>less than a minute left</source>
        <translation>noch weniger als eine Minute</translation>
    </message>
    <message numerus="yes">
        <source>%n minute(s) left</source>
        <translation>
            <numerusform>noch %n Minute</numerusform>
            <numerusform>noch %n Minuten</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n hour(s) left</source>
        <translation>
            <numerusform>noch %n Stunde</numerusform>
            <numerusform>noch %n Stunden</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n leveled</source>
        <translation>
            <numerusform>%n ausgeglichen</numerusform>
            <numerusform>%n ausgeglichen</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n copied unchanged</source>
        <translation>
            <numerusform>%n unverändert kopiert</numerusform>
            <numerusform>%n unverändert kopiert</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n passed over</source>
        <translation>
            <numerusform>%n übergangen</numerusform>
            <numerusform>%n übergangen</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n failed</source>
        <translation>
            <numerusform>%n fehlgeschlagen</numerusform>
            <numerusform>%n fehlgeschlagen</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n cancelled</source>
        <translation>
            <numerusform>%n abgebrochen</numerusform>
            <numerusform>%n abgebrochen</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>desktop::DropView</name>
    <message>
        <source>Drop files here</source>
        <translation>Dateien hierher ziehen</translation>
    </message>
    <message>
        <source>Progress</source>
        <translation>Fortschritt</translation>
    </message>
    <message>
        <source>Choose Files…</source>
        <translation>Dateien auswählen …</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Try Again</source>
        <translation>Erneut versuchen</translation>
    </message>
    <message>
        <source>Play</source>
        <translation>Abspielen</translation>
    </message>
    <message>
        <source>Show in Folder</source>
        <translation>Im Ordner anzeigen</translation>
    </message>
    <message>
        <source>Report</source>
        <translation>Bericht</translation>
    </message>
    <message>
        <source>Searching…</source>
        <translation>Suche …</translation>
    </message>
    <message>
        <source>Drop recordings here</source>
        <translation>Aufnahmen hierher ziehen</translation>
    </message>
    <message>
        <source>Files or whole folders. Each recording gets a leveled copy beside it.</source>
        <translation>Dateien oder ganze Ordner. Neben jeder Aufnahme entsteht eine ausgeglichene Kopie.</translation>
    </message>
</context>
<context>
    <name>desktop::FileView</name>
    <message>
        <source>Files</source>
        <translation>Dateien</translation>
    </message>
</context>
<context>
    <name>desktop::MainWindow</name>
    <message>
        <source>Recordings</source>
        <translation>Aufnahmen</translation>
    </message>
    <message>
        <source>Play</source>
        <translation>Abspielen</translation>
    </message>
    <message>
        <source>Show in Folder</source>
        <translation>Im Ordner anzeigen</translation>
    </message>
    <message>
        <source>Report</source>
        <translation>Bericht</translation>
    </message>
    <message>
        <source>Try Again</source>
        <translation>Erneut versuchen</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Remove from List</source>
        <translation>Aus der Liste entfernen</translation>
    </message>
    <message>
        <source>Open Files…</source>
        <translation>Dateien öffnen …</translation>
    </message>
    <message>
        <source>Open Folder…</source>
        <translation>Ordner öffnen …</translation>
    </message>
    <message>
        <source>Paste</source>
        <translation>Einfügen</translation>
    </message>
    <message>
        <source>Clear Finished</source>
        <translation>Fertige entfernen</translation>
    </message>
    <message>
        <source>About Quorvane</source>
        <translation>Über Quorvane</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <source>Menu</source>
        <translation>Menü</translation>
    </message>
    <message>
        <source>Add Files…</source>
        <translation>Dateien hinzufügen …</translation>
    </message>
    <message>
        <source>Overall progress</source>
        <translation>Gesamtfortschritt</translation>
    </message>
    <message>
        <source>Cancel All</source>
        <translation>Alle abbrechen</translation>
    </message>
    <message>
        <source>%1 % – Quorvane</source>
        <translation>%1 % – Quorvane</translation>
    </message>
    <message>
        <source>Searching…</source>
        <translation>Suche …</translation>
    </message>
    <message>
        <source>%1 of %2 files</source>
        <translation>%1 von %2 Dateien</translation>
    </message>
    <message>
        <source>Not a file of this computer: %1</source>
        <translation>Keine Datei dieses Computers: %1</translation>
    </message>
    <message>
        <source>Stop leveling and quit?</source>
        <translation>Ausgleichen abbrechen und beenden?</translation>
    </message>
    <message>
        <source>Files that are not finished get no leveled copy.</source>
        <translation>Unfertige Dateien erhalten keine ausgeglichene Kopie.</translation>
    </message>
    <message>
        <source>Stop and Quit</source>
        <translation>Abbrechen und beenden</translation>
    </message>
    <message>
        <source>Keep Leveling</source>
        <translation>Weiter ausgleichen</translation>
    </message>
    <message>
        <source>“%1” exists already.</source>
        <translation>„%1“ existiert bereits.</translation>
    </message>
    <message numerus="yes">
        <source>%n leveled files exist already.</source>
        <translation>
            <numerusform>%n ausgeglichene Datei existiert bereits.</numerusform>
            <numerusform>%n ausgeglichene Dateien existieren bereits.</numerusform>
        </translation>
    </message>
    <message>
        <source>It is older than its recording, or something else.</source>
        <translation>Sie ist älter als ihre Aufnahme oder etwas anderes.</translation>
    </message>
    <message>
        <source>They are older than their recordings, or something else.</source>
        <translation>Sie sind älter als ihre Aufnahmen oder etwas anderes.</translation>
    </message>
    <message>
        <source>Replace</source>
        <translation>Ersetzen</translation>
    </message>
    <message>
        <source>Keep Both</source>
        <translation>Beide behalten</translation>
    </message>
    <message>
        <source>Skip</source>
        <translation>Überspringen</translation>
    </message>
    <message>
        <source>“%1” cannot be written. Where shall the leveled files go?</source>
        <translation>„%1“ ist nicht beschreibbar. Wohin mit den ausgeglichenen Dateien?</translation>
    </message>
    <message>
        <source>Choose Recordings</source>
        <translation>Aufnahmen auswählen</translation>
    </message>
    <message>
        <source>All files (*)</source>
        <translation>Alle Dateien (*)</translation>
    </message>
    <message>
        <source>Choose a Folder of Recordings</source>
        <translation>Ordner mit Aufnahmen auswählen</translation>
    </message>
    <message>
        <source>No program was found to play %1.</source>
        <translation>Es wurde kein Programm gefunden, das %1 abspielt.</translation>
    </message>
    <message>
        <source>There is nothing to report yet.</source>
        <translation>Noch gibt es nichts zu berichten.</translation>
    </message>
    <message>
        <source>No program was found to show %1.</source>
        <translation>Es wurde kein Programm gefunden, das %1 zeigt.</translation>
    </message>
    <message>
        <source>The report could not be written: %1</source>
        <translation>Der Bericht konnte nicht geschrieben werden: %1</translation>
    </message>
    <message>
        <source>Levels the loudness of spoken word.

Stands on Qt, libsndfile, Boost, TagLib, libebur128, fmt and JSON for Modern C++.</source>
        <translation>Gleicht die Lautheit gesprochener Sprache aus.

Baut auf Qt, libsndfile, Boost, TagLib, libebur128, fmt und JSON for Modern C++.</translation>
    </message>
    <message>
        <source>Not audio, left out: %1</source>
        <translation>Kein Audio, ausgelassen: %1</translation>
    </message>
    <message numerus="yes">
        <source> and %n more</source>
        <translation>
            <numerusform> und %n weitere</numerusform>
            <numerusform> und %n weitere</numerusform>
        </translation>
    </message>
    <message>
        <source>Quorvane has finished</source>
        <translation>Quorvane ist fertig</translation>
    </message>
</context>
<context>
    <name>desktop::MessageBar</name>
    <message>
        <source>Close this message</source>
        <translation>Diese Meldung schließen</translation>
    </message>
</context>
<context>
    <name>desktop::RowDelegate</name>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Show in Folder</source>
        <translation>Im Ordner anzeigen</translation>
    </message>
</context>
</TS>
