<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name>tarn::vkc::VKCApplication</name>
    <message><source>Unhandled argument &apos;%1&apos;</source><translation>What is &apos;%1&apos;?</translation></message>
    <message><source>Unknown option: &apos;%1&apos;</source><translation>Never heard of &apos;%1&apos;</translation></message>
    <message numerus="yes"><source>Send interval: %n day(s)</source>
        <translation><numerusform>Every day</numerusform><numerusform>Every %n days</numerusform></translation></message>
    <message><source>yes</source><translation>aye</translation></message>
    <message><source>verified</source><translation>checked</translation></message>
    <message><source>not verified</source><translation>must not be shown</translation></message>
    <message><source>Notification e-mail addresses:</source><translation>must not be shown</translation></message>
</context>
</TS>
