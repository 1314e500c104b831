<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
    <context>
        <name>PreparationText</name>
        <message numerus="yes">
            <source>%n long pause(s) (%1 min) kept down</source>
            <translation>
                <numerusform>%n long pause (%1 min) kept down</numerusform>
                <numerusform>%n long pauses (%1 min) kept down</numerusform>
            </translation>
        </message>
        <message numerus="yes">
            <source>a gain for each of %n phrase(s)</source>
            <translation>
                <numerusform>a gain for each of %n phrase</numerusform>
                <numerusform>a gain for each of %n phrases</numerusform>
            </translation>
        </message>
    </context>
    <context>
        <name>Words</name>
        <message numerus="yes">
            <source>%n minute(s) left</source>
            <translation>
                <numerusform>%n minute left</numerusform>
                <numerusform>%n minutes left</numerusform>
            </translation>
        </message>
        <message numerus="yes">
            <source>%n hour(s) left</source>
            <translation>
                <numerusform>%n hour left</numerusform>
                <numerusform>%n hours left</numerusform>
            </translation>
        </message>
        <message numerus="yes">
            <source>%n leveled</source>
            <translation>
                <numerusform>%n leveled</numerusform>
                <numerusform>%n leveled</numerusform>
            </translation>
        </message>
        <message numerus="yes">
            <source>%n copied unchanged</source>
            <translation>
                <numerusform>%n copied unchanged</numerusform>
                <numerusform>%n copied unchanged</numerusform>
            </translation>
        </message>
        <message numerus="yes">
            <source>%n already leveled</source>
            <translation>
                <numerusform>%n already leveled</numerusform>
                <numerusform>%n already leveled</numerusform>
            </translation>
        </message>
        <message numerus="yes">
            <source>%n skipped</source>
            <translation>
                <numerusform>%n skipped</numerusform>
                <numerusform>%n skipped</numerusform>
            </translation>
        </message>
        <message numerus="yes">
            <source>%n failed</source>
            <translation>
                <numerusform>%n failed</numerusform>
                <numerusform>%n failed</numerusform>
            </translation>
        </message>
        <message numerus="yes">
            <source>%n cancelled</source>
            <translation>
                <numerusform>%n cancelled</numerusform>
                <numerusform>%n cancelled</numerusform>
            </translation>
        </message>
    </context>
    <context>
        <name>Dialogs</name>
        <message numerus="yes">
            <source>%n leveled files exist already.</source>
            <translation>
                <numerusform>%n leveled file exists already.</numerusform>
                <numerusform>%n leveled files exist already.</numerusform>
            </translation>
        </message>
    </context>
    <context>
        <name>desktop::MainWindow</name>
        <message numerus="yes">
            <source> and %n more</source>
            <translation>
                <numerusform> and %n more</numerusform>
                <numerusform> and %n more</numerusform>
            </translation>
        </message>
    </context>
</TS>
