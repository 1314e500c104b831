<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
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
            <source>%n passed over</source>
            <translation>
                <numerusform>%n passed over</numerusform>
                <numerusform>%n passed over</numerusform>
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
        <name>desktop::MainWindow</name>
        <message numerus="yes">
            <source>%n leveled files exist already.</source>
            <translation>
                <numerusform>%n leveled file exists already.</numerusform>
                <numerusform>%n leveled files exist already.</numerusform>
            </translation>
        </message>
        <message numerus="yes">
            <source> and %n more</source>
            <translation>
                <numerusform> and %n more</numerusform>
                <numerusform> and %n more</numerusform>
            </translation>
        </message>
    </context>
</TS>
