-- A database of version 1, with all its tables and values, as that version of the service wrote it.
PRAGMA journal_mode=WAL;
PRAGMA user_version=1;
BEGIN TRANSACTION;
CREATE TABLE mail_memory (name TEXT PRIMARY KEY, value TEXT NOT NULL);
INSERT INTO "mail_memory" VALUES('watchingSince','1795600112');
INSERT INTO "mail_memory" VALUES('lastRun','2026-11-25T09:48:32.584Z');
CREATE TABLE mail_queue (id INTEGER PRIMARY KEY AUTOINCREMENT, kind INTEGER NOT NULL, message_id TEXT NOT NULL UNIQUE, recipient TEXT NOT NULL, date INTEGER NOT NULL, subject TEXT NOT NULL, text TEXT NOT NULL, html TEXT NOT NULL, attempts INTEGER NOT NULL, next_attempt INTEGER NOT NULL, expires INTEGER NOT NULL, tried INTEGER NOT NULL DEFAULT 0);
CREATE TABLE mail_verification (address TEXT PRIMARY KEY, hash BLOB NOT NULL, expires INTEGER NOT NULL, attempts_left INTEGER NOT NULL, last_sent INTEGER NOT NULL, day_start INTEGER NOT NULL, sent_in_day INTEGER NOT NULL);
CREATE TABLE servers (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    name TEXT NOT NULL,
    uri TEXT NOT NULL,
    user TEXT NOT NULL,
    password TEXT,
    enabled INTEGER NOT NULL,
    isDefault INTEGER NOT NULL,
    savePassword INTEGER NOT NULL
);
INSERT INTO "servers" VALUES(1,'updates.example.com','https://updates.example.com/stable','user','secret one',1,1,1);
INSERT INTO "servers" VALUES(2,'second','file:///srv/mirror','','secret two',0,0,1);
CREATE TABLE settings (
    name TEXT PRIMARY KEY,
    value TEXT
) WITHOUT ROWID;
INSERT INTO "settings" VALUES('dataDirectory','/srv/dätä');
INSERT INTO "settings" VALUES('language.app','de');
INSERT INTO "settings" VALUES('language.data','fr');
INSERT INTO "settings" VALUES('lastRun.began','2026-11-25T09:48:32.584Z');
INSERT INTO "settings" VALUES('lastRun.code','3');
INSERT INTO "settings" VALUES('lastRun.finished','2026-11-25T09:48:32');
INSERT INTO "settings" VALUES('lastRun.lastSuccess',NULL);
INSERT INTO "settings" VALUES('lastRun.text','The service ended in the middle of the update.');
INSERT INTO "settings" VALUES('monitoring','{"clientName":"Station 9","clientSettings":{"date1":null,"date2":"2026-01-01T01:02:03","text1":"one","text2":null,"text3":"","text4":"four"},"eventMailOnManualIntervention":true,"eventMailOnOverdue":true,"eventMailOnUpdate":true,"eventMailsEnabled":true,"lastSummary":null,"notificationEmailAddresses":[{"address":"a@example.com","verified":false}],"summarizedMailPeriod":7,"summarizedMailsEnabled":true,"summarizedMailsOnChangeOnly":true,"updateOverduePeriod":9}');
INSERT INTO "settings" VALUES('proxy.configured','1');
INSERT INTO "settings" VALUES('proxy.enabled','1');
INSERT INTO "settings" VALUES('proxy.host','proxy.example.com');
INSERT INTO "settings" VALUES('proxy.mode','2');
INSERT INTO "settings" VALUES('proxy.password','secret three');
INSERT INTO "settings" VALUES('proxy.port','8080');
INSERT INTO "settings" VALUES('proxy.user','p');
INSERT INTO "settings" VALUES('schedule.anchor','2199-01-02T03:04:05');
INSERT INTO "settings" VALUES('schedule.extra','e');
INSERT INTO "settings" VALUES('schedule.flags','1');
INSERT INTO "settings" VALUES('schedule.mode','2');
INSERT INTO "settings" VALUES('schedule.nextCheck','2199-01-02T03:04:05');
INSERT INTO "settings" VALUES('schedule.nextCheckChosen','1');
INSERT INTO "settings" VALUES('schedule.periodCount','2');
INSERT INTO "settings" VALUES('schedule.unit','2');
INSERT INTO "settings" VALUES('servers.revision','1795600113');
INSERT INTO "settings" VALUES('unfinishedRun',NULL);
CREATE TABLE variables (
    name TEXT PRIMARY KEY,
    value TEXT NOT NULL
) WITHOUT ROWID;
INSERT INTO "variables" VALUES('mail.sender','Station 9 <s9@example.com>');
INSERT INTO "variables" VALUES('own.variable','it''s "quoted"');
CREATE UNIQUE INDEX oneDefaultServer ON servers (isDefault) WHERE isDefault = 1;
DELETE FROM "sqlite_sequence";
INSERT INTO "sqlite_sequence" VALUES('servers',2);
COMMIT;
