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
        <source>the output was created by another program in the meantime and was kept</source>
        <translation>die Ausgabedatei ist inzwischen entstanden und blieb erhalten</translation>
    </message>
    <message>
        <source>cannot be read</source>
        <translation>kann nicht gelesen werden</translation>
    </message>
    <message>
        <source>cannot be read as audio</source>
        <translation>kann nicht als Audio gelesen werden</translation>
    </message>
    <message>
        <source>Format not recognised.</source>
        <translation>Format nicht erkannt.</translation>
    </message>
    <message>
        <source>its format is not known</source>
        <translation>das Format ist nicht bekannt</translation>
    </message>
    <message>
        <source>has no sound</source>
        <translation>enthält keinen Ton</translation>
    </message>
    <message>
        <source>its sound cannot be decoded</source>
        <translation>der Ton lässt sich nicht dekodieren</translation>
    </message>
    <message>
        <source>it is damaged</source>
        <translation>die Datei ist beschädigt</translation>
    </message>
    <message>
        <source>it was changed while it was read, so nothing was written; give the same command again once it is complete</source>
        <translation>die Datei wurde währenddessen geändert, deshalb wurde nichts geschrieben; ist sie vollständig, dann bitte erneut versuchen</translation>
    </message>
    <message>
        <source>Permission denied</source>
        <translation>keine Berechtigung</translation>
    </message>
    <message>
        <source>No space left on device</source>
        <translation>kein Platz mehr auf dem Datenträger</translation>
    </message>
    <message>
        <source>Insufficient disk space for temporary files.</source>
        <translation>Der Platz für Zwischendateien reicht nicht.</translation>
    </message>
</context>
<context>
    <name>Dialogs</name>
    <message>
        <source>Recordings</source>
        <translation>Aufnahmen</translation>
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
        <source>Its recording has changed since, or the file came from somewhere else.</source>
        <translation>Die Aufnahme wurde seitdem geändert, oder die Datei stammt von woanders.</translation>
    </message>
    <message>
        <source>Their recordings have changed since, or the files came from somewhere else.</source>
        <translation>Die Aufnahmen wurden seitdem geändert, oder die Dateien stammen von woanders.</translation>
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
        <source>Where shall the leveled files go?</source>
        <translation>Wohin sollen die ausgeglichenen Dateien?</translation>
    </message>
    <message>
        <source>Nothing can be written to the folder “%1”.</source>
        <translation>In den Ordner „%1“ kann nichts geschrieben werden.</translation>
    </message>
    <message>
        <source>Choose Folder…</source>
        <translation>Ordner auswählen …</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Folder for the Leveled Files</source>
        <translation>Ordner für die ausgeglichenen Dateien</translation>
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
        <source>About Quorvane</source>
        <translation>Über Quorvane</translation>
    </message>
    <message>
        <source>Levels the loudness of spoken word.

Stands on Qt, FFmpeg, libsndfile, Boost, TagLib, fmt and JSON for Modern C++.</source>
        <translation>Gleicht die Lautheit gesprochener Sprache aus.

Beruht auf Qt, FFmpeg, libsndfile, Boost, TagLib, fmt und JSON for Modern C++.</translation>
    </message>
</context>
<context>
    <name>PreparationText</name>
    <message>
        <source>raised by %1 dB before leveling, its noise with it</source>
        <translation>vor dem Ausgleichen um %1 dB angehoben, das Rauschen mit</translation>
    </message>
    <message numerus="yes">
        <source>%n long pause(s) (%1 min) kept down</source>
        <translation>
            <numerusform>%n lange Pause (%1 min) bleibt leise</numerusform>
            <numerusform>%n lange Pausen (%1 min) bleiben leise</numerusform>
        </translation>
    </message>
    <message>
        <source>rumble louder than the voices taken out below 110 Hz</source>
        <translation>Rumpeln unter 110 Hz, das lauter war als die Stimmen, herausgefiltert</translation>
    </message>
    <message>
        <source>its background (music, noise or reverberation) is %1 dB under the quietest voice and comes up with it</source>
        <translation>der Hintergrund (Musik, Rauschen oder Hall) liegt %1 dB unter der leisesten Stimme und wird mit ihr lauter</translation>
    </message>
    <message>
        <source>even already, so it got one constant gain</source>
        <translation>schon gleichmäßig, deshalb nur mit einer festen Verstärkung</translation>
    </message>
    <message numerus="yes">
        <source>a gain for each of %n phrase(s)</source>
        <translation>
            <numerusform>eine Verstärkung für %n Satzteil</numerusform>
            <numerusform>je eine Verstärkung für %n Satzteile</numerusform>
        </translation>
    </message>
    <message>
        <source>dithered once, at the end</source>
        <translation>einmal gerundet, am Ende, mit Dither</translation>
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
    <message>
        <source>%1%</source>
        <comment>per cent</comment>
        <translation>%1 %</translation>
    </message>
    <message>
        <source>Leveling, %1</source>
        <translation>Wird ausgeglichen, %1</translation>
    </message>
    <message numerus="yes">
        <source>%n already leveled</source>
        <translation>
            <numerusform>%n bereits ausgeglichen</numerusform>
            <numerusform>%n bereits ausgeglichen</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n skipped</source>
        <translation>
            <numerusform>%n übersprungen</numerusform>
            <numerusform>%n übersprungen</numerusform>
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
