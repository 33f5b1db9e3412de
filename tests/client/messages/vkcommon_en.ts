<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name>tarn::vkc::VKCApplication</name>
    <message><source>yes</source><translation>must not be shown</translation></message>
</context>
</TS>
