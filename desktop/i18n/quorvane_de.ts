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
    <name>FindingText</name>
    <message>
        <source>{value} % of the recording is clipped</source>
        <translation>{value} % der Aufnahme sind übersteuert</translation>
    </message>
    <message>
        <source>Repair it with a declipper first, then drop the repaired file here.</source>
        <translation>Zuerst mit einem Declipper reparieren, dann die reparierte Datei hier ablegen.</translation>
    </message>
    <message>
        <source>the {detail} side is silent</source>
        <translation>die {detail} Seite ist stumm</translation>
    </message>
    <message>
        <source>Make a mono file of the side that has sound in an editor, then drop that here.</source>
        <translation>In einem Editor aus der Seite mit Ton eine Monodatei machen und diese hier ablegen.</translation>
    </message>
    <message>
        <source>the {detail} side is {value} dB quieter than the other</source>
        <translation>die {detail} Seite ist {value} dB leiser als die andere</translation>
    </message>
    <message>
        <source>Bring both sides to one level in an editor, or make a mono file, then drop it here.</source>
        <translation>In einem Editor beide Seiten gleich laut oder eine Monodatei machen und diese hier ablegen.</translation>
    </message>
    <message>
        <source>the sides are out of phase; in mono {value} dB are lost</source>
        <translation>die Seiten sind gegenphasig; in Mono gehen {value} dB verloren</translation>
    </message>
    <message>
        <source>Invert one side in an editor, then drop the file here.</source>
        <translation>In einem Editor eine Seite umpolen, dann die Datei hier ablegen.</translation>
    </message>
    <message>
        <source>the wave lies {value} % of full scale off its zero line</source>
        <translation>die Welle liegt um {value} % der Vollaussteuerung neben der Nulllinie</translation>
    </message>
    <message>
        <source>mains hum ({detail}) is {against} the speech</source>
        <translation>Netzbrummen ({detail}) liegt {against} der Sprache</translation>
    </message>
    <message>
        <source>Take it out with a hum filter first, then drop the filtered file here.</source>
        <translation>Zuerst mit einem Brummfilter entfernen, dann die gefilterte Datei hier ablegen.</translation>
    </message>
    <message>
        <source>its noise is only {value} dB under the speech</source>
        <translation>das Rauschen liegt nur {value} dB unter der Sprache</translation>
    </message>
    <message>
        <source>Reduce the noise in an editor first, then drop that file here.</source>
        <translation>Zuerst in einem Editor das Rauschen verringern, dann diese Datei hier ablegen.</translation>
    </message>
    <message>
        <source>wind or rumble is {against} the speech</source>
        <translation>Wind oder Rumpeln liegt {against} der Sprache</translation>
    </message>
    <message>
        <source>it has {value} {unit} of long pauses</source>
        <translation>lange Pausen: {value} {unit}</translation>
    </message>
    <message>
        <source>Cut them in an editor if they are not meant.</source>
        <translation>In einem Editor herausschneiden, wenn sie nicht gewollt sind.</translation>
    </message>
    <message>
        <source>the sound breaks off or jumps at {value} places</source>
        <translation>der Ton setzt an {value} Stellen aus oder springt</translation>
    </message>
    <message>
        <source>Ask for the local recording of the speaker, or repair the places in an editor.</source>
        <translation>Die lokale Aufnahme der Person erbitten oder die Stellen in einem Editor reparieren.</translation>
    </message>
    <message>
        <source>another voice seems to spill in, {value} dB under the main one</source>
        <translation>eine andere Stimme scheint überzusprechen, {value} dB unter der Hauptstimme</translation>
    </message>
    <message>
        <source>Give all microphones of one talk together where you have them.</source>
        <translation>Alle Mikrofone eines Gesprächs zusammen geben, wenn es sie gibt.</translation>
    </message>
    <message>
        <source>music or another sound is {against} the voice</source>
        <translation>Musik oder ein anderer Klang liegt {against} der Stimme</translation>
    </message>
    <message>
        <source>Level the voice alone and add the music afterwards.</source>
        <translation>Die Stimme allein ausgleichen und die Musik danach hinzufügen.</translation>
    </message>
    <message>
        <source>the room is very reverberant ({value} s)</source>
        <translation>der Raum hallt stark ({value} s)</translation>
    </message>
    <message>
        <source>Reduce the reverberation in an editor first, if you can.</source>
        <translation>Zuerst in einem Editor den Hall verringern, wenn möglich.</translation>
    </message>
    <message>
        <source>its sound is stored at only {value} {unit}</source>
        <translation>der Ton ist mit nur {value} {unit} gespeichert</translation>
    </message>
    <message>
        <source>Level the original recording if there is one.</source>
        <translation>Die Originalaufnahme ausgleichen, wenn es sie gibt.</translation>
    </message>
    <message>
        <source>the {detail} is only {value} s long</source>
        <translation>{detail} nur {value} s lang</translation>
    </message>
    <message>
        <source>Join short clips before you level them.</source>
        <translation>Kurze Stücke vor dem Ausgleichen verbinden.</translation>
    </message>
    <message>
        <source>{value} {unit} of the sound is missing</source>
        <translation>{value} {unit} des Tons fehlen</translation>
    </message>
    <message>
        <source>Copy the file again from where it came from.</source>
        <translation>Die Datei noch einmal von ihrem Ursprung kopieren.</translation>
    </message>
    <message>
        <source>it was so quiet that it was raised by {value} dB</source>
        <translation>sie war so leise, dass sie um {value} dB angehoben wurde</translation>
    </message>
    <message>
        <source>Listen to the pauses; reduce their noise in an editor if it disturbs.</source>
        <translation>Die Pausen anhören; wenn ihr Rauschen stört, es in einem Editor verringern.</translation>
    </message>
    <message>
        <source>left</source>
        <translation>linke</translation>
    </message>
    <message>
        <source>right</source>
        <translation>rechte</translation>
    </message>
    <message>
        <source>recording</source>
        <translation>die Aufnahme ist</translation>
    </message>
    <message>
        <source>speech</source>
        <translation>die Sprache ist</translation>
    </message>
    <message>
        <source>%1 %2 under</source>
        <translation>%1 %2 unter</translation>
    </message>
    <message>
        <source>%1 %2 over</source>
        <translation>%1 %2 über</translation>
    </message>
    <message>
        <source>%1, and %2</source>
        <translation>%1, und %2</translation>
    </message>
    <message>
        <source>Too short to measure: needs 0.4 s.</source>
        <translation>Zu kurz zum Messen: nötig sind 0,4 s.</translation>
    </message>
    <message>
        <source>No speech found.</source>
        <translation>Keine Sprache gefunden.</translation>
    </message>
    <message>
        <source>Passages of speech are within %2 dB of each other, as before.</source>
        <translation>Die Passagen mit Sprache liegen wie zuvor innerhalb von %2 dB.</translation>
    </message>
    <message>
        <source>Passages of speech were within %1 dB of each other; now up to %2 dB apart.</source>
        <translation>Die Passagen mit Sprache lagen innerhalb von %1 dB; jetzt bis zu %2 dB auseinander.</translation>
    </message>
    <message>
        <source>Passages of speech were up to %1 dB apart; now within %2 dB.</source>
        <translation>Die Passagen mit Sprache lagen bis zu %1 dB auseinander; jetzt innerhalb von %2 dB.</translation>
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
        <source>Leveled, but: %1</source>
        <translation>Ausgeglichen, aber: %1</translation>
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
