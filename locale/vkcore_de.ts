<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de" sourcelanguage="en">
<context>
    <name>tarn::vkcore::Application</name>
    <message>
        <source>Failed to load file &quot;%1&quot;: %2</source>
        <translation>Die Datei „%1“ konnte nicht geladen werden: %2</translation>
    </message>
</context>
</TS>
